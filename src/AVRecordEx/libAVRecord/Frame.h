// One encoded frame on its way through the writer.
#pragma once

#include <cstdint>
#include <span>

#include "AVFrame.h"
#include "FrameClass.h"

struct Frame {
    int kind;                       // AVFrameType
    std::span<const uint8_t> data;  // in the media server's ring
    const AVDataInfoOpt& info;      // the reader's copy of its header
    FrameClass found;               // what its bytes say

    Frame(int frame_kind, const char* bytes, const AVDataInfoOpt& copied)
        : kind(frame_kind),
          data(reinterpret_cast<const uint8_t*>(bytes), static_cast<size_t>(copied.AVDataLen)),
          info(copied),
          found(IsVideo() ? ClassifyVideo(data) : FrameClass{}) {}

    int Length() const { return static_cast<int>(data.size()); }
    bool IsVideo() const { return kind == AV_FRAME_TYPE_VIDEO; }
    bool IsVirtualKey() const { return IsVideo() && info.iVirtualIFrame == 1; }
};
