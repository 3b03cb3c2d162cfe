#include "libAVServerAccess.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "libIpcUtils.h"
#include "libLog.h"

namespace {

constexpr int kForceIFrame = 0x2010;

struct AVServerAccessSysInfo {
    std::atomic<int> RunFlag{0};
    std::atomic<int> AVMsgQid{-1};
};

AVServerAccessSysInfo access_info;
std::mutex one_command;  // request and answer are one step: all answers have the same message type
int owed_answers = 0;    // not taken yet, to commands that are over; under one_command

// The queue's id, opened when it is not; negative when it cannot be had.
int OpenQueue() {
    if (access_info.AVMsgQid.load() < 0) {
        AVServerAccessCleanup();
        AVServerAccessInit();
    }
    return access_info.AVMsgQid.load();
}

// An answer that came after its caller had been interrupted would be taken for the next command's; one
// that is too long would stand in front of every other.
void DropLateAnswers(int qid) {
    uint8_t late[sizeof(int32_t) + 8192];  // the kernel's limit of a message
    while (owed_answers > 0 && IpcMsgTryRecv(qid, MSG_AVACCESS_TYPE_MSG2, late, sizeof late) >= 0) {
        --owed_answers;
    }
}

// Sends the request and waits for the answer into the same record, which stays the request on failure.
void Exchange(int qid, AVAccessMsgBuf& message) {
    DropLateAnswers(qid);
    const bool sent = IpcMsgSend(qid, &message, sizeof message) >= 0;
    if (sent && IpcMsgRecv(qid, MSG_AVACCESS_TYPE_MSG2, &message, sizeof message) >= 0) {
        return;
    }
    if (errno == EIDRM || errno == EINVAL) {  // someone removed the queue: the next command opens the new one
        owed_answers = 0;
        AVServerAccessCleanup();
    } else if (sent && (errno == EINTR || errno == E2BIG)) {
        ++owed_answers;
    }
}

int Command(int code, int index, const void* data = nullptr) {
    const std::lock_guard alone(one_command);
    const int qid = OpenQueue();
    if (qid < 0) {
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
        LogTrace("%s %d: AVServerVideoForceIFrame VideoType=%d\n", "AVServerVideoForceIFrame", __LINE__, index);
    }
    Exchange(qid, message);
    return message.ret;
}

}  // namespace

int AVServerAccessInit(void) {
    if (access_info.RunFlag.load() == 1) {
        return AVSERVER_OK;
    }
    const int qid = IpcMsgInit(AVACCESS_MSG_KEY);
    if (qid < 0) {
        return AVSERVER_MESSAGE_INIT_FAIL;
    }
    access_info.AVMsgQid.store(qid);
    access_info.RunFlag.store(1);
    return AVSERVER_OK;
}

int AVServerAccessCleanup(void) {
    access_info.RunFlag.store(0);
    access_info.AVMsgQid.store(-1);
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
