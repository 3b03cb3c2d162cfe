#include "Rhythm.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace {

constexpr int64_t kEarlier = 1000;         // us before it is due the first look is made
constexpr int64_t kEarlierInDoubt = 5000;  // the same after a surprise
constexpr int64_t kAfter = 1000;           // us after it is due the first look is made for a record taken on trust
constexpr int64_t kInTime = 1000;          // us later than that is still the look that was meant
constexpr int64_t kTogether = 2000;        // us between kinds that one look finds
constexpr int64_t kExact = 5000;           // from the last look that found nothing: known well enough when it came
constexpr int kExactOnes = Rhythm::kWindow / 4;  // every other record is taken on trust
constexpr int kLateOnes = 4;                     // of the window: with more of them there is no beat
constexpr int64_t kGone = 1000000;               // a kind that has not come for so long, beside three of its intervals

}  // namespace

void Rhythm::Beat::Add(int64_t now, bool is_exact) {
    came[static_cast<size_t>(next)] = now;
    next = (next + 1) % kWindow;
    count = std::min(count + 1, kWindow);
    exact = (exact << 1) | (is_exact ? 1U : 0U);
    newest = now;
    if (count == kWindow) {
        // Time over number of records: what single looks tell of an interval depends on when they were made.
        interval = (newest - came[static_cast<size_t>(next)]) / (kWindow - 1);
        due = Due();
        is_known = std::popcount(exact) >= kExactOnes && LateOnes() <= kLateOnes;
    }
}

// When the next record comes if it keeps time with each of the window in turn, the newest first.
template <class Visit>
void Rhythm::Beat::ForEachExpected(Visit visit) const {
    int64_t later = 0;
    for (int ago = 1; ago <= kWindow; ++ago) {
        later += interval;
        visit(came[static_cast<size_t>(next + kWindow - ago) % kWindow] + later, ago);
    }
}

// The earliest that any record of the window lets expect: a late one changes next to nothing.
int64_t Rhythm::Beat::Due() const {
    int64_t earliest = std::numeric_limits<int64_t>::max();
    ForEachExpected([&](int64_t expected, int) { earliest = std::min(earliest, expected); });
    return earliest;
}

int Rhythm::Beat::LateOnes() const {
    const int64_t in_time = due + interval / 4;
    int late = 0;
    ForEachExpected([&](int64_t expected, int ago) {
        const bool came_so = (exact >> (ago - 1) & 1) != 0;  // else it may have been the look that was late
        late += came_so && expected > in_time ? 1 : 0;
    });
    return late;
}

Rhythm::Beat* Rhythm::BeatOf(int kind) {
    Beat* free = nullptr;
    for (Beat& beat : beats_) {
        if (beat.count > 0 && beat.kind == kind) {
            return &beat;
        }
        free = beat.count == 0 ? &beat : free;
    }
    if (free != nullptr) {
        *free = Beat{.kind = kind};
    }
    return free;
}

void Rhythm::Found(int kind, int64_t now) {
    Beat* const beat = BeatOf(kind);
    if (beat == nullptr) {
        is_crowded_ = true;
        return;
    }
    const bool is_exact = now - last_nothing_ <= kExact;
    if (beat->is_known && !is_exact && now < beat->due) {
        if (beat->doubt > 0) {
            *beat = Beat{.kind = kind};
        }
        beat->doubt = kWindow;
    } else if (beat->doubt > 0) {
        --beat->doubt;
    }
    const bool is_on_trust = beat->Trusts() && !is_exact && now >= beat->due && now <= beat->due + kAfter + kInTime;
    beat->Add(is_on_trust ? beat->due : now, is_exact);
}

int64_t Rhythm::NothingAt(int64_t now) {
    last_nothing_ = now;
    int64_t early = now + kLongest;
    int64_t trusted = now + kLongest;
    bool knows_all = !is_crowded_;
    bool knows_any = false;
    for (Beat& beat : beats_) {
        if (beat.count == 0) {
            continue;
        }
        if (now - beat.newest > kGone + 3 * beat.interval) {
            beat.count = 0;
        } else if (!beat.is_known) {
            knows_all = false;
        } else if (knows_any = true; beat.Trusts()) {
            trusted = std::min(trusted, beat.due + kAfter);
        } else {
            early = std::min(early, beat.due - (beat.doubt > 0 ? kEarlierInDoubt : kEarlier));
        }
    }
    const int64_t look = std::min(early, Together(trusted));
    return knows_all && knows_any ? std::max(look - now, kShortest) : kShortest;
}

// The look at `trusted`, put off until it finds the kinds that come right after as well.
int64_t Rhythm::Together(int64_t trusted) const {
    int64_t look = trusted;
    for (const Beat& beat : beats_) {
        const int64_t at = beat.due + kAfter;
        if (beat.count > 0 && beat.Trusts() && at <= trusted + kTogether) {
            look = std::max(look, at);
        }
    }
    return look;
}
