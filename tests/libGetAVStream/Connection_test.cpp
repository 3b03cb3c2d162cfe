#include <gmock/gmock.h>

#include "MediaPeer.h"

using testing::Each;

namespace {

class Connection : public testing::Test {
  protected:
    ~Connection() override { GetAVControlCleanup(); }
    MediaPeer peer_;
};

TEST_F(Connection, IsMadeOnceAndForgottenWithoutHarmToTheServer) {
    ASSERT_EQ(GetAVControlInit(), 0);
    const AVStreamSysInfo state = *GetGetAVStreamSysInfo();
    EXPECT_EQ(state.RunFlag, 1);
    EXPECT_EQ(state.StreamSharememID[0], shmget(0x61766C79, 0, 0));
    EXPECT_EQ(state.StreamSharememID[1], shmget(0x61766C7A, 0, 0));
    EXPECT_EQ(state.StreamSharememID[2], -1);
    EXPECT_EQ(state.AVMsgQid, msgget(0x61766C79, 0));
    ASSERT_EQ(GetAVControlInit(), 0);
    EXPECT_EQ(std::memcmp(GetGetAVStreamSysInfo(), &state, sizeof state), 0);

    EXPECT_EQ(GetAVStreamCleanup(), 0);
    EXPECT_THAT(GetGetAVStreamSysInfo()->StreamSharememID, Each(-1));
    EXPECT_THAT(GetGetAVStreamSysInfo()->RingBufferLen, Each(-1));
    EXPECT_EQ(GetGetAVStreamSysInfo()->AVMsgQid, -1);
    EXPECT_GE(shmget(0x61766C79, 0, 0), 0);
}

TEST(ConnectionWithoutServer, KeepsNothingWhenARingCannotBeHad) {
    const int first = shmget(0x61766C79, 614464, IPC_CREAT | 0777);
    std::vector<int> others;  // until the host has no segment left
    for (int id; (id = shmget(IPC_PRIVATE, 1, 0600)) >= 0;) {
        others.push_back(id);
    }
    EXPECT_EQ(GetAVControlInit(), 103);
    EXPECT_THAT(GetGetAVStreamSysInfo()->StreamSharememID, Each(-1));
    for (const int id : others) {
        shmctl(id, IPC_RMID, nullptr);
    }
    EXPECT_EQ(GetAVControlInit(), 0) << "it can be tried again";
    GetAVControlCleanup();
    for (const int id : {first, shmget(0x61766C7A, 0, 0)}) {
        shmctl(id, IPC_RMID, nullptr);
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
    EXPECT_EQ(GetAVStreamCurrentFrame(5, 4, &message), 102);
    EXPECT_EQ(GetAVStreamCurrentFrame(5, -1, &message), 102);
    EXPECT_EQ(GetAVStreamCurrentFrame(5, 0, nullptr), 106);
    EXPECT_EQ(GetAVStreamCurrentFrame(1, 0, &message), 102);
    EXPECT_EQ(GetAVStreamCurrentFrame(17, 0, &message), 102);
    EXPECT_EQ(AVStreamLock(5, 4, 0, 0), 102);
    EXPECT_EQ(AVStreamUnLock(17, 0, 0, 0), 102);
    EXPECT_EQ(AVStreamGetAVData(1, 0), 102);
    EXPECT_EQ(AVStreamGetAVDataStop(5, 4), 102);
    EXPECT_EQ(peer_.requests, 0);
}

// Answers are told apart by the client type alone.
TEST_F(Connection, RequestsOfTwoThreadsDoNotTakeEachOthersAnswers) {
    peer_.AnswerWith([](AVMsgBuf& message) { message.video_pos = 100u + static_cast<uint32_t>(message.video_index); });
    std::atomic<int> wrong{0};
    std::vector<std::thread> askers;
    for (int stream = 0; stream < 3; ++stream) {
        askers.emplace_back([&wrong, stream] {
            for (int i = 0; i < 50; ++i) {
                AVMsgBuf message{};
                GetAVStreamCurrentFrame(5, stream, &message);
                wrong += message.video_pos != 100u + static_cast<uint32_t>(stream);
            }
        });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(Connection, AReaderStopsThoughTheServerIsSilentAndItsLateAnswerIsNotTaken) {
    peer_.silent = true;
    ASSERT_EQ(GetAVStreamInit(5, nullptr, nullptr), 0);
    ASSERT_EQ(AVStreamGetAVData(5, 0), 0);
    EXPECT_EQ(AVStreamGetAVDataStop(5, 0), 0);

    std::atomic<uint32_t> next{1};
    peer_.AnswerWith([&](AVMsgBuf& message) { message.video_pos = next++; });
    peer_.silent = false;
    while (peer_.requests < 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    while (IpcMsgCount(msgget(0x61766C79, 0)) < 1) {  // the late answer lies there
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    AVMsgBuf message{};
    GetAVStreamCurrentFrame(5, 0, &message);
    EXPECT_EQ(message.video_pos, 2u);
}

// An answer of `size` bytes after the message type, for client type `type`.
void PutAnswer(int type, uint32_t position, int size = 44) {
    std::vector<char> bytes(static_cast<size_t>(size) + 4, 0x11);
    AVMsgBuf answer{};
    answer.des = type;
    answer.video_pos = position;
    std::memcpy(bytes.data(), &answer, std::min(bytes.size(), sizeof answer));
    ASSERT_EQ(IpcMsgSend(msgget(0x61766C79, 0), bytes.data(), size + 4), 0);
}

TEST_F(Connection, AnAnswerThatIsThereAlreadyIsTakenWhenNoneIsOwed) {
    ASSERT_EQ(GetAVControlInit(), 0);
    peer_.silent = true;
    PutAnswer(6, 99);
    AVMsgBuf message{};
    EXPECT_EQ(AVStreamGetLastIFrame(6, 0, &message), 0);
    EXPECT_EQ(message.video_pos, 99u);
    EXPECT_EQ(message.des, 6);
}

TEST_F(Connection, AnAnswerToAnEarlierProcessIsNot) {
    PutAnswer(9, 99);
    PutAnswer(9, 98, 400);
    ASSERT_EQ(GetAVStreamInit(9, nullptr, nullptr), 0);
    peer_.current = 4711;
    AVMsgBuf message{};
    EXPECT_EQ(AVStreamGetCurrentFrame(9, 0, &message), 0);
    EXPECT_EQ(message.video_pos, 4711u);
}

TEST_F(Connection, AnAnswerThatIsTooLongDoesNotStandInFrontOfTheNext) {
    ASSERT_EQ(GetAVControlInit(), 0);
    PutAnswer(6, 99, 400);
    peer_.current = 4711;
    AVMsgBuf message{};
    EXPECT_EQ(AVStreamGetCurrentFrame(6, 0, &message), 0);
    EXPECT_EQ(message.video_pos, 0u) << "the request's own";
    while (IpcMsgCount(msgget(0x61766C79, 0)) != 1) {  // the right one comes late
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    peer_.current = 4712;
    EXPECT_EQ(AVStreamGetCurrentFrame(6, 0, &message), 0);
    EXPECT_EQ(message.video_pos, 4712u);
}

}  // namespace
