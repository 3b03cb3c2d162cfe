#include "libAlarmProcess.h"

#include <mutex>

#include "Clock.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

std::mutex g_lock;  // guards everything below
bool gInitFlag = false;
int gShmId = -1;
AlarmData gAlarmData{};
Face_Alarm_Ret gFaceAlarmRet{};

}  // namespace

int libAlarmProcessInit(void) {
    const std::lock_guard guard(g_lock);
    if (gInitFlag) {
        LOG_TRACE("%s %d: %s has already init!\n", __func__);
        return 0;
    }
    gAlarmData = AlarmData{};
    gShmId = IpcShareMemInit(ALARM_BOARD_KEY, ALARM_BOARD_SIZE);
    gInitFlag = gShmId >= 0;
    return gInitFlag ? 0 : -1;
}

int libAlarmProcessCleanup(void) {
    const std::lock_guard guard(g_lock);
    gInitFlag = false;
    gShmId = -1;
    gAlarmData = AlarmData{};
    return 0;
}

int AlarmDataWrite(int source, int status) {
    if (source < 0 || source >= ALARM_SOURCE_DEF_NUMS) {
        LOG_TRACE("%s %d: source  %d is wrong!\n", source);
        return -1;
    }
    if (status != ALARM_STATUS_DEF_OFF && status != ALARM_STATUS_DEF_ON) {
        LOG_TRACE("%s %d: status  %d is wrong!\n", status);
        return -1;
    }
    const std::lock_guard guard(g_lock);
    if (gShmId < 0) {
        LOG_TRACE("%s %d: gShmId %d has something wrong!\n", gShmId);
        return -1;
    }
    gAlarmData.alarm[source].status = status;
    gAlarmData.alarm[source].time = static_cast<int32_t>(WallSeconds());
    IpcShareMemWrite(gShmId, 0, &gAlarmData, sizeof gAlarmData);
    return 0;
}

int AlarmDataRead(AlarmData* Data) {
    if (Data == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    if (gShmId < 0) {
        LOG_TRACE("%s %d: gShmId %d has something wrong!\n", gShmId);
        return -1;
    }
    *Data = AlarmData{};  // a segment too small for the board, or removed, reads as all quiet
    IpcShareMemRead(gShmId, 0, Data, sizeof *Data);
    return 0;
}

int libGetFaceAlarmInfo(Face_Alarm_Ret* Ret) {
    if (Ret == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    *Ret = gFaceAlarmRet;
    return 0;
}

int libSetFaceAlarmInfo(Face_Alarm_Ret* Ret) {
    if (Ret == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    gFaceAlarmRet = *Ret;
    return 0;
}
