#include "libWatchDog.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Clock.h"
#include "libLog.h"
#include "support/Stderr.h"

namespace {

constexpr ClockSource kFixedClock{[] { return timeval{1700000000, 0}; }, [] { return 0L; }, [](unsigned int) {}};

class Table : public testing::Test {
  protected:
    Table() {
        ReplaceClock(&kFixedClock);
        LogInit(nullptr, LOG_MODE_CONSOLE);
    }
    ~Table() override {
        libWatchDogCleanup();
        ReplaceClock(nullptr);
        LogCleanup();
    }
    bool Logged(const char* text) const { return log_.Text().find(text) != std::string::npos; }

    support::Captured log_;
};

TEST_F(Table, HeartbeatTouchesItsOwnSlotOnly) {
    // The other daemons were here first.
    const int id = shmget(0x61788C7D, 200, IPC_CREAT | 0777);
    auto* words = static_cast<int32_t*>(shmat(id, nullptr, 0));
    std::fill(words, words + 50, 99);

    ASSERT_EQ(libWatchDogInit(), 0);
    ASSERT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
    EXPECT_EQ(words[14], 1700000000);
    EXPECT_EQ(words[15], 0);
    ASSERT_EQ(WatchDogStatusWrite(WATCH_DOG_SOURCE_AVRECORD, 3), 0);
    EXPECT_EQ(words[15], 3);
    ASSERT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
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
    EXPECT_EQ(printed, "\n WatchDog time = 99 99 99 99 99 99 99 1700000000 99 99 99 99 99 99 99 99 4294967295 \n");

    EXPECT_EQ(libWatchDogCleanup(), 0);
    EXPECT_EQ(words[14], 1700000000) << "cleaning up does not reach the table";
    shmdt(words);
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Table, HeartbeatFollowsATableThatIsMadeAnew) {
    ASSERT_EQ(libWatchDogInit(), 0);
    shmctl(shmget(0x61788C7D, 0, 0), IPC_RMID, nullptr);
    const int anew = shmget(0x61788C7D, 200, IPC_CREAT | 0777);
    ASSERT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
    auto* words = static_cast<int32_t*>(shmat(anew, nullptr, 0));
    EXPECT_EQ(words[14], 1700000000);
    shmdt(words);
    shmctl(anew, IPC_RMID, nullptr);
}

TEST_F(Table, HeartbeatHealsWhenTheTableCouldNotBeHad) {
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
    std::vector<int> segments;
    for (int id; segments.size() < 100000 && (id = shmget(IPC_PRIVATE, 1, 0600)) >= 0;) {
        segments.push_back(id);
    }
    EXPECT_EQ(libWatchDogInit(), -1);
    EXPECT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), -1);
    EXPECT_TRUE(Logged("WatchDogDataWrite ") && Logged(": gShmId -1 has something wrong!\n"));
    shmctl(segments.back(), IPC_RMID, nullptr);
    EXPECT_EQ(WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD), 0);
    EXPECT_EQ(libWatchDogInit(), 0);
    EXPECT_TRUE(Logged(": libWatchDogInit has already init!\n"));
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
}

TEST_F(Table, RefusesBeforeInitAndInitTwiceDoesNothing) {
    WatchDogData table;
    EXPECT_EQ(WatchDogDataWrite(7), -1);
    EXPECT_TRUE(Logged(": gShmId -1 has something wrong!\n"));
    EXPECT_EQ(WatchDogDataRead(&table), -1);
    ASSERT_EQ(libWatchDogInit(), 0);
    EXPECT_EQ(WatchDogDataRead(nullptr), -1);
    EXPECT_EQ(libWatchDogInit(), 0);
    EXPECT_TRUE(Logged(": libWatchDogInit has already init!\n"));
    shmctl(shmget(0x61788C7D, 0, 0), IPC_RMID, nullptr);
}

}  // namespace
