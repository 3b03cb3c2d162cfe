#include "libAVServerAccess.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "libLog.h"
#include "support/QueuePeer.h"
#include "support/Stderr.h"

namespace {

constexpr int kKey = 0x61766C8A;

// What travels behind the message type: src, cmd, index, ret, data[16].
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
    PLAIN(AVAccessInit, 4097), PLAIN(AVAccessCleanup, 4098), PLAIN(SetLdcProperty, 4160),
    PLAIN(SetRoiProperty, 4162), PLAIN(AudioEncodeStop, 4165), PLAIN(AudioEncodeStart, 4166),
    PLAIN(AudioEncodeParam, 4167),
    INDEX(VideoStart, 8193, AVACCESS_2ND_STREAM), INDEX(VideoStop, 8194, AVACCESS_2ND_STREAM),
    INDEX(VideoRestart, 8195, AVACCESS_3RD_STREAM), INDEX(VideoForceIFrame, 8208, AVACCESS_2ND_STREAM),
    PLAIN(SetFillLight, 8224), PLAIN(SetAlarmPeripheral, 8240), PLAIN(SetFuhanSmartIRStatus, 8256),
    INDEX(SetOsdText, 12289, AVACCESS_3RD_STREAM), PLAIN(OsdTimeStart, 12290), PLAIN(OsdTimeStop, 12291),
    PLAIN(SetWaterMarkConfig, 12304), INDEX(GetSnapshot, 16385, AVACCESS_2ND_STREAM),
    PLAIN(SetVideoInversion, 20481), INDEX(VideoChangeResolution, 20482, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeBitrate, 20483, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeBitrateControl, 20484, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeFramerate, 20485, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeIFrameInterval, 20486, AVACCESS_2ND_STREAM),
    INDEX(VideoChangeProfile, 20487, AVACCESS_2ND_STREAM), INDEX(SetSmartEncEnable, 20488, AVACCESS_2ND_STREAM),
    PLAIN(SetPrivacyMask, 20737), PLAIN(ClearPrivacyMask, 20738), PLAIN(SetMotionDetectBlock, 20993),
    PLAIN(ClearMotionDetectBlock, 20994), PLAIN(StartMotionDetect, 20995), PLAIN(StopMotionDetect, 20996),
    PLAIN(StartSmartMotionDetect, 20997), PLAIN(StopSmartMotionDetect, 20998), PLAIN(SetFaceDetectBlock, 20999),
    PLAIN(ClearFaceDetectBlock, 21000), PLAIN(StartFaceDetect, 21001), PLAIN(StopFaceDetect, 21002),
    PLAIN(SetBrightness, 21249), PLAIN(SetContrase, 21250), PLAIN(SetSaturation, 21251), PLAIN(SetSharpness, 21252),
    PLAIN(SetIrcut, 21505), PLAIN(SetIrcutSwitchTime, 21506), PLAIN(SetGainControl, 21761),
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
    PLAIN(SetVideoCoverAlarmProperty, 27649), INDEX(SetAbnormalEventProperty, 27905, AVACCESS_ABNORMAL_EVNENT_IPCONFLICT),
    PLAIN(SetElectronicAmtiShakeProperty, 28161), INDEX(SetPreviewModeConfig, 28417, AVACCESS_3RD_STREAM),
    INDEX(SetWifiMode, 28673, 4), PLAIN(SetTimeZone, 32769),
};
// clang-format on

// A media server at the command queue that answers with the command's code.
class MediaServer : public testing::Test {
  protected:
    MediaServer() { LogInit(nullptr, LOG_MODE_CONSOLE); }
    ~MediaServer() override {
        AVServerAccessCleanup();
        LogCleanup();
    }
    size_t Count() const { return peer_.Requests().size(); }
    Peer::Body Last() const { return peer_.Requests().back(); }

