#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <sstream>

#include "Clock.h"
#include "MediaPeer.h"
#include "libLog.h"
#include "support/QueuePeer.h"
#include "support/Stderr.h"

using support::WaitUntil;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int kType = 5;
const std::string kKey("\0\0\0\1\x67key", 8);
const std::string kDelta("\0\0\0\1\x41 a delta frame", 19);

const std::map<char, std::string> kPayloads = {
    {'k', kKey}, {'d', kDelta}, {'v', std::string("\0\0\0\1\x40\1vps", 9)}, {'j', "\xFF\xD8 a JPEG picture"}};

Received g_received;
std::atomic<int> g_wanted{1};

int TakeFrame(int kind, int stream, char* data, AVDataInfo* header) {
    EXPECT_EQ(kind, header->AVSource);
    EXPECT_TRUE(stream == 0 || stream == 1);
    g_received.Add(*header, data);
    std::memset(header, 0xEE, sizeof *header);  // it is the reader's own copy
    return -1;                                  // ignored
}

std::atomic<unsigned> g_slept{0};       // ms, of all readers
std::atomic<unsigned> g_last_sleep{0};  // ms

void Sleep(unsigned ms) {
    g_slept += ms;
    g_last_sleep = ms;
    std::this_thread::sleep_for(std::chrono::milliseconds(ms < 500 ? ms : 10));
}

// The long sleeps (a start, a ring restart) are cut short; what the reader waits for in its ring takes its real time.
const ClockSource kHastyClock{[] { return timeval{}; }, [] { return 0L; }, Sleep};

class FrameReader : public testing::Test {
  protected:
    FrameReader() {
        ReplaceClock(&kHastyClock);
        g_received.Clear();
        g_wanted = 1;
        AVStreamUrgencySet(kType, nullptr);
        LogInit(nullptr, LOG_MODE_CONSOLE);
        EXPECT_EQ(GetAVStreamInit(kType, TakeFrame, [](int) { return g_wanted.load(); }), 0);
    }
    ~FrameReader() override {
        for (int stream = 0; stream < 4; ++stream) {
            AVStreamGetAVDataStop(kType, stream);
        }
        GetAVControlCleanup();
        LogCleanup();
        ReplaceClock(nullptr);
    }
    void Start(int stream = 0) { ASSERT_EQ(AVStreamGetAVData(kType, stream), 0); }

    // What a reader receives that finds frame 1, then `damaged` with `payload`, while the last key frame is number 9.
    std::vector<uint32_t> After(const AVDataInfo& damaged, const std::string& payload, uint32_t serial = 2) {
        peer_.Put(0, peer_.Put(0, 0, 1, kKey), serial, payload, damaged);
        peer_.last_key = 5000;
        peer_.Put(0, peer_.Put(0, 5000, 9, kKey), 10, kDelta);
        Start();
        return g_received.Until(10);
    }

    // Waits until `count` more key frames were asked for: the reader's search is on.
    void AwaitSearch(int count = 3) {
        const int before = peer_.key_requests;
        EXPECT_TRUE(WaitUntil([&] { return peer_.key_requests >= before + count; }));
    }
    // Waits until the reader sleeps so long at a time.
    static bool ComesToSleep(unsigned ms) {
        return WaitUntil([ms] { return g_last_sleep == ms; });
    }
    void AwaitLine(const std::string& text) const {
        EXPECT_TRUE(WaitUntil([&] { return log_.Count(text) != 0; })) << text;
    }
    // Writes records along ring 0: "1000: C 7k 8d end ( 0: L 9d )" begins at 1000, where the server says it writes (C);
    // then a key frame with number 7, one that is none with number 8, the mark of the ring's end, and at 0, where it
    // says its last key frame is (L), number 9.  What comes next follows number 8.
    void Lay(const std::string& script) {
        std::istringstream steps(script);
        int kept = 0;
        for (std::string step; steps >> step;) {
            if (step.back() == ':') {
                at_ = std::stoi(step);
            } else if (step == "C" || step == "L") {
                (step == "C" ? peer_.current : peer_.last_key) = at_;
            } else if (step == "(") {
                kept = at_;
            } else if (step == ")") {
                at_ = kept;
            } else if (step == "end" || step == "restart") {
                peer_.Put(0, at_, 0, "", MediaPeer::Frame(step == "end" ? AVDATA_END_RING : AVDATA_END_RESTART));
            } else if (step == "park") {
                peer_.Park(0, at_);
            } else {
                at_ = peer_.Put(0, at_, static_cast<uint32_t>(std::stoul(step)), kPayloads.at(step.back()));
            }
        }
    }

