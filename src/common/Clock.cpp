#include "Clock.h"

#include <sys/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

timeval RealWall() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

long RealUptime() {
    struct sysinfo info {};
    return sysinfo(&info) == 0 ? info.uptime : 0;
}

void RealSleepMs(unsigned int milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

constexpr ClockSource kRealClock{RealWall, RealUptime, RealSleepMs};
std::atomic<const ClockSource*> g_clock{&kRealClock};

}  // namespace

long KQ_COMMON_GetUptime(void) { return g_clock.load()->Uptime(); }

timeval WallTime() { return g_clock.load()->Wall(); }
time_t WallSeconds() { return WallTime().tv_sec; }
void SleepMs(unsigned int milliseconds) { g_clock.load()->SleepMs(milliseconds); }

tm LocalTime(time_t seconds) {
    tm local{};
    localtime_r(&seconds, &local);
    return local;
}

tm UtcTime(time_t seconds) {
    tm utc{};
    gmtime_r(&seconds, &utc);
    return utc;
}

void ReplaceClock(const ClockSource* source) { g_clock.store(source != nullptr ? source : &kRealClock); }
