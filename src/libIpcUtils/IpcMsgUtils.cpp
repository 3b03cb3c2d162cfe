#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "libIpcUtils.h"

namespace {

constexpr size_t kTypeSize = sizeof(int32_t);  // the message type as our records carry it
constexpr size_t kUsualPayload = 8192;         // the kernel's own limit unless someone raised it
constexpr bool kHostTypeIsOurs = sizeof(long) == kTypeSize;

// The host's message buffer: a native long, then the payload.  Longer ones than usual go to the heap.
class HostMessage {
  public:
    explicit HostMessage(size_t payload)
        : heap_(payload > kUsualPayload ? new (std::nothrow) std::byte[sizeof(long) + payload] : nullptr),
          bytes_(payload > kUsualPayload ? heap_.get() : local_) {}

    bool Valid() const { return bytes_ != nullptr; }
    void* Buffer() { return bytes_; }

    void From(const std::byte* record, size_t payload) {
        int32_t type;
        std::memcpy(&type, record, kTypeSize);
        const long host_type = type;
        std::memcpy(bytes_, &host_type, sizeof host_type);
        std::memcpy(bytes_ + sizeof host_type, record + kTypeSize, payload);
    }

    void To(std::byte* record, size_t payload) const {
        long host_type;
        std::memcpy(&host_type, bytes_, sizeof host_type);
        const auto type = static_cast<int32_t>(host_type);
        std::memcpy(record, &type, kTypeSize);
        std::memcpy(record + kTypeSize, bytes_ + sizeof host_type, payload);
    }

  private:
    alignas(long) std::byte local_[sizeof(long) + kUsualPayload];
    std::unique_ptr<std::byte[]> heap_;
    std::byte* bytes_;
};

int Refuse(int error) {
    errno = error;
    return -1;
}

bool IsRecord(const void* record, int size) {
    return record != nullptr && size >= static_cast<int>(kTypeSize);
}

int Send(int qid, const void* pdata, int size, int flags) {
    if (!IsRecord(pdata, size)) {
        return Refuse(EINVAL);
    }
    const size_t payload = static_cast<size_t>(size) - kTypeSize;
    if constexpr (kHostTypeIsOurs) {
        return msgsnd(qid, pdata, payload, flags);
    }
    HostMessage message(payload);
    if (!message.Valid()) {
        return Refuse(ENOMEM);
    }
    message.From(static_cast<const std::byte*>(pdata), payload);
    return msgsnd(qid, message.Buffer(), payload, flags);
}

int Receive(int qid, int msg_type, void* pdata, int size, int flags) {
    if (!IsRecord(pdata, size)) {
        return Refuse(EINVAL);
    }
    const size_t payload = static_cast<size_t>(size) - kTypeSize;
    if constexpr (kHostTypeIsOurs) {
        return static_cast<int>(msgrcv(qid, pdata, payload, msg_type, flags));
    }
    HostMessage message(payload);
    if (!message.Valid()) {
        return Refuse(ENOMEM);
    }
    const ssize_t received = msgrcv(qid, message.Buffer(), payload, msg_type, flags);
    if (received >= 0) {
        message.To(static_cast<std::byte*>(pdata), static_cast<size_t>(received));
    }
    return static_cast<int>(received);
}

}  // namespace

int IpcMsgInit(int msgKey) {
    const int existing = msgget(msgKey, 0);
    return existing >= 0 ? existing : msgget(msgKey, IPC_CREAT | 0666);
}

int IpcMsgSend(int qid, void* pdata, int size) {
    return Send(qid, pdata, size, 0);
}

int IpcMsgRecv(int qid, int msg_type, void* pdata, int size) {
    return Receive(qid, msg_type, pdata, size, 0);
}

int IpcMsgTrySend(int qid, void* pdata, int size) {
    return Send(qid, pdata, size, IPC_NOWAIT);
}

int IpcMsgTryRecv(int qid, int msg_type, void* pdata, int size) {
    return Receive(qid, msg_type, pdata, size, IPC_NOWAIT);
}

int IpcMsgDiscard(int qid, int msg_type) {
    long host_type;  // all that is taken of it
    return msgrcv(qid, &host_type, 0, msg_type, IPC_NOWAIT | MSG_NOERROR) < 0 ? -1 : 0;
}

int IpcMsgCount(int qid) {
    struct msqid_ds status {};
    return msgctl(qid, IPC_STAT, &status) < 0 ? -1 : static_cast<int>(status.msg_qnum);
}

int IpcMsgSendRecv(int qid, int msg_type, void* pdata, int size) {
    const int sent = IpcMsgSend(qid, pdata, size);
    return sent < 0 ? sent : IpcMsgRecv(qid, msg_type, pdata, size);
}

int IpcMsgKill(int qid) {
    msgctl(qid, IPC_RMID, nullptr);
    return 0;
}
