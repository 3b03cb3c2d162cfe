// What goes on from what: by these rules frames make runs, and pictures belong to a section.
//
// A picture carries its clock twice and its time once.  So the clock decides first, and a single time that its
// neighbours contradict is damage: the picture stays, with the time of the one before it.
#pragma once

#include <cstdint>
#include <span>

#include "RecordFormat.h"

namespace card {

struct SurveyedFrame {
    uint32_t offset = 0;  // of its first header byte in the record file
    uint32_t size = 0;    // in the stream, headers included, stream head not
    uint32_t time = 0;    // s since 1970 UTC; sound: that of the picture before it
    bool video = false;
    bool key = false;
    bool headed = false;      // a stream head stands directly in front
    bool restarted = false;   // a stream head stands between it and the frame before it
    bool empty = false;       // no packet: it has no clock
    bool after_hole = false;  // bytes of no frame lie between it and the picture before; set by SettleTimes
    bool corrected = false;   // `time` is not what the picture says: its neighbours contradict that
    uint64_t clock = 0;       // 33 bits, 90 kHz

    uint64_t End() const { return uint64_t{offset} + size; }
};

inline constexpr uint32_t kClockStepBack = 60;  // s a frame's time may go back when the camera's clock is set

// Whether `next` may be recorded in one run after `last`, both pictures.
bool ClockGoesOn(const SurveyedFrame& last, const SurveyedFrame& next);
bool TimeGoesOn(const SurveyedFrame& last, const SurveyedFrame& next);
inline bool GoesOn(const SurveyedFrame& last, const SurveyedFrame& next) {
    return ClockGoesOn(last, next) && TimeGoesOn(last, next);
}

// The same where something else lies between the two: a time that goes back there is that of what was recorded before.
bool GoesOnAfterHole(const SurveyedFrame& last, const SurveyedFrame& next);

// Corrects the times that their neighbours contradict; frames in the order of the stream, sound among them.
void SettleTimes(std::span<SurveyedFrame> frames);

// Which pictures belong to a section: from its first key frame on those whose time is its own and whose number
// goes on.  Takes pictures and stream heads in the order of the stream.
class SectionFilter {
  public:
    SectionFilter(uint32_t start, uint32_t end) : start_(start), end_(end) {}  // s since 1970 UTC

    void StreamHead();
    bool Take(const SurveyedFrame& picture);

    bool Begun() const { return begun_; }
    bool AfterForeign() const { return after_foreign_; }     // the last picture was of another lap
    uint64_t NumberInRun() const { return in_run_; }         // of the last picture taken, from 1
    uint64_t Number() const { return run_base_ + in_run_; }  // counted through all runs

  private:
    uint32_t start_;
    uint32_t end_;
    uint64_t run_base_ = 0;
    uint64_t in_run_ = 0;  // 0: none yet
    bool begun_ = false;
    bool after_foreign_ = false;
};

// Number of the frame in its run; `near` is a number close to it, since the clock wraps after a day.
uint64_t FrameNumber(uint64_t clock, uint64_t near);

}  // namespace card