    support::Captured log_;
    MediaPeer peer_;
    int at_ = 0;  // where Lay goes on
};

TEST_F(FrameReader, HandsOverEveryFrameFromTheWritePositionOn) {
    int position = peer_.Put(0, 0, 1, "old");
    peer_.current = position;
    AVDataInfo sound = MediaPeer::Frame();
    sound.AVSource = AV_FRAME_TYPE_AUDIO;
    sound.TimeStamp = 123;
    position = peer_.Put(0, position, 2, kKey);
    position = peer_.Put(0, position, 3, "sound", sound);
    peer_.Park(0, position);
    Start();
    EXPECT_THAT(g_received.Serials(2), ElementsAre(2, 3));
    peer_.Put(0, position, 4, kDelta);
    EXPECT_THAT(g_received.Serials(3), ElementsAre(2, 3, 4));
    EXPECT_EQ(g_received.At(0).payload, kKey);
    EXPECT_EQ(g_received.At(1).payload, "sound");
    EXPECT_EQ(g_received.At(1).header.TimeStamp, 123u);
    EXPECT_EQ(peer_.requests - peer_.key_requests, 1);
}

TEST_F(FrameReader, ReadersOfTwoStreamsRunSideBySideAndStopAndStartAgain) {
    peer_.Put(0, 0, 1, kKey);
    peer_.Put(1, 0, 7, kDelta);
    Start(0);
    Start(1);
    EXPECT_EQ(g_received.Serials(2).size(), 2u);
    EXPECT_EQ(AVStreamGetAVDataStop(kType, 0), 0);
    EXPECT_EQ(AVStreamGetAVDataStop(kType, 0), 0);
    g_received.Clear();
    Start(0);
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
}

std::atomic<bool> g_in_hand, g_has_stopped;

// Keeps each frame for a while; after frame 2 it stops its own reader.
int StopAfterFrame2(int, int, char* data, AVDataInfo* header) {
    g_in_hand = true;
    g_received.Add(*header, data);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    g_in_hand = false;
    if (header->SerialNumber == 2) {
        EXPECT_EQ(AVStreamGetAVDataStop(kType, 0), 0);
        g_has_stopped = true;
    }
    return 0;
}

TEST_F(FrameReader, HasLetGoOfTheClientOnceItIsStopped) {
    ASSERT_EQ(GetAVStreamInit(kType, StopAfterFrame2, nullptr), 0);
    Lay("0: C 1k park");
    Start();
    EXPECT_TRUE(WaitUntil([] { return g_in_hand.load(); }));
    EXPECT_EQ(AVStreamGetAVDataStop(kType, 0), 0);
    EXPECT_FALSE(g_in_hand);
    Lay("0: C 2k park");
    Start();
    EXPECT_TRUE(WaitUntil([] { return g_has_stopped.load(); }));
    Lay("0: C 3k park");
    Start();
    EXPECT_THAT(g_received.Serials(3), ElementsAre(1, 2, 3)) << "also after it was stopped from within";
}

TEST_F(FrameReader, OfAStreamWithoutRingEndsAtOnce) {
    Start(2);
    AwaitLine("StreamSysInfo->StreamSharememID[2] -1 < 0\n");
    EXPECT_EQ(peer_.requests, 0);
    EXPECT_EQ(AVStreamGetAVDataStop(kType, 2), 0);
}

TEST_F(FrameReader, PausesAndGoesOnAtTheServersPosition) {
    int position = peer_.Put(0, 0, 1, kKey);
    peer_.Park(0, position);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
    g_wanted = 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // longer than one pause
    position = peer_.Put(0, position, 2, kDelta);
    peer_.current = position;
    peer_.Put(0, position, 3, kDelta);
    g_wanted = 1;
    EXPECT_THAT(g_received.Serials(2), ElementsAre(1, 3));
}

