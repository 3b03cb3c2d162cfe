extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <deque>

#include "Source.h"

namespace desk {
namespace {

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr int64_t kLongestWaitForOther_us = 1000000;  // items held back until the other kind has caught up

std::optional<VideoCodec> PassThroughCodec(AVCodecID id) {
    if (id == AV_CODEC_ID_H264) return VideoCodec::kH264;
    if (id == AV_CODEC_ID_HEVC) return VideoCodec::kH265;
    return std::nullopt;
}

// Anticlockwise, as a player is asked to turn what it decodes; what is no quarter of a circle is rounded to one.
int QuarterTurns(const AVStream& stream) {
    const uint8_t* const matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    const double angle = matrix != nullptr ? av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix)) : 0;
    return std::isnan(angle) ? 0 : static_cast<int>(std::lround(angle / 90)) & 3;
}

Owned<AVCodecContext> OpenDecoder(const AVStream& stream) {
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr) throw FfmpegError(avcodec_get_name(stream.codecpar->codec_id), AVERROR_DECODER_NOT_FOUND);
    Owned<AVCodecContext> context(RequireObject(avcodec_alloc_context3(codec), "decoder"));
    Require(avcodec_parameters_to_context(context.get(), stream.codecpar), codec->name);
    context->pkt_timebase = stream.time_base;
    Require(avcodec_open2(context.get(), codec, nullptr), codec->name);
    return context;
}

// One opening of the input: from its start to its end.
class Opening {
  public:
    Opening(const std::string& url, const std::atomic<bool>& stop);

    AVFormatContext* Context() const { return context_.get(); }

  private:
    static int Interrupted(void* stop) { return static_cast<const std::atomic<bool>*>(stop)->load() ? 1 : 0; }

    Owned<AVFormatContext> context_;
};

Opening::Opening(const std::string& url, const std::atomic<bool>& stop) {
    AVFormatContext* context = RequireObject(avformat_alloc_context(), "input");
    context->interrupt_callback = {Interrupted, const_cast<std::atomic<bool>*>(&stop)};
    const bool capture = url.starts_with("/dev/video");
    if (capture) avdevice_register_all();
    AVDictionary* options = nullptr;
    if (url.starts_with("rtsp")) av_dict_set(&options, "rtsp_transport", "tcp", 0);
    const int opened =
        avformat_open_input(&context, url.c_str(), capture ? av_find_input_format("video4linux2") : nullptr, &options);
    av_dict_free(&options);
    Require(opened, url);  // the context is gone when it failed
    context_.reset(context);
    Require(avformat_find_stream_info(context, nullptr), url);
}

// Turns decoded sound of any kind into frames of 8000 Hz mono.
class SoundMaker {
  public:
    explicit SoundMaker(const AVCodecContext& decoder) {
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext* resampler = nullptr;
        AVChannelLayout from = {};
        if (av_channel_layout_check(&decoder.ch_layout) && decoder.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC) {
            av_channel_layout_copy(&from, &decoder.ch_layout);
        } else {
            av_channel_layout_default(&from, std::max(1, decoder.ch_layout.nb_channels));
        }
        const int made = swr_alloc_set_opts2(&resampler, &mono, AV_SAMPLE_FMT_S16, kSoundRate, &from,
                                             decoder.sample_fmt, decoder.sample_rate, 0, nullptr);
        av_channel_layout_uninit(&from);
        resampler_.reset(resampler);
        Require(made, "resampler");
        Require(swr_init(resampler), "resampler");
    }

    void Add(const AVFrame& frame, int64_t time_us) {
        const int64_t expected_us = start_us_ + done_ * 1000000 / kSoundRate;
        if (done_ == 0 || std::abs(time_us - expected_us) > 500000) {  // first, or a hole in the input
            start_us_ = time_us;
            done_ = 0;
            taken_ = 0;
            samples_.clear();
        }
        const int room = Require(swr_get_out_samples(resampler_.get(), frame.nb_samples), "resampler");
        const size_t before = samples_.size();
        samples_.resize(before + static_cast<size_t>(room));
        auto* out = reinterpret_cast<uint8_t*>(samples_.data() + before);
        const int got = Require(swr_convert(resampler_.get(), &out, room,
                                            const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples),
                                "resampler");
        samples_.resize(before + static_cast<size_t>(got));
        done_ += got;
    }

