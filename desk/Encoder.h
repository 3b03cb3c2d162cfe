// The camera's encoders: pictures and sound in, what the media server publishes out.
//
// Video leaves at once (no B-frames, no look-ahead): the picture handed in is the access unit handed out, so that a
// forced key frame really is the next one.  A changed setting means a new encoder.  One thread each.
#pragma once

#include <optional>
#include <vector>

#include "AVFrame.h"
#include "AccessUnit.h"
#include "Ffmpeg.h"

namespace desk {

// Clockwise, as `nRotateAngle` counts.
enum class Rotation { kNone = 0, k90 = 1, k180 = 2, k270 = 3 };

struct VideoEncoding {
    VideoCodec codec = VideoCodec::kH264;
    int width = 0;  // of the picture before it is turned
    int height = 0;
    int frame_rate = 0;      // 1/s
    int64_t bit_rate = 0;    // bit/s
    int gop = 0;             // frames from key frame to key frame
    int64_t burst_bits = 0;  // most bits of one frame: what the ring can take
    Rotation rotation = Rotation::kNone;
    bool operator==(const VideoEncoding&) const = default;
};

class VideoEncoder {
  public:
    explicit VideoEncoder(const VideoEncoding& encoding);

    const VideoEncoding& Encoding() const { return encoding_; }

    // Whether a picture of this time is due at the stream's frame rate; call once a picture.
    bool IsDue(int64_t time_us);

    AccessUnit Encode(const AVFrame& picture, bool force_key);

  private:
    void OpenCodec();
    void OpenFilter(const AVFrame& picture);
    Frame Filter(const AVFrame& picture);

    VideoEncoding encoding_;
    AccessUnitMaker unit_maker_;
    Owned<AVCodecContext> codec_;
    Owned<AVFilterGraph> graph_;  // turns and scales
    AVFilterContext* filter_in_ = nullptr;
    AVFilterContext* filter_out_ = nullptr;
    int from_width_ = 0, from_height_ = 0, from_format_ = -1;
    int64_t frames_ = 0;
    std::optional<int64_t> due_us_;
};

// The codec that `audio_config.codectype` names: 0 or an unknown value is G.711 mu-law, 1 is A-law.
AVCodeType SoundCodec(int codectype);

class SoundEncoder {
  public:
    explicit SoundEncoder(AVCodeType codec);

    AVCodeType Codec() const { return code_; }

    // The audio frames that are complete with these samples: one for G.711 and PCM, none or more for AAC (ADTS).
    std::vector<Bytes> Encode(const std::vector<int16_t>& samples);

  private:
    Bytes WithAdtsHeader(View frame) const;

    AVCodeType code_;
    Owned<AVCodecContext> codec_;
    std::vector<int16_t> waiting_;
    int64_t samples_ = 0;
};

}  // namespace desk
