// The types of NAL units, by the names of the tables that define them.
//
// The type stands in a NAL unit's first byte, right after the start code; which of the two tables holds is the
// stream's to say.
#pragma once

#include <cstdint>

namespace h264 {  // ITU-T H.264, table 7-1

enum NalUnitType : uint8_t {
    kCodedSliceNonIdr = 1,
    kCodedSliceDataPartitionA = 2,
    kCodedSliceDataPartitionB = 3,
    kCodedSliceDataPartitionC = 4,
    kCodedSliceIdr = 5,
    kSei = 6,
    kSeqParameterSet = 7,
    kPicParameterSet = 8,
    kAccessUnitDelimiter = 9,
};

constexpr NalUnitType TypeOf(uint8_t nal_header) {
    return static_cast<NalUnitType>(nal_header & 0x1F);
}

}  // namespace h264

namespace h265 {  // ITU-T H.265, table 7-1

enum NalUnitType : uint8_t {
    kTrailN = 0,
    kTrailR = 1,
    kRadlN = 6,
    kRadlR = 7,
    kBlaWLp = 16,  // the first of the pictures that a decoder may begin with (IRAP)
    kIdrWRadl = 19,
    kIdrNLp = 20,
    kCraNut = 21,  // the last of them
    kVpsNut = 32,
    kSpsNut = 33,
    kPpsNut = 34,
    kAudNut = 35,
    kPrefixSeiNut = 39,
};

constexpr NalUnitType TypeOf(uint8_t first_header_byte) {
    return static_cast<NalUnitType>(first_header_byte >> 1 & 0x3F);
}

}  // namespace h265
