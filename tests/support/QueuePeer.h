// The other end of one of the camera's message queues, as a peer process would sit there: a thread on the
// real queue, which speaks to the kernel directly.
#pragma once

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "support/WaitUntil.h"

namespace support {

// Receives requests (message type 1) of `words` 4-byte words and answers them.
template <size_t words>
class QueuePeer {
  public:
    using Body = std::array<int32_t, words>;
    // Turns a request into its answer and returns the answer's message type; 0: no answer.
    using Handler = std::function<long(Body&)>;

    QueuePeer(int key, Handler handler) : id_(msgget(key, IPC_CREAT | 0666)), handler_(std::move(handler)) {
        EXPECT_GE(id_, 0);
        thread_ = std::thread(&QueuePeer::Serve, this);
    }
    ~QueuePeer() { Leave(); }

    // Removes the queue: callers that wait there are woken.
    void Leave() {
        if (thread_.joinable()) {
            msgctl(id_, IPC_RMID, nullptr);
            thread_.join();
        }
    }

    // Puts a message of any type and length into the queue.
    void Put(long type, const void* bytes, size_t length) { EXPECT_TRUE(Send(type, bytes, length)); }

    int Id() const { return id_; }

    // The requests so far, each from when its answer was decided on.
    std::vector<Body> Requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

  private:
    struct Message {
        long type;
        uint8_t bytes[512];
    };

    bool Send(long type, const void* bytes, size_t length) const {
        Message message{type, {}};
        std::memcpy(message.bytes, bytes, length);
        return msgsnd(id_, &message, length, IPC_NOWAIT) == 0;
    }

    void Serve() {
        Message message{};
        ssize_t received;
        while ((received = msgrcv(id_, &message, sizeof message.bytes, 1, 0)) >= 0) {
            EXPECT_EQ(received, static_cast<ssize_t>(sizeof(Body)));
            Body body{};
            std::memcpy(body.data(), message.bytes, sizeof body);
            const Body request = body;
            const long type = handler_(body);
            {
                const std::lock_guard lock(mutex_);
                requests_.push_back(request);
            }
            if (type != 0 && !Send(type, body.data(), sizeof body)) {
                EXPECT_TRUE(errno == EIDRM || errno == EINVAL) << "Leave() may come between request and answer";
            }
        }
    }

    const int id_;
    const Handler handler_;
    mutable std::mutex mutex_;
    std::vector<Body> requests_;
    std::thread thread_;
};

}  // namespace support
