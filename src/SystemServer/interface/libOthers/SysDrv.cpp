#include <sys/ipc.h>
#include <sys/msg.h>

#include <atomic>

#include "Clock.h"
#include "Mutex.h"
#include "PeerQueue.h"
#include "ShareMem.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr int kFirstProcId = 1;
constexpr int kLastProcId = 15;
constexpr int kNoProcId = 1;  // not initialised; has no slot
constexpr long kPatienceSeconds = 3;
constexpr int kQueuesMax = 10;  // one request's; a queue that is removed again and again

// Held over a request: the driver's lock is not destroyed under it, and a request that finds no lock
// does not run beside one that does.
Mutex g_one_request;

std::atomic<int> g_proc_id{kNoProcId};
std::atomic<int> g_queue{-1};
std::atomic<int> g_wanted_proc_id{kNoProcId};  // of a start that failed for want of a segment, lock or queue
std::atomic<SemHandl_t> hndlDrvSem{nullptr};   // orders the requests of this process

int Fail(const char* text) {
    g_proc_id.store(kNoProcId);
    PrintToStandardError("%s", text);
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
    const std::lock_guard alone(g_one_request);
    if (SemHandl_t handle = hndlDrvSem.exchange(nullptr)) {
        DestroySem(handle);
    }
}

int SlotOffset(int proc_id) {
    return (proc_id - 2) * SYS_DRV_SLOT_SIZE;
}

// The payload into the slot of process number `proc_id`, in the segment that the server has now; numbers whose slot
// would lie outside of the segment have none.
bool PutPayload(int proc_id, void* data, unsigned int len) {
    if (len == 0) {
        return true;
    }
    if (!KeptSegmentIsOf(SYS_DRV_KEY)) {
        ShareMemInit(SYS_DRV_KEY);
    }
    return len <= SYS_DRV_SLOT_SIZE && ShareMemWrite(SlotOffset(proc_id), data, static_cast<int>(len)) == 0;
}

// An answer without command, or a longer one than the record, is taken for one to any.
bool IsAnswer(const void* question, const void* answer) {
    const int command = static_cast<const SYS_MSG_BUF*>(answer)->cmd;
    return command == static_cast<const SYS_MSG_BUF*>(question)->cmd || command == 0;
}

bool OpenQueue() {
    const int qid = Msg_Init(SYS_DRV_KEY);
    if (qid >= 0) {
        g_queue.store(qid);
    }
    return qid >= 0;
}

// Waits for the server's new queue in place of the removed one.  It is not created: a request in a queue of ours would
// meet the new server's segment, in which its payload is not.
bool FollowQueue(const Patience& patience) {
    while (msgget(SYS_DRV_KEY, 0) < 0) {
        if (patience.Over()) {
            return false;
        }
        SleepMs(1);
    }
    return OpenQueue();
}

// One request and its answer; the caller holds one_request.  A request that meets a removed queue is sent again to
// the new one, its payload into the new segment.
int Exchange(void* data, unsigned int len, int cmd) {
    const int proc_id = g_proc_id.load();
    if (proc_id == kNoProcId) {
        return -1;  // its answers could not be told from everybody's requests
    }
    SYS_MSG_BUF message{};
    message.Des = SYS_MSG_TYPE_SERVER;
    message.cmd = cmd;
    message.src = proc_id;
    message.length = static_cast<int32_t>(len);
    message.offset = SlotOffset(proc_id);
    const Patience patience(kPatienceSeconds);
    Reply reply = Reply::kQueueRemoved;
    for (int i = 0; i < kQueuesMax && reply == Reply::kQueueRemoved; ++i) {
        if (!PutPayload(proc_id, data, len)) {
            return -1;
        }
        reply = Ask(g_queue.load(), {&message, sizeof message, proc_id, IsAnswer}, patience);
        if (reply == Reply::kQueueRemoved && !FollowQueue(patience)) {
            break;
        }
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
    g_proc_id.store(proc_id);
    g_wanted_proc_id.store(proc_id);
    if (ShareMemInit(SYS_DRV_KEY) < 0) {
        return Fail("Error:Share Memory init fail\n");
    }
    if (!HaveDriverLock()) {
        return Fail("Error:No more memory to create semaphore\n");
    }
    if (!OpenQueue()) {
        DropDriverLock();
        return Fail("Error:Msg_Init fail\n");
    }
    g_wanted_proc_id.store(kNoProcId);
    LOG_TRACE(" gSysProcId %d\n", proc_id);
    return 0;
}

int SysDrvExit(void) {
    g_wanted_proc_id.store(kNoProcId);
    g_proc_id.store(kNoProcId);
    DropDriverLock();
    return 0;
}

void SetSysProcId(int proc_id) {
    g_proc_id.store(proc_id);
}

void SaveSysMsgId(int qid) {
    g_queue.store(qid);
}

int SetSysCommon(void* data, unsigned int len, int cmd) {
    if (const int wanted = g_wanted_proc_id.load(); wanted != kNoProcId) {
        SysDrvInit(wanted);
    }
    const std::lock_guard alone(g_one_request);
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
    const Patience patience(0);
    Reply reply = Reply::kQueueRemoved;
    for (int i = 0; i < kQueuesMax && reply == Reply::kQueueRemoved && g_queue.load() >= 0; ++i) {
        reply = Tell(g_queue.load(), &message, sizeof message, patience);
        if (reply == Reply::kQueueRemoved && !FollowQueue(patience)) {
            break;
        }
    }
    return reply == Reply::kTaken ? 0 : -1;
}

#define SYS_SENDER(function, message, command, field, code)            \
    int function(void* data, unsigned int len) {                       \
        return Result(command, SetSysCommon(data, len, command), len); \
    }
SYS_SENDERS(SYS_SENDER)
