#include "libAVSpsPpsProcess.h"

#include <cstring>

#include "Mutex.h"
#include "PeerSegment.h"
#include "RecursiveLock.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

bool g_have_locks = false;  // init and cleanup only
pthread_mutex_t g_slot_locks[AV_SPS_PPS_SLOTS];

// A slot's lock orders the writers of that slot; this one guards the following, and keeps a table that is being
// published from changing in another slot meanwhile.  Taken after the slot's.
Mutex g_table_lock;
PeerSegment g_segment{AV_SPS_PPS_KEY, AV_SPS_PPS_SIZE};
AVSpsPpsData g_table{};

int SegmentId() {
    const std::lock_guard guard(g_table_lock);
    return g_segment.Id();
}

}  // namespace

int libAVSpsPpsProcessInit(void) {
    LOG_TRACE(": %s libAVSpsPpsProcessInit!\n", __func__);
    const std::lock_guard guard(g_table_lock);
    if (g_segment.Attached()) {
        LOG_TRACE(": %s has already init!\n", __func__);
        return 0;
    }
    g_table = AVSpsPpsData{};
    for (pthread_mutex_t& lock : g_slot_locks) {
        if (!g_have_locks) {
            KQ_CreateLock(&lock);
        }
    }
    g_have_locks = true;  // also without a segment, which may come later
    if (!g_segment.Open()) {
        LOG_TRACE(": %s gShmId = %d\n", __func__, -1);
        return -1;
    }
    return 0;
}

int libAVSpsPpsProcessCleanup(void) {
    const std::lock_guard guard(g_table_lock);
    g_segment.Forget();
    g_table = AVSpsPpsData{};
    for (pthread_mutex_t& lock : g_slot_locks) {
        if (g_have_locks) {
            KQ_DestroyLock(&lock);
        }
    }
    g_have_locks = false;
    return 0;
}

int AVSpsPpsDataWrite(int index, const void* data, uint32_t length) {
    if (data == nullptr) {
        return -1;
    }
    if (length > AV_SPS_PPS_MAX) {
        LOG_TRACE(": index  %d  length = %d\n", index, static_cast<int>(length));
        return -1;
    }
    if (index < 0 || index >= AV_SPS_PPS_SLOTS) {
        LOG_TRACE(": index  %d is wrong!\n", index);
        return -1;
    }
    const int id = SegmentId();
    if (id < 0) {
        LOG_TRACE(": gShmId %d has something wrong!\n", id);
        return -1;
    }
    KQ_Lock(&g_slot_locks[index]);
    {
        const std::lock_guard guard(g_table_lock);
        AVSpsPpsInfo& slot = g_table.SpsPpsInfo[index];
        slot.length = length;
        slot.flag = 1;
        std::memcpy(slot.buffer, data, length);
        IpcShareMemWrite(id, 0, &g_table, sizeof g_table);
    }
    KQ_Unlock(&g_slot_locks[index]);
    return 0;
}

int AVSpsPpsDataRead(AVSpsPpsData* data) {
    if (data == nullptr) {
        return -1;
    }
    const int id = SegmentId();
    if (id < 0) {
        LOG_TRACE(": gShmId %d has something wrong!\n", id);
        return -1;
    }
    *data = AVSpsPpsData{};  // what a segment too small for the table reads as
    IpcShareMemRead(id, 0, data, sizeof *data);
    return 0;
}

int KQ_CreateLock(pthread_mutex_t* mutex) {
    return RecursiveLockCreate(mutex);
}
int KQ_DestroyLock(pthread_mutex_t* mutex) {
    return RecursiveLockDestroy(mutex);
}
int KQ_Lock(pthread_mutex_t* mutex) {
    return RecursiveLockLock(mutex);
}
int KQ_Unlock(pthread_mutex_t* mutex) {
    return RecursiveLockUnlock(mutex);
}
