// Real time to time in a file: real time, but that gaps are left out.
#pragma once

#include <optional>

#include "clip/FrameClock.h"

namespace card {

class ClipTimeline {
  public:
    static constexpr Ticks kGapMax = 2 * kTicksPerSecond;   // longer ones are left out
    static constexpr Ticks kSeamMax = kTicksPerSecond / 2;  // shorter ones are no gap: the grain of recorded times

    // Begins a stretch whose first picture happened `at`; true when a gap was left out in front of it.
    bool Enter(Ticks at);
    void Shown(Ticks at, Ticks duration);  // a picture: how far the stretch has come
    Ticks Place(Ticks at) const { return at - removed_; }
    void StartFile(Ticks at) {
        removed_ = at;
        end_ = 0;
    }  // `at` becomes 0

  private:
    std::optional<Ticks> end_;  // of the last picture, in the file
    Ticks removed_ = 0;
};

}  // namespace card
