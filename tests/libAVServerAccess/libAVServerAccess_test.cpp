#include "libAVServerAccess.h"

#include <atomic>
#include <future>
#include <map>
#include <optional>
#include <type_traits>
#include <vector>

#include "support/AtOnce.h"
#include "support/Codes.h"
#include "support/NoMore.h"
#include "support/QueuePeer.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

constexpr int kKey = 0x61766C8A;

// What travels after the message type: src, cmd, index, ret, data[16].
using Peer = support::QueuePeer<8>;

struct Command {
    int (*call)();
    int index;
};
template <class Type>
constexpr Type kArgument = static_cast<Type>(std::is_enum_v<Type> ? 1 : -70000);
#define PLAIN(function, code) {#function, {[] { return function(); }, 0}},
#define INDEX(function, code, type, argument) {#function, {[] { return function(kArgument<type>); }, kArgument<type>}},
#define DATA(function, code)
const std::map<std::string, Command> kCommands = {AV_SERVER_COMMANDS(PLAIN, INDEX, DATA)};

// Every command but AVServerSetPtzControlEx, without "AVServer".
const support::Codes kCodes = support::CodesOf(R"(
    4097 AVAccessInit AVAccessCleanup 4160 SetLdcProperty 4162 SetRoiProperty 4165 AudioEncodeStop AudioEncodeStart
    AudioEncodeParam 8193 VideoStart VideoStop VideoRestart 8208 VideoForceIFrame 8224 SetFillLight
    8240 SetAlarmPeripheral 8256 SetFuhanSmartIRStatus 12289 SetOsdText OsdTimeStart OsdTimeStop
    12304 SetWaterMarkConfig 16385 GetSnapshot 20481 SetVideoInversion VideoChangeResolution VideoChangeBitrate
    VideoChangeBitrateControl VideoChangeFramerate VideoChangeIFrameInterval VideoChangeProfile SetSmartEncEnable
    20737 SetPrivacyMask ClearPrivacyMask 20993 SetMotionDetectBlock ClearMotionDetectBlock StartMotionDetect
    StopMotionDetect StartSmartMotionDetect StopSmartMotionDetect SetFaceDetectBlock ClearFaceDetectBlock
    StartFaceDetect StopFaceDetect 21249 SetBrightness SetContrase SetSaturation SetSharpness 21505 SetIrcut
    SetIrcutSwitchTime 21761 SetGainControl 22017 SetNoiseFilter 22273 SetWhiteBalance 22529 SetBackLight
    22785 SetFlickerControl 23041 SetIris 23297 SetNight2Day 23553 SetElectronicShutter 23809 SetVideoStreamType
    SetUpgrade 24065 SetWideDynamic 24321 SetExposureCtrl 24577 SetDefogControl 24833 SetRotateAngle
    25089 SetAlarmParam 25345 SetSlinHiBitionParam 25360 SetDistortionCorrectionConfig 25601 SetPNGUpdate
    25857 SetHwClock 26113 SetPtzControl SetPtzFocusMode SetPtzApertureProperty SetPtzSerialProperty
    26118 SetPtz3DZoom 26369 SetHdrParam 26625 SetP2pControl SetP2pProperty 26881 SetIOProperty 27137 SetWifiControl
    SetWifiProperty 27393 SetFishEyeProperty 27649 SetVideoCoverAlarmProperty 27905 SetAbnormalEventProperty
    28161 SetElectronicAmtiShakeProperty 28417 SetPreviewModeConfig 28673 SetWifiMode 32769 SetTimeZone
)");

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
        std::future<int> result = std::async(std::launch::async, call);
        EXPECT_TRUE(support::WaitUntil([&] { return Count() == count + 1; }));
        before();
        peer_.Put(2, bytes, length);
        return result.get();
    }

    support::SteppedClock clock_;
    std::atomic<bool> silent_{false};
    Peer peer_{kKey, [this](Peer::Body& body) {
                   body[3] = body[1];
                   return silent_.load() ? 0L : long{body[0]};
               }};
};

TEST_F(MediaServer, GetsEveryCommandWithItsArgument) {
    ASSERT_EQ(kCommands.size(), 82u);
    ASSERT_EQ(AVServerAccessInit(), 0);
    for (const auto& [name, code] : kCodes) {
        const Command& command = kCommands.at("AVServer" + name);
        ASSERT_EQ(command.call(), code) << name;
        ASSERT_EQ(Last(), (Peer::Body{2, code, command.index, 0, 0, 0, 0, 0})) << name;
    }
    EXPECT_EQ(Count(), 82u);
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
            const auto& [name, code] = kCodes[static_cast<size_t>(number * 20 + round) % kCodes.size()];
            wrong += kCommands.at("AVServer" + name).call() != code;
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
    std::future<int> result = std::async(std::launch::async, AVServerSetIris);
    EXPECT_TRUE(support::WaitUntil([&] { return next->Requests().size() == 1; }));
    next.emplace(kKey, answer_7);
    EXPECT_EQ(result.get(), 7) << "removed while the answer was awaited";
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
        for (const auto& [name, command] : kCommands) {
            EXPECT_EQ(command.call(), AVSERVER_MESSAGE_INIT_FAIL) << name;
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
