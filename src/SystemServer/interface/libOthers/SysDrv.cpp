#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>

#include "libIpcUtils.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr int kFirstProcId = 1;
constexpr int kLastProcId = 15;
constexpr int kNoProcId = 1;  // not initialised; has no slot

// Held over a request: the driver's lock is not destroyed under it, and a request that finds no lock
// does not run beside one that does.
std::mutex one_request;

std::atomic<int> gSysProcId{kNoProcId};
std::atomic<int> gSysMsgId{-1};
std::atomic<SemHandl_t> hndlDrvSem{nullptr};  // orders the requests of this process
int owed_answers = 0;                         // not taken yet, to requests that are over; under one_request

int Fail(const char* text) {
    gSysProcId.store(kNoProcId);
    std::fputs(text, stderr);
    return -1;
}

bool HaveDriverLock() {
    if (hndlDrvSem.load() != nullptr) {
        return true;
    }
    SemHandl_t made = MakeSem();
    SemHandl_t none = nullptr;
    if (made != nullptr && !hndlDrvSem.compare_exchange_strong(none, made)) {
        DestroySem(made);  // another thread was faster
    }
    return hndlDrvSem.load() != nullptr;
}

void DropDriverLock() {
    const std::lock_guard alone(one_request);
    if (SemHandl_t handle = hndlDrvSem.exchange(nullptr)) {
        DestroySem(handle);
    }
}

int SlotOffset(int proc_id) {
    return (proc_id - 2) * SYS_DRV_SLOT_SIZE;
}

// The payload into the slot of process number `proc_id`; numbers whose slot would lie outside of the
// segment have none.
bool PutPayload(int proc_id, void* data, unsigned int len) {
    return len == 0 ||
           (len <= SYS_DRV_SLOT_SIZE && ShareMemWrite(SlotOffset(proc_id), data, static_cast<int>(len)) == 0);
}

// An answer that came after its caller had been interrupted would be taken for the next request's; one
// that is too long would stand in front of every other.
void DropLateAnswers(int qid, int proc_id) {
    uint8_t late[sizeof(int32_t) + 8192];  // the kernel's limit of a message
    while (owed_answers > 0 && IpcMsgTryRecv(qid, proc_id, late, sizeof late) >= 0) {
        --owed_answers;
    }
}

// One request and its answer; the caller holds one_request.
int Exchange(void* data, unsigned int len, int cmd) {
    const int proc_id = gSysProcId.load();
    if (!PutPayload(proc_id, data, len)) {
        return -1;
    }
    SYS_MSG_BUF message{};
    message.Des = SYS_MSG_TYPE_SERVER;
    message.cmd = cmd;
    message.src = proc_id;
    message.length = static_cast<int32_t>(len);
    message.offset = SlotOffset(proc_id);
    const int qid = gSysMsgId.load();
    DropLateAnswers(qid, proc_id);
    if (Msg_Send(qid, &message, sizeof message) >= 0 && Msg_Rsv(qid, proc_id, &message, sizeof message) < 0 &&
        (errno == EINTR || errno == E2BIG)) {
        ++owed_answers;
    }
    return message.length;  // still the request's when there was no answer
}

// What a sender makes of the server's result.
constexpr int Result(int command, int result, unsigned int len) {
    if (command == SYS_MSG_DO_LOGIN) {
        return result == static_cast<int>(len) ? 0 : -1;
    }
    return result;
}

}  // namespace

int SysDrvInit(int proc_id) {
    if (proc_id < kFirstProcId || proc_id > kLastProcId) {
        return Fail("Error:Invalid Parameter\n");
    }
    gSysProcId.store(proc_id);
    if (ShareMemInit(SYS_DRV_KEY) < 0) {
        return Fail("Error:Share Memory init fail\n");
    }
    if (!HaveDriverLock()) {
        return Fail("Error:No more memory to create semaphore\n");
    }
    const int qid = Msg_Init(SYS_DRV_KEY);
    if (qid < 0) {
        DropDriverLock();
        return Fail("Error:Msg_Init fail\n");
    }
    gSysMsgId.store(qid);
    LOG_TRACE("%s %d gSysProcId %d\n", proc_id);
    return 0;
}

int SysDrvExit(void) {
    gSysProcId.store(kNoProcId);
    DropDriverLock();
    return 0;
}

void SetSysProcId(int proc_id) {
    gSysProcId.store(proc_id);
}

void SaveSysMsgId(int qid) {
    gSysMsgId.store(qid);
}

int SetSysCommon(void* data, unsigned int len, int cmd) {
    const std::lock_guard alone(one_request);
    SemHandl_t handle = hndlDrvSem.load();
    SemWait(handle);
    const int result = Exchange(data, len, cmd);
    SemRelease(handle);
    return result;
}

int SendSysQuitCmd(void) {
    SYS_MSG_BUF message{};
    message.Des = SYS_MSG_TYPE_SERVER;
    message.cmd = SYS_MSG_QUIT;
    return Msg_Send(gSysMsgId.load(), &message, sizeof message);
}

#define SYS_SENDER(function, message, command, field, code)            \
    int function(void* data, unsigned int len) {                       \
        return Result(command, SetSysCommon(data, len, command), len); \
    }
SYS_SENDERS(SYS_SENDER)
