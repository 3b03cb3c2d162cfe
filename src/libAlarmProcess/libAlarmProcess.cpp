#include "libAlarmProcess.h"

#include <mutex>

#include "Clock.h"
#include "PeerSegment.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

std::mutex g_lock;  // guards everything below
PeerSegment gBoard{ALARM_BOARD_KEY, ALARM_BOARD_SIZE};
AlarmData gAlarmData{};
Face_Alarm_Ret gFaceAlarmRet{};

}  // namespace

int libAlarmProcessInit(void) {
    const std::lock_guard guard(g_lock);
    if (gBoard.Attached()) {
        LOG_TRACE_HERE(": %s has already init!\n", __func__);
        return 0;
    }
    gAlarmData = AlarmData{};
    return gBoard.Open() ? 0 : -1;
}

int libAlarmProcessCleanup(void) {
    const std::lock_guard guard(g_lock);
    gBoard.Forget();
    gAlarmData = AlarmData{};
    return 0;
}

int AlarmDataWrite(int source, int status) {
    if (source < 0 || source >= ALARM_SOURCE_DEF_NUMS) {
        LOG_TRACE_HERE(": source  %d is wrong!\n", source);
        return -1;
    }
    if (status != ALARM_STATUS_DEF_OFF && status != ALARM_STATUS_DEF_ON) {
        LOG_TRACE_HERE(": status  %d is wrong!\n", status);
        return -1;
    }
    const std::lock_guard guard(g_lock);
    const int gShmId = gBoard.Id();
    if (gShmId < 0) {
        LOG_TRACE_HERE(": gShmId %d has something wrong!\n", gShmId);
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
    const int gShmId = gBoard.Id();
    if (gShmId < 0) {
        LOG_TRACE_HERE(": gShmId %d has something wrong!\n", gShmId);
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
