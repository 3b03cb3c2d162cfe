#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <chrono>
#include <future>
#include <string>

#include "libOthers.h"
#include "support/Stderr.h"

namespace {

constexpr int kKey = 0x5A5A0010;

TEST(SharedSegment, IsKeptAndCopiedOnlyInside) {
    char text[8] = "payload", bytes[8] = "unset";
    const int id = ShareMemInit(kKey);
    ASSERT_GE(id, 0);
    const int other = pShareMemInit(kKey + 1);
    EXPECT_NE(other, id);
    EXPECT_EQ(ShareMemWrite(147448, text, 8), 0);
    EXPECT_EQ(ShareMemRead(147448, bytes, 8), 0);
    EXPECT_STREQ(bytes, "payload");
    const char* peer = static_cast<const char*>(shmat(id, nullptr, SHM_RDONLY));
    EXPECT_STREQ(peer + 147448, "payload") << "in the segment that was kept";
    shmdt(peer);

    struct {
        int offset, length;
    } const outside[] = {{147449, 8}, {-1, 2}, {0, -1}, {147457, 0}, {INT32_MAX, INT32_MAX}};
    for (const auto& [offset, length] : outside) {
        EXPECT_EQ(ShareMemWrite(offset, text, length), -1) << offset << " " << length;
        EXPECT_EQ(ShareMemRead(offset, bytes, length), -1) << offset << " " << length;
    }
    EXPECT_EQ(ShareMemRead(0, nullptr, 1), -1);

    shmctl(id, IPC_RMID, nullptr);
    shmctl(other, IPC_RMID, nullptr);
    EXPECT_EQ(ShareMemWrite(0, text, 1), -1) << "the segment is gone";
}

TEST(Queue, IsOpenedOrCreatedAndToldSo) {
    const support::Captured log;
    const int qid = Msg_Init(kKey);
    const std::string id = std::to_string(qid);
    EXPECT_EQ(Msg_Init(kKey), qid);
    int32_t answer[3] = {9, 5, 4}, record[3] = {7, 1, 2};
    EXPECT_EQ(Msg_Send(qid, answer, sizeof answer), 0);
    EXPECT_EQ(Msg_Send_Rsv(qid, 9, record, sizeof record), 8);
    EXPECT_EQ(record[1], 5);
    EXPECT_EQ(Msg_Rsv(qid, 7, record, sizeof record), 8) << "the request of the exchange";
    EXPECT_EQ(record[1], 1);
    EXPECT_EQ(Msg_Kill(qid), 0);
    EXPECT_EQ(Msg_Send_Rsv(qid, 9, record, sizeof record), -1) << "a failed send does not wait";
    EXPECT_EQ(log.Text(),
              "Creat queue id:" + id + "\nqueue id:" + id + "\nqueue id:" + id + "\nKill queue id:" + id + "\n");
}

TEST(Lock, IsDestroyedAfterItsHolder) {
    const support::Captured log;
    const SemHandl_t lock = MakeSem();
    ASSERT_EQ(SemWait(lock), 0);
    std::future<int> destroyed = std::async(std::launch::async, DestroySem, lock);
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout) << "it is held";
    EXPECT_EQ(SemRelease(lock), 0);
    EXPECT_EQ(destroyed.get(), 0);
    EXPECT_EQ(log.Text(), "");
}

TEST(Lock, OfNullIsRefusedInItsWords) {
    const support::Captured log;
    EXPECT_EQ(SemWait(nullptr), -1);
    EXPECT_EQ(SemRelease(nullptr), -1);
    EXPECT_EQ(DestroySem(nullptr), -1);
    EXPECT_EQ(log.Text(),
              "Error: SemWait: Invalid Semaphore handler\nError: SemRelease: Invalid Semaphore handler\n"
              "Error: DestroySem: Invalid Semaphore handler\n");
}

}  // namespace
