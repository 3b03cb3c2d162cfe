#include "EncodedClip.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <cmath>
#include <cstring>
#include <list>
#include <memory>
#include <stdexcept>
#include <utility>

// The H.265 encoder keeps some of its tables until the process ends; everything else must be given back.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265\n";
}

namespace fixture {

namespace {

struct Release {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Context = std::unique_ptr<AVCodecContext, Release>;
using Frame = std::unique_ptr<AVFrame, Release>;
using Packet = std::unique_ptr<AVPacket, Release>;

void Check(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + " failed");
}

// The NAL units of an Annex B stream, without start codes.
std::vector<std::string> SplitUnits(const std::string& stream) {
    const std::string code("\0\0\1", 3);
    std::vector<std::string> units;
    for (size_t at = stream.find(code); at != std::string::npos;) {
        const size_t begin = at + code.size();
        at = stream.find(code, begin);
        std::string unit = stream.substr(begin, at == std::string::npos ? at : at - begin);
        while (!unit.empty() && unit.back() == '\0') unit.pop_back();
        units.push_back(std::move(unit));
    }
    return units;
}

// As a camera's encoder hands it out: four-byte start codes, no information or delimiter units.
std::string CameraUnit(const std::string& stream, bool h265) {
    std::string unit;
    for (const std::string& nal : SplitUnits(stream)) {
        const int type = h265 ? (nal[0] >> 1) & 63 : nal[0] & 31;
        const bool wanted = h265 ? type < 35 : type < 6 || type == 7 || type == 8;
        if (wanted) unit += std::string("\0\0\0\1", 4) + nal;
    }
    return unit;
}

Context OpenVideo(const ClipPlan& plan) {
    const bool h265 = plan.video == CODE_VIDEO_H265;
    const AVCodec* codec = avcodec_find_encoder_by_name(h265 ? "libx265" : "libx264");
    if (codec == nullptr) throw std::runtime_error("FFmpeg lacks an encoder");
    Context context(avcodec_alloc_context3(codec));
    context->width = plan.width;
    context->height = plan.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {1, static_cast<int>(plan.rate)};
    context->framerate = {static_cast<int>(plan.rate), 1};
    context->gop_size = static_cast<int>(plan.key_interval);
    context->max_b_frames = plan.b_frames ? 3 : 0;
    context->thread_count = 1;
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    if (!plan.b_frames) av_opt_set(context->priv_data, "tune", "zerolatency", 0);
    std::string keys =
        "scenecut=0:keyint=" + std::to_string(plan.key_interval) + ":min-keyint=" + std::to_string(plan.key_interval);
    if (plan.b_frames) keys += ":bframes=3:b-adapt=0" + std::string(h265 ? ":b-pyramid=1" : ":b-pyramid=normal");
    if (h265) {
        av_opt_set(context->priv_data, "x265-params", (keys + ":repeat-headers=1:log-level=error:pools=1").c_str(), 0);
    } else {
        av_opt_set(context->priv_data, "x264-params", (keys + ":sliced-threads=0:repeat-headers=1").c_str(), 0);
    }
    Check(avcodec_open2(context.get(), codec, nullptr), "opening the video encoder");
    return context;
}

// A slope that slides, and a bright square that walks: every picture differs from the others.
void Draw(AVFrame& frame, uint32_t number) {
    Check(av_frame_make_writable(&frame), "a frame");
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            frame.data[0][y * frame.linesize[0] + x] =
                static_cast<uint8_t>(16 + (x + y + 3 * static_cast<int>(number)) % 160);
        }
    }
    const int side = frame.height / 4;
    const int left = static_cast<int>(number * 5 % static_cast<uint32_t>(frame.width - side));
    for (int y = side; y < 2 * side; ++y)
        std::memset(frame.data[0] + y * frame.linesize[0] + left, 235, static_cast<size_t>(side));
    for (int plane : {1, 2}) {
        for (int y = 0; y < frame.height / 2; ++y) {
            std::memset(frame.data[plane] + y * frame.linesize[plane], static_cast<int>(100 + number % 50),
                        static_cast<size_t>(frame.width / 2));
        }
    }
}

template <typename Take>
void Drain(AVCodecContext& context, const AVFrame* frame, Take take) {
    Check(avcodec_send_frame(&context, frame), "encoding");
    const Packet packet(av_packet_alloc());
    while (avcodec_receive_packet(&context, packet.get()) == 0) {
        take(*packet);
        av_packet_unref(packet.get());
    }
}