// What is in the ring when the reader comes, and what it hands over.
TEST_F(FrameReader, ReadsAlongTheRing) {
    const struct {
        const char* what;
        const char* ring;
        std::vector<uint32_t> frames;
        const char* line = "";
    } cases[] = {
        {"to the beginning where the ring ends", "1000: C 7k 8d end 0: 9d park", {7, 8, 9}},
        {"a frame that the server has restarted with is not written over", "1000: C 7k restart 0: 8d park", {7, 8}},
        {"a loss of five frames", "0: C 1k 6d 5000: L 9k 10d park", {1, 6, 9, 10}, "sub = 6 - 1 = 5 pos ="},
        {"a loss of thirty", "0: C 1k 31d 5000: L 39k 40d park", {1, 31, 39, 40}, "sub = 31 - 1 = 30 pos ="},
        {"too large a loss", "0: C 1k 32d 5000: L 39k 40d park", {1, 39, 40}, "sub = 32 - 1 = 31 pos ="},
        {"a repeated record that a frame follows", "0: C 1k 1d 2d park", {1, 2}},
        {"counting from zero", "0: C 0v 1d park", {0, 1}},
        {"after the largest number", "0: C 4294967294k 4294967295d 0d 1d park", {0xFFFFFFFE, 0xFFFFFFFF, 0, 1}},
    };
    for (const auto& c : cases) {
        g_received.Clear();
        Lay(c.ring);
        Start();
        EXPECT_EQ(g_received.Serials(c.frames.size()), c.frames) << c.what;
        EXPECT_GE(log_.Count(c.line), 1) << c.what;
        AVStreamGetAVDataStop(kType, 0);
    }
}

TEST_F(FrameReader, TakesTheKeyFramesOfAllCodecsInItsSearch) {
    for (const char* const key : {"5000: L 9v", "5000: L 9j", "5000: L 9k"}) {
        g_received.Clear();
        peer_.current = -1;  // the server does not know: the last key frame is taken
        Lay(key);
        Start();
        EXPECT_EQ(g_received.Serials(1).at(0), 9u) << key;
        AVStreamGetAVDataStop(kType, 0);
    }
}

// Each step is laid while the reader searches; then it has handed over so much in all.
TEST_F(FrameReader, GoesOnWhileItSearches) {
    struct Step {
        const char* ring;
        std::vector<uint32_t> frames;  // none: whatever it is by now
    };
    const struct {
        const char* what;
        std::vector<Step> steps;
    } cases[] = {
        {"a server that counts anew, twice; nothing more comes for a while the second time",
         {{"0: C L 5000k", {5000}},
          {"2000: 1k 2d ( 2000: L )", {}},
          {"3d", {5000, 1, 2, 3}},
          {"4000: 1k 2d 4000: L", {5000, 1, 2, 3, 1, 2}}}},
        {"a stream slower than its patience", {{"1000: C L 1k", {1}}, {"2d", {1, 2}}, {"( 0: 3d ) end", {1, 2, 3}}}},
        {"the ring ends, and at its beginning is the last lap",
         {{"0: 3k 4d 1000: C L 8k", {8}}, {"end", {}}, {"0: 9d", {8, 9}}}},
        {"a ring's end that turns out to be none", {{"1000: C L 7k end", {7}}, {"8d", {7, 8}}}},
    };
    for (const auto& c : cases) {
        peer_.Restart();
        peer_.last_key = -1;
        g_received.Clear();
        bool is_running = false;
        for (const Step& step : c.steps) {
            if (is_running) {
                AwaitSearch();
            }
            Lay(step.ring);
            if (!std::exchange(is_running, true)) {
                Start();
            }
            if (!step.frames.empty()) {
                EXPECT_EQ(g_received.Serials(step.frames.size()), step.frames) << c.what << ": " << step.ring;
            }
        }
        AVStreamGetAVDataStop(kType, 0);
    }
}

TEST_F(FrameReader, FollowsARingEndWhateverItsLength) {
    AVDataInfo end = MediaPeer::Frame(AVDATA_END_RING);
    end.AVDataLen = -1;
    Lay("1000: C 7k");
    peer_.Put(0, at_, 0, "", end);
    Lay("( 0: 8d )");
    Start();
    EXPECT_THAT(g_received.Serials(2), ElementsAre(7, 8));
    EXPECT_EQ(log_.Count("VideoPos = " + std::to_string(at_) + " AVDataCheck =="), 0);
}

TEST_F(FrameReader, AnswersARestartOfTheRingOnceAndReadsWhatComesThere) {
    const int end = peer_.Put(0, 1000, 7, kKey);
    AVDataInfo restart = MediaPeer::Frame(AVDATA_END_RESTART);
    restart.AVDataLen = 77;
    restart.AVDataPos = 78;
    restart.TimeStamp = 79;
    peer_.Put(0, 0, 3, kDelta);  // of an earlier lap
    peer_.Put(0, end, 8, "", restart);
    peer_.current = 1000;
    Start();
    ASSERT_THAT(g_received.Serials(1), ElementsAre(7));
    EXPECT_TRUE(WaitUntil([&] { return peer_.HeaderAt(0, 0).EndFlag == AVDATA_END_RESTART; }));
    const AVDataInfo first = peer_.HeaderAt(0, 0);
    EXPECT_EQ(first.AVDataCheck, 0x12345678);
    EXPECT_EQ(first.SerialNumber, 0u);
    EXPECT_EQ(first.AVDataLen, 0);
    EXPECT_EQ(first.AVDataPos, 0);
    EXPECT_EQ(first.TimeStamp, 79u);
    peer_.Put(0, 0, 1, kKey);
    EXPECT_THAT(g_received.Serials(2), ElementsAre(7, 1))
        << "serial numbers begin anew, and the record is not written over";
}

