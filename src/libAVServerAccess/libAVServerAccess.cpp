#include "libAVServerAccess.h"

#include <atomic>
#include <cstring>

#include "Clock.h"
#include "Mutex.h"
#include "PeerQueue.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

constexpr int kForceIFrame = 0x2010;  // AVServerVideoForceIFrame
constexpr long kPatienceSeconds = 3;
constexpr long kShortPatienceSeconds = 1;  // while the media server does not answer: runs begin with a command
constexpr int kMomentsMs = 20;
constexpr int kQueuesMax = 10;  // one command's; a queue that is removed again and again

std::atomic<bool> g_is_started{false};
std::atomic<int> g_queue{-1};
Mutex g_one_command;                     // request and answer are one step: all answers have the same message type
std::atomic<bool> g_answers_come{true};  // the queue is new, or its last command had an answer

// The queue's id, opened when it is not; negative when it cannot be had.
int OpenQueue() {
    if (g_queue.load() < 0) {
        AVServerAccessCleanup();
        AVServerAccessInit();
    }
    return g_queue.load();
}

// Other services' answers have the same message type, and what waits is thrown away before a command.  An answer
// that someone waits for is taken within moments.
void LetOthersTakeTheirs(int qid) {
    for (int i = 0; i < kMomentsMs && IpcMsgCount(qid) > 0; ++i) {
        SleepMs(1);
    }
}

// An answer that names no command may be to any.
bool IsAnswer(const void* question, const void* answer) {
    const auto& asked = *static_cast<const AVAccessMsgBuf*>(question);
    const auto& got = *static_cast<const AVAccessMsgBuf*>(answer);
    return got.cmd == 0 || (got.cmd == asked.cmd && got.index == asked.index);
}

// Sends the command and takes its answer.  A command that meets a removed queue is sent again to the new one.
int Exchange(AVAccessMsgBuf& message) {
    const Patience patience(g_answers_come ? kPatienceSeconds : kShortPatienceSeconds);
    Reply reply = Reply::kQueueRemoved;
    for (int i = 0; i < kQueuesMax && reply == Reply::kQueueRemoved; ++i) {
        const int qid = OpenQueue();
        if (qid < 0) {
            return AVSERVER_MESSAGE_INIT_FAIL;
        }
        LetOthersTakeTheirs(qid);
        reply = Ask(qid, {&message, sizeof message, MSG_AVACCESS_TYPE_MSG2, IsAnswer}, patience);
        if (reply == Reply::kQueueRemoved) {
            AVServerAccessCleanup();
        }
    }
    g_answers_come = reply == Reply::kTaken;
    return message.ret;
}

int Command(int code, int index, const void* data = nullptr) {
    const std::lock_guard alone(g_one_command);
    if (OpenQueue() < 0) {
        return AVSERVER_MESSAGE_INIT_FAIL;
    }
    AVAccessMsgBuf message{};
    message.des = MSG_AVACCESS_TYPE_MSG1;
    message.src = MSG_AVACCESS_TYPE_MSG2;
    message.cmd = code;
    message.index = index;
    if (data != nullptr) {
        std::memcpy(message.data, data, sizeof message.data);
    }
    if (code == kForceIFrame) {  // the only command that speaks
        LOG_TRACE_AS("AVServerVideoForceIFrame", ": AVServerVideoForceIFrame VideoType=%d\n", index);
    }
    return Exchange(message);
}

}  // namespace

int AVServerAccessInit(void) {
    if (g_is_started) {
        return AVSERVER_OK;
    }
    const int qid = IpcMsgInit(AVACCESS_MSG_KEY);
    if (qid < 0) {
        return AVSERVER_MESSAGE_INIT_FAIL;
    }
    g_answers_come = true;
    g_queue.store(qid);
    g_is_started = true;
    return AVSERVER_OK;
}

int AVServerAccessCleanup(void) {
    g_is_started = false;
    g_queue.store(-1);
    return AVSERVER_OK;
}

#define PLAIN_COMMAND(function, code) \
    int function(void) {              \
        return Command(code, 0);      \
    }
#define INDEX_COMMAND(function, code, type, argument) \
    int function(type argument) {                     \
        return Command(code, argument);               \
    }
#define DATA_COMMAND(function, code)                                                \
    int function(void* inData) {                                                    \
        return inData == nullptr ? AVSERVER_PARAM_ERROR : Command(code, 0, inData); \
    }
AV_SERVER_COMMANDS(PLAIN_COMMAND, INDEX_COMMAND, DATA_COMMAND)
