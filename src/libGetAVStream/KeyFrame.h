// What a frame is, told from the first five bytes of its payload (start code and NAL header).
#pragma once

#include <cstring>

#include "NalTypes.h"

inline bool HasStartCode(const uint8_t* nal) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    return std::memcmp(nal, kStartCode, sizeof kStartCode) == 0;
}

inline bool IsJpeg(const uint8_t* payload) {
    return payload[0] == 0xFF && payload[1] == 0xD8;
}

inline bool OpensH264KeyFrame(const uint8_t* nal) {
    return HasStartCode(nal) && h264::TypeOf(nal[4]) == h264::kSeqParameterSet;
}

// A video parameter set, which is no slice or parameter set of H.264.
inline bool OpensH265KeyFrame(const uint8_t* nal) {
    switch (h264::TypeOf(nal[4])) {
        case h264::kCodedSliceNonIdr:
        case h264::kCodedSliceIdr:
        case h264::kSeqParameterSet:
        case h264::kPicParameterSet:
            return false;
        default:
            return h265::TypeOf(nal[4]) == h265::kVpsNut;
    }
}
