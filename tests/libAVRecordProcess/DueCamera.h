// A bound camera that records all day, and a process that has not recorded yet.
#pragma once

#include <cstdlib>

#include "RecordState.h"
#include "libAVRecordProcess.h"
#include "support/BoundCamera.h"

inline constexpr int64_t kMidnight = 1700006400;  // Wednesday 2023-11-15 00:00:00 UTC
inline constexpr int64_t kNoon = kMidnight + 12 * 3600;
inline constexpr uint32_t kFull = 0x0F900000;

class DueCamera : public support::BoundCamera {
  protected:
    DueCamera() {
        setenv("TZ", "UTC", 1);
        tzset();
        wall = kMidnight;
        Config().Record_config.ucEnable = 1;
        Config().Record_config.ucLackSpaceModel = 1;
        Today().ucSocpeMode = TIME_SCOPE_ALL;
        g_control.heads_loaded = false;
        g_control.last_end = 0;
        g_control.run_left_open = false;
        g_flags.file_begun_anew = -1;
    }
    static Day_Hour_Scope& Today() { return Config().Record_config.weekScope.dayScope[3]; }
};
