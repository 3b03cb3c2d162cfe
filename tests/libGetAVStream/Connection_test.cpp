#include <gmock/gmock.h>

#include "MediaPeer.h"
#include "support/AtOnce.h"
#include "support/NoMore.h"
#include "support/WaitUntil.h"

using support::WaitUntil;
using testing::Each;

namespace {

class Connection : public testing::Test {
  protected:
    ~Connection() override { GetAVControlCleanup(); }

    static int Queue() { return msgget(0x61766C79, 0); }
    static uint32_t CurrentPosition(int type, int stream = 0) {
        AVMsgBuf message{};
        EXPECT_EQ(GetAVStreamCurrentFrame(type, stream, &message), 0);
        return message.video_pos;
    }
    // That the peer has taken a request, and its answer lies there.
    void AwaitLateAnswer() {
        EXPECT_TRUE(WaitUntil([this] { return peer_.requests > 0 && IpcMsgCount(Queue()) == 1; }));
    }

    MediaPeer peer_;
};

TEST_F(Connection, IsMadeOnceAndForgottenWithoutHarmToTheServer) {
    const AVStreamSysInfo& state = *GetGetAVStreamSysInfo();
    const int rings[] = {shmget(0x61766C79, 0, 0), shmget(0x61766C7A, 0, 0)};
    for (int time = 0; time < 2; ++time) {
        ASSERT_EQ(GetAVControlInit(), 0);
        EXPECT_EQ(state.RunFlag, 1);
        EXPECT_THAT(state.StreamSharememID, testing::ElementsAre(rings[0], rings[1], -1, -1));
        EXPECT_EQ(state.AVMsgQid, Queue());
    }
    EXPECT_EQ(GetAVStreamCleanup(), 0);
    EXPECT_THAT(state.StreamSharememID, Each(-1));
    EXPECT_THAT(state.RingBufferLen, Each(-1));
    EXPECT_EQ(state.AVMsgQid, -1);
    EXPECT_EQ(shmget(0x61766C79, 0, 0), rings[0]);
}

TEST(ConnectionWithoutServer, KeepsNothingWhenARingCannotBeHad) {
    shmget(0x61766C79, 614464, IPC_CREAT | 0777);
    {
        const support::NoMore none(support::NoMore::kSegments);
        EXPECT_EQ(GetAVControlInit(), 103);
        EXPECT_THAT(GetGetAVStreamSysInfo()->StreamSharememID, Each(-1));
    }
    EXPECT_EQ(GetAVControlInit(), 0) << "it can be tried again";
    GetAVControlCleanup();
    for (const int key : {0x61766C79, 0x61766C7A}) {
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    }
    msgctl(msgget(0x61766C79, 0), IPC_RMID, nullptr);
}

TEST_F(Connection, RequestsTravelAsSpelledAndBringTheAnswerBack) {
    std::mutex lock;
    std::vector<AVMsgBuf> seen;
    peer_.AnswerWith([&](AVMsgBuf& message) {
        const std::lock_guard guard(lock);
        seen.push_back(message);
        message.video_pos = 4711;
        message.msg_ret = -9;
    });
    AVMsgBuf message;
    std::memset(&message, 0x55, sizeof message);
    EXPECT_EQ(GetAVStreamCurrentFrame(5, 1, &message), 0);
    EXPECT_EQ(message.video_pos, 4711u);
    EXPECT_EQ(GetAVStreamLastIFrame(5, 1, &message), 0);
    EXPECT_EQ(GetAVStreamRecordIFrame(5, 1, &message), 0);
    EXPECT_EQ(GetAVStreamRealFrameRate(5, 1, &message), 0);
    EXPECT_EQ(AVStreamLock(7, 0, 1000, 64), -9);
    EXPECT_EQ(AVStreamUnLock(7, 0, 1000, 64), -9);

    const std::lock_guard guard(lock);
    const int commands[] = {0x2001, 0x2002, 0x2003, 0x4001, 0x1001, 0x1002};
    ASSERT_EQ(seen.size(), std::size(commands));
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].cmd, commands[i]);
        EXPECT_EQ(seen[i].src, i < 4 ? 5 : 7);
        EXPECT_EQ(seen[i].video_index, i < 4 ? 1 : 0);
        EXPECT_EQ(seen[i].video_pos, i < 4 ? 0u : 1000u);
    }
    EXPECT_EQ(seen[4].video_len, 64);
    EXPECT_THAT(seen[4].reserve, Each(0));
}

TEST_F(Connection, RefusesWhatIsOutOfRangeWithoutAsking) {
    AVMsgBuf message{};
    for (const auto& [type, stream] : {std::pair{5, 4}, {5, -1}, {1, 0}, {17, 0}}) {
        EXPECT_EQ(GetAVStreamCurrentFrame(type, stream, &message), 102);
        EXPECT_EQ(AVStreamLock(type, stream, 0, 0), 102);
        EXPECT_EQ(AVStreamGetAVData(type, stream), 102);
        EXPECT_EQ(AVStreamGetAVDataStop(type, stream), 102);
    }
    EXPECT_EQ(GetAVStreamCurrentFrame(5, 0, nullptr), 106);
    EXPECT_EQ(peer_.requests, 0);
}

// Answers are told apart by the client type alone.
TEST_F(Connection, RequestsOfTwoThreadsDoNotTakeEachOthersAnswers) {
    peer_.AnswerWith([](AVMsgBuf& message) { message.video_pos = 100u + static_cast<uint32_t>(message.video_index); });
    std::atomic<int> wrong{0};
    support::AtOnce(3, [&wrong](int stream) {
        for (int i = 0; i < 50; ++i) {
            wrong += CurrentPosition(5, stream) != 100u + static_cast<uint32_t>(stream);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST_F(Connection, AReaderStopsThoughTheServerIsSilentAndItsLateAnswerIsNotTaken) {
    peer_.silent = true;
    ASSERT_EQ(GetAVStreamInit(5, nullptr, nullptr), 0);
    ASSERT_EQ(AVStreamGetAVData(5, 0), 0);
    EXPECT_EQ(AVStreamGetAVDataStop(5, 0), 0);

    peer_.current = 1;
    peer_.silent = false;
    AwaitLateAnswer();
    peer_.current = 2;
    EXPECT_EQ(CurrentPosition(5), 2u);
}

TEST_F(Connection, AnAnswerThatIsThereAlreadyIsTakenWhenNoneIsOwedUnlessItIsTooLong) {
    ASSERT_EQ(GetAVControlInit(), 0);
    peer_.silent = true;
    peer_.PutAnswer(6, 0, 0, 99);
    EXPECT_EQ(CurrentPosition(6), 99u);
    peer_.silent = false;
    AwaitLateAnswer();
    peer_.PutAnswer(6, 0, 0, 99, 356);
    peer_.current = 4711;
    EXPECT_EQ(CurrentPosition(6), 0u) << "the request's own";
    AwaitLateAnswer();  // the right one
    peer_.current = 4712;
    EXPECT_EQ(CurrentPosition(6), 4712u) << "it does not stand in front of the next";
}

}  // namespace
