#include "Rhythm.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace {

constexpr int64_t kEarlier = 4000;         // us before the look at a record that is not taken on trust
constexpr int64_t kEarlierInDoubt = 6000;  // the same after a surprise
constexpr int64_t kInTime = 1000;          // us off is still the look that was meant
constexpr int64_t kLater = 300;            // us that a look in vain puts the looks off
constexpr int64_t kSooner = 20;            // us that one which found its record brings them forward
constexpr int64_t kTogether = 2000;        // us between kinds that one look finds
constexpr int64_t kExact = 7000;           // from the last look that found nothing: known well enough when it came
constexpr int kTrusted = 2;                // records in a row that are taken on trust
constexpr int kRecordsMax = 1024;          // that an interval is the mean of
constexpr int kExactOnes = Rhythm::kWindow / 4;
constexpr int kLateOnes = 4;        // of the window: with more of them there is no beat
constexpr int64_t kGone = 1000000;  // a kind that has not come for so long, beside three of its intervals

}  // namespace

void Rhythm::Beat::Learn(int64_t now, bool is_exact) {
    came[static_cast<size_t>(next)] = now;
    next = (next + 1) % kWindow;
    count = std::min(count + 1, kWindow);
    exact = (exact << 1) | (is_exact ? 1U : 0U);
    if (count < kWindow || std::popcount(exact) < kExactOnes) {
        return;
    }
    // Time over number of records: what single looks tell of an interval depends on when they were made.
    first = came[static_cast<size_t>(next)];
    records = kWindow - 1;
    interval = (now - first) / records;
    const int64_t due = Earliest();
    is_known = LateOnes(due) <= kLateOnes;
    look = due + kInTime;
}

// A known beat, by a record found at `now`.  Looks settle where nearly all of them find their record: one in vain puts
// the next ones off by as much as fifteen others bring them forward.
void Rhythm::Beat::Follow(int64_t now, int64_t last_nothing) {
    const int64_t at_least = last_nothing - look;  // so much after its look the record came
    const bool is_late = at_least > interval / 4;
    late = (late << 1) | (is_late ? 1U : 0U);
    ++records;
    if (now <= look + interval / 4) {  // neither the record nor our look was late
        interval = (now - first) / records;
    }
    if (records == kRecordsMax) {
        records /= 2;
        first = now - records * interval;
    }
    if (now < look - kInTime) {
        look -= (look - kInTime - now) / 2;
    } else if (at_least < -kInTime) {
        look -= now <= look + kInTime ? kSooner : 0;  // else it was found by the look for another kind
    } else if (!is_late) {
        look += kLater;
    }
    look += interval;
    on_trust = now - last_nothing <= kExact ? 0 : on_trust + 1;
}

int64_t Rhythm::Beat::NextLook(int64_t now) const {
    if (doubt > 0) {
        return look - kEarlierInDoubt;
    }
    const bool is_on_trust = on_trust < kTrusted || now >= look - kEarlier - kTogether;  // or was looked for just now
    return is_on_trust ? look : look - kEarlier;
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
int64_t Rhythm::Beat::Earliest() const {
    int64_t earliest = std::numeric_limits<int64_t>::max();
    ForEachExpected([&](int64_t expected, int) { earliest = std::min(earliest, expected); });
    return earliest;
}

int Rhythm::Beat::LateOnes(int64_t due) const {
    const int64_t in_time = due + interval / 4;
    int count_late = 0;
    ForEachExpected([&](int64_t expected, int ago) {
        const bool came_so = (exact >> (ago - 1) & 1) != 0;  // else it may have been the look that was late
        count_late += came_so && expected > in_time ? 1 : 0;
    });
    return count_late;
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
    beat->newest = now;
    if (!beat->is_known) {
        beat->Learn(now, is_exact);
        return;
    }
    const bool is_surprise = !is_exact && now < beat->look - kEarlier + kInTime;
    if ((is_surprise && beat->doubt > 0) || std::popcount(beat->late) > kLateOnes) {
        *beat = Beat{.kind = kind};
        beat->newest = now;
        beat->Learn(now, is_exact);
        return;
    }
    beat->doubt = is_surprise ? kWindow : std::max(beat->doubt - 1, 0);
    beat->Follow(now, last_nothing_);
}

int64_t Rhythm::NothingAt(int64_t now) {
    last_nothing_ = now;
    int64_t next = now + kLongest;
    bool knows_all = !is_crowded_;
    bool knows_any = false;
    for (Beat& beat : beats_) {
        if (beat.count > 0 && now - beat.newest > kGone + 3 * beat.interval) {
            beat = Beat{};
        }
        if (beat.is_known) {
            knows_any = true;
            next = std::min(next, beat.NextLook(now));
        } else if (beat.count > 0) {
            knows_all = false;
        }
    }
    return knows_all && knows_any ? std::clamp(Together(next, now) - now, kShortest, kLongest) : kShortest;
}

// The look at `next`, put off until it finds the kinds that come right after as well.
int64_t Rhythm::Together(int64_t next, int64_t now) const {
    int64_t last = next;
    for (const Beat& beat : beats_) {
        if (beat.is_known && beat.NextLook(now) == beat.look && beat.look <= next + kTogether) {
            last = std::max(last, beat.look);
        }
    }
    return last;
}
