#include "libAlarmProcess.h"

#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

class Board : public support::LoggedTest {
  protected:
    ~Board() override {
        libAlarmProcessCleanup();
        shmctl(Id(), IPC_RMID, nullptr);
    }
    static int Id() { return shmget(0x61788C7C, 0, 0); }
    // As another process has it: 112 words.
    static int32_t* Shared() { return static_cast<int32_t*>(shmat(Id(), nullptr, 0)); }

    support::SteppedClock clock_;
    AlarmData board_{};
};

TEST_F(Board, PublishesTheWholeBoardWithStateAndTime) {
    ASSERT_EQ(libAlarmProcessInit(), 0);
    struct shmid_ds status {};
    ASSERT_EQ(shmctl(Id(), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 448u);

    int32_t* const words = Shared();
    std::fill(words, words + 112, 77);  // another writer's
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_IO_OUTPUT, ALARM_STATUS_DEF_ON), 0);
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_MOTION, ALARM_STATUS_DEF_OFF), 0);
    EXPECT_EQ(words[2 * 6], 0);
    EXPECT_EQ(words[2 * 6 + 1], 1700000000);
    EXPECT_EQ(words[15 * 6], 1);
    EXPECT_EQ(words[15 * 6 + 1], 1700000000);
    EXPECT_EQ(std::count(words, words + 96, 0), 96 - 3);
    EXPECT_EQ(std::count(words + 96, words + 112, 77), 16) << "bytes after the board";

    words[10 * 6 + 5] = 1234;
    ASSERT_EQ(AlarmDataRead(&board_), 0);
    EXPECT_EQ(std::memcmp(&board_, words, 384), 0);

    libAlarmProcessCleanup();
    EXPECT_EQ(words[15 * 6], 1) << "the shared board keeps its content";
    shmdt(words);
}

TEST_F(Board, RefusesWhatIsWrong) {
    EXPECT_EQ(AlarmDataRead(nullptr), -1);
    EXPECT_EQ(AlarmDataRead(&board_), -1);
    EXPECT_EQ(AlarmDataWrite(0, 1), -1);
    EXPECT_EQ(log_.Count(": gShmId -1 has something wrong!\n"), 2);
    ASSERT_EQ(libAlarmProcessInit(), 0);
    EXPECT_EQ(AlarmDataWrite(16, 1), -1);
    EXPECT_TRUE(Logged(": source  16 is wrong!\n"));
    EXPECT_EQ(AlarmDataWrite(-1, 1), -1);
    EXPECT_EQ(AlarmDataWrite(2, 2), -1);
    EXPECT_TRUE(Logged(": status  2 is wrong!\n"));
    EXPECT_EQ(AlarmDataRead(&board_), 0);
    const AlarmData quiet{};
    EXPECT_EQ(std::memcmp(&board_, &quiet, sizeof quiet), 0);
    EXPECT_EQ(libAlarmProcessInit(), 0);
    EXPECT_TRUE(Logged(": libAlarmProcessInit has already init!\n"));
}

TEST_F(Board, OfASmallerSegmentReadsAsQuietAndIsLeftAlone) {
    ASSERT_GE(shmget(0x61788C7C, 100, IPC_CREAT | 0777), 0);
    ASSERT_EQ(libAlarmProcessInit(), 0);
    EXPECT_EQ(AlarmDataWrite(0, 1), 0);
    int32_t* const words = Shared();
    EXPECT_EQ(words[0], 0);
    shmdt(words);
    std::memset(&board_, 1, sizeof board_);
    EXPECT_EQ(AlarmDataRead(&board_), 0);
    EXPECT_EQ(board_.alarm[0].status, 0);
}

}  // namespace
