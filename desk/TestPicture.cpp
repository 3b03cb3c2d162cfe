extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <string>

#include "Source.h"

namespace desk {
namespace {

constexpr char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";

class TestPicture final : public Source {
  public:
    explicit TestPicture(const TestPictureSize& size) : graph_(RequireObject(avfilter_graph_alloc(), "filter graph")) {
        const std::string text_size = std::to_string(std::max(12, size.height / 16));
        const std::string description =
            "testsrc2=size=" + std::to_string(size.width) + "x" + std::to_string(size.height) +
            ":rate=" + std::to_string(size.frame_rate) + ",drawtext=fontfile=" + kFont + ":fontsize=" + text_size +
            ":fontcolor=white:box=1:boxcolor=black@0.6:boxborderw=8:x=(w-tw)/2:y=h-2*th"
            ":text='%{localtime\\:%Y-%m-%d %H\\\\\\:%M\\\\\\:%S}  frame %{n}',format=yuv420p[picture];"
            "sine=frequency=440:beep_factor=4:sample_rate=" +
            std::to_string(kSoundRate) + ":samples_per_frame=" + std::to_string(kSoundFrameSamples) +
            ",aformat=sample_fmts=s16:channel_layouts=mono[sound]";
        AVFilterInOut* inputs = nullptr;
        AVFilterInOut* outputs = nullptr;
        avfilter_graph_set_auto_convert(graph_.get(), AVFILTER_AUTO_CONVERT_ALL);
        const int parsed = avfilter_graph_parse2(graph_.get(), description.c_str(), &inputs, &outputs);
        const Owned<AVFilterInOut> unused_inputs(inputs), open_ends(outputs);
        Require(parsed, "test picture");
        for (AVFilterInOut* end = open_ends.get(); end != nullptr; end = end->next) {
            const bool picture = std::string(end->name) == "picture";
            AVFilterContext*& sink = picture ? picture_sink_ : sound_sink_;
            Require(avfilter_graph_create_filter(&sink, avfilter_get_by_name(picture ? "buffersink" : "abuffersink"),
                                                 end->name, nullptr, nullptr, graph_.get()),
                    "test picture's sink");
            Require(avfilter_link(end->filter_ctx, static_cast<unsigned>(end->pad_idx), sink, 0),
                    "test picture's link");
        }
        Require(avfilter_graph_config(graph_.get(), nullptr), "test picture");
    }

    std::optional<Item> Next() override {
        if (!picture_) picture_ = Pull(picture_sink_, picture_time_us_);
        if (!sound_) sound_ = Pull(sound_sink_, sound_time_us_);
        if (sound_time_us_ < picture_time_us_) {
            const auto* samples = reinterpret_cast<const int16_t*>(sound_->data[0]);
            Item item{Item::Kind::kSound, sound_time_us_, {}, nullptr, {samples, samples + sound_->nb_samples}};
            sound_.reset();
            return item;
        }
        return Item{Item::Kind::kPicture, picture_time_us_, {}, std::move(picture_), {}};
    }

    bool HasSound() const override { return true; }

  private:
    static Frame Pull(AVFilterContext* sink, int64_t& time_us) {
        Frame frame(RequireObject(av_frame_alloc(), "frame"));
        Require(av_buffersink_get_frame(sink, frame.get()), "test picture");
        time_us = av_rescale_q(frame->pts, av_buffersink_get_time_base(sink), {1, 1000000});
        return frame;
    }

    Owned<AVFilterGraph> graph_;
    AVFilterContext* picture_sink_ = nullptr;
    AVFilterContext* sound_sink_ = nullptr;
    Frame picture_, sound_;
    int64_t picture_time_us_ = 0, sound_time_us_ = 0;
};

}  // namespace

std::unique_ptr<Source> MakeTestPicture(const TestPictureSize& size) {
    return std::make_unique<TestPicture>(size);
}

}  // namespace desk
