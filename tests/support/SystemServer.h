// The camera's system server: its request queue and transfer segment, with a thread that answers.
#pragma once

#include <sys/shm.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "support/QueuePeer.h"

namespace support {

class SystemServer {
  public:
    static constexpr int kKey = 14073;
    static constexpr size_t kSegmentSize = 147456;

    struct Request {
        int cmd, src, shmid, length, offset;
        std::vector<uint8_t> payload;  // as it lay in the transfer segment when the request arrived
    };
    using Decision = std::function<int(const Request&)>;  // the result of a request

    // Answers each request with what `decide` returns.
    explicit SystemServer(Decision decide = [](const Request& request) { return request.length; })
        : decide_(std::move(decide)),
          segment_id_(shmget(kKey, kSegmentSize, IPC_CREAT | 0660)),
          segment_(static_cast<uint8_t*>(shmat(segment_id_, nullptr, 0))),
          view_(static_cast<uint8_t*>(shmat(segment_id_, nullptr, 0))),
          queue_(kKey, [this](auto& body) { return Answer(body); }) {}
    ~SystemServer() {
        queue_.Leave();
        shmdt(segment_);
        shmdt(view_);
        shmctl(segment_id_, IPC_RMID, nullptr);
    }

    std::vector<Request> Requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }
    size_t Count() const { return Requests().size(); }
    Request Last() const {
        const auto requests = Requests();
        EXPECT_FALSE(requests.empty());
        return requests.empty() ? Request{} : requests.back();
    }

    // While silent, requests are received and not answered.
    void Silent(bool silent) { silent_.store(silent); }

    // The transfer segment as a third process sees it: elsewhere than where the answering thread reads it, which to the
    // thread sanitizer would be a race.
    uint8_t* Segment() { return view_; }
    QueuePeer<5>& Queue() { return queue_; }

  private:
    long Answer(QueuePeer<5>::Body& body) {
        Request request{body[0], body[1], body[2], body[3], body[4], {}};
        if (request.offset >= 0 && request.length >= 0 &&
            static_cast<size_t>(request.offset) + static_cast<size_t>(request.length) <= kSegmentSize) {
            request.payload.assign(segment_ + request.offset, segment_ + request.offset + request.length);
        }
        body[3] = decide_(request);
        const long type = silent_.load() ? 0 : request.src;
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        return type;
    }

    const Decision decide_;
    const int segment_id_;
    uint8_t* const segment_;
    uint8_t* const view_;
    std::atomic<bool> silent_{false};
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    QueuePeer<5> queue_;  // last: its thread uses all of the above
};

}  // namespace support
