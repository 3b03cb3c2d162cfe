/* The recorder's only way to time: wall clock, seconds since boot, and sleeping.
 *
 * Owns nothing; never formats or logs.  All functions may be called from any thread.
 * Tests run hours of recording in seconds by giving a ClockSource of their own (ReplaceClock);
 * everything else of the process stays the real thing.
 */
#ifndef COMMON_CLOCK_H
#define COMMON_CLOCK_H

#include <sys/time.h>
#include <time.h>

#ifdef __cplusplus
#include <cstdint>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Seconds since boot (the `uptime` field of sysinfo); does not jump when the wall clock is set. */
long KQ_COMMON_GetUptime(void);

#ifdef __cplusplus
} /* extern "C" */

int64_t SystemSteadyUs(); /* of the system's own clock */

struct ClockSource {
    timeval (*Wall)();                      /* since 1970-01-01 UTC             */
    long (*Uptime)();                       /* seconds since boot               */
    void (*SleepMs)(unsigned int);          /* sleeps at least so many ms       */
    int64_t (*SteadyUs)() = SystemSteadyUs; /* microseconds since some moment */
};

timeval WallTime();
time_t WallSeconds();
int64_t SteadyUs(); /* for durations; does not jump when the wall clock is set */
int64_t SteadyMs();
void SleepMs(unsigned int milliseconds);
tm LocalTime(time_t seconds);
tm UtcTime(time_t seconds);

/* Makes `source` the clock of the whole process; null restores the real one.  `source` must outlive
 * its use.  Meant for tests; safe while other threads read the clock. */
void ReplaceClock(const ClockSource* source);
#endif
#endif
