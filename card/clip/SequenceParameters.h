// What sequence and picture parameter sets say, as far as it is needed to read slice headers and to describe a
// stream to a player (ITU-T H.264, 7.3.2.1 and 7.3.2.2; ITU-T H.265, 7.3.2.2 and 7.3.2.3).
//
// Nothing for a set that is cut off or impossible.  Holds no state.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "stream/NalUnits.h"

namespace card {

struct SequenceParameters {
    uint32_t id = 0;
    int width = 0;  // pixels, as shown
    int height = 0;
    bool separate_planes = false;
    int order_bits = 0;                      // of the picture order count's low part
    std::array<uint8_t, 3> avc_profile{};    // H.264: profile, constraints, level
    std::array<uint8_t, 12> hevc_profile{};  // H.265: general part of profile, tier and level
    int chroma = 1;                          // chroma_format_idc
    int luma_depth = 8;                      // bits
    int chroma_depth = 8;
    int sub_layers = 1;   // H.265: temporal layers
    bool nested = false;  // H.265: each may be left out at any place

    // H.264 alone.
    int frame_number_bits = 0;
    int order_type = 0;
    bool frames_only = true;
    bool delta_always_zero = false;  // order type 1: this and the next three
    int32_t offset_for_non_reference = 0;
    int32_t offset_top_to_bottom = 0;
    std::vector<int32_t> offsets_for_reference;
};

struct PictureParameters {
    uint32_t id = 0;
    uint32_t sequence = 0;      // id of its sequence parameter set
    bool bottom_order = false;  // H.264: slice headers tell the order of the bottom field, too
    bool output_flag = false;   // H.265: slice headers say whether the picture is shown
    int extra_slice_bits = 0;   // H.265
};

// `nal` with its header.
std::optional<SequenceParameters> ReadSequenceParameters(VideoCodec codec, ByteView nal);
std::optional<PictureParameters> ReadPictureParameters(VideoCodec codec, ByteView nal);

// What kind of unit this is: the number in its header; -1: it has none.
int NalType(VideoCodec codec, ByteView nal);
bool IsSequenceParameters(VideoCodec codec, ByteView nal);
bool IsPictureParameters(VideoCodec codec, ByteView nal);

}  // namespace card
