// State that crosses the files and threads of this module; each flag has one writer at a time.
#pragma once

#include <atomic>
#include <cstdint>

#include "Clock.h"
#include "SysInfo.h"

extern std::atomic<int> gRecordStopFlag;          // 1: the process is to stop
extern std::atomic<int> gRecordTimeOver;          // 1: the run ended at midnight
extern std::atomic<int> gRecordHour;              // range 0..5 of the day that allowed the run
extern std::atomic<int> g_RecordInitFlag;         // 1: the heads were loaded from the card that is in
extern bool g_run_left_open;                      // its writer records on without an alarm thread; control loop alone
extern std::atomic<int> g_s32AlarmEventFlag;      // 1: a run is on and its alarm thread may live
extern std::atomic<int> g_s32CoverFlag;           // 1: the current file starts anew, its events are void
extern std::atomic<uint32_t> g_u32RecordEndTime;  // s since 1970 UTC, end of the last run; 0: none to join

// A range of the day as the schedule counts it: whole minutes, as seconds since midnight.
struct DayRange {
    int begin;
    int end;  // first moment after it

    template <typename HourScope>
    static DayRange Of(const HourScope& scope) {
        return {scope.beginHour.ucHour * 3600 + scope.beginHour.ucMinute * 60,
                scope.endHour.ucHour * 3600 + scope.endHour.ucMinute * 60};
    }
    bool Holds(int second) const { return begin <= second && second < end; }
};

inline int MinuteOfDay(const tm& local) {
    return local.tm_hour * 3600 + local.tm_min * 60;
}

inline bool IsLastSecond(const tm& local) {  // of the day
    return local.tm_hour == 23 && local.tm_min == 59 && local.tm_sec == 59;
}

// The configured range that allowed the present run.
inline Hour_Scope RunRange(const SysInfo& config, const tm& local) {
    return config.Record_config.weekScope.dayScope[local.tm_wday].hourScope[gRecordHour];
}
