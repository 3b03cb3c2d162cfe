// Whether a run may begin now, and the heads it begins with.
#include <cstdio>
#include <cstring>

#include "Clock.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "RecorderStatus.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr char kOperation[] = "CheckRecordStart";  // for the log

constexpr uint32_t kJoinSeconds = 3;  // a run that begins so soon after the last one begins at its end

bool SomeRangeHolds(const TIME_DAY_HOUR_SCOPE& day, int now) {
    bool is_due = false;
    int number = 0;
    for (const TIME_HOUR_SCOPE& scope : day.hourScope) {
        const DayRange range = DayRange::Of(scope);
        LOG_TRACE_AS(kOperation, " NowSec = %d RecordStartSec = %d RecordEndSec = %d ucHour = %d \n", now, range.begin,
                     range.end, scope.endHour.ucHour);
        if (range.Holds(now)) {
            is_due = true;
            g_flags.range = number;
            LOG_TRACE_AS(kOperation, " ##########This is Record Time##########\n");
        }
        ++number;
    }
    return is_due;
}

bool DayIsDue(const TIME_DAY_HOUR_SCOPE& day, int now) {
    switch (day.ucSocpeMode) {
        case TIME_SCOPE_ALL:
            LOG_TRACE_AS(kOperation, " VideoRecord all day\n");
            return true;
        case TIME_SCOPE_DIFF:
            LOG_TRACE_AS(kOperation, " VideoRecord TIME_SCOPE_DIFF\n");
            return SomeRangeHolds(day, now);
        case TIME_SCOPE_SAME:
            LOG_TRACE_AS(kOperation, " VideoRecord TIME_SCOPE_SAME\n");
            return false;
        case TIME_SCOPE_NULL:
            LOG_TRACE_AS(kOperation, " VideoRecord TIME_SCOPE_NULL\n");
            return false;
        default:
            return false;
    }
}

bool ScheduleIsDue() {
    REGULAR_RECORD_PROPERTY schedule{};
    if (CameraGetRegularRecordProperty(&schedule, &schedule) != 0) {
        LOG_TRACE_AS(kOperation, "  CameraGetRegularRecordProperty return -1\n");
        RecorderStatusActivity("schedule unknown");
        return false;
    }
    const tm now = LocalTime(WallSeconds());
    const TIME_DAY_HOUR_SCOPE& day = schedule.weekScop.dayScope[now.tm_wday];
    LOG_TRACE_AS(kOperation,
                 ": RegularRecordProertyOut.weekScop.dayScope[RecordDay].ucSocpeMode = %d, pTm_time->tm_wday = %d\n",
                 day.ucSocpeMode, now.tm_wday);
    LOG_TRACE_AS(kOperation, ": ##%4d-%02d-%02d %02d:%02d:%02d week %d##\n", now.tm_year + 1900, now.tm_mon + 1,
                 now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, now.tm_wday);
    if (schedule.videoRecord.ucEnable != 1) {
        LOG_TRACE_AS(kOperation, " VideoRecord not enable \n");
        RecorderStatusActivity("switched off");
        return false;
    }
    const bool is_due = DayIsDue(day, MinuteOfDay(now));
    if (!is_due) {
        RecorderStatusActivity("waiting for schedule");
    }
    return is_due;
}

// A section that joined one of the day before would begin in that day, and none spans two.
bool IsSameDay(uint32_t a, uint32_t b) {
    return LocalTime(static_cast<time_t>(a)).tm_yday == LocalTime(static_cast<time_t>(b)).tm_yday;
}

// The heads in memory are those of the card that is in, read from it when they were not.
bool HeadsAreTheCards() {
    if (g_control.heads_loaded && !g_control.run_left_open) {
        const CardMatch match = CardMatchHeads();
        if (match == CardMatch::Unknown) {
            return false;
        }
        g_control.heads_loaded = match == CardMatch::Ours;
    }
    if (!g_control.heads_loaded) {
        g_control.run_left_open = false;  // whatever its writer still holds is another card's
        g_control.heads_loaded = CardLoadHeads();
    }
    return g_control.heads_loaded;
}

}  // namespace

