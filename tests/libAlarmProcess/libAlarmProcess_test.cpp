#include "libAlarmProcess.h"

#include <gtest/gtest.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "Clock.h"
#include "libLog.h"
#include "support/Stderr.h"

namespace {

constexpr ClockSource kFixedClock{[] { return timeval{1700000000, 0}; }, [] { return 0L; }, [](unsigned int) {}};

class Board : public testing::Test {
  protected:
    Board() {
        ReplaceClock(&kFixedClock);
        LogInit(nullptr, LOG_MODE_CONSOLE);
    }
    ~Board() override {
        libAlarmProcessCleanup();
        shmctl(Id(), IPC_RMID, nullptr);
        ReplaceClock(nullptr);
        LogCleanup();
    }
    static int Id() { return shmget(0x61788C7C, 0, 0); }
    // What another process sees: 112 words.
    static const int32_t* Shared() { return static_cast<const int32_t*>(shmat(Id(), nullptr, SHM_RDONLY)); }

    support::Captured log_;
};

TEST_F(Board, PublishesTheWholeBoardWithStateAndTime) {
    ASSERT_EQ(libAlarmProcessInit(), 0);
    struct shmid_ds status {};
    ASSERT_EQ(shmctl(Id(), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 448u);

    auto* words = static_cast<int32_t*>(shmat(Id(), nullptr, 0));
    std::fill(words, words + 112, 77);  // another writer's
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_IO_OUTPUT, ALARM_STATUS_DEF_ON), 0);
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_MOTION, ALARM_STATUS_DEF_OFF), 0);
    EXPECT_EQ(words[2 * 6], 0);
    EXPECT_EQ(words[2 * 6 + 1], 1700000000);
    EXPECT_EQ(words[15 * 6], 1);
    EXPECT_EQ(words[15 * 6 + 1], 1700000000);
    EXPECT_EQ(words[15 * 6 + 2], 0);
    EXPECT_EQ(std::count(words, words + 96, 0), 96 - 3);
    EXPECT_EQ(std::count(words + 96, words + 112, 77), 16) << "bytes after the board";

    words[10 * 6 + 5] = 1234;
    AlarmData board;
    ASSERT_EQ(AlarmDataRead(&board), 0);
    EXPECT_EQ(std::memcmp(&board, words, 384), 0);

    libAlarmProcessCleanup();
    EXPECT_EQ(words[15 * 6], 1) << "the shared board keeps its content";
    shmdt(words);
}

TEST_F(Board, RefusesWhatIsWrong) {
    AlarmData board;
    EXPECT_EQ(AlarmDataRead(nullptr), -1);
    EXPECT_EQ(AlarmDataRead(&board), -1);
    EXPECT_NE(log_.Text().find(": gShmId -1 has something wrong!\n"), std::string::npos);
    EXPECT_EQ(AlarmDataWrite(0, 1), -1);
    ASSERT_EQ(libAlarmProcessInit(), 0);
    EXPECT_EQ(AlarmDataWrite(16, 1), -1);
    EXPECT_NE(log_.Text().find(": source  16 is wrong!\n"), std::string::npos);
    EXPECT_EQ(AlarmDataWrite(-1, 1), -1);
    EXPECT_EQ(AlarmDataWrite(2, 2), -1);
    EXPECT_NE(log_.Text().find(": status  2 is wrong!\n"), std::string::npos);
    EXPECT_EQ(AlarmDataRead(&board), 0);
    const AlarmData quiet{};
    EXPECT_EQ(std::memcmp(&board, &quiet, sizeof board), 0);
    EXPECT_EQ(libAlarmProcessInit(), 0);
    EXPECT_NE(log_.Text().find(": libAlarmProcessInit has already init!\n"), std::string::npos);
}

TEST_F(Board, OfASmallerSegmentReadsAsQuietAndIsLeftAlone) {
    ASSERT_GE(shmget(0x61788C7C, 100, IPC_CREAT | 0777), 0);
    ASSERT_EQ(libAlarmProcessInit(), 0);
    EXPECT_EQ(AlarmDataWrite(0, 1), 0);
    const int32_t* words = Shared();
    EXPECT_EQ(words[0], 0);
    shmdt(words);
    AlarmData board;
    std::memset(&board, 1, sizeof board);
    EXPECT_EQ(AlarmDataRead(&board), 0);
    EXPECT_EQ(board.alarm[0].status, 0);
}

TEST_F(Board, IsFollowedWhenItIsMadeAnew) {
    ASSERT_EQ(libAlarmProcessInit(), 0);
    shmctl(Id(), IPC_RMID, nullptr);
    const int anew = shmget(0x61788C7C, 448, IPC_CREAT | 0777);
    auto* words = static_cast<int32_t*>(shmat(anew, nullptr, 0));
    words[2 * 6] = ALARM_STATUS_DEF_ON;
    AlarmData board;
    ASSERT_EQ(AlarmDataRead(&board), 0);
    EXPECT_EQ(board.alarm[ALARM_SOURCE_DEF_MOTION].status, ALARM_STATUS_DEF_ON);
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_IO_0, ALARM_STATUS_DEF_ON), 0);
    EXPECT_EQ(words[0], 1);
    shmdt(words);
}

// Read once more and more, it stays attached; but that must not keep alive what its owner took away.
TEST_F(Board, EndsWithItsOwner) {
    ASSERT_EQ(libAlarmProcessInit(), 0);
    const int board = Id();
    AlarmData data;
    ASSERT_EQ(AlarmDataWrite(ALARM_SOURCE_DEF_MOTION, ALARM_STATUS_DEF_ON), 0);
    ASSERT_EQ(AlarmDataRead(&data), 0);
    EXPECT_EQ(data.alarm[ALARM_SOURCE_DEF_MOTION].status, ALARM_STATUS_DEF_ON);
    shmctl(board, IPC_RMID, nullptr);
    ASSERT_EQ(AlarmDataRead(&data), 0);
    EXPECT_EQ(data.alarm[ALARM_SOURCE_DEF_MOTION].status, ALARM_STATUS_DEF_OFF);
    struct shmid_ds status {};
    EXPECT_EQ(shmctl(board, IPC_STAT, &status), -1);
    EXPECT_NE(Id(), board);
}

TEST_F(Board, FaceRectangleIsKeptInTheProcess) {
    Face_Alarm_Ret set{1, 2, 3, 4};
    Face_Alarm_Ret got{};
    EXPECT_EQ(libSetFaceAlarmInfo(&set), 0);
    EXPECT_EQ(libGetFaceAlarmInfo(&got), 0);
    EXPECT_EQ(std::memcmp(&set, &got, sizeof set), 0);
    EXPECT_EQ(libGetFaceAlarmInfo(nullptr), -1);
    EXPECT_EQ(Id(), -1);
}

}  // namespace
