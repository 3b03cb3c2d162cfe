// Which alarm counts at a moment, by the schedule of the configuration.
#pragma once

#include <cstdint>

#include "SysInfo.h"
#include "libAlarmProcess.h"

struct Watched {  // the one alarm that a range asks for
    int source;   // AlarmSourceDef; -1: none
    uint8_t event_type;
    bool is_on;
};
Watched WatchedAlarm(uint8_t record_time_type, const AlarmData& board);

// Tells what the present moment is recorded for (Hour_Info::ucType); false when the run's range is over.
bool RecordTimeTypeNow(const SysInfo& config, uint8_t* type);
