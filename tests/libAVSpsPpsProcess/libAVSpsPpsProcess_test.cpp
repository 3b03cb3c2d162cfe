#include "libAVSpsPpsProcess.h"

#include <sys/shm.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "support/AtOnce.h"
#include "support/Stderr.h"

namespace {

class Table : public support::LoggedTest {
  protected:
    ~Table() override {
        libAVSpsPpsProcessCleanup();
        shmctl(shmget(0x62788C7C, 0, 0), IPC_RMID, nullptr);
    }

    std::vector<char> bytes_ = std::vector<char>(1025, 0x67);
    std::unique_ptr<AVSpsPpsData> table_ = std::make_unique<AVSpsPpsData>();
};

TEST_F(Table, PublishesEachSlotAtItsOffset) {
    ASSERT_EQ(libAVSpsPpsProcessInit(), 0);
    EXPECT_TRUE(Logged(": libAVSpsPpsProcessInit libAVSpsPpsProcessInit!\n"));
    EXPECT_EQ(AVSpsPpsDataWrite(23, bytes_.data(), 1024), 0);
    EXPECT_EQ(AVSpsPpsDataWrite(0, "abc", 3), 0);
    EXPECT_EQ(AVSpsPpsDataWrite(0, "z", 1), 0);

    const int id = shmget(0x62788C7C, 24832, 0);
    ASSERT_GE(id, 0);
    const auto* shared = static_cast<const unsigned char*>(shmat(id, nullptr, SHM_RDONLY));
    EXPECT_EQ(std::memcmp(shared, "zbc\0", 4), 0);
    EXPECT_EQ(std::memcmp(shared + 1024, "\1\0\0\0\1\0\0\0", 8), 0);
    EXPECT_EQ(std::count(shared + 23736, shared + 23736 + 1024, 0x67), 1024);
    EXPECT_EQ(std::memcmp(shared + 23736 + 1024, "\0\4\0\0\1\0\0\0", 8), 0);
    EXPECT_EQ(libAVSpsPpsProcessInit(), 0);
    EXPECT_TRUE(Logged(": libAVSpsPpsProcessInit has already init!\n"));
    EXPECT_EQ(AVSpsPpsDataRead(table_.get()), 0);
    EXPECT_EQ(std::memcmp(table_.get(), shared, 24768), 0);
    shmdt(shared);
}

TEST_F(Table, RefusesWhatIsWrong) {
    EXPECT_EQ(AVSpsPpsDataWrite(0, "abc", 3), -1);
    EXPECT_EQ(AVSpsPpsDataRead(table_.get()), -1);
    EXPECT_EQ(log_.Count(": gShmId -1 has something wrong!\n"), 2);
    ASSERT_EQ(libAVSpsPpsProcessInit(), 0);
    EXPECT_EQ(AVSpsPpsDataWrite(0, nullptr, 3), -1);
    EXPECT_EQ(AVSpsPpsDataWrite(24, bytes_.data(), 1025), -1);
    EXPECT_TRUE(Logged(": index  24  length = 1025\n"));
    EXPECT_EQ(AVSpsPpsDataWrite(24, bytes_.data(), 1), -1);
    EXPECT_TRUE(Logged(": index  24 is wrong!\n"));
    EXPECT_EQ(AVSpsPpsDataWrite(-1, bytes_.data(), 1), -1);
    EXPECT_EQ(AVSpsPpsDataRead(nullptr), -1);
    EXPECT_EQ(AVSpsPpsDataRead(table_.get()), 0);
    EXPECT_EQ(table_->SpsPpsInfo[0].flag, 0);
}

TEST_F(Table, WritersOfDifferentSlotsLoseNothing) {
    ASSERT_EQ(libAVSpsPpsProcessInit(), 0);
    support::AtOnce(4, [](int slot) {
        for (int round = 1; round <= 100; ++round) {
            AVSpsPpsDataWrite(slot, std::vector<char>(1024, static_cast<char>(round)).data(), 1024);
        }
    });
    ASSERT_EQ(AVSpsPpsDataRead(table_.get()), 0);
    for (int slot = 0; slot < 4; ++slot) {
        const auto& buffer = table_->SpsPpsInfo[slot].buffer;
        EXPECT_EQ(std::count(std::begin(buffer), std::end(buffer), 100), 1024) << slot;
    }
}

TEST(Lock, IsRecursiveAndExcludesOtherThreads) {
    pthread_mutex_t lock;
    ASSERT_EQ(KQ_CreateLock(&lock), 0);
    EXPECT_EQ(KQ_Lock(&lock), 0);
    EXPECT_EQ(KQ_Lock(&lock), 0);
    EXPECT_EQ(KQ_Unlock(&lock), 0);
    std::thread([&] { EXPECT_EQ(pthread_mutex_trylock(&lock), EBUSY); }).join();
    EXPECT_EQ(KQ_Unlock(&lock), 0);
    std::thread([&] {
        EXPECT_EQ(KQ_Lock(&lock), 0);
        EXPECT_EQ(KQ_Unlock(&lock), 0);
    }).join();
#ifndef __SANITIZE_THREAD__  // which takes a wrong unlock, refused or not, for a fault of the program
    EXPECT_EQ(KQ_Unlock(&lock), -1) << "not held";
#endif
    EXPECT_EQ(KQ_DestroyLock(&lock), 0);
    EXPECT_EQ(KQ_CreateLock(nullptr), -1);
    EXPECT_EQ(KQ_Lock(nullptr), -1);
    EXPECT_EQ(KQ_Unlock(nullptr), -1);
}

}  // namespace
