// Requests to the media server.
//
// A reply names its asker by the client type alone, and several threads of one type may wait at a time.  So whoever
// looks takes every reply of its type out of the queue and hands it to the question that it answers: the one about
// the same stream and command.  A reply that answers none is late and thrown away.  A position is only as good as it
// is new, so a reader empties the queue before it asks: what it then gets was sent after that.
// Nobody waits with the lock held, so a question that stays unanswered holds up no other.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Clock.h"
#include "Connection.h"
#include "Mutex.h"
#include "libIpcUtils.h"

namespace {

constexpr unsigned kPatienceMs = 3000;
// A media server that does not read its requests is hardly asked any more, lest its queue fill up for everyone.
constexpr int kCrowd = 64;  // messages
constexpr unsigned kPatienceInCrowdMs = 60000;
constexpr int kWaitingMax = 1000;  // replies; a peer that sends faster than we read must not hold us

struct Question {
    AVMsgBuf& message;  // the request, then its reply
    const int qid;
    const bool takes_any;  // of a request function: the first reply of its type is its own
    unsigned silence_ms = 0;
    enum { kOpen, kAnswered, kFailed } state = kOpen;
    Question* next = nullptr;
};

Mutex g_lock;                     // guards what follows
Question* g_asked = nullptr;      // on their way, oldest first
bool g_gave_up[MSG_AV_TYPE_END];  // by client type: a reply may come that nobody waits for

constexpr int32_t kUnreadable = -1;  // cmd of a reply that was no record of ours

// The question that a reply answers, or null.  A media server that does not put the command back (0) answers in order.
Question* OwnerOf(const AVMsgBuf& reply, int qid) {
    Question* oldest = nullptr;
    for (Question* q = g_asked; q != nullptr; q = q->next) {
        if (q->state != Question::kOpen || q->qid != qid || q->message.src != reply.des) {
            continue;
        }
        if (reply.cmd == q->message.cmd && reply.video_index == q->message.video_index) {
            return q;
        }
        if (oldest == nullptr && (q->takes_any || reply.cmd == 0)) {
            oldest = q;
        }
    }
    return oldest;
}

// Takes all replies of `client` out of the queue.  Returns 0, or the errno of a queue that is none.
int HandOutReplies(int qid, int client) {
    for (int i = 0; i < kWaitingMax; ++i) {
        AVMsgBuf reply{};
        const int length = IpcMsgTryRecv(qid, client, &reply, sizeof reply);
        if (length < 0 && errno != E2BIG) {
            return errno == ENOMSG || errno == EINTR ? 0 : errno;
        }
        if (length < 0) {  // too long: it would stand in front of all others
            IpcMsgDiscard(qid, client);
            reply.des = client;
            reply.cmd = kUnreadable;
        }
        if (Question* const owner = OwnerOf(reply, qid); owner != nullptr && length < 0) {
            owner->state = Question::kFailed;
        } else if (owner != nullptr) {
            std::memcpy(&owner->message, &reply, sizeof reply.des + static_cast<size_t>(length));
            owner->state = Question::kAnswered;
        }
    }
    return 0;
}

void Append(Question& question) {
    Question** end = &g_asked;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = &question;
}

void Remove(const Question& question) {
    Question** link = &g_asked;
    while (*link != &question) {
        link = &(*link)->next;
    }
    *link = question.next;
}

// Sleeps in short steps at first, for an answer usually comes soon; in longer ones where it has not come for a while.
class Polling {
  public:
    // `silence_ms`: since when no question of this asker was answered.
    explicit Polling(unsigned silence_ms) : silence_ms_(silence_ms) {}

    void Sleep() {
        const unsigned silence = silence_ms_ + waited_ms_;
        const unsigned step = silence < 100 ? 1 : WaitInSilence(silence, 10);
        SleepMs(step);
        waited_ms_ += step;
    }
    unsigned WaitedMs() const { return waited_ms_; }

