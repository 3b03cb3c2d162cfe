// Requests to the media server.
//
// A request and its reply are one step of the process: replies are told apart by the client type alone,
// so two readers of one type would otherwise take each other's.  Waiting is done in short steps, for a
// reader that is to stop must not depend on a media server that has stopped answering.

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "Clock.h"
#include "Connection.h"
#include "libIpcUtils.h"

namespace {

constexpr unsigned kPollMs = 1;
constexpr int kWaitingMax = 1000;  // answers; a peer that sends faster than we drop must not hold us

std::mutex one_exchange;
const std::atomic<int> kForEver{1};

// Answers that are still to come to requests that are over, by client type and whether they come on voice talk's
// queue.  Under one_exchange.
int owed_answers[MSG_AV_TYPE_END][2];

enum class Outcome { kAnswered, kGivenUp, kFailed };

// `try_once` gives a negative result and errno.
template <typename Attempt>
Outcome Poll(const std::atomic<int>& keep_asking, Attempt try_once) {
    while (keep_asking.load() != 0) {
        if (try_once() >= 0) {
            return Outcome::kAnswered;
        }
        if (errno != EAGAIN && errno != ENOMSG && errno != EINTR) {
            return Outcome::kFailed;
        }
        SleepMs(kPollMs);
    }
    return Outcome::kGivenUp;
}

// Throws away the answers that wait.  Returns how many there were.
int DropAnswers(int qid, int client) {
    uint8_t answer[sizeof(int32_t) + 8192];  // the kernel's limit of a message
    int count = 0;
    while (count < kWaitingMax && IpcMsgTryRecv(qid, client, answer, sizeof answer) >= 0) {
        ++count;
    }
    return count;
}

// The request is on its way; fills `message` with the answer.
Outcome AwaitAnswer(const std::atomic<int>& keep_asking, int qid, AVMsgBuf& message, int& owed) {
    const int client = message.src;
    const Outcome outcome = Poll(keep_asking, [&] { return IpcMsgTryRecv(qid, client, &message, sizeof message); });
    if (outcome == Outcome::kGivenUp || (outcome == Outcome::kFailed && errno == E2BIG)) {
        ++owed;  // one that is too long would stand in front of all others
    }
    return outcome;
}

Outcome Exchange(const std::atomic<int>& keep_asking, AVMsgBuf& message) {
    std::unique_lock alone(one_exchange, std::defer_lock);
    const auto lock = [&] {
        errno = EAGAIN;
        return alone.try_lock() ? 0 : -1;
    };
    if (Poll(keep_asking, lock) != Outcome::kAnswered) {
        return Outcome::kGivenUp;
    }
    const int qid = RequestQueue(message.video_index);
    int& owed = owed_answers[message.src][qid != RequestQueue(0) ? 1 : 0];
    if (owed > 0) {  // none of those that wait is this request's
        owed = std::max(0, owed - DropAnswers(qid, message.src));
    }
    const Outcome sent = Poll(keep_asking, [&] { return IpcMsgTrySend(qid, &message, sizeof message); });
    const Outcome outcome = sent == Outcome::kAnswered ? AwaitAnswer(keep_asking, qid, message, owed) : sent;
    if (outcome == Outcome::kFailed && (errno == EIDRM || errno == EINVAL)) {
        owed = 0;  // they went with the queue
        if (&keep_asking != &kForEver) {
            ForgetQueue(qid);
        }
    }
    return outcome;
}

void Fill(AVMsgBuf& message, AVStreamCommand command, int type, int video_index, unsigned int position) {
    message.des = MSG_AV_TYPE_SERVER;
    message.src = type;
    message.cmd = command;
    message.video_index = video_index;
    message.video_pos = position;
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
    Fill(*message, command, type, video_index, 0);
    Exchange(kForEver, *message);
    return AVSTREAM_OK;
}

int Range(AVStreamCommand command, int type, int video_index, unsigned int position, int length) {
    if (!IsStream(video_index) || !IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    AVMsgBuf message{};
    Fill(message, command, type, video_index, position);
    message.video_len = length;
    Exchange(kForEver, message);
    return message.msg_ret;
}

}  // namespace

std::optional<int> RequestPosition(const std::atomic<int>& keep_asking, AVStreamCommand command, int type,
                                   int video_index) {
    AVMsgBuf message{};
    Fill(message, command, type, video_index, 0);
    if (Exchange(keep_asking, message) != Outcome::kAnswered) {
        return std::nullopt;
    }
    return static_cast<int>(message.video_pos);
}

void DropAnswersOfEarlierProcess(int type) {
    if (const std::unique_lock alone(one_exchange, std::try_to_lock); alone) {
        DropAnswers(RequestQueue(0), type);
    }
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