TEST_F(FrameReader, FollowsAServerThatMadeItsRingsAndQueueAnew) {
    peer_.Put(0, 0, 5000, kKey);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(5000));
    peer_.last_key = -1;
    peer_.Restart();
    peer_.Put(0, peer_.Put(0, 2000, 1, kKey), 2, kDelta);
    peer_.last_key = 2000;
    EXPECT_THAT(g_received.Serials(3), ElementsAre(5000, 1, 2));
    EXPECT_EQ(GetGetAVStreamSysInfo()->StreamSharememID[0], shmget(0x61766C79, 0, 0));
    EXPECT_EQ(GetGetAVStreamSysInfo()->AVMsgQid, msgget(0x61766C79, 0));

    AVStreamGetAVDataStop(kType, 0);
    peer_.Restart();  // while nobody is attached
    peer_.Put(0, 0, 3, kKey);
    Start();
    EXPECT_THAT(g_received.Serials(4), ElementsAre(5000, 1, 2, 3));
}

// Whatever part of it a media server makes anew when it is restarted, and in whatever order.
TEST_F(FrameReader, FollowsEveryPartThatIsMadeAnew) {
    const auto rings = [this] {
        peer_.RemoveRings();
        peer_.MakeRings();
    };
    const auto queue = [this] {
        peer_.RemoveQueue();
        peer_.MakeQueue();
    };
    const struct {
        const char* name;
        std::function<void()> go, come;
        bool new_rings;
    } kRestarts[] = {
        {"nothing", [] {}, [] {}, false},
        {"rings", rings, [] {}, true},
        {"queue", queue, [] {}, false},
        {"rings, then queue", rings, queue, true},
        {"queue, then rings", queue, rings, true},
        {"rings, gone for a while", [&] { peer_.RemoveRings(); }, [&] { peer_.MakeRings(); }, true},
        {"queue, gone for a while", [&] { peer_.RemoveQueue(); }, [&] { peer_.MakeQueue(); }, false},
    };
    Start();
    int position = peer_.Put(0, 0, 100, kKey);
    EXPECT_THAT(g_received.Serials(1), ElementsAre(100));
    for (const auto& restart : kRestarts) {
        g_received.Clear();
        AwaitSearch();
        peer_.silent = true;
        restart.go();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // some of the search's passes
        restart.come();
        uint32_t serial = restart.new_rings ? 1 : peer_.HeaderAt(0, 0).SerialNumber + 1;
        peer_.silent = false;
        if (restart.new_rings) {
            position = peer_.Put(0, 0, serial++, kKey);
        } else {
            position = peer_.Put(0, position, serial++, kDelta);
        }
        EXPECT_EQ(g_received.Serials(1).size(), 1u) << restart.name;
        peer_.Put(0, 0, serial, kKey);  // the number that goes on
        peer_.last_key = 0;
        position = 64 + static_cast<int>(kKey.size());
        EXPECT_THAT(g_received.Serials(2), ElementsAre(serial - 1, serial)) << restart.name;
    }
}

TEST_F(FrameReader, ThatFoundNoRingIsStartedAgain) {
    GetAVControlCleanup();
    Start();
    AwaitLine("StreamSysInfo->StreamSharememID[0] -1 < 0\n");
    ASSERT_EQ(GetAVStreamInit(kType, TakeFrame, nullptr), 0);
    peer_.Put(0, 0, 1, kKey);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
}

// The client holds frame 2 until `meanwhile` has happened to its record; whether it is told that its copy is whole.
std::function<void()> g_meanwhile;
std::atomic<int> g_intact{-1};

int HoldFrame2(int, int, char* data, AVDataInfo* header) {
    g_received.Add(*header, data);
    if (header->SerialNumber == 2) {
        EXPECT_EQ(AVStreamFrameIntact(data + 1, header), 0) << "not the frame in hand";
        g_meanwhile();
        g_intact = AVStreamFrameIntact(data, header);
    }
    return 0;
}

