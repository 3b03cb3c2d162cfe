#include "libGetAVStream.h"

#include <sys/prctl.h>

#include <atomic>
#include <cstdio>
#include <memory>

#include "Clock.h"
#include "FrameReader.h"
#include "Mutex.h"
#include "Thread.h"
#include "libLog.h"

namespace {

std::atomic<AVStreamCallback> g_frame_callbacks[MSG_AV_TYPE_END];
std::atomic<AVTransformStatus> g_status_callbacks[MSG_AV_TYPE_END];
std::atomic<AVStreamUrgency> g_urgency[MSG_AV_TYPE_END];
std::atomic<bool> g_initialised[MSG_AV_TYPE_END];
std::atomic<int> g_alarm_is_end_frame{0};

// The reader of one client type and stream.
struct ReaderSlot {
    Mutex lock;  // held while the thread is made or waited for
    pthread_t thread{};
    bool exists = false;      // started and not stopped; under the lock
    bool detached = false;    // ended by itself: not to be waited for; under the lock
    std::atomic<int> run{0};  // thread flag
    AVMsgBuf arguments{};     // written before the thread is made
};
ReaderSlot g_readers[MSG_AV_TYPE_END][AVSTREAM_MAX];
thread_local ReaderSlot* t_own_slot = nullptr;  // of the reader that this thread is

// At the end of the reader's thread: one that nobody stopped will not be waited for.
void LetGo(ReaderSlot& slot) {
    while (slot.run.load() != 0) {  // else the one that stops it waits for it, and holds the lock
        if (slot.lock.try_lock()) {
            const std::lock_guard guard(slot.lock, std::adopt_lock);
            slot.detached = true;
            pthread_detach(pthread_self());
            return;
        }
        SleepMs(1);
    }
}

void* AVStreamGetAVDataThread(void* argument) {
    auto* const slot = static_cast<ReaderSlot*>(argument);
    prctl(PR_SET_NAME, "AVStreamGetAVDataThread");
    t_own_slot = slot;
    FrameReader(slot->arguments, slot->run).Follow();
    LetGo(*slot);
    return nullptr;
}

void StoreCallbacks(int type, AVStreamCallback frame, AVTransformStatus status) {
    if (type >= 0 && type < MSG_AV_TYPE_END) {
        g_frame_callbacks[type].store(frame);
        g_status_callbacks[type].store(status);
    }
}

// Waits for a reader that was told to stop; the slot's lock is held.
void Join(ReaderSlot& slot) {
    if (slot.exists && !slot.detached) {
        pthread_join(slot.thread, nullptr);
    }
    slot.exists = false;
    slot.detached = false;
}

}  // namespace

AVStreamCallback FrameCallback(int type) {
    return g_frame_callbacks[type].load();
}
AVTransformStatus StatusCallback(int type) {
    return g_status_callbacks[type].load();
}
bool IsUrgent(int type, int video_index) {
    const AVStreamUrgency is_urgent = g_urgency[type].load();
    return is_urgent == nullptr || is_urgent(video_index) != 0;
}

void AVStreamUrgencySet(int type, AVStreamUrgency IsUrgent) {
    if (IsClientType(type)) {
        g_urgency[type].store(IsUrgent);
    }
}

int GetAVStreamInit(int type, AVStreamCallback AVStreamFunc, AVTransformStatus TransFormStatusFunc) {
    LOG_TRACE(":type = %d func = %p\n", type, reinterpret_cast<void*>(AVStreamFunc));
    StoreCallbacks(type, AVStreamFunc, TransFormStatusFunc);
    const int result = GetAVControlInit();
    if (result == AVSTREAM_OK && IsClientType(type) && !g_initialised[type].exchange(true)) {
        DropAnswersOfEarlierProcess(type);
    }
    return result;
}

int GetVoiceTalkAVStreamInit(int type, AVStreamCallback AVStreamFunc, AVTransformStatus TransFormStatusFunc) {
    LOG_TRACE(":type = %d func = %p\n", type, reinterpret_cast<void*>(AVStreamFunc));
    StoreCallbacks(type, AVStreamFunc, TransFormStatusFunc);
    return GetAVControlVoiceTalkInit();
}

int AVStreamGetAVData(int type, int VideoIndex) {
    if (!IsStream(VideoIndex) || !IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    ReaderSlot& slot = g_readers[type][VideoIndex];
    if (t_own_slot == &slot) {
        slot.run.store(1);
        return AVSTREAM_OK;
    }
    {
        const std::lock_guard guard(slot.lock);
        const bool lacked_ring = slot.detached && RingSegment(VideoIndex) >= 0;  // it ended by itself; now there is one
        if (slot.exists && slot.run.load() != 0 && !lacked_ring) {
            return AVSTREAM_OK;
        }
        Join(slot);  // one that stopped itself from inside its callback
        slot.run.store(1);
        slot.arguments = AVMsgBuf{};
        slot.arguments.src = type;
        slot.arguments.video_index = VideoIndex;
        if (StartThread(slot.thread, ThreadEnd::kJoined, AVStreamGetAVDataThread, &slot) != 0) {
            slot.run.store(0);
            return AVSTREAM_UNKNOWN;
        }
        slot.exists = true;
    }
    SleepMs(500);
    return AVSTREAM_OK;
}

int AVStreamGetAVDataStop(int type, int VideoIndex) {
    if (!IsStream(VideoIndex) || !IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    ReaderSlot& slot = g_readers[type][VideoIndex];
    slot.run.store(0);
    if (t_own_slot != &slot) {
        const std::lock_guard guard(slot.lock);
        slot.run.store(0);
        Join(slot);
    }
    return AVSTREAM_OK;
}

int GetgAlarmIsEndFrame(void) {
    return g_alarm_is_end_frame.load();
}

int SetgAllDayIsEndFrame(int) {
    LOG_TRACE(":\n");
    return 0;
}

int SetgAlarmIsFirstFrame(int) {
    LOG_TRACE(":\n");
    return 0;
}

char* GetNowTime(void) {
    static thread_local char text[64];
    const tm now = LocalTime(WallSeconds());
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday,
             now.tm_hour, now.tm_min, now.tm_sec);
    return text;
}
