// Frames as the packer makes them of a stream of H.264 and G.711 u-law.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "libRecordFile.h"

namespace test {

constexpr AVStreamParam kStream = {CODE_VIDEO_H264, CODE_AUDIO_G711U, 1920, 1080, 4096, 25, 8000, 33000};

struct Frame {
    enum Kind { kKey, kOther, kSound } kind;
    std::string payload;
    uint32_t time = 0x5F000000;
    uint32_t index = 1;
    AVStreamParam stream = kStream;
};

// Packs into a buffer of just the size that was promised, so that a sanitizer sees a byte too many.
inline std::string Pack(const Frame& frame) {
    const char* const data = frame.payload.data();
    const int length = static_cast<int>(frame.payload.size());
    const bool is_key = frame.kind == Frame::kKey, is_sound = frame.kind == Frame::kSound;
    const int64_t size = is_sound ? PackedAudioSize(length) : PackedVideoSize(is_key, data, length);
    EXPECT_GE(size, 0);
    std::vector<char> out(static_cast<size_t>(size));
    EXPECT_EQ(is_sound ? libAVRecordAudioPsStreamWrite(data, length, out.data(), frame.index - 1)
                       : libAVRecordVideoPsStreamWrite(is_key, data, length, out.data(), frame.index, &frame.stream,
                                                       frame.time),
              size);
    return {out.begin(), out.end()};
}

}  // namespace test
