#include "libIpcUtils.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "PeerSegment.h"

namespace {

constexpr int kQueueKey = 0x5A5A0001;
constexpr int kSegmentKey = 0x5A5A0002;

struct Record {  // as a 32-bit peer lays it out
    int32_t type;
    char payload[44];
};
static_assert(sizeof(Record) == 48);

struct HostRecord {  // as the kernel of this host sees it
    long type;
    char payload[64];
};

Record Filled(int32_t type, char first) {
    Record record{type, {}};
    std::iota(std::begin(record.payload), std::end(record.payload), first);
    return record;
}

class Queue : public testing::Test {
  protected:
    ~Queue() override { EXPECT_EQ(IpcMsgKill(qid), 0); }
    const int qid = IpcMsgInit(kQueueKey);
};

TEST_F(Queue, CarriesThePayloadAfterAFourByteTypeInBothDirections) {
    ASSERT_GE(qid, 0);
    EXPECT_EQ(IpcMsgInit(kQueueKey), qid);

    Record sent = Filled(7, 'a');
    ASSERT_EQ(IpcMsgSend(qid, &sent, sizeof sent), 0);
    HostRecord raw{};
    ASSERT_EQ(msgrcv(qid, &raw, sizeof raw.payload, 7, IPC_NOWAIT), 44);
    EXPECT_EQ(raw.type, 7);
    EXPECT_EQ(std::memcmp(raw.payload, sent.payload, 44), 0);

    raw.type = 9;
    std::memcpy(raw.payload, "reply", 5);
    ASSERT_EQ(msgsnd(qid, &raw, 5, 0), 0);
    Record received = Filled(0, 'A');
    ASSERT_EQ(IpcMsgRecv(qid, 9, &received, sizeof received), 5);
    EXPECT_EQ(received.type, 9);
    EXPECT_EQ(std::string(received.payload, 5), "reply");
    EXPECT_EQ(received.payload[5], 'F') << "bytes after a short message are the receiver's own";
}

TEST_F(Queue, SendRecvAnswersIntoTheSameRecordAndOnlyWaitsAfterASend) {
    Record answer = Filled(2, '0');
    ASSERT_EQ(IpcMsgSend(qid, &answer, sizeof answer), 0);
    Record record = Filled(1, 'q');
    EXPECT_EQ(IpcMsgSendRecv(qid, 2, &record, sizeof record), 44);
    EXPECT_EQ(std::memcmp(&record, &answer, sizeof record), 0);

    record.type = 0;  // the kernel refuses it; waiting for an answer now would be for ever
    EXPECT_EQ(IpcMsgSendRecv(qid, 2, &record, sizeof record), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Queue, TryingNeverWaits) {
    Record received{};
    EXPECT_EQ(IpcMsgTryRecv(qid, 5, &received, sizeof received), -1);
    EXPECT_EQ(errno, ENOMSG);
    Record record = Filled(5, 'a');
    int sent = 0;
    while (IpcMsgTrySend(qid, &record, sizeof record) == 0) {
        ASSERT_LT(++sent, 1 << 20) << "a queue is bounded";
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(IpcMsgCount(qid), sent);
    EXPECT_EQ(IpcMsgTryRecv(qid, 5, &received, sizeof received), 44);
    EXPECT_EQ(std::memcmp(&received, &record, sizeof record), 0);
    EXPECT_EQ(IpcMsgCount(qid), sent - 1);
    EXPECT_EQ(IpcMsgCount(-1), -1);
}

TEST_F(Queue, RefusesWhatIsNoRecordAndKeepsAMessageThatDoesNotFit) {
    Record record = Filled(1, 'a');
    EXPECT_EQ(IpcMsgSend(qid, nullptr, 48), -1);
    EXPECT_EQ(IpcMsgSend(qid, &record, 3), -1);
    EXPECT_EQ(IpcMsgRecv(qid, 1, &record, -48), -1);

    ASSERT_EQ(IpcMsgSend(qid, &record, sizeof record), 0);
    Record small = Filled(5, 'z');
    EXPECT_EQ(IpcMsgRecv(qid, 1, &small, 47), -1);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(std::memcmp(small.payload, Filled(5, 'z').payload, sizeof small.payload), 0);
    EXPECT_EQ(IpcMsgRecv(qid, 1, &small, 48), 44);

    ASSERT_EQ(IpcMsgSend(qid, &record, sizeof record), 0);
    EXPECT_EQ(IpcMsgDiscard(qid, 1), 0) << "however long it is";
    EXPECT_EQ(IpcMsgDiscard(qid, 1), -1);
    EXPECT_EQ(errno, ENOMSG);

    ASSERT_EQ(IpcMsgSend(qid, &record, 4), 0) << "a record of its type alone";
    EXPECT_EQ(IpcMsgRecv(qid, 1, &small, 4), 0);
}

TEST_F(Queue, ReceivesIntoARecordLongerThanTheKernelsLimit) {
    std::vector<char> record(4 + 8192, 'x');
    const int32_t type = 1;
    std::memcpy(record.data(), &type, 4);
    ASSERT_EQ(IpcMsgSend(qid, record.data(), static_cast<int>(record.size())), 0);
    std::vector<char> room(1 << 20);
    EXPECT_EQ(IpcMsgRecv(qid, 1, room.data(), static_cast<int>(room.size())), 8192);
    EXPECT_EQ(std::memcmp(room.data(), record.data(), record.size()), 0);
}

class Segment : public testing::Test {
  protected:
    ~Segment() override { IpcShareMemDestroy(mid); }
    const int mid = IpcShareMemInit(kSegmentKey, 64);
};

TEST_F(Segment, IsTakenWhateverItsSize) {
    ASSERT_GE(mid, 0);
    EXPECT_EQ(IpcShareMemInit(kSegmentKey, 32), mid);
    EXPECT_EQ(IpcShareMemInit(kSegmentKey, 100000), mid);
    struct shmid_ds status {};
    ASSERT_EQ(shmctl(mid, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 64u);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0777);
    EXPECT_EQ(IpcShareMemInit(kSegmentKey + 1, -1), -1);
}

TEST_F(Segment, CopiesOnlyStretchesThatLieInside) {
    char bytes[] = "0123456789";
    IpcShareMemWrite(mid, 54, bytes, 10);
    char back[10] = {};
    IpcShareMemRead(mid, 54, back, 10);
    EXPECT_EQ(std::string(back, 10), "0123456789");

    struct {
        int offset, length;
    } const outside[] = {{55, 10}, {64, 1}, {-1, 2}, {0, -1}, {0, 65}, {INT32_MAX, INT32_MAX}, {4096, 1}};
    for (const auto& [offset, length] : outside) {
        char untouched[128] = "same";
        IpcShareMemWrite(mid, offset, untouched, length);
        IpcShareMemRead(mid, offset, untouched, length);
        EXPECT_STREQ(untouched, "same") << offset << " " << length;
    }
    IpcShareMemRead(mid, 54, back, 10);
    IpcShareMemRead(-1, 0, back, 10);
    EXPECT_EQ(std::string(back, 10), "0123456789");
}

// In queues and segments of its own, among which the first segment's id is 0.
class Alone : public testing::Test {
  protected:
    Alone() { EXPECT_EQ(unshare(CLONE_NEWIPC), 0); }

    PeerSegment segment_{kSegmentKey, 64};
};

TEST_F(Alone, ASegmentIsRemovedByItsKeyUnlessItsIdIsZero) {
    ASSERT_EQ(IpcShareMemInit(kSegmentKey, 64), 0);
    ASSERT_GT(IpcShareMemInit(kSegmentKey + 1, 64), 0);
    EXPECT_EQ(IpcShareMemUnInit(kSegmentKey), 0);
    EXPECT_EQ(shmget(kSegmentKey, 0, 0), 0);
    EXPECT_EQ(IpcShareMemUnInit(kSegmentKey + 1), 0);
    EXPECT_EQ(shmget(kSegmentKey + 1, 0, 0), -1);
}

TEST_F(Alone, APeersSegmentIsTheOneItsKeyHasNow) {
    EXPECT_EQ(segment_.Id(), -1) << "nobody asked for it yet";
    ASSERT_TRUE(segment_.Open());
    const int first = segment_.Id();
    void* const user = shmat(first, nullptr, 0);
    shmctl(first, IPC_RMID, nullptr);
    EXPECT_EQ(segment_.Id(), first) << "removed, still used, and there is no other";
    const int second = shmget(kSegmentKey, 100, IPC_CREAT | 0777);
    EXPECT_EQ(segment_.Id(), second);
    shmdt(user);
    shmctl(second, IPC_RMID, nullptr);
    const int third = segment_.Id();
    EXPECT_GE(third, 0) << "gone for good: as at the start, it is created";
    EXPECT_EQ(shmget(kSegmentKey, 64, 0), third);
    segment_.Forget();
    EXPECT_EQ(segment_.Id(), -1);
}

TEST_F(Alone, APeersSegmentStaysAttachedUntilSomebodyRemovesIt) {
    EXPECT_EQ(segment_.Look(64), nullptr) << "not opened";
    ASSERT_TRUE(segment_.Open());
    const int first = segment_.Id();
    const auto users = [](int id) {
        struct shmid_ds status {};
        return shmctl(id, IPC_STAT, &status) == 0 ? static_cast<int>(status.shm_nattch) : -1;
    };
    constexpr size_t kRoom = 1 << 20;  // where the next thing that is attached or mapped would go
    void* const room = mmap(nullptr, kRoom, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const void* const seen = segment_.Look(64);
    ASSERT_NE(seen, nullptr);
    munmap(room, kRoom);
    EXPECT_EQ(segment_.Look(64), seen);
    EXPECT_EQ(segment_.Look(65), nullptr) << "it is not so long";
    EXPECT_EQ(users(first), 1);
    shmctl(first, IPC_RMID, nullptr);
    EXPECT_NE(segment_.Look(64), nullptr);
    EXPECT_EQ(users(first), -1) << "gone, for we were its last user";
    EXPECT_EQ(users(segment_.Id()), 1) << "and looked at in its place";
}

}  // namespace
