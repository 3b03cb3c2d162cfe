// Real encoded video and sound for recorded cards: a moving picture that differs in every frame.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AVFrame.h"

namespace fixture {

struct EncodedFrame {
    std::string unit;  // access unit, Annex B, four-byte start code first; parameter sets in key frames
    bool key = false;
};

struct ClipPlan {
    AVCodeType video = CODE_VIDEO_H264;
    int width = 320;
    int height = 240;
    uint32_t rate = 25;
    uint32_t key_interval = 25;
    uint32_t frames = 250;
    bool b_frames = false;  // three in a row, as a pyramid; H.265 with open groups of pictures

    bool operator==(const ClipPlan&) const = default;
};

// Encodes once per plan and process.  Throws std::runtime_error when FFmpeg refuses.
const std::vector<EncodedFrame>& EncodedVideo(const ClipPlan& plan);

// One packet of sound per 1024 samples (AAC) or 320 samples (G.711), 8 kHz mono, a tone; `packets` of them.
const std::vector<std::string>& EncodedSound(AVCodeType audio, uint32_t packets);

}  // namespace fixture
