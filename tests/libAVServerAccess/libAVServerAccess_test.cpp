#include "libAVServerAccess.h"

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "support/AtOnce.h"
#include "support/NoMore.h"
#include "support/QueuePeer.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

constexpr int kKey = 0x61766C8A;

// What travels after the message type: src, cmd, index, ret, data[16].
using Peer = support::QueuePeer<8>;

struct Row {
    const char* name;
    int (*call)();
    int code;
    int index;
};
// clang-format off
#define PLAIN(name, code) {"AVServer" #name, [] { return AVServer##name(); }, code, 0}
#define INDEX(name, code, argument) \
    {"AVServer" #name, [] { return AVServer##name(argument); }, code, static_cast<int>(argument)}
// Every command but AVServerSetPtzControlEx, apart from the product's own table.
const Row kCommands[] = {
    PLAIN(AVAccessInit, 4097), PLAIN(AVAccessCleanup, 4098), PLAIN(SetLdcProperty, 4160), PLAIN(SetRoiProperty, 4162),
    PLAIN(AudioEncodeStop, 4165), PLAIN(AudioEncodeStart, 4166), PLAIN(AudioEncodeParam, 4167),
    INDEX(VideoStart, 8193, AVACCESS_2ND_STREAM), INDEX(VideoStop, 8194, AVACCESS_2ND_STREAM),
    INDEX(VideoRestart, 8195, AVACCESS_3RD_STREAM), INDEX(VideoForceIFrame, 8208, AVACCESS_2ND_STREAM),
    PLAIN(SetFillLight, 8224), PLAIN(SetAlarmPeripheral, 8240), PLAIN(SetFuhanSmartIRStatus, 8256),
    INDEX(SetOsdText, 12289, AVACCESS_3RD_STREAM), PLAIN(OsdTimeStart, 12290), PLAIN(OsdTimeStop, 12291),
    PLAIN(SetWaterMarkConfig, 12304), INDEX(GetSnapshot, 16385, AVACCESS_2ND_STREAM), PLAIN(SetVideoInversion, 20481),
    INDEX(VideoChangeResolution, 20482, AVACCESS_2ND_STREAM), INDEX(VideoChangeBitrate, 20483, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeBitrateControl, 20484, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeFramerate, 20485, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeIFrameInterval, 20486, AVACCESS_2ND_STREAM), INDEX(VideoChangeProfile, 20487, AVACCESS_2ND_STREAM),
    INDEX(SetSmartEncEnable, 20488, AVACCESS_2ND_STREAM), PLAIN(SetPrivacyMask, 20737), PLAIN(ClearPrivacyMask, 20738),
    PLAIN(SetMotionDetectBlock, 20993), PLAIN(ClearMotionDetectBlock, 20994), PLAIN(StartMotionDetect, 20995),
    PLAIN(StopMotionDetect, 20996), PLAIN(StartSmartMotionDetect, 20997), PLAIN(StopSmartMotionDetect, 20998),
    PLAIN(SetFaceDetectBlock, 20999), PLAIN(ClearFaceDetectBlock, 21000), PLAIN(StartFaceDetect, 21001),
    PLAIN(StopFaceDetect, 21002), PLAIN(SetBrightness, 21249), PLAIN(SetContrase, 21250), PLAIN(SetSaturation, 21251),
    PLAIN(SetSharpness, 21252), PLAIN(SetIrcut, 21505), PLAIN(SetIrcutSwitchTime, 21506), PLAIN(SetGainControl, 21761),
    PLAIN(SetNoiseFilter, 22017), PLAIN(SetWhiteBalance, 22273), PLAIN(SetBackLight, 22529),
    PLAIN(SetFlickerControl, 22785), PLAIN(SetIris, 23041), PLAIN(SetNight2Day, 23297),
    PLAIN(SetElectronicShutter, 23553), PLAIN(SetVideoStreamType, 23809), PLAIN(SetUpgrade, 23810),
    PLAIN(SetWideDynamic, 24065), PLAIN(SetExposureCtrl, 24321), PLAIN(SetDefogControl, 24577),
    PLAIN(SetRotateAngle, 24833), PLAIN(SetAlarmParam, 25089), PLAIN(SetSlinHiBitionParam, 25345),
    PLAIN(SetDistortionCorrectionConfig, 25360), PLAIN(SetPNGUpdate, 25601), PLAIN(SetHwClock, 25857),
    INDEX(SetPtzControl, 26113, -5), PLAIN(SetPtzFocusMode, 26114), PLAIN(SetPtzApertureProperty, 26115),
    PLAIN(SetPtzSerialProperty, 26116), PLAIN(SetPtz3DZoom, 26118), PLAIN(SetHdrParam, 26369),
    INDEX(SetP2pControl, 26625, 70000), PLAIN(SetP2pProperty, 26626), PLAIN(SetIOProperty, 26881),
    INDEX(SetWifiControl, 27137, 3), PLAIN(SetWifiProperty, 27138), PLAIN(SetFishEyeProperty, 27393),
    PLAIN(SetVideoCoverAlarmProperty, 27649),
    INDEX(SetAbnormalEventProperty, 27905, AVACCESS_ABNORMAL_EVNENT_IPCONFLICT),
    PLAIN(SetElectronicAmtiShakeProperty, 28161), INDEX(SetPreviewModeConfig, 28417, AVACCESS_3RD_STREAM),
    INDEX(SetWifiMode, 28673, 4), PLAIN(SetTimeZone, 32769),
};
// clang-format on

// A media server at the command queue that answers with the command's code.
class MediaServer : public support::LoggedTest {
  protected:
    ~MediaServer() override { AVServerAccessCleanup(); }
    size_t Count() const { return peer_.Requests().size(); }
    Peer::Body Last() const { return peer_.Requests().back(); }

    // The result of a command that finds the server silent and gets `length` bytes as its answer, after `before` was
    // done.
    template <class Call>
    int ResultOf(
        Call call, const void* bytes, size_t length, std::function<void()> before = [] {}) {
        const size_t count = Count();
        int result = -1;
        std::thread caller([&] { result = call(); });
        EXPECT_TRUE(support::WaitUntil([&] { return Count() == count + 1; }));
        before();
        peer_.Put(2, bytes, length);
        caller.join();
        return result;
    }

    support::SteppedClock clock_;
    std::atomic<bool> silent_{false};
    Peer peer_{kKey, [this](Peer::Body& body) {
                   body[3] = body[1];
                   return silent_.load() ? 0L : long{body[0]};
               }};
};

TEST_F(MediaServer, GetsEveryCommandWithItsArgument) {
    ASSERT_EQ(std::size(kCommands) + 1, 83u);
    ASSERT_EQ(AVServerAccessInit(), 0);
    for (const Row& row : kCommands) {
        ASSERT_EQ(row.call(), row.code) << row.name;
        ASSERT_EQ(Last(), (Peer::Body{2, row.code, row.index, 0, 0, 0, 0, 0})) << row.name;
    }
    EXPECT_EQ(Count(), std::size(kCommands));
    EXPECT_EQ(log_.Count("\n"), 1) << "only the forced key frame speaks: " << log_.Text();
    EXPECT_TRUE(Logged(": AVServerVideoForceIFrame VideoType=1\n"));
}

TEST_F(MediaServer, GetsSixteenBytesOfExtendedControl) {
    EXPECT_EQ(AVServerSetPtzControlEx(nullptr), AVSERVER_PARAM_ERROR);
    EXPECT_EQ(Count(), 0u);
    const int32_t bytes[5] = {0x01020304, 5, 6, -7, 0x7E7E7E7E};
    EXPECT_EQ(AVServerSetPtzControlEx(const_cast<int32_t*>(bytes)), 26117) << "and the queue is opened by itself";
    EXPECT_EQ(Last(), (Peer::Body{2, 26117, 0, 0, 0x01020304, 5, 6, -7}));
}

TEST_F(MediaServer, AnswersEachThreadsCommandToThatThread) {
    std::atomic<int> wrong{0};
    support::AtOnce(4, [&wrong](int number) {
        for (int round = 0; round < 100; ++round) {
            const Row& row = kCommands[static_cast<size_t>(number * 20 + round) % std::size(kCommands)];
            wrong += row.call() != row.code;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Count(), 400u);
}

TEST_F(MediaServer, ThatDoesNotAnswerHoldsACommandForSecondsOnly) {
    silent_ = true;
    const auto iris = [] { return AVServerSetIris(); };
    EXPECT_EQ(support::ResultAfter(4, iris, [&] { return Count() == 1; }), 0);
    EXPECT_EQ(support::ResultAfter(2, iris, [&] { return Count() == 2; }), 0) << "and less while it stays so";
    const Peer::Body late{2, 23041, 0, 99, 0, 0, 0, 0};
    peer_.Put(2, late.data(), sizeof late);
    silent_ = false;
    EXPECT_EQ(AVServerSetIrcut(), 21505);
    EXPECT_EQ(AVServerSetIris(), 23041);
    silent_ = true;
    EXPECT_EQ(support::ResultAfter(4, iris, [&] { return Count() == 5; }), 0);
}

TEST_F(MediaServer, WhoseQueueIsFullHoldsACommandForSecondsOnly) {
    peer_.Leave();
    const int qid = msgget(kKey, IPC_CREAT | 0666);  // and nobody serves it
    const char request[4096 + sizeof(long)] = {1};
    while (msgsnd(qid, request, 4096, IPC_NOWAIT) == 0 || msgsnd(qid, request, 1, IPC_NOWAIT) == 0) {
    }
    EXPECT_EQ(support::ResultAfter(
                  4, [] { return AVServerSetIris(); }, [&] { return true; }),
              0);
    msgctl(qid, IPC_RMID, nullptr);
}

TEST_F(MediaServer, OfAKilledRecorderOwesItsAnswersToNobody) {
    const auto answer = [](int cmd, int index) { return Peer::Body{2, cmd, index, 99, 0, 0, 0, 0}; };
    for (const Peer::Body& waiting : {answer(8208, 1), answer(8208, 0), answer(23041, 0)}) {
        peer_.Put(2, waiting.data(), sizeof waiting);
    }
    EXPECT_EQ(AVServerVideoForceIFrame(AVACCESS_2ND_STREAM), 8208);

    silent_ = true;  // the earlier recorder's question is answered after this one's was asked
    const auto force = [] { return AVServerVideoForceIFrame(AVACCESS_2ND_STREAM); };
    const auto foreign_first = [&] {
        for (const Peer::Body& foreign : {answer(8208, 0), answer(23041, 1)}) {
            peer_.Put(2, foreign.data(), sizeof foreign);
        }
    };
    const Peer::Body own{2, 8208, 1, 7, 0, 0, 0, 0};
    EXPECT_EQ(ResultOf(force, own.data(), sizeof own, foreign_first), 7);
}

TEST_F(MediaServer, AnswersOfAnyLengthAndVerdictDoNoHarm) {
    silent_ = true;
    const auto iris = [] { return AVServerSetIris(); };
    const int32_t refusal[4] = {2, 0, 0, -3};
    EXPECT_EQ(ResultOf(iris, refusal, sizeof refusal), -3);
    EXPECT_EQ(ResultOf(iris, refusal, 12), 0) << "an answer without result";
    EXPECT_EQ(ResultOf(iris, std::vector<char>(400, 1).data(), 400), 0) << "an answer that is none";
    EXPECT_EQ(ResultOf(iris, refusal, sizeof refusal), -3) << "and the next command has its own";
}

TEST_F(MediaServer, ThatComesBackGetsTheCommandThatFoundItsQueueRemoved) {
    const auto answer_7 = [](Peer::Body& body) {
        body[3] = 7;
        return 2L;
    };
    EXPECT_EQ(AVServerSetIris(), 23041);
    peer_.Leave();
    std::optional<Peer> next(std::in_place, kKey, answer_7);
    EXPECT_EQ(AVServerSetIris(), 7) << "removed while nobody was waiting";
    next.emplace(kKey, [](Peer::Body&) { return 0L; });
    std::atomic<int> result{-1};
    std::thread caller([&] { result = AVServerSetIris(); });
    EXPECT_TRUE(support::WaitUntil([&] { return next->Requests().size() == 1; }));
    next.emplace(kKey, answer_7);
    caller.join();
    EXPECT_EQ(result, 7) << "removed while the answer was awaited";
}

TEST_F(MediaServer, ThatStaysAwayHoldsACommandForSecondsOnly) {
    peer_.Leave();
    EXPECT_EQ(support::ResultAfter(
                  4, [] { return AVServerSetIris(); }, [] { return msgget(kKey, 0) >= 0; }),
              0);
    Peer next(kKey, [](Peer::Body& body) { return long{body[0]}; });
    EXPECT_TRUE(support::WaitUntil([&] { return next.Requests().size() == 1; })) << "the command waits for it";
}

TEST(CommandQueue, ThatCannotBeHadFailsEveryCommandUntilItIsCreated) {
    int32_t argument[4] = {};
    {
        const support::NoMore none(support::NoMore::kQueues);
        EXPECT_EQ(AVServerAccessInit(), AVSERVER_MESSAGE_INIT_FAIL);
        for (const Row& row : kCommands) {
            EXPECT_EQ(row.call(), AVSERVER_MESSAGE_INIT_FAIL) << row.name;
        }
        EXPECT_EQ(AVServerSetPtzControlEx(argument), AVSERVER_MESSAGE_INIT_FAIL);
    }
    EXPECT_EQ(AVServerAccessInit(), 0) << "also when the media server is not there yet";
    const int qid = msgget(kKey, 0);
    EXPECT_GE(qid, 0);
    EXPECT_EQ(AVServerAccessCleanup(), 0);
    EXPECT_EQ(msgget(kKey, 0), qid);
}

}  // namespace