  private:
    const unsigned silence_ms_;
    unsigned waited_ms_ = 0;
};

// Returns 0 when the question is on its way, EAGAIN when it must wait, or what is wrong with the queue.
int TrySend(Question& question, unsigned waited_ms) {
    const std::lock_guard guard(g_lock);
    const int client = question.message.src;
    if (!question.takes_any || g_gave_up[client]) {
        if (const int error = HandOutReplies(question.qid, client); error != 0) {
            return error;
        }
    }
    if (!question.takes_any && waited_ms < kPatienceInCrowdMs && IpcMsgCount(question.qid) >= kCrowd) {
        return EAGAIN;
    }
    if (IpcMsgTrySend(question.qid, &question.message, sizeof question.message) < 0) {
        return errno == EINTR ? EAGAIN : errno;
    }
    Append(question);
    return 0;
}

// Returns 0 once the question is settled, EAGAIN while it is open, or what is wrong with the queue.
int TryReceive(Question& question, int client) {
    const std::lock_guard guard(g_lock);
    const int error = HandOutReplies(question.qid, client);
    return question.state != Question::kOpen ? 0 : error != 0 ? error : EAGAIN;
}

// Returns 0 when the reply is in the question's message, EAGAIN when it was given up, or what is wrong with the queue.
int Exchange(Question& question, const KeepAsking& keep_asking) {
    const int client = question.message.src;
    int error;
    Polling sending(question.silence_ms);
    while ((error = TrySend(question, sending.WaitedMs())) == EAGAIN && keep_asking()) {
        sending.Sleep();
    }
    if (error != 0) {
        return error;
    }
    Polling receiving(question.silence_ms);
    while ((error = TryReceive(question, client)) == EAGAIN && keep_asking()) {
        if (!question.takes_any && receiving.WaitedMs() >= kPatienceMs) {
            break;
        }
        receiving.Sleep();
    }
    question.silence_ms += sending.WaitedMs() + receiving.WaitedMs();
    const std::lock_guard guard(g_lock);
    Remove(question);
    if (error == EAGAIN || question.state == Question::kFailed) {
        g_gave_up[client] = true;
    }
    return question.state == Question::kAnswered ? 0 : error != 0 ? error : E2BIG;
}

void Fill(AVMsgBuf& message, AVStreamCommand command, int type, int video_index, unsigned int position) {
    message.des = MSG_AV_TYPE_SERVER;
    message.src = type;
    message.cmd = command;
    message.video_index = video_index;
    message.video_pos = position;
}

// Without a reply, for the queue went, the message stays the request.
void AskForEver(AVMsgBuf& message) {
    Question question{message, RequestQueue(message.video_index), true};
    Exchange(question, [] { return true; });
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
    AskForEver(*message);
    return AVSTREAM_OK;
}

int Range(AVStreamCommand command, int type, int video_index, unsigned int position, int length) {
    if (!IsStream(video_index) || !IsClientType(type)) {
        return AVSTREAM_PARAM_ERROR;
    }
    AVMsgBuf message{};
    Fill(message, command, type, video_index, position);
    message.video_len = length;
    AskForEver(message);
    return message.msg_ret;
}

}  // namespace

std::optional<int> RequestPosition(const KeepAsking& keep_asking, unsigned& silence_ms, AVStreamCommand command,
                                   int type, int video_index) {
    AVMsgBuf message{};
    Fill(message, command, type, video_index, 0);
    Question question{message, RequestQueue(video_index), false, silence_ms};
    const int error = Exchange(question, keep_asking);
    silence_ms = error == 0 ? 0 : std::min(question.silence_ms, kPatienceMs);
    if (error == EIDRM || error == EINVAL) {
        ForgetQueue(question.qid);
    }
    return error == 0 ? std::optional(static_cast<int>(message.video_pos)) : std::nullopt;
}

void DropAnswersOfEarlierProcess(int type) {
    const std::lock_guard guard(g_lock);
    HandOutReplies(RequestQueue(0), type);
}

#define POSITION_QUERY(function, name_for_clients, command)          \
    int function(int type, int VideoIndex, AVMsgBuf* pMsg) {         \
        return Query(command, type, VideoIndex, pMsg);               \
    }                                                                \
    int name_for_clients(int type, int VideoIndex, AVMsgBuf* pMsg) { \
        return function(type, VideoIndex, pMsg);                     \
    }
POSITION_QUERY(AVStreamGetCurrentFrame, GetAVStreamCurrentFrame, AVSTREAM_CMD_CURRENT_FRAME)
POSITION_QUERY(AVStreamGetLastIFrame, GetAVStreamLastIFrame, AVSTREAM_CMD_LAST_I_FRAME)
POSITION_QUERY(AVStreamGetRecordIFrame, GetAVStreamRecordIFrame, AVSTREAM_CMD_RECORD_I_FRAME)
POSITION_QUERY(AVStreamGetRealFrameRate, GetAVStreamRealFrameRate, AVSTREAM_CMD_REAL_FRAME_RATE)

int AVStreamResourceLock(int type, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return Range(AVSTREAM_CMD_LOCK, type, VideoIndex, VideoPos, VideoLen);
}

int AVStreamResourceUnLock(int type, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return Range(AVSTREAM_CMD_UNLOCK, type, VideoIndex, VideoPos, VideoLen);
}

int AVStreamLock(int type, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return AVStreamResourceLock(type, VideoIndex, VideoPos, VideoLen);
}

int AVStreamUnLock(int type, int VideoIndex, unsigned int VideoPos, int VideoLen) {
    return AVStreamResourceUnLock(type, VideoIndex, VideoPos, VideoLen);
}