TEST_F(FrameReader, TellsWhetherTheFrameInHandWasWrittenOver) {
    ASSERT_EQ(GetAVStreamInit(kType, HoldFrame2, nullptr), 0);
    const std::string other(kDelta.size(), 'x');
    AVDataInfo not_ready = MediaPeer::Frame(0), longer = MediaPeer::Frame(), bare = MediaPeer::Frame();
    longer.AVDataLen = 77;
    bare.AVDataCheck = 0;
    int at = 0;
    const struct {
        const char* name;
        int intact;
        std::function<void()> meanwhile;
    } kCases[] = {
        {"nothing", 1, [] {}},
        {"the next record", 1, [&] { peer_.Put(0, at + 64 + static_cast<int>(kDelta.size()), 3, kDelta); }},
        {"a lap later", 0, [&] { peer_.Put(0, at, 502, other); }},
        {"being written", 0, [&] { peer_.Put(0, at, 2, other, not_ready); }},
        {"another length", 0, [&] { peer_.Put(0, at, 2, other, longer); }},
        {"payload in place of the header", 0, [&] { peer_.Put(0, at, 2, other, bare); }},
    };
    for (const auto& c : kCases) {
        g_received.Clear();
        g_intact = -1;
        g_meanwhile = c.meanwhile;
        at = peer_.Put(0, 0, 1, kKey);
        peer_.Park(0, peer_.Put(0, at, 2, kDelta));
        Start();
        EXPECT_TRUE(WaitUntil([] { return g_intact >= 0; }));
        EXPECT_EQ(g_intact, c.intact) << c.name;
        AVStreamGetAVDataStop(kType, 0);
    }
    EXPECT_EQ(AVStreamFrameIntact(kDelta.data(), &longer), 0) << "outside the callback";
}

// A key frame that is old, named again and again, is not a server that counts anew.
TEST_F(FrameReader, DeliversNoOldFramesAgain) {
    const int position = peer_.Put(0, peer_.Put(0, 1000, 48, kKey), 49, kKey);
    peer_.current = peer_.last_key = position;
    peer_.Put(0, position, 50, kKey);
    peer_.Put(0, 3000, 20, kKey);  // of an earlier lap; what followed is written over
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(50));
    for (const int old_key : {1000, 3000, 1000, 3000}) {
        peer_.last_key = old_key;
        AwaitSearch(50);
    }
    EXPECT_THAT(g_received.Serials(1), ElementsAre(50));
    peer_.Put(0, 5000, 90, kKey);
    peer_.last_key = 5000;
    EXPECT_THAT(g_received.Serials(2), ElementsAre(50, 90));
}

TEST_F(FrameReader, LosesNoFrameRightInFrontOfTheKeyFrameItSearched) {
    const int position = peer_.Put(0, 0, 1, kKey);
    peer_.AnswerWith([&](AVMsgBuf& message) {
        if (message.cmd == 0x2002) {
            message.video_pos = static_cast<uint32_t>(peer_.Put(0, position, 2, kDelta));
            peer_.Put(0, static_cast<int>(message.video_pos), 3, kKey);
        }
    });
    Start();
    EXPECT_THAT(g_received.Serials(3), ElementsAre(1, 2, 3));
    AVStreamGetAVDataStop(kType, 0);
    peer_.AnswerWith(nullptr);
}

TEST_F(FrameReader, WatchesItsPlaceWhileAQuestionIsOpen) {
    const int position = peer_.Put(0, 0, 1, kKey);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
    peer_.mute_stream = 0;
    const int before = peer_.requests;
    EXPECT_TRUE(WaitUntil([&] { return peer_.requests != before; }));
    peer_.Put(0, position, 2, kDelta);
    EXPECT_THAT(g_received.Serials(2, 2), ElementsAre(1, 2)) << "before the question is given up";
}

// Records that lead around in a ring must not keep the reader busy, and do not hold it for ever.
TEST_F(FrameReader, RestsWhereRecordsLeadInACircle) {
    for (const uint32_t serial : {1u, 0u}) {
        g_received.Clear();
        peer_.last_key = -1;
        peer_.Put(0, 0, serial, "");
        peer_.Put(0, 64, 0, kDelta, MediaPeer::Frame(AVDATA_END_RING));
        const int before = log_.Count("oldSerialNumber") + log_.Count("Endflag == 255");
        Start();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_LT(log_.Count("oldSerialNumber") + log_.Count("Endflag == 255") - before, 300);
        EXPECT_THAT(g_received.Serials(1), ElementsAre(serial));
        peer_.last_key = 5000;
        peer_.Put(0, 5000, 9, kKey);
        EXPECT_THAT(g_received.Serials(2), ElementsAre(serial, 9));
        AVStreamGetAVDataStop(kType, 0);
    }
}

