#include <algorithm>
#include <cstdint>

#include "libCameraAccess.h"

namespace {

constexpr int kMacroblock = 16;                  // pixels on a side
constexpr int64_t kMacroblocksASecond = 983040;  // ITU-T H.264, Table A-1: MaxMBPS of level 5.1
constexpr int64_t kHighestRate = 120;            // of small pictures

constexpr int64_t Macroblocks(int pixels) {
    return (static_cast<int64_t>(pixels) + kMacroblock - 1) / kMacroblock;
}

}  // namespace

int KQ_COMMON_GetMaxFrameRateByResolution(int width, int height, int) {
    if (width <= 0 || height <= 0) {
        return kHighestRate;  // size not known yet: nothing to bound the rate by
    }
    const int64_t picture = Macroblocks(width) * Macroblocks(height);
    return static_cast<int>(std::clamp<int64_t>(kMacroblocksASecond / picture, 1, kHighestRate));
}