    std::optional<Item> Take() {
        if (samples_.size() < kSoundFrameSamples) return std::nullopt;
        Item item{Item::Kind::kSound, start_us_ + taken_ * 1000000 / kSoundRate, {}, nullptr, {}};
        item.sound.assign(samples_.begin(), samples_.begin() + kSoundFrameSamples);
        samples_.erase(samples_.begin(), samples_.begin() + kSoundFrameSamples);
        taken_ += kSoundFrameSamples;
        return item;
    }

  private:
    Owned<SwrContext> resampler_;
    std::vector<int16_t> samples_;
    int64_t start_us_ = 0;
    int64_t done_ = 0, taken_ = 0;  // samples since start_us_
};

class Input final : public Source {
  public:
    Input(std::string url, bool loop, const std::atomic<bool>& stop) : url_(std::move(url)), loop_(loop), stop_(stop) {
        Open();
        const AVStream& video = *opening_->Context()->streams[video_stream_];
        if (const auto codec = PassThroughCodec(video.codecpar->codec_id)) {
            const AVRational rate =
                av_guess_frame_rate(opening_->Context(), opening_->Context()->streams[video_stream_], nullptr);
            const int rounded = rate.num > 0 ? static_cast<int>(std::lround(av_q2d(rate))) : 25;
            facts_ = VideoFacts{*codec, video.codecpar->width, video.codecpar->height, std::clamp(rounded, 1, 255)};
        }
    }

    std::optional<Item> Next() override {
        while (!ended_ && !Ready()) ReadPacket();
        if (stop_ || (videos_.empty() && sounds_.empty())) return std::nullopt;
        const bool sound = videos_.empty() || (!sounds_.empty() && sounds_.front().time_us < videos_.front().time_us);
        std::deque<Item>& queue = sound ? sounds_ : videos_;
        Item item = std::move(queue.front());
        queue.pop_front();
        return item;
    }

    std::optional<VideoFacts> PassThrough() const override { return facts_; }
    bool HasSound() const override { return sound_stream_ >= 0; }

  private:
    void Open();
    void ReadPacket();
    void AtEnd();
    void TakeVideo(const AVPacket* packet);
    void TakeSound(const AVPacket* packet);
    bool Ready() const;
    int64_t TimeOf(int64_t stamp, int stream);

    std::string url_;
    bool loop_;
    const std::atomic<bool>& stop_;
    bool ended_ = false;

    std::optional<Opening> opening_;
    int video_stream_ = -1, sound_stream_ = -1;
    Owned<AVCodecContext> picture_decoder_, sound_decoder_;
    std::optional<AccessUnitMaker> unit_maker_;
    std::optional<SoundMaker> sound_maker_;
    std::optional<VideoFacts> facts_;

    int64_t first_us_ = AV_NOPTS_VALUE;  // the input's own time of its first item
    int64_t offset_us_ = 0;              // where this round of the loop begins
    int64_t last_video_us_ = 0;
    int64_t frame_duration_us_ = 40000;
    std::deque<Item> videos_, sounds_;
};

void Input::Open() {
    opening_.reset();
    opening_.emplace(url_, stop_);
    AVFormatContext* context = opening_->Context();
    video_stream_ =
        Require(av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0), url_ + " has no video");
    const AVStream& video = *context->streams[video_stream_];
    if (const auto codec = PassThroughCodec(video.codecpar->codec_id)) {
        unit_maker_.emplace(*codec,
                            View(video.codecpar->extradata, static_cast<size_t>(video.codecpar->extradata_size)),
                            QuarterTurns(video));
    } else {
        picture_decoder_ = OpenDecoder(video);
    }
    const AVRational rate = av_guess_frame_rate(context, context->streams[video_stream_], nullptr);
    if (rate.num > 0) frame_duration_us_ = av_rescale(1000000, rate.den, rate.num);

    sound_stream_ = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, video_stream_, nullptr, 0);
    if (sound_stream_ >= 0) {
        sound_decoder_ = OpenDecoder(*context->streams[sound_stream_]);
        sound_maker_.reset();
    }
    first_us_ = AV_NOPTS_VALUE;
}

