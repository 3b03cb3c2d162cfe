// Times as a card's owner writes and reads them.
//
// The card keeps seconds UTC; they are shown in this computer's time zone (TZ), or as UTC when asked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace card {

struct TimeStyle {
    bool utc = false;

    std::string DateTime(uint32_t seconds) const;  // "2026-11-21 08:00:05"
    std::string Iso(uint32_t seconds) const;       // "2026-11-21T08:00:05+01:00", "...Z" for UTC
    std::string Day(uint32_t seconds) const;       // "2026-11-21"
    std::string Weekday(uint32_t seconds) const;   // "Saturday"
    std::string Clock(uint32_t seconds) const;     // "08:00:05"
    std::string Compact(uint32_t seconds) const;   // "20261121-080005", for file names

    // Reads "2026-11-21 08:00:05", "2026-11-21T08:00", "2026-11-21", "08:00:05", "08:00"; a final "Z" or an
    // offset "+01:00" says the zone.  A time without a day is of the day of `day` (s since 1970 UTC).
    // A day without a time is its start, or with `end_of_day` its last second.
    // Throws CardError (kUsage) when it is none of these, or has no day and `day` is empty.
    uint32_t Parse(const std::string& text, std::optional<uint32_t> day, bool end_of_day = false) const;
};

std::string Duration(uint64_t seconds);                  // "1 h 02 min 05 s", "2 min 05 s", "5 s"
std::string Bytes(uint64_t bytes);                       // "1.5 GiB", "249.0 MiB", "17 bytes"
std::string Counted(uint64_t count, const char* thing);  // "1 section", "2 sections"

}  // namespace card
