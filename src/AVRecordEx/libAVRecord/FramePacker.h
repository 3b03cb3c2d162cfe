// Packs the frames of a run as program stream: knows the stream's parameters and the numbers of its frames.
//
// Owns the one buffer that packed frames lie in; never touches the card or a head.  Threads: the writer's lock.
#pragma once

#include <span>

#include "Frame.h"
#include "libRecordFile.h"

inline constexpr uint32_t kCardSector = 512;  // bytes, what a card reads and writes at least

class FramePacker {
  public:
    // A writer was opened, or closed: no parameters, no frames.
    void Reset() { *this = {}; }

    // The run's first key frame is here: reads what the camera says of stream `channel`.
    void ReadParameters(int channel, AVCodeType video_codec);
    const AVStreamParam& Parameters() const { return parameters_; }

    // A frame goes in whole or not at all; the first one of a run begins with the stream head.  The bytes stay valid
    // until the next call, and kCardSector zero bytes stand after them; none when the frame cannot be packed, which is
    // counted and logged here.
    std::span<const uint8_t> Pack(const Frame& frame, bool is_first, uint32_t time);

  private:
    int PackVideo(const Frame& frame, bool is_first, uint32_t time);
    int PackAudio(const Frame& frame);

    AVStreamParam parameters_{};  // g_stAVStreamParam
    uint32_t frame_number_ = 0;   // video frames handed in since the writer was opened; m_u32FrameNum
};
