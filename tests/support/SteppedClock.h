// A clock that stands still until the test lets time pass.
#pragma once

#include <atomic>
#include <cstdint>
#include <future>
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
    static inline std::atomic<long> sleeps;   // calls of Sleep; each only gives way to other threads

  protected:
    static timeval Wall() { return {static_cast<time_t>(wall.load()), 0}; }
    static long Uptime() { return uptime.load(); }

  private:
    static void Sleep(unsigned int) {
        ++sleeps;
        std::this_thread::yield();
    }
    static constexpr ClockSource kClock{Wall, Uptime, Sleep};
};

// Runs `call` in a thread of its own and lets `seconds` pass once `ready` holds and it waits.  The result of `call`,
// which must have ended by then.
template <class Call, class Ready>
int ResultAfter(long seconds, Call call, Ready ready) {
    std::future<int> result = std::async(std::launch::async, call);
    const auto returns_within = [&](int ms) {
        return result.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready;
    };
    EXPECT_TRUE(WaitUntil(ready));
    const long sleeps = SteppedClock::sleeps;
    EXPECT_TRUE(WaitUntil([&] { return SteppedClock::sleeps > sleeps; }));
    SteppedClock::uptime += seconds - 1;
    EXPECT_FALSE(returns_within(20)) << "before its time";  // a fault that shows most times
    SteppedClock::uptime += 1;
    EXPECT_TRUE(returns_within(20000));
    while (!returns_within(1)) {  // it failed, and the thread must not outlive what it uses
        SteppedClock::uptime += 1000;
    }
    return result.get();
}

}  // namespace support
