// A clock that stands still until the test lets time pass.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "Clock.h"
#include "support/WaitUntil.h"

namespace support {

class SteppedClock {
  public:
    SteppedClock() {
        wall = 1700000000;
        uptime = 1000;
        sleeps = 0;
        ReplaceClock(&kClock);
    }
    ~SteppedClock() { ReplaceClock(nullptr); }
    SteppedClock(const SteppedClock&) = delete;
    SteppedClock& operator=(const SteppedClock&) = delete;

    static inline std::atomic<int64_t> wall;  // s since 1970 UTC
    static inline std::atomic<long> uptime;   // s since boot
    static inline std::atomic<long> sleeps;   // calls of SleepMs; each only gives way to other threads

  private:
    static constexpr ClockSource kClock{[] {
                                            return timeval{static_cast<time_t>(wall.load()), 0};
                                        },
                                        [] { return uptime.load(); },
                                        [](unsigned int) {
                                            ++sleeps;
                                            std::this_thread::yield();
                                        }};
};

// Runs `call` in a thread of its own and lets `seconds` pass once `ready` holds and it waits.  The result of `call`,
// which must have ended by then.
template <class Call, class Ready>
int ResultAfter(long seconds, Call call, Ready ready) {
    std::atomic<bool> returned{false};
    int result = 0;
    std::thread caller([&] {
        result = call();
        returned.store(true);
    });
    EXPECT_TRUE(WaitUntil(ready));
    const long sleeps = SteppedClock::sleeps;
    EXPECT_TRUE(WaitUntil([&] { return SteppedClock::sleeps > sleeps; }));
    SteppedClock::uptime += seconds - 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // an early return is a fault that shows most times
    EXPECT_FALSE(returned.load()) << "before its time";
    SteppedClock::uptime += 1;
    EXPECT_TRUE(WaitUntil([&] { return returned.load(); }));
    while (!returned.load()) {  // it failed, and the thread must not outlive what it uses
        SteppedClock::uptime += 1000;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    caller.join();
    return result;
}

}  // namespace support
