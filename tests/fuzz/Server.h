// The media server of the fuzzers: the real rings and the real queue, served by the reader's own thread whenever it
// sleeps.  Nothing waits, and one input always gives one course of events.
#pragma once

#include <sanitizer/asan_interface.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/syscall.h>

#include <atomic>

#include "Fuzz.h"
#include "libGetAVStream.h"
#include "libIpcUtils.h"

namespace fuzz {

class Server {
  public:
    static constexpr int kType = 5;
    // The first ring is far smaller than a reader expects, the second just as it should be.
    static constexpr int kSizes[] = {8192, AVSTREAM_SEGMENT_SIZE(AVSTREAM_SUB_RING_SIZE)};

    static Server& Instance() {
        static Server server;
        return server;
    }
    // Everything is empty again, and `serve` is what the server does with this input.
    void Begin(Input& input, void (*serve)(unsigned)) {
        input_ = &input;
        SleepCalls(serve);
        for (int i = 0; i < 2; ++i) std::memset(bases_[i], 0, static_cast<size_t>(kSizes[i]));
        uint8_t message[sizeof(long) + 8192];
        while (msgrcv(queue_, message, 8192, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) {
        }
    }

    Input& In() const { return *input_; }
    uint8_t* Base(int stream) const { return bases_[stream]; }

    // The ring is removed and made anew, as by a media server that was restarted.
    void RenewRing(int stream) {
        MUST(syscall(SYS_shmdt, bases_[stream]) == 0 && shmctl(segments_[stream], IPC_RMID, nullptr) == 0);
        MakeRing(stream);
    }

    // The request that waits, if any.
    bool Asked(AVMsgBuf& request) const {
        return IpcMsgTryRecv(queue_, MSG_AV_TYPE_SERVER, &request, sizeof request) >= 0;
    }

    // An answer of up to 512 bytes, for any client; one that finds the queue full is lost.
    void Send(int32_t client, Bytes payload) const {
        uint8_t message[sizeof client + 512];
        std::memcpy(message, &client, sizeof client);
        std::memcpy(message + sizeof client, payload.data(), payload.size());
        IpcMsgTrySend(queue_, message, static_cast<int>(sizeof client + payload.size()));
    }
    void Answer(AVMsgBuf answer) const {
        answer.des = answer.src;
        IpcMsgTrySend(queue_, &answer, sizeof answer);
    }

  private:
    Server() : queue_(IpcMsgInit(AVSTREAM_QUEUE_KEY)) {
        MUST(queue_ >= 0);
        MakeRing(0);
        MakeRing(1);
    }
    void MakeRing(int stream) {
        const int key = AVSTREAM_MAIN_RING_KEY + stream;
        segments_[stream] = shmget(key, static_cast<size_t>(kSizes[stream]), IPC_CREAT | 0777);
        MUST(segments_[stream] >= 0);
        const long address = syscall(SYS_shmat, segments_[stream], nullptr, 0);  // not as a reader would
        MUST(address != -1);
        bases_[stream] = reinterpret_cast<uint8_t*>(address);
    }

    Input* input_ = nullptr;
    int segments_[2];
    uint8_t* bases_[2];
    int queue_;
};

}  // namespace fuzz
