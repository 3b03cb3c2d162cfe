#include "libAlarmProcess.h"

#include <cstring>

#include "Clock.h"
#include "Mutex.h"
#include "PeerSegment.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

Mutex g_lock;  // guards everything below
PeerSegment g_segment{ALARM_BOARD_KEY, ALARM_BOARD_SIZE};
AlarmData g_board{};
Face_Alarm_Ret g_face{};

}  // namespace

int libAlarmProcessInit(void) {
    const std::lock_guard guard(g_lock);
    if (g_segment.Attached()) {
        LOG_TRACE(": %s has already init!\n", __func__);
        return 0;
    }
    g_board = AlarmData{};
    return g_segment.Open() ? 0 : -1;
}

int libAlarmProcessCleanup(void) {
    const std::lock_guard guard(g_lock);
    g_segment.Forget();
    g_board = AlarmData{};
    return 0;
}

int AlarmDataWrite(int source, int status) {
    if (source < 0 || source >= ALARM_SOURCE_DEF_NUMS) {
        LOG_TRACE(": source  %d is wrong!\n", source);
        return -1;
    }
    if (status != ALARM_STATUS_DEF_OFF && status != ALARM_STATUS_DEF_ON) {
        LOG_TRACE(": status  %d is wrong!\n", status);
        return -1;
    }
    const std::lock_guard guard(g_lock);
    const int id = g_segment.Id();
    if (id < 0) {
        LOG_TRACE(": gShmId %d has something wrong!\n", id);
        return -1;
    }
    g_board.alarm[source].status = status;
    g_board.alarm[source].time = static_cast<int32_t>(WallSeconds());
    IpcShareMemWrite(id, 0, &g_board, sizeof g_board);
    return 0;
}

int AlarmDataRead(AlarmData* Data) {
    if (Data == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    const void* const board = g_segment.Look(sizeof *Data);
    if (!g_segment.Attached()) {
        LOG_TRACE(": gShmId %d has something wrong!\n", -1);
        return -1;
    }
    *Data = AlarmData{};  // a segment too small for the board, or removed, reads as all quiet
    if (board != nullptr) {
        std::memcpy(Data, board, sizeof *Data);
    }
    return 0;
}

int libGetFaceAlarmInfo(Face_Alarm_Ret* Ret) {
    if (Ret == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    *Ret = g_face;
    return 0;
}

int libSetFaceAlarmInfo(Face_Alarm_Ret* Ret) {
    if (Ret == nullptr) {
        return -1;
    }
    const std::lock_guard guard(g_lock);
    g_face = *Ret;
    return 0;
}
