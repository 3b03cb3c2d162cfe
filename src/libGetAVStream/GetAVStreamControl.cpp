#include <sys/shm.h>

#include <algorithm>
#include <iterator>
#include <mutex>

#include "Connection.h"
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

std::mutex g_lock;  // guards everything below
AVStreamSysInfo gGetAVStreamSysInfo = Disconnected();
int gVoiceTalkQid = -1;

}  // namespace

AVStreamSysInfo* GetGetAVStreamSysInfo(void) {
    return &gGetAVStreamSysInfo;
}

int GetAVControlInit(void) {
    constexpr int kKeys[] = {AVSTREAM_MAIN_RING_KEY, AVSTREAM_SUB_RING_KEY};
    {
        const std::lock_guard guard(g_lock);
        if (gGetAVStreamSysInfo.RunFlag == 1) {
            return AVSTREAM_OK;
        }
    }
    LOG_TRACE("%s %d\n");
    GetAVControlCleanup();
    for (int i = 0; i < static_cast<int>(std::size(kKeys)); ++i) {
        const int id = IpcShareMemInit(kKeys[i], AVSTREAM_SEGMENT_SIZE(kRingSize[i]));
        LOG_TRACE("%s %d: gGetAVStreamSysInfo.StreamSharememID[%d] = %d \n", i, id);
        if (id < 0) {
            LOG_TRACE("%s %d: IpcShareMemInit fail i = %d\n", i);
            GetAVControlCleanup();
            return AVSTREAM_SHAREMEMORY_INIT_FAIL;
        }
        const std::lock_guard guard(g_lock);
        gGetAVStreamSysInfo.StreamSharememID[i] = id;
    }
    CheckMsgID(&gGetAVStreamSysInfo);
    const std::lock_guard guard(g_lock);
    if (gGetAVStreamSysInfo.AVMsgQid < 0) {
        return AVSTREAM_MESSAGE_INIT_FAIL;
    }
    gGetAVStreamSysInfo.RunFlag = 1;
    return AVSTREAM_OK;
}

int GetAVControlVoiceTalkInit(void) {
    const std::lock_guard guard(g_lock);
    if (gVoiceTalkQid >= 0) {
        return AVSTREAM_OK;
    }
    LOG_TRACE("%s %d\n");
    const int id = IpcShareMemInit(AVSTREAM_VOICE_TALK_RING_KEY, AVSTREAM_SEGMENT_SIZE(AVSTREAM_VOICE_TALK_RING_SIZE));
    LOG_TRACE("%s %d: gGetAVStreamSysInfo.StreamSharememID[%d]= %d, 0x%08x", 3, id, AVSTREAM_VOICE_TALK_RING_KEY);
    gGetAVStreamSysInfo.StreamSharememID[3] = id;
    if (id < 0) {
        LOG_TRACE("%s %d: IpcShareMemInit fail\n");
        return AVSTREAM_SHAREMEMORY_INIT_FAIL;
    }
    gVoiceTalkQid = IpcMsgInit(AVSTREAM_VOICE_TALK_QUEUE_KEY);
    return gVoiceTalkQid < 0 ? AVSTREAM_MESSAGE_INIT_FAIL : AVSTREAM_OK;
}

int GetAVControlCleanup(void) {
    const std::lock_guard guard(g_lock);
    gGetAVStreamSysInfo = Disconnected();
    gVoiceTalkQid = -1;
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
    return gGetAVStreamSysInfo.StreamSharememID[video_index];
}

int RenewedRingSegment(int video_index) {
    constexpr int kNone = 0;
    constexpr int kKeys[AVSTREAM_MAX] = {AVSTREAM_MAIN_RING_KEY, AVSTREAM_SUB_RING_KEY, kNone,
                                         AVSTREAM_VOICE_TALK_RING_KEY};
    const int id = kKeys[video_index] == kNone ? -1 : shmget(kKeys[video_index], 0, 0);
    const std::lock_guard guard(g_lock);
    int& segment = gGetAVStreamSysInfo.StreamSharememID[video_index];
    if (id >= 0) {
        segment = id;
    }
    return segment;
}

int RequestQueue(int video_index) {
    constexpr int kVoiceTalk = 3;
    CheckMsgID(&gGetAVStreamSysInfo);
    const std::lock_guard guard(g_lock);
    return video_index == kVoiceTalk && gVoiceTalkQid >= 0 ? gVoiceTalkQid : gGetAVStreamSysInfo.AVMsgQid;
}

void ForgetQueue(int qid) {
    const std::lock_guard guard(g_lock);
    if (qid < 0) {
        return;
    }
    if (qid == gVoiceTalkQid) {
        gVoiceTalkQid = IpcMsgInit(AVSTREAM_VOICE_TALK_QUEUE_KEY);
    } else if (qid == gGetAVStreamSysInfo.AVMsgQid) {
        gGetAVStreamSysInfo.AVMsgQid = -1;
    }
}
