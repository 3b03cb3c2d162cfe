// What is read out of parameter sets and slice headers, against FFmpeg's parser as the judge.
#include "clip/SliceOrder.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "clip/SequenceParameters.h"
#include "export/Ffmpeg.h"
#include "fixture/EncodedClip.h"

namespace {

using namespace fixture;
using card::ByteView;
using card::VideoCodec;

ByteView Bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Picture order counts and the size of the picture, as FFmpeg reads them.
class Judge {
  public:
    explicit Judge(VideoCodec codec) : context_(avcodec_alloc_context3(nullptr)) {
        context_->codec_id = codec == VideoCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
        parser_.reset(av_parser_init(context_->codec_id));
        parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    }
    int Order(const std::string& unit) {
        std::string padded = unit + std::string(AV_INPUT_BUFFER_PADDING_SIZE, '\0');
        uint8_t* out = nullptr;
        int size = 0;
        parser_->output_picture_number = INT_MIN;
        av_parser_parse2(parser_.get(), context_.get(), &out, &size, reinterpret_cast<uint8_t*>(padded.data()),
                         static_cast<int>(unit.size()), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        return parser_->output_picture_number;
    }
    int Width() const { return parser_->width; }
    int Height() const { return parser_->height; }

  private:
    card::Owned<AVCodecContext> context_;
    card::Owned<AVCodecParserContext> parser_;
};

struct Case {
    AVCodeType video;
    int width;
    int height;
    bool b_frames;
};

class SliceOrder : public testing::TestWithParam<Case> {};

TEST_P(SliceOrder, CountsAndSizesAreThoseOfFfmpeg) {
    const Case& wanted = GetParam();
    const VideoCodec codec = wanted.video == CODE_VIDEO_H265 ? VideoCodec::H265 : VideoCodec::H264;
    const ClipPlan plan{wanted.video, wanted.width, wanted.height, 25, 50, 600, wanted.b_frames};
    const std::vector<EncodedFrame>& frames = EncodedVideo(plan);
    const card::ReadOrder order = card::SliceOrder(codec);
    Judge judge(codec);
    for (size_t i = 0; i < frames.size(); ++i) {
        ASSERT_EQ(order(Bytes(frames[i].unit)), judge.Order(frames[i].unit)) << "frame " << i;
    }
    int read = 0;
    card::ForEachNal(Bytes(frames[0].unit), [&](ByteView nal) {
        if (!card::IsSequenceParameters(codec, nal)) return;
        const auto set = card::ReadSequenceParameters(codec, nal);
        ASSERT_TRUE(set);
        EXPECT_EQ(set->width, judge.Width());
        EXPECT_EQ(set->height, judge.Height());
        // Cut anywhere it gives nothing, or what it said before the cut; it never reads on.
        for (size_t size = 0; size < nal.size(); ++size) card::ReadSequenceParameters(codec, nal.first(size));
        ++read;
    });
    EXPECT_EQ(read, 1);
}

INSTANTIATE_TEST_SUITE_P(Streams, SliceOrder,
                         testing::Values(Case{CODE_VIDEO_H264, 320, 240, false}, Case{CODE_VIDEO_H264, 322, 182, true},
                                         Case{CODE_VIDEO_H265, 320, 240, false},
                                         Case{CODE_VIDEO_H265, 322, 182, true}));

TEST(SliceOrderDamage, APictureWithoutItsParameterSetsHasNoNumber) {
    const std::vector<EncodedFrame>& frames = EncodedVideo({.frames = 3});
    EXPECT_EQ(card::SliceOrder(VideoCodec::H264)(Bytes(frames[1].unit)), std::nullopt);
    EXPECT_EQ(card::SliceOrder(VideoCodec::H264)({}), std::nullopt);
}

}  // namespace
