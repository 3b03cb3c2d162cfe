// When each frame of a recorded run really happened.
//
// The stream's own clock counts frames as if there were 25 a second, whatever their real rate; beside it
// every frame carries the whole second in which it was written.  From both a time line is laid through a
// run: even where the frames came evenly, with the holes that a stalled stream left, never backwards.
// Holds no state; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace card {

using Ticks = int64_t;  // 90 kHz, since 1970-01-01 UTC
inline constexpr Ticks kTicksPerSecond = 90000;

struct FrameMark {
    uint64_t index = 0;   // of the frame in its run, rising
    uint32_t second = 0;  // in which it was written, s since 1970 UTC
};

struct FrameTimes {
    std::vector<Ticks> at;     // one for each mark, rising
    Ticks frame_duration = 0;  // of the last frames; how long the last one is shown
    uint32_t steady_rate = 0;  // frames a second when that is whole and holds for the run; else 0
};

// `nominal_rate`: frames a second as the stream's parameters say, 0 when unknown.  It is believed as long
// as the recorded seconds allow it, and measured where they do not.
FrameTimes TimeFrames(std::span<const FrameMark> marks, uint32_t nominal_rate);

}  // namespace card
