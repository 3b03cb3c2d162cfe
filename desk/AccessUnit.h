// Access units as the camera's encoder would publish them.
//
// An encoder of the camera puts out one access unit a frame: every NAL unit after a 4-byte start code, no access
// unit delimiter, and a key frame begins with its parameter sets (H.264: SPS; H.265: VPS).  Any H.264 or H.265
// packet that FFmpeg reads, length-prefixed or with start codes, is brought into that form here; the bytes of the
// NAL units are never changed.  A turn that only the container knows becomes a display orientation message in each key
// frame (ITU-T H.264 D.1.27, H.265 D.2.17), where a player of the recording finds it.  Owns the latest parameter sets
// of its stream.  One thread.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace desk {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

enum class VideoCodec { kH264, kH265, kJpeg };

struct AccessUnit {
    Bytes bytes;
    bool key = false;  // begins with the parameter sets: a reader may start here
};

// The NAL units of `data` that follow start codes (3 or 4 bytes), without trailing zero bytes.
std::vector<View> SplitAtStartCodes(View data);

// The NAL units of `data` after big-endian length fields of `length_size` bytes; stops at a length that overruns.
std::vector<View> SplitAtLengths(View data, int length_size);

class AccessUnitMaker {
  public:
    // `extradata`: the container's parameter sets (ISO configuration record, or start codes, or nothing).
    // `quarter_turns`: anticlockwise, that the container asks players for; 0 to 3.
    AccessUnitMaker(VideoCodec codec, View extradata, int quarter_turns = 0);

    AccessUnit Make(View packet);

  private:
    int TypeOf(View nal) const;
    bool IsParameterSet(int type) const;
    bool IsDelimiter(int type) const;
    bool IsRandomAccess(int type) const;
    bool IsSlice(int type) const;
    Bytes OrientationMessage(int quarter_turns) const;
    void Remember(const std::vector<View>& nals);
    std::vector<View> ReadConfigurationRecord(View extradata);

    VideoCodec codec_;
    Bytes orientation_;                                 // a NAL unit; empty: the picture stands upright
    int length_size_ = 0;                               // 0: packets come with start codes
    std::map<int, std::vector<Bytes>> parameter_sets_;  // latest of each NAL type; ascending is the order to send them
};

}  // namespace desk
