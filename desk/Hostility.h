// A media server that misbehaves, for tests: garbage where the next record should stand, and bad or late answers.
//
// A fixed number of acts, drawn from a seed, each held for a while between two good records; none of them can pass
// for a good record, so what a reader delivers is still exactly what was published.  Afterwards all is clean again.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "FrameRing.h"

namespace desk {

class Hostility {
  public:
    enum class Act {
        kBadCheckWord,
        kNegativeLength,
        kHugeLength,
        kOverRingEnd,
        kStaleSerial,
        kRepeatedSerial,
        kFarSerial,
        kNotReady,
        kRandomHeader,
        kSpuriousRingEnd,
        kSpuriousRestart,
        kSilence,
        kLies,
    };
    static constexpr int kActs = 13;
    static constexpr int kRounds = 2;  // every act comes that often

    explicit Hostility(uint32_t seed);

    bool Over() const { return script_.empty(); }

    // Call before every video record: sometimes spoils all `rings` and holds that for a while (it blocks).
    // `remark` is told what happens.
    void BeforeRecord(const std::vector<FrameRing*>& rings, const std::function<void(const std::string&)>& remark);

    // For the thread that answers requests: how long to hold an answer back, and what position to lie.
    int AnswerDelay_ms();
    uint32_t AnswerPosition(uint32_t truth, uint32_t ring_size);

  private:
    int64_t Between(int64_t lowest, int64_t highest);
    AVDataInfo Header(Act act, const FrameRing& ring);

    std::mt19937 random_;
    std::mt19937 answer_random_;  // of the answering thread alone
    std::vector<Act> script_;     // the last is next
    int records_to_go_ = 10;
    std::atomic<bool> silent_{false}, lying_{false};
};

}  // namespace desk
