// How tests wait: for the event, with a bound that a loaded machine does not reach.
#pragma once

#include <chrono>
#include <thread>

namespace support {

// Waits for `condition` to hold, 20 seconds at most; whether it did.
template <class Condition>
bool WaitUntil(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace support
