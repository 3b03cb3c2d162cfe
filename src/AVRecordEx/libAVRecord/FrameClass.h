// What a frame is, told from the first byte behind its start code.
#pragma once

#include <cstdint>
#include <span>

#include "AVFrame.h"

struct FrameClass {
    AVCodeType codec = CODE_VIDEO_H264;
    bool is_key = false;
};

// A key frame begins with its sequence parameter set (H.264) or its video parameter set (H.265).  The
// NAL unit types of either standard are looked at in this order, as the reader of the rings does.
inline FrameClass ClassifyVideo(std::span<const uint8_t> frame) {
    enum : unsigned { kAvcSlice = 1, kAvcIdr = 5, kAvcSps = 7, kAvcPps = 8, kHevcTrail = 1, kHevcVps = 32 };
    if (frame.size() < 5) {
        return {};
    }
    const unsigned avc = frame[4] & 31u;
    if (avc == kAvcSlice || avc == kAvcIdr || avc == kAvcSps || avc == kAvcPps) {
        return {CODE_VIDEO_H264, avc == kAvcSps};
    }
    const unsigned hevc = (frame[4] >> 1) & 63u;
    if (hevc == kHevcTrail || hevc == kHevcVps) {
        return {CODE_VIDEO_H265, hevc == kHevcVps};
    }
    return {};
}
