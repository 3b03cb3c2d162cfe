#include "stream/Continuity.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

namespace card {

namespace {

using record_file::kClockBits;
using record_file::kClockPerFrame;

constexpr uint64_t kClockRounding = 64;  // single precision, up to 33 bits of clock
constexpr uint64_t kFramesSkippedMax = 25 * 3600;
constexpr uint32_t kTimeJump = 60;       // s from a frame to the next, beyond what was skipped
constexpr uint32_t kSpike = 2;           // s by which a time may miss both its neighbours' and still be its own
constexpr size_t kLookAhead = 8;         // pictures that are asked about a time
constexpr size_t kTailMax = 2;           // pictures at the end of a run that nobody can be asked about
constexpr uint64_t kLostMax = 1u << 20;  // pictures that may be missing between two of a section
constexpr uint64_t kClockMask = (uint64_t{1} << kClockBits) - 1;

using Pictures = std::span<SurveyedFrame*>;  // linked by their clocks

bool AnyGoesOn(Pictures pictures, size_t from, size_t after) {
    const size_t end = std::min(pictures.size(), after + 1 + kLookAhead);
    for (size_t i = after + 1; i < end; ++i) {
        if (TimeGoesOn(*pictures[from], *pictures[i])) return true;
    }
    return false;
}

// Both neighbours agree with each other, and not with it.
bool IsSpike(Pictures pictures, size_t before, size_t at) {
    if (at + 1 == pictures.size()) return false;
    const uint64_t low = pictures[before]->time;
    const uint64_t high = pictures[at + 1]->time;
    const uint64_t time = pictures[at]->time;
    return low <= high && TimeGoesOn(*pictures[before], *pictures[at + 1]) &&
           (time + kSpike < low || time > high + kSpike);
}

void Correct(SurveyedFrame& picture, uint32_t time) {
    picture.time = time;
    picture.corrected = true;
}

// The last pictures, right after the others: old footage would lie there in another place.
bool IsTail(Pictures pictures, size_t at) {
    return pictures.size() - at <= kTailMax && pictures[at - 1]->End() + (1u << 16) >= pictures[at]->offset;
}

// Pictures without a hole between them, in which times that agree show what is damage.
void SettleIsland(Pictures pictures) {
    constexpr size_t kNone = SIZE_MAX;
    size_t good = kNone;
    size_t first = 0;  // of those that wait for a good one
    for (size_t i = 0; i < pictures.size(); ++i) {
        if (good != kNone) {
            if (TimeGoesOn(*pictures[good], *pictures[i]) && !IsSpike(pictures, good, i)) {
                good = i;
                continue;
            }
            if (AnyGoesOn(pictures, good, i) || IsTail(pictures, i)) {
                Correct(*pictures[i], pictures[good]->time);
                continue;
            }
            good = kNone;  // from here on it is another recording
            first = i;
        }
        if (!AnyGoesOn(pictures, i, i)) continue;
        good = i;
        for (; first < i; ++first) Correct(*pictures[first], pictures[i]->time);
    }
}

// After a hole may lie what an earlier lap left.  So pictures beyond one are asked only about a picture that stands
// alone, and not when its time is one that was seen before, an older one, or the newer one at a file's begin.
class ChainSettler {
  public:
    ChainSettler(Pictures pictures, std::set<uint32_t>& seen) : pictures_(pictures), seen_(seen) {
        for (size_t i = 0; i < pictures.size(); ++i) {
            if (i == 0 || pictures[i]->after_hole) islands_.push_back({i, i, false});
            Island& island = islands_.back();
            island.end = i + 1;
            island.sure = island.sure || (i > island.begin && TimeGoesOn(*pictures[i - 1], *pictures[i]));
        }
    }

    void Run() {
        for (const Island& island : islands_) {
            if (island.sure) SettleIsland(pictures_.subspan(island.begin, island.end - island.begin));
        }
        const SurveyedFrame* before = nullptr;  // the last one that is sure
        for (size_t i = 0; i < islands_.size(); ++i) {
            const Island& island = islands_[i];
            for (size_t k = island.begin; !island.sure && k < island.end; ++k)
                SettleAlone(*pictures_[k], before, FirstSure(i + 1));
            if (island.sure) before = pictures_[island.end - 1];
            seen_.insert(pictures_[island.begin]->time);
            seen_.insert(pictures_[island.end - 1]->time);
        }
    }

