#include "commands/Asked.h"

#include <charconv>

#include "text/Error.h"

namespace card {

Selection AskedTimes::Select(const CardIndex& index, const TimeStyle& times) const {
    const uint32_t newest = index.Newest().value_or(0);
    const uint32_t first = from.empty() ? 0 : times.Parse(from, newest);
    const uint32_t day = from.empty() ? newest : first;
    const uint32_t last = to.empty() ? UINT32_MAX : times.Parse(to, day, true);
    if (last < first) throw CardError("--to lies before --from", kUsage);
    return SelectTimes(index, first, last);
}

uint32_t ParseEvent(const std::string& text) {
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec == std::errc() && result.ptr == end && number != 0) return number;
    throw CardError("--event takes a number as \"recordcard events\" prints it, or \"all\", not \"" + text + "\"",
                    kUsage);
}

}  // namespace card