bool Input::Ready() const {
    if (videos_.empty() && sounds_.empty()) return false;
    if (sound_stream_ < 0 || (!videos_.empty() && !sounds_.empty())) return true;
    const std::deque<Item>& queue = videos_.empty() ? sounds_ : videos_;
    return queue.back().time_us - queue.front().time_us > kLongestWaitForOther_us;
}

int64_t Input::TimeOf(int64_t stamp, int stream) {
    const int64_t time_us = av_rescale_q(stamp, opening_->Context()->streams[stream]->time_base, kMicroseconds);
    if (first_us_ == AV_NOPTS_VALUE) first_us_ = time_us;
    return offset_us_ + time_us - first_us_;
}

void Input::ReadPacket() {
    const Packet packet(RequireObject(av_packet_alloc(), "packet"));
    const int read = av_read_frame(opening_->Context(), packet.get());
    if (read == AVERROR(EAGAIN)) return;
    if (read < 0) {
        if (read != AVERROR_EOF && !stop_) throw FfmpegError(url_, read);
        AtEnd();
    } else if (packet->stream_index == video_stream_) {
        TakeVideo(packet.get());
    } else if (packet->stream_index == sound_stream_) {
        TakeSound(packet.get());
    }
}

void Input::AtEnd() {
    if (picture_decoder_) TakeVideo(nullptr);
    if (sound_decoder_) TakeSound(nullptr);
    ended_ = stop_ || !loop_;
    if (ended_) return;
    offset_us_ = last_video_us_ + frame_duration_us_;
    Open();
}

// Decoding order is kept: a pass-through item's time is its decoding time.
void Input::TakeVideo(const AVPacket* packet) {
    if (unit_maker_) {
        const int64_t stamp = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
        last_video_us_ = stamp != AV_NOPTS_VALUE ? TimeOf(stamp, video_stream_) : last_video_us_ + frame_duration_us_;
        AccessUnit unit = unit_maker_->Make(View(packet->data, static_cast<size_t>(packet->size)));
        if (!unit.bytes.empty()) {
            videos_.push_back({Item::Kind::kAccessUnit, last_video_us_, std::move(unit), nullptr, {}});
        }
        return;
    }
    if (avcodec_send_packet(picture_decoder_.get(), packet) < 0) return;  // a damaged packet costs its own picture
    while (true) {
        Frame frame(RequireObject(av_frame_alloc(), "frame"));
        if (avcodec_receive_frame(picture_decoder_.get(), frame.get()) < 0) return;
        const int64_t stamp = frame->best_effort_timestamp;
        last_video_us_ = stamp != AV_NOPTS_VALUE ? TimeOf(stamp, video_stream_) : last_video_us_ + frame_duration_us_;
        videos_.push_back({Item::Kind::kPicture, last_video_us_, {}, std::move(frame), {}});
    }
}

void Input::TakeSound(const AVPacket* packet) {
    if (avcodec_send_packet(sound_decoder_.get(), packet) < 0) return;
    const Frame frame(RequireObject(av_frame_alloc(), "frame"));
    while (avcodec_receive_frame(sound_decoder_.get(), frame.get()) >= 0) {
        if (frame->best_effort_timestamp == AV_NOPTS_VALUE) continue;
        if (!sound_maker_) sound_maker_.emplace(*sound_decoder_);
        sound_maker_->Add(*frame, TimeOf(frame->best_effort_timestamp, sound_stream_));
        while (auto item = sound_maker_->Take()) sounds_.push_back(std::move(*item));
    }
}

}  // namespace

std::unique_ptr<Source> OpenInput(const std::string& url, bool loop, const std::atomic<bool>& stop) {
    return std::make_unique<Input>(url, loop, stop);
}

}  // namespace desk
