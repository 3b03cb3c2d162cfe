#include "libAVSpsPpsProcess.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "RecursiveLock.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

std::atomic<bool> gInitFlag{false};
std::atomic<int> gShmId{-1};
pthread_mutex_t g_slotLock[AV_SPS_PPS_SLOTS];

// A slot's lock orders the writers of that slot; this one keeps a table that is being published from
// changing in another slot meanwhile.  Taken after the slot's.
std::mutex g_tableLock;
AVSpsPpsData gAVSpsPpsData{};

}  // namespace

int libAVSpsPpsProcessInit(void) {
    LOG_TRACE("%s %d: %s libAVSpsPpsProcessInit!\n", __func__);
    if (gInitFlag) {
        LOG_TRACE("%s %d: %s has already init!\n", __func__);
        return 0;
    }
    gAVSpsPpsData = AVSpsPpsData{};
    const int id = IpcShareMemInit(AV_SPS_PPS_KEY, AV_SPS_PPS_SIZE);
    if (id < 0) {
        LOG_TRACE("%s %d: %s gShmId = %d\n", __func__, id);
        return -1;
    }
    for (pthread_mutex_t& lock : g_slotLock) {
        KQ_CreateLock(&lock);
    }
    gShmId = id;
    gInitFlag = true;
    return 0;
}

int libAVSpsPpsProcessCleanup(void) {
    const bool had_locks = gInitFlag.exchange(false);
    gShmId = -1;
    gAVSpsPpsData = AVSpsPpsData{};
    if (had_locks) {
        for (pthread_mutex_t& lock : g_slotLock) {
            KQ_DestroyLock(&lock);
        }
    }
    return 0;
}

int AVSpsPpsDataWrite(int index, const void* data, uint32_t length) {
    if (data == nullptr) {
        return -1;
    }
    if (length > AV_SPS_PPS_MAX) {
        LOG_TRACE("%s %d: index  %d  length = %d\n", index, static_cast<int>(length));
        return -1;
    }
    if (index < 0 || index >= AV_SPS_PPS_SLOTS) {
        LOG_TRACE("%s %d: index  %d is wrong!\n", index);
        return -1;
    }
    const int id = gShmId;
    if (id < 0) {
        LOG_TRACE("%s %d: gShmId %d has something wrong!\n", id);
        return -1;
    }
    KQ_Lock(&g_slotLock[index]);
    {
        const std::lock_guard guard(g_tableLock);
        AVSpsPpsInfo& slot = gAVSpsPpsData.SpsPpsInfo[index];
        slot.length = length;
        slot.flag = 1;
        std::memcpy(slot.buffer, data, length);
        IpcShareMemWrite(id, 0, &gAVSpsPpsData, sizeof gAVSpsPpsData);
    }
    KQ_Unlock(&g_slotLock[index]);
    return 0;
}

int AVSpsPpsDataRead(AVSpsPpsData* data) {
    if (data == nullptr) {
        return -1;
    }
    const int id = gShmId;
    if (id < 0) {
        LOG_TRACE("%s %d: gShmId %d has something wrong!\n", id);
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
