#include "Scenarios.h"

namespace cuts {
namespace {

constexpr auto Frames = [](uint32_t count) { return Step{Step::kFrames, count}; };
constexpr auto Fill = [](uint32_t up_to) { return Step{Step::kFill, up_to}; };
constexpr auto HandOver = [](uint32_t frames_meanwhile) { return Step{Step::kHandOver, frames_meanwhile}; };
constexpr auto Look = [](uint32_t seconds_later) { return Step{Step::kAlarmLook, seconds_later}; };
constexpr Step kEndRun{Step::kPause, 0}, kAlarmOn{Step::kAlarm, 1}, kAlarmOff{Step::kAlarm, 0};

Script operator+(Script first, const Script& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}
Script Repeated(uint32_t times, const Script& script) {
    Script all;
    for (uint32_t i = 0; i < times; ++i) all = all + script;
    return all;
}

// The current file, and the first frames of the next: laps lie further apart than a clock may be set.
const Script kFull{Fill(1), {Step::kPause, 600}, Frames(2)};
const Script kAlarm{kAlarmOn, Look(1), Frames(1), kAlarmOff, Look(5), Look(8)};

}  // namespace

const std::vector<Scenario>& Scenarios() {
    static const std::vector<Scenario> scenarios{
        {"the first frames of a card", {}, {Frames(6), HandOver(0), Frames(5), HandOver(1), Frames(4)}},
        {"sections",
         {Frames(14)},
         {Frames(5), HandOver(1), Frames(3), kEndRun, Frames(6), kEndRun, Frames(4), HandOver(0), Frames(4)}},
        {"the second file begins", {Fill(3000)}, {Frames(4), HandOver(0), Frames(12), HandOver(1), Frames(6)}},
        {"the second file begins long after a hand-over", {Fill(1500)}, {Frames(24), HandOver(0), Frames(3)}},
        {"the ring comes round",
         Repeated(2, kFull) + Script{Fill(1500)},
         {Frames(4), HandOver(0), Frames(12), HandOver(0), Frames(4)}},
        {"key-frame records over a sector's border",
         {{Step::kKeyEvery, 1}, Frames(30)},
         {Frames(3), HandOver(0), Frames(6)}},
        {"a file head over a sector's border",
         Repeated(21, kFull),
         {Frames(2), HandOver(0), Frames(2), kEndRun, Frames(3)},
         23},
        {"alarms",
         {Frames(5)},
         {Frames(3), kAlarmOn, Look(1), Frames(3), kAlarmOff, Look(5), Frames(2), Look(20), HandOver(0), kAlarmOn,
          Look(1), Frames(2)}},
        {"an event over a sector's border", Script{Frames(2)} + Repeated(20, kAlarm), Repeated(3, kAlarm)},
    };
    return scenarios;
}

Script SecondRun() {
    return {Frames(3), kEndRun, Frames(4), HandOver(1), Frames(3)};
}

}  // namespace cuts
