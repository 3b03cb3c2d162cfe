// The sound of a clip on its way into a file: taken over as it is, or made AAC for players that know no G.711.
//
// Runs on the clock of the samples themselves; only when that and the pictures have drifted apart audibly,
// silence is put in or sound left out.  One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "clip/FrameClock.h"
#include "export/Ffmpeg.h"
#include "stream/NalUnits.h"
#include "stream/StreamScanner.h"

namespace card {

struct SoundFormat {
    AVCodecID codec = AV_CODEC_ID_NONE;  // as recorded; NONE: not playable
    int sample_rate = 0;                 // Hz
    int channels = 1;

    bool operator==(const SoundFormat&) const = default;
};

// `first_payload` is a sound of the stream: an ADTS header in it knows more than the stream's parameters.
SoundFormat SoundFormatOf(const StreamParameters& parameters, ByteView first_payload);

class SoundTrack {
  public:
    // Takes the packet's reference; times in samples.
    using Sink = std::function<void(AVPacket* packet)>;

    // Throws CardError when FFmpeg lacks a codec.
    SoundTrack(const SoundFormat& format, bool global_headers, bool to_aac, Sink sink);

    void Describe(AVCodecParameters* parameters) const;  // of what the sink gets
    // `at`: since the start of the file.
    void Add(ByteView payload, Ticks at);
    void Finish();  // once, after the last Add

  private:
    void AddPlain(ByteView payload, int64_t samples);
    void AddAac(ByteView payload);
    void Encode(ByteView payload);
    void EncodeSilence(int64_t samples);
    void EncodeFrame(int samples);
    void TakePackets();
    bool Align(Ticks at);

    SoundFormat format_;
    Sink sink_;
    Owned<AVCodecContext> encoder_;  // null: taken over as it is
    Owned<AVCodecContext> decoder_;
    Owned<AVFrame> frame_;
    Owned<AVPacket> packet_;
    std::vector<float> waiting_;  // samples not yet encoded
    int64_t position_ = 0;        // samples encoded or handed on
    bool started_ = false;
};

}  // namespace card
