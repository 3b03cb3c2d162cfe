extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>

#include "Encoder.h"

#ifdef __SANITIZE_ADDRESS__
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265\n";
}  // 4 KB an encoder, of its own
#endif

#ifdef __SANITIZE_THREAD__
// It is built without the sanitizer, which so does not see the atomics by which its threads hand rows to each other.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:libx265\n";
}
#endif

namespace desk {
namespace {

struct CodecChoice {
    const char* name;
    AVPixelFormat format;
    std::array<std::pair<const char*, const char*>, 4> options;
};

const CodecChoice& Choice(VideoCodec codec) {
    static const CodecChoice h264 = {
        "libx264",
        AV_PIX_FMT_YUV420P,
        {{{"preset", "veryfast"},
          {"tune", "zerolatency"},
          {"forced-idr", "1"},
          {"x264-params", "repeat-headers=1:annexb=1:aud=0:scenecut=0:sliced-threads=0:threads=1"}}}};
    static const CodecChoice h265 = {
        "libx265",
        AV_PIX_FMT_YUV420P,
        {{{"preset", "ultrafast"},
          {"tune", "zerolatency"},
          {"forced-idr", "1"},
          {"x265-params", "log-level=error:repeat-headers=1:annexb=1:aud=0:scenecut=0:open-gop=0:frame-threads=1"}}}};
    static const CodecChoice jpeg = {"mjpeg", AV_PIX_FMT_YUVJ420P, {{{"qmax", "31"}, {"qmin", "4"}, {}, {}}}};
    switch (codec) {
        case VideoCodec::kH265:
            return h265;
        case VideoCodec::kJpeg:
            return jpeg;
        case VideoCodec::kH264:
            break;
    }
    return h264;
}

bool IsUpright(Rotation rotation) {
    return rotation == Rotation::kNone || rotation == Rotation::k180;
}

const char* TurnFilter(Rotation rotation) {
    switch (rotation) {
        case Rotation::k90:
            return "transpose=clock,";
        case Rotation::k180:
            return "hflip,vflip,";
        case Rotation::k270:
            return "transpose=cclock,";
        case Rotation::kNone:
            break;
    }
    return "";
}

}  // namespace

VideoEncoder::VideoEncoder(const VideoEncoding& encoding) : encoding_(encoding), unit_maker_(encoding.codec, {}) {
    OpenCodec();
}

void VideoEncoder::OpenCodec() {
    const CodecChoice& choice = Choice(encoding_.codec);
    const AVCodec* codec = avcodec_find_encoder_by_name(choice.name);
    if (codec == nullptr) throw FfmpegError(choice.name, AVERROR_ENCODER_NOT_FOUND);
    codec_.reset(RequireObject(avcodec_alloc_context3(codec), "encoder"));
    const bool upright = IsUpright(encoding_.rotation);
    codec_->width = upright ? encoding_.width : encoding_.height;
    codec_->height = upright ? encoding_.height : encoding_.width;
    codec_->pix_fmt = choice.format;
    codec_->time_base = {1, encoding_.frame_rate};
    codec_->framerate = {encoding_.frame_rate, 1};
    codec_->gop_size = encoding_.gop;
    codec_->max_b_frames = 0;
    codec_->bit_rate = encoding_.bit_rate;
    codec_->rc_max_rate = encoding_.bit_rate;
    codec_->rc_buffer_size = static_cast<int>(std::min(encoding_.bit_rate, encoding_.burst_bits));
    AVDictionary* options = nullptr;
    for (const auto& [name, value] : choice.options) {
        if (name != nullptr) av_dict_set(&options, name, value, 0);
    }
    const int opened = avcodec_open2(codec_.get(), codec, &options);
    av_dict_free(&options);
    Require(opened, choice.name);
}

bool VideoEncoder::IsDue(int64_t time_us) {
    const int64_t period_us = 1000000 / encoding_.frame_rate;
    if (due_us_ && time_us + period_us / 4 < *due_us_) return false;
    const bool on_time = due_us_ && time_us < *due_us_ + period_us;
    due_us_ = (on_time ? *due_us_ : time_us) + period_us;
    return true;
}

void VideoEncoder::OpenFilter(const AVFrame& picture) {
    filter_in_ = filter_out_ = nullptr;
    graph_.reset(RequireObject(avfilter_graph_alloc(), "filter graph"));
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const std::string from = "video_size=" + std::to_string(picture.width) + "x" + std::to_string(picture.height) +
                             ":pix_fmt=" + av_get_pix_fmt_name(format) + ":time_base=1/1000000";
    Require(avfilter_graph_create_filter(&filter_in_, avfilter_get_by_name("buffer"), "in", from.c_str(), nullptr,
                                         graph_.get()),
            "encoder's input");
    Require(avfilter_graph_create_filter(&filter_out_, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                         graph_.get()),
            "encoder's filter");
    const std::string description = std::string(TurnFilter(encoding_.rotation)) +
                                    "scale=" + std::to_string(codec_->width) + ":" + std::to_string(codec_->height) +
                                    ",setsar=1,format=" + av_get_pix_fmt_name(codec_->pix_fmt);
    AVFilterInOut* inputs = nullptr;
    AVFilterInOut* outputs = nullptr;
    const int parsed = avfilter_graph_parse2(graph_.get(), description.c_str(), &inputs, &outputs);
    const Owned<AVFilterInOut> in(inputs), out(outputs);
    Require(parsed, "encoder's filter");
    Require(avfilter_link(filter_in_, 0, in->filter_ctx, static_cast<unsigned>(in->pad_idx)), "encoder's filter");
    Require(avfilter_link(out->filter_ctx, static_cast<unsigned>(out->pad_idx), filter_out_, 0), "encoder's filter");
    Require(avfilter_graph_config(graph_.get(), nullptr), "encoder's filter");
    from_width_ = picture.width;
    from_height_ = picture.height;
    from_format_ = picture.format;
}

Frame VideoEncoder::Filter(const AVFrame& picture) {
    if (picture.width != from_width_ || picture.height != from_height_ || picture.format != from_format_) {
        OpenFilter(picture);
    }
    const Frame copy(RequireObject(av_frame_clone(&picture), "frame"));
    copy->pict_type = AV_PICTURE_TYPE_NONE;
    Require(av_buffersrc_add_frame(filter_in_, copy.get()), "encoder's filter");
    Frame filtered(RequireObject(av_frame_alloc(), "frame"));
    Require(av_buffersink_get_frame(filter_out_, filtered.get()), "encoder's filter");
    return filtered;
}

AccessUnit VideoEncoder::Encode(const AVFrame& picture, bool force_key) {
    const Frame frame = Filter(picture);
    frame->pts = frames_++;
    frame->pict_type = force_key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    Require(avcodec_send_frame(codec_.get(), frame.get()), "encoder");
    const Packet packet(RequireObject(av_packet_alloc(), "packet"));
    Require(avcodec_receive_packet(codec_.get(), packet.get()), "encoder");
    return unit_maker_.Make(View(packet->data, static_cast<size_t>(packet->size)));
}

}  // namespace desk
