#include "Scenarios.h"

namespace cuts {
namespace {

using S = Step;

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
const Script kFull{{S::kFill, 1}, {S::kPause, 600}, {S::kFrames, 2}};
const Script kAlarm{{S::kAlarmOn},  {S::kAlarmLook, 1}, {S::kFrames, 1},
                    {S::kAlarmOff}, {S::kAlarmLook, 5}, {S::kAlarmLook, 8}};

}  // namespace

const std::vector<Scenario>& Scenarios() {
    static const std::vector<Scenario> scenarios{
        {"the first frames of a card",
         3,
         {},
         {{S::kFrames, 6}, {S::kHandOver, 0}, {S::kFrames, 5}, {S::kHandOver, 1}, {S::kFrames, 4}}},
        {"sections",
         3,
         {{S::kFrames, 14}},
         {{S::kFrames, 5},
          {S::kHandOver, 1},
          {S::kFrames, 3},
          {S::kEndRun},
          {S::kFrames, 6},
          {S::kEndRun},
          {S::kFrames, 4},
          {S::kHandOver, 0},
          {S::kFrames, 4}}},
        {"the second file begins",
         3,
         {{S::kFill, 3000}},
         {{S::kFrames, 4}, {S::kHandOver, 0}, {S::kFrames, 12}, {S::kHandOver, 1}, {S::kFrames, 6}}},
        {"the second file begins long after a hand-over",
         3,
         {{S::kFill, 1500}},
         {{S::kFrames, 24}, {S::kHandOver, 0}, {S::kFrames, 3}}},
        {"the ring comes round",
         3,
         Repeated(2, kFull) + Script{{S::kFill, 1500}},
         {{S::kFrames, 4}, {S::kHandOver, 0}, {S::kFrames, 12}, {S::kHandOver, 0}, {S::kFrames, 4}}},
        {"key-frame records over a sector's border",
         3,
         {{S::kKeyEvery, 1}, {S::kFrames, 30}},
         {{S::kFrames, 3}, {S::kHandOver, 0}, {S::kFrames, 6}}},
        {"a file head over a sector's border",
         23,
         Repeated(21, kFull),
         {{S::kFrames, 2}, {S::kHandOver, 0}, {S::kFrames, 2}, {S::kEndRun}, {S::kFrames, 3}}},
        {"alarms",
         3,
         {{S::kFrames, 5}},
         {{S::kFrames, 3},
          {S::kAlarmOn},
          {S::kAlarmLook, 1},
          {S::kFrames, 3},
          {S::kAlarmOff},
          {S::kAlarmLook, 5},
          {S::kFrames, 2},
          {S::kAlarmLook, 20},
          {S::kHandOver, 0},
          {S::kAlarmOn},
          {S::kAlarmLook, 1},
          {S::kFrames, 2}}},
        {"an event over a sector's border", 3, Script{{S::kFrames, 2}} + Repeated(20, kAlarm), Repeated(3, kAlarm)},
    };
    return scenarios;
}

Script SecondRun() {
    return {{S::kFrames, 3}, {S::kEndRun}, {S::kFrames, 4}, {S::kHandOver, 1}, {S::kFrames, 3}};
}

}  // namespace cuts
