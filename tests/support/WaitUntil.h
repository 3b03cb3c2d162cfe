// How tests wait: for the event, with a bound that a loaded machine does not reach.
#pragma once

#include <chrono>
#include <thread>

namespace support {

// Waits for `condition` to hold, at most so many seconds; whether it did.
template <class Condition>
bool WaitUntil(Condition condition, int at_most = 20) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(at_most);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace support
