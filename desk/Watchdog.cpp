#include "Watchdog.h"

#include <cstring>

namespace desk {

int32_t Watchdog::LastHeartbeat() const {
    WatchDogInfo slot{};
    std::memcpy(&slot, table_.Data().data() + WATCH_DOG_SOURCE_AVRECORD * sizeof slot, sizeof slot);
    return slot.time;
}

std::optional<std::string> Watchdog::Check(time_t now) {
    const int32_t last = LastHeartbeat();
    const bool stale = last != 0 && now - last > kStaleAfter_s;
    if (stale == stale_) return std::nullopt;
    stale_ = stale;
    return stale ? "the recorder's heartbeat has stopped, " + std::to_string(now - last) + " s ago"
                 : "the recorder's heartbeat is back";
}

std::string Watchdog::Status(time_t now) const {
    const int32_t last = LastHeartbeat();
    return last == 0 ? "no heartbeat yet" : "heartbeat " + std::to_string(now - last) + " s ago";
}

}  // namespace desk