TEST_F(FrameReader, StaysNowhereForEver) {
    AVDataInfo too_long = MediaPeer::Frame();
    too_long.AVDataLen = INT32_MAX;
    for (const AVDataInfo& record :
         {too_long, MediaPeer::Frame(AVDATA_END_RING), MediaPeer::Frame(AVDATA_END_RESTART)}) {
        g_received.Clear();
        peer_.current = 1000;
        peer_.Put(0, 0, 0, "", MediaPeer::Frame(AVDATA_END_RING));
        peer_.Put(0, peer_.Put(0, 1000, 1, kKey), 0, "", record);
        peer_.last_key = -1;
        Start();
        EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
        peer_.Put(0, 5000, 9, kKey);
        peer_.last_key = 5000;
        EXPECT_THAT(g_received.Serials(2), ElementsAre(1, 9)) << record.EndFlag;
        AVStreamGetAVDataStop(kType, 0);
    }
}

// A whole ring late: what is left of the old lap comes next, and if nothing is, the last key frame.
TEST_F(FrameReader, GoesOnAfterAFrameThatWasWrittenOver) {
    ASSERT_EQ(GetAVStreamInit(kType, HoldFrame2, nullptr), 0);
    for (const bool next_is_left : {true, false}) {
        g_received.Clear();
        const int at = peer_.Put(0, 0, 1, kKey);
        const int next = peer_.Put(0, at, 2, kDelta);
        peer_.Put(0, next, 3, kDelta);
        peer_.Put(0, 5000, 9, kKey);
        peer_.last_key = 5000;
        g_meanwhile = [&] { peer_.Put(0, at, 502, std::string(next_is_left ? 5 : 200, 'x')); };
        Start();
        EXPECT_EQ(g_received.Until(9),
                  (next_is_left ? std::vector<uint32_t>{1, 2, 3, 9} : std::vector<uint32_t>{1, 2, 9}));
        EXPECT_EQ(log_.Count("VideoPos = " + std::to_string(next) + " AVDataCheck =="), 0) << "it does not wait there";
        AVStreamGetAVDataStop(kType, 0);
    }
}

TEST_F(FrameReader, ReadsANewRingFromItsBeginning) {
    peer_.Put(0, 0, 5000, kKey);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(5000));
    peer_.silent = true;
    peer_.Restart();
    peer_.last_key = peer_.Put(0, peer_.Put(0, 0, 1, kKey), 2, kDelta);
    peer_.Put(0, peer_.last_key, 3, kKey);
    peer_.silent = false;
    EXPECT_THAT(g_received.Serials(4), ElementsAre(5000, 1, 2, 3));
}

// A client that is too slow for its ring: what it is told to be whole is whole, and nothing comes twice.
std::atomic<uint32_t> g_whole, g_torn, g_wrong;

int TakeSlowly(int, int, char* data, AVDataInfo* header) {
    static thread_local uint32_t last = 0;
    const auto length = static_cast<size_t>(header->AVDataLen);
    std::string copy(data, length / 2);
    std::this_thread::sleep_for(std::chrono::microseconds(header->SerialNumber % 700));
    copy.append(data + length / 2, length - length / 2);
    if (AVStreamFrameIntact(data, header) == 0) {
        ++g_torn;
        return 0;
    }
    ++g_whole;
    const std::string wanted(length - 5, static_cast<char>(header->SerialNumber));
    g_wrong += copy.substr(5) != wanted || header->SerialNumber <= last;
    last = header->SerialNumber;
    return 0;
}

TEST_F(FrameReader, GivesALateClientWholeFramesInOrder) {
    constexpr int kRing = 131072, kSub = 1;
    g_whole = g_torn = g_wrong = 0;
    ASSERT_EQ(GetAVStreamInit(kType, TakeSlowly, nullptr), 0);
    std::atomic<bool> over{false};
    std::thread writer([&] {
        uint32_t random = 4711;
        int position = 0;
        for (uint32_t serial = 1; !over; ++serial) {
            random = random * 1103515245 + 12345;
            const bool key = serial % 25 == 0;
            const std::string payload =
                (key ? kKey : kDelta).substr(0, 5) +
                std::string(100 + (random >> 16) % (key ? 30000 : 6000), static_cast<char>(serial));
            if (position + 3 * 64 + static_cast<int>(payload.size()) > kRing) {
                peer_.Put(kSub, position, serial, "", MediaPeer::Frame(AVDATA_END_RING));
                position = 0;
            }
            if (key) {
                peer_.last_key = position;
            }
            position = peer_.Put(kSub, position, serial, payload);
            peer_.current = position;
            std::this_thread::sleep_for(std::chrono::microseconds(100 + (random >> 8) % 300));
        }
    });
    Start(kSub);
    WaitUntil([] { return g_whole >= 500 && g_torn >= 5; });
    AVStreamGetAVDataStop(kType, kSub);
    over = true;
    writer.join();
    EXPECT_EQ(g_wrong, 0u);
    EXPECT_GE(g_torn, 5u) << "it was late enough to meet what this is about";
    EXPECT_GE(g_whole, 100u);
}

