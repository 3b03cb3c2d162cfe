#include "WatchedAlarm.h"

#include "Clock.h"
#include "RecordState.h"
#include "libAVRecordProcess.h"
#include "libCameraAccess.h"

namespace {

enum RecordTimeType : uint8_t {  // Hour_Info::ucType of a range's end: what the range records
    ARG_RECORD_TIME_REGULAR = 0,
    ARG_RECORD_TIME_MOTION = 1,
    ARG_RECORD_TIME_IO = 2,
    ARG_RECORD_TIME_IO_MOTION = 3,
    ARG_RECORD_TIME_SMART_EVENT = 4
};

}  // namespace

Watched WatchedAlarm(uint8_t record_time_type, const AlarmData& board) {
    const auto is_on = [&](int source) { return board.alarm[source].status == ALARM_STATUS_DEF_ON; };
    switch (record_time_type) {
        case ARG_RECORD_TIME_MOTION:
            return {ALARM_SOURCE_DEF_MOTION, 1, is_on(ALARM_SOURCE_DEF_MOTION)};
        case ARG_RECORD_TIME_IO:
            return {ALARM_SOURCE_DEF_IO_0, 4, is_on(ALARM_SOURCE_DEF_IO_0)};
        case ARG_RECORD_TIME_IO_MOTION:
            return {
                ALARM_SOURCE_DEF_IO_MOTION, 8,
                is_on(ALARM_SOURCE_DEF_IO_MOTION) || (is_on(ALARM_SOURCE_DEF_IO_0) && is_on(ALARM_SOURCE_DEF_MOTION))};
        case ARG_RECORD_TIME_SMART_EVENT:  // all smart alarms count as one
            return {ALARM_SOURCE_DEF_PEOPLE_GATHERING, 32,
                    is_on(ALARM_SOURCE_DEF_CROSSBORDER) || is_on(ALARM_SOURCE_DEF_INTRUSION) ||
                        is_on(ALARM_SOURCE_DEF_PEOPLE_STAY) || is_on(ALARM_SOURCE_DEF_PEOPLE_GATHERING)};
        default:
            return {-1, 0, false};
    }
}

bool RecordTimeTypeNow(const SysInfo& config, uint8_t* type) {
    *type = ARG_RECORD_TIME_REGULAR;
    const tm local = LocalTime(WallSeconds());
    if (config.Record_config.weekScope.dayScope[local.tm_wday].ucSocpeMode != TIME_SCOPE_DIFF) {
        return true;
    }
    const Hour_Scope range = RunRange(config, local);
    *type = range.endHour.ucType;
    return DayRange::Of(range).Holds(MinuteOfDay(local));
}
