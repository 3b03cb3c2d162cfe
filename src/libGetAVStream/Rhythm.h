// When a ring's next record is due, learned from those that came.
//
// A look that finds nothing costs as much as many that find a frame, because the processor wakes up for it.  Cameras
// publish in time, so a reader may sleep until shortly before the next record.  Each kind of record has a beat of its
// own: sound does not keep step with the picture.
//
// Knows neither clock nor ring: it is told what was found when, and answers how long to sleep.  One reader's thread.
//
// A look just before a record is due finds nothing, but tells when the record came that the next look finds.  Every
// other record is looked for like that.  The one between is taken on trust: the first look comes just after it is due,
// and it counts as having come when it was.
//
// A record is found as soon as if nothing had been learned, unless it comes earlier than any of the last kWindow did in
// their beat.  Such a surprise waits for the end of the sleep it fell into, kLongest at most; one that fell to a record
// taken on trust is noticed with the next record.  Sleeps are shorter then, and after a second surprise within the
// window that kind's beat is learned anew, with looks every kShortest.  So is one that was never regular.
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
        int count = 0;       // records in the window; 0: the beat is free
        int next = 0;        // where in `came` the next one goes
        uint32_t exact = 0;  // a bit a record, newest lowest: known to some ms when it came
        int doubt = 0;       // records until the last surprise is forgotten
        bool is_known = false;
        int64_t interval = 0;                 // 0: not known yet
        int64_t due = 0;                      // of the next record
        int64_t newest = 0;                   // when that one came
        std::array<int64_t, kWindow> came{};  // the latest moment at which each can have come

        // The next record is looked for after it is due and not before: the last one came when it was.
        bool Trusts() const { return is_known && doubt == 0 && (exact & 1) != 0; }
        void Add(int64_t now, bool is_exact);
        template <class Visit>
        void ForEachExpected(Visit visit) const;
        int64_t Due() const;
        int LateOnes() const;
    };

    Beat* BeatOf(int kind);
    int64_t Together(int64_t trusted) const;

    std::array<Beat, 4> beats_{};
    bool is_crowded_ = false;   // there were more kinds than beats
    int64_t last_nothing_ = 0;  // the last look that found nothing
};
