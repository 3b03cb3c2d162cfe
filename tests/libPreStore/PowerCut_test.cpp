// Power cut at every write of a format: the card is the old one, the new one, or none; never half of one.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "BlockDevice.h"
#include "Formatter.h"
#include "VolumePlan.h"

using namespace prestore;

namespace {

constexpr uint64_t kSector = 512;

struct Operation {
    bool flush = false;
    uint64_t offset = 0;
    std::string bytes = {};
};

// Keeps what it is told; fails from operation `fail_at` on.
class Tape : public BlockDevice {
  public:
    explicit Tape(size_t fail_at = SIZE_MAX) : fail_at_(fail_at) {}

    bool Write(uint64_t offset, std::span<const std::byte> bytes) override {
        return Keep({false, offset, std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size())});
    }
    bool Flush() override { return Keep({.flush = true}); }

    std::vector<Operation> operations;
    size_t refused = 0;

  private:
    bool Keep(Operation operation) {
        if (operations.size() >= fail_at_) {
            ++refused;
            errno = EIO;
            return false;
        }
        operations.push_back(std::move(operation));
        return true;
    }
    size_t fail_at_;
};

VolumePlan Plan(int percent) {
    VolumePlan plan;
    EXPECT_EQ(PlanVolume({.bytes = 1536ull << 20}, percent, plan), "");
    return plan;
}

std::vector<Operation> Recorded(int percent, time_t when) {
    Tape tape;
    uint64_t written = 0;
    EXPECT_EQ(WriteVolume(tape, Plan(percent), {when, 0}, {}, written), "");
    EXPECT_EQ(written, CountBytes(Plan(percent)).total);
    return tape.operations;
}

// Sectors by number; a view into an operation's bytes.
using Medium = std::map<uint64_t, std::string_view>;

void Put(Medium& medium, const Operation& write, const std::function<bool()>& lands) {
    for (uint64_t at = 0; at < write.bytes.size(); at += kSector) {
        if (lands()) {
            medium[(write.offset + at) / kSector] = std::string_view(write.bytes).substr(at, kSector);
        }
    }
}

// `medium` after `operations` up to `cut`: whatever was flushed, and of the rest the sectors that `lands` picks.
Medium After(Medium medium, const std::vector<Operation>& operations, size_t cut, const std::function<bool()>& lands) {
    size_t flushed = 0;
    for (size_t i = 0; i < cut; ++i) {
        flushed = operations[i].flush ? i : flushed;
    }
    for (size_t i = 0; i < cut; ++i) {
        Put(medium, operations[i], i < flushed ? [] { return true; } : lands);
    }
    return medium;
}

TEST(PowerCut, LeavesTheOldCardTheNewCardOrNone) {
    const auto all = [] { return true; };
    const std::vector<Operation> first = Recorded(50, 1000000000);
    const std::vector<Operation> second = Recorded(100, 1700000000);
    const Medium before = After({}, first, first.size(), all);
    const Medium after = After(before, second, second.size(), all);
    const std::string none(kSector, '\0');
    ASSERT_NE(before.at(0), after.at(0));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    size_t seen_none = 0;
    for (size_t cut = 0; cut <= second.size(); ++cut) {
        for (const unsigned of_16 : {0u, 1u, 8u, 15u, 16u}) {
            const Medium medium = After(before, second, cut, [&] { return random() % 16 < of_16; });
            if (medium.at(0) == none) {
                ++seen_none;
            } else {
                EXPECT_TRUE(medium == before || medium == after) << "half a card, cut before operation " << cut;
            }
        }
    }
    EXPECT_GT(seen_none, second.size());
}

TEST(Pass, IsOneSweepInWholeSectors) {
    std::vector<Operation> writes = Recorded(100, 1700000000);
    EXPECT_TRUE(writes.back().flush);
    std::erase_if(writes, [](const Operation& operation) { return operation.flush; });
    uint64_t end = 0;
    std::vector<uint64_t> back;  // where it went back to
    for (const Operation& write : writes) {
        EXPECT_EQ(write.offset % kSector + write.bytes.size() % kSector, 0u);
        EXPECT_LE(write.bytes.size(), kBufferBytes);
        if (write.offset < end) {
            back.push_back(write.offset);
        }
        end = write.offset + write.bytes.size();
    }
    EXPECT_EQ(back, (std::vector<uint64_t>{0, kSector, 0})) << "after the old boot sector, and for the new ones";
}

TEST(Pass, StopsAtTheFirstError) {
    const size_t count = Recorded(100, 1700000000).size();
    for (size_t fail_at = 0; fail_at < count; ++fail_at) {
        Tape tape(fail_at);
        uint64_t written = 0;
        const std::string failure = WriteVolume(tape, Plan(100), {1700000000, 0}, {}, written);
        EXPECT_TRUE(failure.ends_with(": Input/output error")) << failure;
        EXPECT_EQ(tape.refused, 1u) << "nothing is written after an error";
    }
}

}  // namespace