int CheckSDcardMountStatus(void) {
    char text[16 + 1] = {};
    FILE* mounts = popen("grep mmc /proc/mounts", "re");
    if (mounts == nullptr) {
        return 0;
    }
    const size_t got = std::fread(text, 1, sizeof text - 1, mounts);
    pclose(mounts);
    text[got] = '\0';
    return std::strstr(text, "mmc") != nullptr ? 1 : 0;
}

int CheckRecordStart(void) {
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        LOG_TRACE("  NULL == pSysInfo \n");
        RecorderStatusActivity("no configuration");
        return -1;
    }
    if (CheckSDcardMountStatus() == 0) {
        g_control.heads_loaded = false;
        LOG_TRACE(" NO SDCARD MOUNT %s \n", RECORD_STORE_DIRECTORY);
        RecorderStatusActivity("no card");
        return -1;
    }
    const int storage = FileUtilsGetStorageStatus(RECORD_STORE_DIRECTORY);
    if (storage != 0) {
        RecorderStatusActivity("no card device");
        return storage;
    }
    if (!ScheduleIsDue()) {
        return -1;
    }
    return AVRecordParamInit(config->Record_config.ucLackSpaceModel) < 0 ? -1 : 0;
}

int AVRecordParamInit(unsigned char ucCoverType) {
    if (!HeadsAreTheCards()) {
        return -1;
    }
    LOG_TRACE(": ucCoverType = %d  \n", ucCoverType);
    if (g_control.run_left_open) {
        return 0;  // its end decides what a full file means
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const bool is_full = heads.file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG &&
                         heads.file.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT;
    if (!is_full) {
        return 0;
    }
    if (heads.system.m_u32RecordUsedFileSum >= heads.system.m_u32RecordFileSum && ucCoverType == 0) {
        RecorderStatusActivity("card full");
        return -1;
    }
    AVRecordFramesHold();
    AVRecordHeadsLock();
    *AV_RecordFileInfoHeadGet() = {};
    AVRecordHeadsUnlock();
    g_flags.file_begun_anew = static_cast<int>(heads.system.m_u32RecordFileNo);
    return 0;
}

int AV_RecordFileConfigParamGet(RecordSystemInfoHead_S* pSystemInfoHead, RecordFileInfoHead_S* pRecordFileInfoHead,
                                RecordInfoHead_S* pRecordInfoHead, unsigned char SmartEnable) {
    if (pSystemInfoHead == nullptr || pRecordFileInfoHead == nullptr || pRecordInfoHead == nullptr) {
        return -1;
    }
    const uint32_t now = static_cast<uint32_t>(WallSeconds());
    const uint32_t last_end = g_control.last_end;
    uint32_t startTime = now;
    if (last_end < now) {
        startTime = now - last_end < kJoinSeconds && IsSameDay(last_end, now) ? last_end : now;
        g_control.last_end = 0;
    }
    const tm start = LocalTime(static_cast<time_t>(startTime));
    LOG_TRACE(" : ####################################################### \n");
    LOG_TRACE(" : \n");
    LOG_TRACE(": ## PlayTime. %04d-%02d-%02d %02d:%02d:%02d ##  startTime = %d\n", start.tm_year + 1900,
              start.tm_mon + 1, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec, static_cast<int>(startTime));
    LOG_TRACE(" :  \n");
    LOG_TRACE(" : ####################################################### \n");

    AVRecordHeadsLock();
    if (pRecordFileInfoHead->m_u32FileInfoHeadFlag == RECORD_FILE_FLAG) {
        if (startTime < pRecordFileInfoHead->m_u32RecordStartTime) {
            AV_RecordFileInfoHeadStartTimeFresh(pRecordFileInfoHead, startTime);
        }
        AV_RecordFileInfoHeadFileFileFresh(pRecordFileInfoHead, RECORD_TYPE_SCHEDULE);
        AV_RecordFileInfoHeadSectionSumFresh(pRecordFileInfoHead);
    } else {
        AV_RecordFileInfoHeadAdd(pSystemInfoHead, pRecordFileInfoHead, startTime, RECORD_TYPE_SCHEDULE);
    }
    AV_RecordSectionInfoHeadAdd(pRecordFileInfoHead, pRecordInfoHead, startTime, RECORD_TYPE_SCHEDULE, SmartEnable);
    AVRecordHeadsUnlock();
    return 0;
}
