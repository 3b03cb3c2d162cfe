// The little of H.264, H.265 and ADTS that moving recordings into a file needs.
//
// Works in place on the caller's bytes, believes no length, holds no state.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace card {

using ByteView = std::span<const uint8_t>;

enum class VideoCodec { H264, H265 };

// Calls `visit` with every unit of an Annex B stream (ISO/IEC 14496-10, Annex B), start code and trailing
// zeros left out.
void ForEachNal(ByteView stream, const std::function<void(ByteView nal)>& visit);

bool IsParameterSet(VideoCodec codec, ByteView nal);
// A decoder may begin with this access unit: its picture refers to no earlier one.  Parameter sets in front
// count as well, since cameras send them with such a picture even where they do not mark it as one.
bool IsRandomAccess(VideoCodec codec, ByteView unit);

enum class SliceRole { None, SequenceStart, DecodableLeading, Other };  // None: the bytes hold no slice
// Of the access unit's first slice: whether it begins a coded video sequence, in which pictures are numbered anew,
// or (H.265) is shown before its key frame and yet needs nothing from in front of it.
SliceRole RoleOf(VideoCodec codec, ByteView unit);

// The access unit's parameter sets in order, each once and after a four-byte start code; empty: none.
std::vector<uint8_t> ParameterSets(VideoCodec codec, ByteView unit);
// The access unit without them.
std::vector<uint8_t> WithoutParameterSets(VideoCodec codec, ByteView unit);

// How the pictures are to be turned when they are shown, as the stream itself says (display orientation SEI:
// ITU-T H.264, D.1.27; H.265, D.2.17).
struct DisplayOrientation {
    double anticlockwise = 0;  // degrees, after the flips
    bool flip_horizontally = false;
    bool flip_vertically = false;
};
std::optional<DisplayOrientation> OrientationOf(VideoCodec codec, ByteView unit);

// One frame of ADTS (ISO/IEC 13818-7, 6.2), or a whole payload that has no such header.
struct AacFrame {
    ByteView raw;                      // raw data block
    uint32_t size = 0;                 // bytes, header included
    std::optional<uint8_t> object;     // audio object type; header values are absent without a header
    std::optional<uint8_t> frequency;  // sampling frequency index
    std::optional<uint8_t> channels;
};
std::optional<AacFrame> FirstAacFrame(ByteView payload);  // nothing: cut off or empty

}  // namespace card
