#include "libWatchDog.h"

#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "support/NoMore.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

class Table : public support::LoggedTest {
  protected:
    ~Table() override {
        libWatchDogCleanup();
        shmctl(shmget(0x61788C7D, 0, 0), IPC_RMID, nullptr);
    }

    support::SteppedClock clock_;
};

TEST_F(Table, HeartbeatTouchesItsOwnSlotOnly) {
    // The other daemons were here first, and the table's id is not 0.
    const int other = shmget(IPC_PRIVATE, 1, 0600);
    auto* words = static_cast<int32_t*>(shmat(shmget(0x61788C7D, 200, IPC_CREAT | 0777), nullptr, 0));
    std::fill(words, words + 50, 99);

    ASSERT_EQ(libWatchDogInit(), 0);
    ASSERT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
    EXPECT_EQ(words[14], 1700000000);
    EXPECT_EQ(words[15], 0);
    ASSERT_EQ(WatchDogStatusWrite(WATCH_DOG_SOURCE_AVRECORD, 3), 0);
    clock_.wall += 2;
    ASSERT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
    EXPECT_EQ(words[14], 1700000002);
    EXPECT_EQ(words[15], 3) << "a heartbeat keeps the status word";
    EXPECT_EQ(WatchDogDataWrite(17), -1);
    EXPECT_TRUE(Logged("WatchDogDataWrite ") && Logged(": source  17 is wrong!\n"));
    EXPECT_EQ(std::count(words, words + 50, 99), 48);

    words[32] = -1;  // shown as the unsigned number it is on the camera
    WatchDogData table;
    std::string printed;
    {
        support::Captured out(STDOUT_FILENO);
        ASSERT_EQ(WatchDogDataRead(&table), 0);
        printed = out.Text();
    }
    EXPECT_EQ(std::memcmp(&table, words, 136), 0);
    EXPECT_EQ(printed, "\n WatchDog time = 99 99 99 99 99 99 99 1700000002 99 99 99 99 99 99 99 99 4294967295 \n");
    EXPECT_EQ(WatchDogDataRead(nullptr), -1);

    EXPECT_EQ(libWatchDogCleanup(), 0);
    EXPECT_EQ(words[14], 1700000002) << "cleaning up does not reach the table";
    shmdt(words);
    shmctl(other, IPC_RMID, nullptr);
}

TEST_F(Table, HeartbeatHealsWhenTheTableCouldNotBeHad) {
    WatchDogData table;
    EXPECT_EQ(WatchDogDataWrite(7), -1) << "not started";
    EXPECT_EQ(WatchDogDataRead(&table), -1);
    {
        const support::NoMore none(support::NoMore::kSegments);
        EXPECT_EQ(libWatchDogInit(), -1);
        EXPECT_EQ(WatchDogDataWrite(7), -1);
        EXPECT_TRUE(Logged(": gShmId -1 has something wrong!\n"));
    }
    EXPECT_EQ(WatchDogDataWrite(7), 0);
    EXPECT_EQ(libWatchDogInit(), 0);
    EXPECT_TRUE(Logged(": libWatchDogInit has already init!\n"));
}

}  // namespace