// Nothing a ring can say makes the reader touch a byte outside it, or end.
TEST_F(FrameReader, SurvivesLengthsThatCannotBe) {
    for (const int length : {-1, INT32_MIN, 614400 - 1}) {
        g_received.Clear();
        AVDataInfo damaged = MediaPeer::Frame();
        damaged.AVDataLen = length;
        EXPECT_EQ(After(damaged, "x"), (std::vector<uint32_t>{1, 9, 10})) << length;
        AVStreamGetAVDataStop(kType, 0);
    }
}

TEST_F(FrameReader, WaitsAtALengthAboveTheRingUntilTheServerWritesThere) {
    const int position = peer_.Put(0, 0, 1, kKey);
    peer_.Park(0, position);
    Start();
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
    AwaitLine("pDataInfo->AVDataLen = 2147483647 up to Max 614400\n");
    peer_.Put(0, position, 2, kDelta);
    EXPECT_THAT(g_received.Serials(2), ElementsAre(1, 2));
}

TEST_F(FrameReader, SurvivesGarbageAndRecordsThatNeverBecomeReady) {
    AVDataInfo garbage = MediaPeer::Frame();
    garbage.AVDataCheck = 0x0BADBAD0;
    for (const AVDataInfo& damaged : {garbage, MediaPeer::Frame(17)}) {
        g_received.Clear();
        EXPECT_EQ(After(damaged, "x"), (std::vector<uint32_t>{1, 9, 10}));
        AVStreamGetAVDataStop(kType, 0);
    }
}

// An earlier process was killed with a question on its way: what comes first is the answer to that one.
TEST_F(FrameReader, TakesNoAnswerThatWaitedAlready) {
    peer_.Put(0, 3000, 7, kKey);  // an old place that looks good
    peer_.PutAnswer(kType, 0x2001, 0, 3000);
    peer_.PutAnswer(kType, 0x2002, 0, 3000);
    EXPECT_THAT(After(MediaPeer::Frame(17), "x"), ElementsAre(1, 9, 10));
}

TEST_F(FrameReader, TakesNoAnswerAboutAnotherStreamOrCommand) {
    peer_.Put(0, 3000, 7, kKey);
    peer_.AnswerWith([this](AVMsgBuf& message) {
        peer_.PutAnswer(kType, message.cmd, 1, 3000);
        peer_.PutAnswer(kType, message.cmd ^ 0x0003, 0, 3000);
        message.video_pos = message.cmd == 0x2002 ? 5000 : 0;
    });
    EXPECT_THAT(After(MediaPeer::Frame(17), "x"), ElementsAre(1, 9, 10));
    AVStreamGetAVDataStop(kType, 0);
    peer_.AnswerWith(nullptr);
}

TEST_F(FrameReader, TakesAnswersThatNameNothing) {
    peer_.AnswerWith([](AVMsgBuf& message) {
        const int32_t type = message.src;
        const bool key = message.cmd == 0x2002;
        message = AVMsgBuf{};
        message.des = type;
        message.video_pos = key ? 5000 : 0;
    });
    EXPECT_THAT(After(MediaPeer::Frame(17), "x"), ElementsAre(1, 9, 10));
    AVStreamGetAVDataStop(kType, 0);
    peer_.AnswerWith(nullptr);
}

TEST_F(FrameReader, AStreamThatIsNeverAnsweredHoldsUpNoOtherAndIsAskedAgain) {
    peer_.mute_stream = 0;
    peer_.Put(0, 0, 1, kKey);
    peer_.Park(1, peer_.Put(1, 0, 7, kKey));
    Start(0);
    Start(1);
    EXPECT_THAT(g_received.Serials(1), ElementsAre(7));
    peer_.mute_stream = -1;
    EXPECT_THAT(g_received.Serials(2), ElementsAre(7, 1));
}

