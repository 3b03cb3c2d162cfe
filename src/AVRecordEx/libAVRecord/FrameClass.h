// What a frame is, told from the first byte after its start code.
#pragma once

#include <cstdint>
#include <span>

#include "AVFrame.h"
#include "NalTypes.h"

struct FrameClass {
    AVCodeType codec = CODE_VIDEO_H264;
    bool is_key = false;
};

// A key frame begins with its sequence parameter set (H.264) or its video parameter set (H.265).  The
// NAL unit types of either standard are looked at in this order, as the reader of the rings does.
inline FrameClass ClassifyVideo(std::span<const uint8_t> frame) {
    if (frame.size() < 5) {
        return {};
    }
    switch (const h264::NalUnitType type = h264::TypeOf(frame[4])) {
        case h264::kCodedSliceNonIdr:
        case h264::kCodedSliceIdr:
        case h264::kSeqParameterSet:
        case h264::kPicParameterSet:
            return {CODE_VIDEO_H264, type == h264::kSeqParameterSet};
        default:
            break;
    }
    switch (const h265::NalUnitType type = h265::TypeOf(frame[4])) {
        case h265::kTrailR:
        case h265::kVpsNut:
            return {CODE_VIDEO_H265, type == h265::kVpsNut};
        default:
            return {};
    }
}
