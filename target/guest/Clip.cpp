#include "Clip.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace guest {
namespace {

constexpr uint8_t kMark[] = {'C', 'L', 'I', 'P'};
constexpr size_t kHeadBytes = 8;
constexpr uint32_t kKeyBit = 0x80000000;
constexpr int kHevcVps = 32;  // NAL unit type, ITU-T H.265, table 7-1

uint32_t LittleEndian32(const uint8_t* at) {
    return uint32_t{at[0]} | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

}  // namespace

Clip::Clip(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const desk::Bytes all{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (all.size() < kHeadBytes || !std::equal(all.begin(), all.begin() + 4, kMark)) {
        throw std::runtime_error(path + ": no clip");
    }
    width_ = all[4] | all[5] << 8;
    height_ = all[6] | all[7] << 8;
    for (size_t at = kHeadBytes; at + 4 <= all.size();) {
        const uint32_t head = LittleEndian32(&all[at]);
        const size_t length = head & ~kKeyBit;
        at += 4;
        if (length < 5 || length > all.size() - at) throw std::runtime_error(path + ": a damaged clip");
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at);
        units_.push_back({desk::Bytes(begin, begin + static_cast<std::ptrdiff_t>(length)), (head & kKeyBit) != 0});
        at += length;
    }
    if (units_.empty() || !units_.front().key) {
        throw std::runtime_error(path + ": the clip does not begin with a key frame");
    }
    if ((units_.front().bytes[4] >> 1 & 0x3F) == kHevcVps) codec_ = desk::VideoCodec::kH265;
}

const desk::AccessUnit& Clip::Next() {
    const desk::AccessUnit& unit = units_[next_];
    next_ = (next_ + 1) % units_.size();
    return unit;
}

void Clip::GoToKeyFrame() {
    while (!units_[next_].key) next_ = (next_ + 1) % units_.size();
}

}  // namespace guest
