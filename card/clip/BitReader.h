// Bits of a NAL unit, most significant first, the escape bytes of Annex B (00 00 03) left out.
//
// Reads zeros past the end and says so; believes nothing, holds the caller's bytes only.  One thread.
#pragma once

#include <cstdint>

#include "stream/NalUnits.h"

namespace card {

class BitReader {
  public:
    explicit BitReader(ByteView nal) : nal_(nal) {}

    bool Ok() const { return !over_; }  // everything read so far was there

    uint32_t Bit() {
        if (left_ == 0 && !Load()) return 0;
        return current_ >> --left_ & 1u;
    }
    uint32_t Bits(int count) {  // at most 32
        uint32_t value = 0;
        while (count-- > 0) value = value << 1 | Bit();
        return value;
    }
    void Skip(int count) {
        while (count-- > 0) Bit();
    }
    // ue(v) and se(v) of ITU-T H.264, 9.1.
    uint32_t Unsigned() {
        int zeros = 0;
        while (Ok() && zeros < 32 && Bit() == 0) ++zeros;
        if (zeros >= 32) over_ = true;
        return over_ ? 0 : (1u << zeros) - 1 + Bits(zeros);
    }
    int32_t Signed() {
        const uint32_t code = Unsigned();
        const auto half = static_cast<int32_t>(code / 2 + (code & 1));
        return (code & 1) != 0 ? half : -half;
    }

  private:
    bool Load() {
        if (at_ < nal_.size() && zeros_ >= 2 && nal_[at_] == 3) {
            ++at_;
            zeros_ = 0;
        }
        if (at_ >= nal_.size()) {
            over_ = true;
            return false;
        }
        current_ = nal_[at_++];
        zeros_ = current_ == 0 ? zeros_ + 1 : 0;
        left_ = 8;
        return true;
    }

    ByteView nal_;
    size_t at_ = 0;
    int zeros_ = 0;  // directly in front of `at_`
    uint8_t current_ = 0;
    int left_ = 0;  // bits of `current_`
    bool over_ = false;
};

}  // namespace card
