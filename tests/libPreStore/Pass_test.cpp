// The order in which a format writes.  A power cut at any moment leaves the old card, the new one or none: sector 0,
// without which there is no volume, is taken away before anything else changes and comes back once all else is there.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "BlockDevice.h"
#include "Formatter.h"
#include "VolumePlan.h"

using namespace prestore;

namespace {

constexpr uint64_t kSector = 512;

// Notes what it is told; refuses operation `fail_at` and all after it.
class Tape : public BlockDevice {
  public:
    explicit Tape(size_t fail_at = SIZE_MAX) : fail_at_(fail_at) {
        EXPECT_EQ(PlanVolume({.bytes = 1536ull << 20}, 100, plan_), "");
        failure = WriteVolume(*this, plan_, {1700000000, 0}, {}, written_);
        EXPECT_TRUE(!failure.empty() || written_ == CountBytes(plan_).total);
    }

    bool Write(uint64_t offset, std::span<const std::byte> bytes) override {
        EXPECT_EQ(offset % kSector + bytes.size() % kSector, 0u);
        EXPECT_LE(bytes.size(), kBufferBytes);
        went_back += offset < end_;
        end_ = offset + bytes.size();
        if (offset != 0) {
            return Done('w');
        }
        const bool is_zero =
            std::ranges::all_of(bytes.first(kSector), [](std::byte byte) { return byte == std::byte{}; });
        return Done(bytes.size() == kSector ? (is_zero ? 'z' : 'b') : (is_zero ? 'Z' : 'B'));
    }
    bool Flush() override { return Done('f'); }

    // z: zeros in sector 0, b: something else there, Z and B: the same with more sectors, w: written elsewhere, f:
    // flushed
    std::string operations;
    std::string failure;
    int went_back = 0;

  private:
    bool Done(char operation) {
        operations += operation;
        errno = EIO;
        return operations.size() <= fail_at_;
    }

    const size_t fail_at_;
    VolumePlan plan_;
    uint64_t written_ = 0, end_ = 0;
};

TEST(Pass, TakesTheOldVolumeAwayFirstAndMakesTheNewOneLast) {
    const Tape tape;
    EXPECT_THAT(tape.operations, testing::MatchesRegex("zfZw+fwfbf"));
    EXPECT_EQ(tape.went_back, 3) << "one sweep, but for sector 0 and its copies";
}

TEST(Pass, StopsAtTheFirstError) {
    for (size_t fail_at = 0; fail_at < Tape().operations.size(); ++fail_at) {
        const Tape tape(fail_at);
        EXPECT_TRUE(tape.failure.ends_with(": Input/output error")) << tape.failure;
        EXPECT_EQ(tape.operations.size(), fail_at + 1) << "nothing is written after an error";
    }
}

}  // namespace
