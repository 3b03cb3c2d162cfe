#include "export/SliceOrder.h"

#include <climits>
#include <memory>

#include "export/Ffmpeg.h"

namespace card {

namespace {

AVCodecID CodecId(VideoCodec codec) {
    return codec == VideoCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
}

class Parser {
  public:
    explicit Parser(VideoCodec codec)
        : context_(RequireObject(avcodec_alloc_context3(nullptr), "video")),
          parser_(RequireObject(av_parser_init(CodecId(codec)), "video")) {
        context_->codec_id = CodecId(codec);
        parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    }

    std::optional<int32_t> Order(ByteView unit) {
        padded_.assign(unit.begin(), unit.end());
        padded_.resize(unit.size() + AV_INPUT_BUFFER_PADDING_SIZE);
        uint8_t* out = nullptr;
        int size = 0;
        parser_->output_picture_number = INT_MIN;
        av_parser_parse2(parser_.get(), context_.get(), &out, &size, padded_.data(), static_cast<int>(unit.size()),
                         AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        if (parser_->output_picture_number == INT_MIN) return std::nullopt;
        return parser_->output_picture_number;
    }

  private:
    Owned<AVCodecContext> context_;
    Owned<AVCodecParserContext> parser_;
    std::vector<uint8_t> padded_;
};

}  // namespace

ReadOrder SliceOrder(VideoCodec codec) {
    return [parser = std::make_shared<Parser>(codec)](ByteView unit) { return parser->Order(unit); };
}

}  // namespace card
