#include <sys/shm.h>

#include <algorithm>
#include <iterator>

#include "Connection.h"
#include "Mutex.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

AVStreamSysInfo Disconnected() {
    AVStreamSysInfo state{};
    std::fill(std::begin(state.StreamSharememID), std::end(state.StreamSharememID), -1);
    std::fill(std::begin(state.RingBufferLen), std::end(state.RingBufferLen), -1);
    state.AVMsgQid = -1;
    return state;
}

Mutex g_lock;  // guards everything below
AVStreamSysInfo g_connection = Disconnected();
int g_voice_talk_queue = -1;

}  // namespace

AVStreamSysInfo* GetGetAVStreamSysInfo(void) {
    return &g_connection;
}

int GetAVControlInit(void) {
    constexpr int kKeys[] = {AVSTREAM_MAIN_RING_KEY, AVSTREAM_SUB_RING_KEY};
    {
        const std::lock_guard guard(g_lock);
        if (g_connection.RunFlag == 1) {
            return AVSTREAM_OK;
        }
    }
    LOG_TRACE("\n");
    GetAVControlCleanup();
    for (int i = 0; i < static_cast<int>(std::size(kKeys)); ++i) {
        const int id = IpcShareMemInit(kKeys[i], AVSTREAM_SEGMENT_SIZE(kRingSize[i]));
        LOG_TRACE(": gGetAVStreamSysInfo.StreamSharememID[%d] = %d \n", i, id);
        if (id < 0) {
            LOG_TRACE(": IpcShareMemInit fail i = %d\n", i);
            GetAVControlCleanup();
            return AVSTREAM_SHAREMEMORY_INIT_FAIL;
        }
        const std::lock_guard guard(g_lock);
        g_connection.StreamSharememID[i] = id;
    }
    CheckMsgID(&g_connection);
    const std::lock_guard guard(g_lock);
    if (g_connection.AVMsgQid < 0) {
        return AVSTREAM_MESSAGE_INIT_FAIL;
    }
    g_connection.RunFlag = 1;
    return AVSTREAM_OK;
}

int GetAVControlVoiceTalkInit(void) {
    const std::lock_guard guard(g_lock);
    if (g_voice_talk_queue >= 0) {
        return AVSTREAM_OK;
    }
    LOG_TRACE("\n");
    const int id = IpcShareMemInit(AVSTREAM_VOICE_TALK_RING_KEY, AVSTREAM_SEGMENT_SIZE(AVSTREAM_VOICE_TALK_RING_SIZE));
    LOG_TRACE(": gGetAVStreamSysInfo.StreamSharememID[%d]= %d, 0x%08x", 3, id, AVSTREAM_VOICE_TALK_RING_KEY);
    g_connection.StreamSharememID[3] = id;
    if (id < 0) {
        LOG_TRACE(": IpcShareMemInit fail\n");
        return AVSTREAM_SHAREMEMORY_INIT_FAIL;
    }
    g_voice_talk_queue = IpcMsgInit(AVSTREAM_VOICE_TALK_QUEUE_KEY);
    return g_voice_talk_queue < 0 ? AVSTREAM_MESSAGE_INIT_FAIL : AVSTREAM_OK;
}

int GetAVControlCleanup(void) {
    const std::lock_guard guard(g_lock);
    g_connection = Disconnected();
    g_voice_talk_queue = -1;
    return AVSTREAM_OK;
}

int GetAVStreamCleanup(void) {
    return GetAVControlCleanup();
}

int CheckMsgID(AVStreamSysInfo* pSysInfo) {
    const std::lock_guard guard(g_lock);
    if (pSysInfo != nullptr && pSysInfo->AVMsgQid < 0) {
        pSysInfo->AVMsgQid = IpcMsgInit(AVSTREAM_QUEUE_KEY);
    }
    return 0;
}

int RingSegment(int video_index) {
    const std::lock_guard guard(g_lock);
    return g_connection.StreamSharememID[video_index];
}

int RenewedRingSegment(int video_index) {
    constexpr int kNone = 0;
    constexpr int kKeys[AVSTREAM_MAX] = {AVSTREAM_MAIN_RING_KEY, AVSTREAM_SUB_RING_KEY, kNone,
                                         AVSTREAM_VOICE_TALK_RING_KEY};
    const int id = kKeys[video_index] == kNone ? -1 : shmget(kKeys[video_index], 0, 0);
    const std::lock_guard guard(g_lock);
    int& segment = g_connection.StreamSharememID[video_index];
    if (id >= 0) {
        segment = id;
    }
    return segment;
}

int RequestQueue(int video_index) {
    constexpr int kVoiceTalk = 3;
    CheckMsgID(&g_connection);
    const std::lock_guard guard(g_lock);
    return video_index == kVoiceTalk && g_voice_talk_queue >= 0 ? g_voice_talk_queue : g_connection.AVMsgQid;
}

void ForgetQueue(int qid) {
    const std::lock_guard guard(g_lock);
    if (qid < 0) {
        return;
    }
    if (qid == g_voice_talk_queue) {
        g_voice_talk_queue = IpcMsgInit(AVSTREAM_VOICE_TALK_QUEUE_KEY);
    } else if (qid == g_connection.AVMsgQid) {
        g_connection.AVMsgQid = -1;
    }
}
