// Watches the recorder's heartbeat in the shared watchdog table, as the camera's watchdog service would, and tells
// when it stops or comes back.  Never kills anyone.  Owns the table's segment.  One thread.
#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "SharedSegment.h"
#include "libWatchDog.h"

namespace desk {

class Watchdog {
  public:
    static constexpr int kStaleAfter_s = 10;  // five heartbeats

    Watchdog() : table_(WATCH_DOG_KEY, WATCH_DOG_SIZE, "watchdog table") {}

    // What changed since the last call, if anything: the recorder fell silent, or is back.
    std::optional<std::string> Check(time_t now);
    std::string Status(time_t now) const;

  private:
    int32_t LastHeartbeat() const;  // 0: none yet

    SharedSegment table_;
    bool stale_ = false;
};

}  // namespace desk
