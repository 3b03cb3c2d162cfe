// Requests to the media server.
//
// A request and its reply are one step of the process: replies are told apart by the client type alone,
// so two readers of one type would otherwise take each other's.  Waiting is done in short steps, for a
// reader that is to stop must not depend on a media server that has stopped answering.

#include <cerrno>
#include <mutex>

#include "Clock.h"
#include "Connection.h"
#include "libIpcUtils.h"

namespace {

constexpr unsigned kPollMs = 1;

std::timed_mutex one_exchange;
const std::atomic<int> kForEver{1};

// True when `try_once` succeeded or failed for good; false when the caller gave up.
template <typename Attempt>
bool Poll(const std::atomic<int>& keep_asking, Attempt try_once) {
    while (keep_asking.load() != 0) {
        if (try_once() >= 0 || (errno != EAGAIN && errno != ENOMSG && errno != EINTR)) {
            return true;
        }
        SleepMs(kPollMs);
    }
    return false;
}

bool Exchange(const std::atomic<int>& keep_asking, AVMsgBuf& message) {
    std::unique_lock alone(one_exchange, std::defer_lock);
    const auto lock = [&] {
        errno = EAGAIN;
        return alone.try_lock() ? 0 : -1;
    };
    if (!Poll(keep_asking, lock)) {
        return false;
    }
    const int qid = RequestQueue(message.video_index);
    const int client = message.src;
    AVMsgBuf late;  // the answer to a request that was given up
    while (IpcMsgTryRecv(qid, client, &late, sizeof late) >= 0) {
    }
    return Poll(keep_asking, [&] { return IpcMsgTrySend(qid, &message, sizeof message); }) &&
           Poll(keep_asking, [&] { return IpcMsgTryRecv(qid, client, &message, sizeof message); });
}

int Query(AVStreamCommand command, int type, int video_index, AVMsgBuf* message) {
    if (!IsStream(video_index)) {
        return AVSTREAM_PARAM_ERROR;
    }
    if (message == nullptr) {
        return AVSTREAM_PARAM_NULL;
    }
    if (!IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    RequestPosition(kForEver, command, type, video_index, *message);
    return AVSTREAM_OK;
}

int Range(AVStreamCommand command, int type, int video_index, unsigned int position, int length) {
    if (!IsStream(video_index) || !IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    AVMsgBuf message{};
    message.des = MSG_AV_TYPE_SERVER;
    message.src = type;
    message.cmd = command;
    message.video_index = video_index;
    message.video_pos = position;
    message.video_len = length;
    Exchange(kForEver, message);
    return message.msg_ret;
}

}  // namespace

bool RequestPosition(const std::atomic<int>& keep_asking, AVStreamCommand command, int type, int video_index,
                     AVMsgBuf& message) {
    message.des = MSG_AV_TYPE_SERVER;
    message.src = type;
    message.cmd = command;
    message.video_index = video_index;
    message.video_pos = 0;
    return Exchange(keep_asking, message);
}

#define POSITION_QUERY(function, name_for_clients, command)               \
    int function(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg) {         \
        return Query(command, MsgAVType, VideoIndex, pMsg);               \
    }                                                                     \
    int name_for_clients(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg) { \
        return function(MsgAVType, VideoIndex, pMsg);                     \
    }
POSITION_QUERY(AVStreamGetCurrentFrame, GetAVStreamCurrentFrame, AVSTREAM_CMD_CURRENT_FRAME)
POSITION_QUERY(AVStreamGetLastIFrame, GetAVStreamLastIFrame, AVSTREAM_CMD_LAST_I_FRAME)
POSITION_QUERY(AVStreamGetRecordIFrame, GetAVStreamRecordIFrame, AVSTREAM_CMD_RECORD_I_FRAME)
POSITION_QUERY(AVStreamGetRealFrameRate, GetAVStreamRealFrameRate, AVSTREAM_CMD_REAL_FRAME_RATE)

int AVStreamResourceLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return Range(AVSTREAM_CMD_LOCK, MsgAVType, VideoIndex, VideoPos, VideoLen);
}

int AVStreamResourceUnLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return Range(AVSTREAM_CMD_UNLOCK, MsgAVType, VideoIndex, VideoPos, VideoLen);
}

int AVStreamLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return AVStreamResourceLock(MsgAVType, VideoIndex, VideoPos, VideoLen);
}

int AVStreamUnLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return AVStreamResourceUnLock(MsgAVType, VideoIndex, VideoPos, VideoLen);
}