  private:
    struct Island {
        size_t begin;
        size_t end;
        bool sure;  // two of its times agree
    };

    const SurveyedFrame* FirstSure(size_t from) const {
        for (size_t i = from; i < islands_.size(); ++i) {
            if (islands_[i].sure) return pictures_[islands_[i].begin];
        }
        return nullptr;
    }

    bool WasSeen(uint32_t time) const {
        const auto at = seen_.lower_bound(std::max(time, kTimeJump) - kTimeJump);
        return at != seen_.end() && *at <= uint64_t{time} + kTimeJump;
    }

    void SettleAlone(SurveyedFrame& picture, const SurveyedFrame* before, const SurveyedFrame* after) const {
        const bool goes_on =
            (before == nullptr || TimeGoesOn(*before, picture)) && (after == nullptr || TimeGoesOn(picture, *after));
        if (goes_on || WasSeen(picture.time)) return;
        if (before == nullptr) {
            if (!seen_.empty() && picture.time > after->time) Correct(picture, after->time);
        } else if (after != nullptr ? TimeGoesOn(*before, *after) : before->End() + (1u << 16) >= picture.offset) {
            if (picture.time > before->time) Correct(picture, before->time);
        }
    }

    Pictures pictures_;
    std::set<uint32_t>& seen_;
    std::vector<Island> islands_;
};

}  // namespace

bool ClockGoesOn(const SurveyedFrame& last, const SurveyedFrame& next) {
    if (last.empty || next.empty) return true;
    return next.clock + kClockRounding >= last.clock + kClockPerFrame &&
           (next.clock - last.clock) / kClockPerFrame <= kFramesSkippedMax;
}

bool TimeGoesOn(const SurveyedFrame& last, const SurveyedFrame& next) {
    const bool clocks = !last.empty && !next.empty && next.clock > last.clock;
    const uint64_t steps = clocks ? (next.clock - last.clock + kClockRounding) / kClockPerFrame : 1;
    return uint64_t{next.time} + kClockStepBack >= last.time && next.time <= uint64_t{last.time} + kTimeJump + steps;
}

bool GoesOnAfterHole(const SurveyedFrame& last, const SurveyedFrame& next) {
    return GoesOn(last, next) && uint64_t{next.time} + kSpike >= last.time;
}

void SettleTimes(std::span<SurveyedFrame> frames) {
    std::vector<SurveyedFrame*> chain;
    std::set<uint32_t> seen;  // s since 1970 UTC
    uint64_t end = 0;         // of the frame before
    bool after_hole = false;
    for (SurveyedFrame& frame : frames) {
        after_hole = after_hole || frame.offset > end + (frame.restarted ? record_file::kStreamHeadSize : 0);
        end = frame.End();
        if (!frame.video || frame.empty) continue;
        frame.after_hole = std::exchange(after_hole, false);
        if (!chain.empty() && (frame.restarted || !ClockGoesOn(*chain.back(), frame))) {
            ChainSettler(chain, seen).Run();
            chain.clear();
        }
        chain.push_back(&frame);
    }
    ChainSettler(chain, seen).Run();
}

uint64_t FrameNumber(uint64_t clock, uint64_t near) {
    const uint64_t near_clock = near * kClockPerFrame;
    uint64_t whole = (near_clock & ~kClockMask) + clock;
    if (whole + (kClockMask >> 1) < near_clock) whole += kClockMask + 1;
    return (whole + kClockPerFrame / 2) / kClockPerFrame;  // the clock is kept in single precision
}

void SectionFilter::StreamHead() {
    run_base_ += in_run_;  // the writer began to count again
    in_run_ = 0;
}

bool SectionFilter::Take(const SurveyedFrame& picture) {
    const uint64_t number = FrameNumber(picture.clock, in_run_);
    const bool another_time =
        uint64_t{picture.time} + kClockStepBack < start_ || picture.time > uint64_t{end_} + kClockStepBack;
    after_foreign_ = another_time || (in_run_ != 0 && (number <= in_run_ || number > in_run_ + kLostMax));
    if (after_foreign_ || (!begun_ && !picture.key)) return false;
    begun_ = true;
    in_run_ = number;
    return true;
}

}  // namespace card
