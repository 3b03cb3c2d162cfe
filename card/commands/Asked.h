// What a command line asks for: times and an event.
#pragma once

#include <cstdint>
#include <string>

#include "clip/Clip.h"
#include "text/TimeText.h"

namespace card {

inline constexpr char kTimeText[] = "TIME: \"2026-11-21 08:00:05\", \"2026-11-21\" or \"08:00\" (of the newest day).\n";

struct AskedTimes {
    std::string from;  // as TimeStyle::Parse takes it; empty: the oldest
    std::string to;    // or the newest

    bool Any() const { return !from.empty() || !to.empty(); }
    // Throws CardError (kUsage) when they are no times.
    Selection Select(const CardIndex& index, const TimeStyle& times) const;
};

uint32_t ParseEvent(const std::string& text);  // throws CardError (kUsage)

}  // namespace card
