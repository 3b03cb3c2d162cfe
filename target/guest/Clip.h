// Encoded video to publish over and over: access units as target/make-clip wrote them.
//
// The file, little-endian: "CLIP", width and height (2 bytes each); then per access unit 4 bytes, its length (bit 31
// set: a key frame), and its bytes. Owns the bytes; nothing changes after loading.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AccessUnit.h"

namespace guest {

class Clip {
  public:
    explicit Clip(const std::string& path);  // throws std::runtime_error that names what is wrong

    const desk::AccessUnit& Next();  // in order, from the beginning again after the last
    void GoToKeyFrame();             // Next() gives the next key frame
    desk::VideoCodec Codec() const { return codec_; }
    int Width() const { return width_; }
    int Height() const { return height_; }

  private:
    std::vector<desk::AccessUnit> units_;
    size_t next_ = 0;
    desk::VideoCodec codec_ = desk::VideoCodec::kH264;
    int width_ = 0;
    int height_ = 0;
};

}  // namespace guest
