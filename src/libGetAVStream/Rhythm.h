// When a ring's next record is due, learned from those that came.
//
// A look that finds nothing costs as much as many that find a frame, because the processor wakes up for it.  Cameras
// publish in time, so a reader may sleep until shortly before the next record.  Each kind of record has a beat of its
// own: sound does not keep step with the picture.
//
// Knows neither clock nor ring: it is told what was found when, and answers how long to sleep.  One reader's thread.
//
// A known beat has one look a record.  It settles where nearly all looks find theirs: one that finds nothing puts the
// next ones off a little, one that finds its record brings them forward by less.  Every third record is looked for 4 ms
// earlier as well, for a stream that begins to come sooner.  The two between are taken on trust.
//
// A record is found as soon as if nothing had been learned, or about 1 ms later, unless it comes much earlier than its
// beat.  Such a surprise waits for the end of the sleep it fell into, kLongest at most, and two more may fall to
// records taken on trust.  Sleeps are shorter then, and after a second surprise within kWindow records that kind's beat
// is learned anew, with looks every kShortest.  So is one that was never regular.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

class Rhythm {
  public:
    static constexpr int kWindow = 32;  // records of a kind that its beat is learned from
    static constexpr int64_t kShortest = 2000;
    static constexpr int64_t kLongest = 40000;  // us; the smallest ring holds 230 ms

    // A record of `kind` was there at `now`, in microseconds of any clock that does not jump.
    void Found(int kind, int64_t now);

    // Nothing was there at `now`.  Returns how many microseconds to sleep before the next look.
    int64_t NothingAt(int64_t now);

    // What comes next has nothing to do with what came.
    void Forget() { *this = Rhythm(); }

  private:
    struct Beat {  // of one kind
        int kind = 0;
        int count = 0;  // records that it was learned from, kWindow at most; 0: the beat is free
        bool is_known = false;
        int64_t interval = 0;  // between two records
        int64_t newest = 0;    // when the last one was found

        // While it is learned.
        int next = 0;                         // where in `came` the next one goes
        uint32_t exact = 0;                   // a bit a record, newest lowest: known to some ms when it came
        std::array<int64_t, kWindow> came{};  // the latest moment at which each can have come

        // Once it is known.
        int64_t look = 0;   // for the next record
        int on_trust = 0;   // records in a row that were not looked for before
        int doubt = 0;      // records until the last surprise is forgotten
        uint32_t late = 0;  // a bit a record, newest lowest: came much later than its look
        int64_t first = 0;  // when that record was found after which `records` have come
        int records = 0;

        int64_t NextLook(int64_t now) const;
        void Learn(int64_t now, bool is_exact);
        void Follow(int64_t now, int64_t last_nothing);
        template <class Visit>
        void ForEachExpected(Visit visit) const;
        int64_t Earliest() const;
        int LateOnes(int64_t due) const;
    };

    Beat* BeatOf(int kind);
    int64_t Together(int64_t next, int64_t now) const;

    std::array<Beat, 4> beats_{};
    bool is_crowded_ = false;   // there were more kinds than beats
    int64_t last_nothing_ = 0;  // the last look that found nothing
};