    support::Captured log_;
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
    const std::string log = log_.Text();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << "only the forced key frame speaks: " << log;
    EXPECT_NE(log.find("[Trace]: AVServerVideoForceIFrame "), std::string::npos);
    EXPECT_NE(log.find(": AVServerVideoForceIFrame VideoType=1\n"), std::string::npos);
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
    std::vector<std::thread> threads;
    for (size_t first = 0; first < 4; ++first) {
        threads.emplace_back([first, &wrong] {
            for (size_t round = 0; round < 100; ++round) {
                const Row& row = kCommands[(first * 20 + round) % std::size(kCommands)];
                wrong += row.call() != row.code;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Count(), 400u);
}

TEST_F(MediaServer, AnswersLateToACallerThatASignalTookAway) {
    silent_ = true;
    EXPECT_EQ(support::InterruptedResult([] { return AVServerSetIris(); }, [&] { return Count() == 1; }), 0);
    const Peer::Body late{2, 23041, 0, 99, 0, 0, 0, 0};
    peer_.Put(2, late.data(), sizeof late);
    silent_ = false;
    EXPECT_EQ(AVServerSetIrcut(), 21505);
    EXPECT_EQ(AVServerSetTimeZone(), 32769);
}

TEST_F(MediaServer, AnswersOfAnyLengthAndVerdictDoNoHarm) {
    silent_ = true;
    const int32_t refusal[4] = {2, 0, 0, -3};
    peer_.Put(2, refusal, sizeof refusal);
    EXPECT_EQ(AVServerSetIris(), -3);
    peer_.Put(2, refusal, 12);
    EXPECT_EQ(AVServerSetIris(), 0) << "an answer without result";
    peer_.Put(2, std::vector<char>(400, 1).data(), 400);
    EXPECT_EQ(AVServerSetIris(), 0) << "an answer that is none";
    EXPECT_TRUE(support::WaitUntil([&] { return Count() == 3; }));
    silent_ = false;
    EXPECT_EQ(AVServerSetIrcut(), 21505) << "and the next command has its own";
    EXPECT_EQ(AVServerSetTimeZone(), 32769);
}

TEST_F(MediaServer, ThatLeavesIsFoundAgainWhenItReturns) {
    silent_ = true;
    std::atomic<int> result{-1};
    std::thread caller([&] { result = AVServerVideoForceIFrame(AVACCESS_1ST_STREAM); });
    EXPECT_TRUE(support::WaitUntil([&] { return Count() == 1; }));
    peer_.Leave();
    caller.join();
    EXPECT_EQ(result, 0);

    Peer next(kKey, [](Peer::Body& body) {
        body[3] = 7;
        return 2L;
    });
    EXPECT_EQ(AVServerVideoForceIFrame(AVACCESS_1ST_STREAM), 7);
    next.Leave();
    EXPECT_EQ(AVServerVideoForceIFrame(AVACCESS_1ST_STREAM), 0) << "removed while nobody was waiting";
}

TEST(CommandQueue, IsOpenedOnceAndStays) {
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
    EXPECT_EQ(msgget(kKey, 0), -1);
    EXPECT_EQ(AVServerAccessInit(), 0);
    const int qid = msgget(kKey, 0);
    EXPECT_GE(qid, 0) << "created when the media server is not there yet";
    EXPECT_EQ(AVServerAccessInit(), 0);
    EXPECT_EQ(AVServerAccessCleanup(), 0);
    EXPECT_EQ(msgget(kKey, 0), qid);
}

TEST(CommandQueue, ThatCannotBeHadFailsEveryCommand) {
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
    int queues = 0;
    while (queues < 100000 && msgget(IPC_PRIVATE, 0600) >= 0) {
        ++queues;
    }
    EXPECT_EQ(AVServerAccessInit(), AVSERVER_MESSAGE_INIT_FAIL);
    for (const Row& row : kCommands) {
        EXPECT_EQ(row.call(), AVSERVER_MESSAGE_INIT_FAIL) << row.name;
    }
    int32_t argument[4] = {};
    EXPECT_EQ(AVServerSetPtzControlEx(argument), AVSERVER_MESSAGE_INIT_FAIL);
    EXPECT_EQ(AVServerSetPtzControlEx(nullptr), AVSERVER_PARAM_ERROR);
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
}

}  // namespace