TEST_F(FrameReader, DoesNotFillUpAQueueThatNobodyReads) {
    constexpr int kFull = 64, kNobody = 99;
    peer_.silent = true;
    for (int i = 0; i < kFull; ++i) {
        peer_.PutAnswer(kNobody, 0, 0, 0);
    }
    peer_.Put(0, 0, 1, kKey);
    Start();
    AwaitLine("VideoIndex = 0\n");  // it is about to ask
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(IpcMsgCount(msgget(0x61766C79, 0)), kFull);
    peer_.silent = false;
    EXPECT_EQ(IpcMsgDiscard(msgget(0x61766C79, 0), kNobody), 0);
    EXPECT_THAT(g_received.Serials(1), ElementsAre(1));
}

TEST_F(FrameReader, SurvivesPositionsThatCannotBe) {
    std::atomic<int> asked{0};
    peer_.AnswerWith([&](AVMsgBuf& message) {
        constexpr uint32_t kWrong[] = {614400, 0x7FFFFFFF, 614399, 0xFFFFFFFF};
        message.video_pos = kWrong[asked++ % 4];
    });
    Start();
    EXPECT_TRUE(WaitUntil([&] { return asked > 4; }));
    EXPECT_TRUE(g_received.Serials(0).empty());
    AVStreamGetAVDataStop(kType, 0);
    peer_.AnswerWith(nullptr);
}

TEST_F(FrameReader, ARepeatAtTheVeryEndOfTheRingIsNotLookedPast) {
    const std::string payload(50, 'x');
    const int position = 614464 - 64 - 50;
    peer_.Put(0, position, 3, payload);
    peer_.current = position;
    Start();  // reads it, then stands past the segment's end
    EXPECT_THAT(g_received.Serials(1), ElementsAre(3));
    peer_.Put(0, 5000, 9, kKey);
    peer_.last_key = 5000;
    EXPECT_THAT(g_received.Serials(2), ElementsAre(3, 9));
}

// A stream that is not recorded costs little, loses nothing, and is followed closely again once it is.
TEST_F(FrameReader, LooksSeldomWhereNobodyWaits) {
    static std::atomic<int> urgent{0};
    AVStreamUrgencySet(kType, [](int stream) { return stream == 1 ? urgent.load() : 0; });
    int position = peer_.Put(1, 0, 1, kKey);
    peer_.Park(1, position);
    Start(1);
    EXPECT_EQ(g_received.Until(1), (std::vector<uint32_t>{1}));
    for (uint32_t serial = 2; serial <= 20; ++serial) {
        position = peer_.Put(1, position, serial, kDelta);
        peer_.Park(1, position);
        EXPECT_EQ(g_received.Until(serial).size(), serial);
    }
    EXPECT_TRUE(ComesToSleep(160));
    urgent = 1;
    EXPECT_TRUE(ComesToSleep(2));
    peer_.Put(1, position, 21, kDelta);
    EXPECT_EQ(g_received.Until(21).size(), 21u);
}

// A long sleep counts as the looks it replaces.
TEST_F(FrameReader, GivesAPlaceUpAfterTheSameTimeHoweverSeldomItLooks) {
    static std::atomic<unsigned> slept;
    slept = 0;
    AVStreamUrgencySet(kType, [](int) { return 0; });
    peer_.AnswerWith([](AVMsgBuf& message) {
        unsigned none = 0;
        if (message.cmd == 0x2002) slept.compare_exchange_strong(none, g_slept.load());
        message.video_pos = static_cast<uint32_t>(message.cmd == 0x2002 ? -1 : 0);
    });
    peer_.Put(0, 0, 1, kKey, peer_.Frame(7));  // never ready
    const unsigned before = g_slept;
    Start();
    EXPECT_TRUE(WaitUntil([] { return slept != 0; }));
    EXPECT_GE(slept - before, 500u + 95u) << "with the sleep of the start";
    EXPECT_LE(slept - before, 500u + 115u);
}

TEST_F(FrameReader, HardlyAsksWhereNobodyAnswers) {
    static const ClockSource kFast{[] { return timeval{}; }, [] { return 0L; },
                                   [](unsigned ms) {
                                       g_slept += ms;
                                       g_last_sleep = ms;
                                       std::this_thread::sleep_for(std::chrono::microseconds(ms * 50));
                                   }};
    ReplaceClock(&kFast);
    peer_.silent = true;
    Start();
    const unsigned before = g_slept;
    while (g_slept - before < 20000) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(g_last_sleep, 100u);
    peer_.silent = false;
    peer_.Put(0, 0, 1, kKey);
    EXPECT_EQ(g_received.Until(1), (std::vector<uint32_t>{1}));
    ReplaceClock(&kHastyClock);
}

}  // namespace
