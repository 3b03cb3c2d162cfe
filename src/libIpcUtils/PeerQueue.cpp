#include "PeerQueue.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "Clock.h"
#include "libIpcUtils.h"

namespace {

constexpr unsigned kPollMs = 1;
constexpr int kWaitingMax = 1000;  // answers; a peer that sends faster than we drop must not hold us
constexpr int kLongest = int{sizeof(int32_t)} + 8192;  // the kernel's limit of a message

// Tries until `try_once` (a negative result and errno while it fails) succeeds.
template <typename Attempt>
Reply Poll(const Patience& patience, Attempt try_once) {
    while (try_once() < 0) {
        if (errno == EIDRM || errno == EINVAL) {
            return Reply::kQueueRemoved;
        }
        if ((errno != EAGAIN && errno != ENOMSG && errno != EINTR) || patience.Over()) {
            return Reply::kNone;
        }
        SleepMs(kPollMs);
    }
    return Reply::kTaken;
}

void ThrowAwayWaiting(int qid, int type) {
    uint8_t answer[kLongest];
    for (int i = 0; i < kWaitingMax && IpcMsgTryRecv(qid, type, answer, sizeof answer) >= 0; ++i) {
    }
}

}  // namespace

Patience::Patience(long seconds) : end_(KQ_COMMON_GetUptime() + seconds) {}

bool Patience::Over() const {
    return KQ_COMMON_GetUptime() > end_;
}

Reply Tell(int qid, void* record, int size, const Patience& patience) {
    return Poll(patience, [&] { return IpcMsgTrySend(qid, record, size); });
}

Reply Ask(int qid, const Question& question, const Patience& patience) {
    ThrowAwayWaiting(qid, question.answer_type);
    if (const Reply sent = Tell(qid, question.record, question.size, patience); sent != Reply::kTaken) {
        return sent;
    }
    while (true) {
        uint8_t answer[kLongest];
        std::memcpy(answer, question.record, static_cast<size_t>(question.size));
        int length = -1;
        const Reply reply = Poll(patience, [&] {
            length = IpcMsgTryRecv(qid, question.answer_type, answer, sizeof answer);
            return length;
        });
        if (reply != Reply::kTaken) {
            return reply;
        }
        if (length > question.size - int{sizeof(int32_t)}) {
            return Reply::kNone;  // too long for any answer; waiting on would be for one that was already given
        }
        if (question.is_answer(question.record, answer)) {
            std::memcpy(question.record, answer, static_cast<size_t>(question.size));
            return Reply::kTaken;
        }
        if (patience.Over()) {
            return Reply::kNone;
        }
    }
}
