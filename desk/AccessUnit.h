// Access units as the camera's encoder would publish them.
//
// An encoder of the camera puts out one access unit a frame: every NAL unit after a 4-byte start code, no access
// unit delimiter, and a key frame begins with its parameter sets (H.264: SPS; H.265: VPS).  Any H.264 or H.265
// packet that FFmpeg reads, length-prefixed or with start codes, is brought into that form here; the bytes of the
// NAL units are never changed.  Owns the latest parameter sets of its stream.  One thread.
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
    AccessUnitMaker(VideoCodec codec, View extradata);

    AccessUnit Make(View packet);

  private:
    int TypeOf(View nal) const;
    bool IsParameterSet(int type) const;
    bool IsDelimiter(int type) const;
    bool IsRandomAccess(int type) const;
    void Remember(const std::vector<View>& nals);
    std::vector<View> ReadConfigurationRecord(View extradata);

    VideoCodec codec_;
    int length_size_ = 0;                               // 0: packets come with start codes
    std::map<int, std::vector<Bytes>> parameter_sets_;  // latest of each NAL type; ascending is the order to send them
};

}  // namespace desk
