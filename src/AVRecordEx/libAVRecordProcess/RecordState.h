// State that crosses the files and threads of this module, and the schedule's way to count a day.
#pragma once

#include <atomic>
#include <cstdint>

#include "Clock.h"
#include "SysInfo.h"

// Of the control loop's thread, which runs the start check and the record loop.
struct RecordControl {
    bool heads_loaded = false;       // g_RecordInitFlag: the heads in memory are of the card that is in
    bool run_left_open = false;      // a run has a writer and no alarm thread; the next start goes on with it
    bool ended_at_midnight = false;  // gRecordTimeOver: the run that is ending
    uint32_t last_end = 0;           // g_u32RecordEndTime: end of the last run, s since 1970 UTC; 0: none to join
};

// Read by several threads; each member has the one writer that is named.
struct RecordFlags {
    std::atomic<bool> stop_requested{false};  // gRecordStopFlag: whoever asks for the process's end, signals included
    std::atomic<bool> run_is_on{false};       // g_s32AlarmEventFlag: the record loop; its alarm thread may live
    std::atomic<int> stream{-1};              // the record loop; the stream that is recorded, -1: none was yet
    std::atomic<int> range{0};             // gRecordHour: the start check; range 0..5 of the day that allowed the run
    std::atomic<int> file_begun_anew{-1};  // g_s32CoverFlag: the start check; number of the file whose events are void,
                                           // -1 again once the alarm thread has voided them
};

inline constinit RecordControl g_control;
inline constinit RecordFlags g_flags;

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
    return config.Record_config.weekScope.dayScope[local.tm_wday].hourScope[g_flags.range];
}