std::vector<EncodedFrame> Encode(const ClipPlan& plan) {
    av_log_set_level(AV_LOG_ERROR);
    const Context context = OpenVideo(plan);
    const Frame frame(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = plan.width;
    frame->height = plan.height;
    Check(av_frame_get_buffer(frame.get(), 0), "a frame");
    std::vector<EncodedFrame> frames;
    const auto take = [&](const AVPacket& packet) {
        const std::string stream(reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size));
        frames.push_back({CameraUnit(stream, plan.video == CODE_VIDEO_H265), (packet.flags & AV_PKT_FLAG_KEY) != 0});
    };
    for (uint32_t number = 0; number < plan.frames; ++number) {
        Draw(*frame, number);
        frame->pts = number;
        Drain(*context, frame.get(), take);
    }
    Drain(*context, nullptr, take);
    return frames;
}

constexpr int kSampleRate = 8000;

// ADTS header of one AAC LC packet, mono.
std::string WithAdtsHeader(const std::string& packet) {
    constexpr uint32_t kRateIndex = 11;  // 8000 Hz
    const uint32_t length = static_cast<uint32_t>(packet.size()) + 7;
    const uint8_t header[7] = {0xFF,
                               0xF1,
                               static_cast<uint8_t>(1 << 6 | kRateIndex << 2),
                               static_cast<uint8_t>(1 << 6 | length >> 11),
                               static_cast<uint8_t>(length >> 3),
                               static_cast<uint8_t>((length & 7) << 5 | 0x1F),
                               0xFC};
    return std::string(reinterpret_cast<const char*>(header), sizeof header) + packet;
}

std::vector<std::string> EncodeSound(AVCodeType audio, uint32_t packets) {
    const AVCodecID id = audio == CODE_AUDIO_AAC     ? AV_CODEC_ID_AAC
                         : audio == CODE_AUDIO_G711U ? AV_CODEC_ID_PCM_MULAW
                                                     : AV_CODEC_ID_PCM_ALAW;
    const AVCodec* codec = avcodec_find_encoder(id);
    Context context(avcodec_alloc_context3(codec));
    context->sample_rate = kSampleRate;
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    context->sample_fmt = codec->sample_fmts[0];
    Check(avcodec_open2(context.get(), codec, nullptr), "opening the sound encoder");
    const Frame frame(av_frame_alloc());
    frame->format = context->sample_fmt;
    frame->ch_layout = context->ch_layout;
    frame->sample_rate = kSampleRate;
    frame->nb_samples = audio == CODE_AUDIO_AAC ? 1024 : 320;
    Check(av_frame_get_buffer(frame.get(), 0), "a sound frame");
    std::vector<std::string> sounds;
    const auto take = [&](const AVPacket& packet) {
        const std::string bytes(reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size));
        sounds.push_back(audio == CODE_AUDIO_AAC ? WithAdtsHeader(bytes) : bytes);
    };
    int64_t sample = 0;
    while (sounds.size() < packets) {
        Check(av_frame_make_writable(frame.get()), "a sound frame");
        frame->pts = sample;
        for (int i = 0; i < frame->nb_samples; ++i, ++sample) {
            const double value = 0.4 * std::sin(2 * M_PI * 440 * static_cast<double>(sample) / kSampleRate);
            if (context->sample_fmt == AV_SAMPLE_FMT_FLTP) {
                reinterpret_cast<float*>(frame->data[0])[i] = static_cast<float>(value);
            } else {
                reinterpret_cast<int16_t*>(frame->data[0])[i] = static_cast<int16_t>(value * 32767);
            }
        }
        Drain(*context, frame.get(), take);
    }
    return sounds;
}

}  // namespace

const std::vector<EncodedFrame>& EncodedVideo(const ClipPlan& plan) {
    static std::list<std::pair<ClipPlan, std::vector<EncodedFrame>>> clips;
    for (const auto& [known, frames] : clips) {
        if (known == plan) return frames;
    }
    return clips.emplace_back(plan, Encode(plan)).second;
}

const std::vector<std::string>& EncodedSound(AVCodeType audio, uint32_t packets) {
    static std::list<std::pair<AVCodeType, std::vector<std::string>>> sounds;
    for (const auto& [known, list] : sounds) {
        if (known == audio && list.size() >= packets) return list;
    }
    return sounds.emplace_back(audio, EncodeSound(audio, packets)).second;
}

}  // namespace fixture
