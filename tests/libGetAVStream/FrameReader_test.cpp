#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "Clock.h"
#include "MediaPeer.h"
#include "support/Stderr.h"
#include "support/WaitUntil.h"

using support::WaitUntil;

namespace {

constexpr int kType = 5;
const std::string kKey("\0\0\0\1\x67key", 8);
const std::string kDelta("\0\0\0\1\x41 a delta frame", 19);

const std::map<char, std::string> kPayloads = {
    {'k', kKey}, {'d', kDelta}, {'v', std::string("\0\0\0\1\x40\1vps", 9)}, {'j', "\xFF\xD8 a JPEG picture"}};

// Records that are no frame; a reader that comes to the first waits for as long as it takes.
const std::map<std::string, AVDataInfo> kNoFrames = {{"park", MediaPeer::Frame(AVDATA_END_FRAME, INT32_MAX)},
                                                     {"negative", MediaPeer::Frame(AVDATA_END_FRAME, -1)},
                                                     {"lowest", MediaPeer::Frame(AVDATA_END_FRAME, INT32_MIN)},
                                                     {"overrun", MediaPeer::Frame(AVDATA_END_FRAME, 614399)},
                                                     {"unready", MediaPeer::Frame(17)},
                                                     {"end", MediaPeer::Frame(AVDATA_END_RING, -1)},
                                                     {"restart", MediaPeer::Frame(AVDATA_END_RESTART, -1)}};

std::mutex g_serials_lock;
std::vector<uint32_t> g_serials;  // of the frames that were handed over and not yet asked for
std::atomic<int> g_wanted{1};
std::function<void(const char* data, const AVDataInfo& header)> g_with_frame_in_hand;

int TakeFrame(int kind, int stream, char* data, AVDataInfo* header) {
    EXPECT_EQ(kind, header->AVSource);
    EXPECT_TRUE(stream == 0 || stream == 1);
    g_with_frame_in_hand(data, *header);
    {
        const std::lock_guard guard(g_serials_lock);
        g_serials.push_back(header->SerialNumber);
    }
    std::memset(header, 0xEE, sizeof *header);  // it is the reader's own copy
    return -1;                                  // ignored
}

std::atomic<unsigned> g_slept{0};       // ms, of all readers
std::atomic<unsigned> g_last_sleep{0};  // ms

std::atomic<unsigned> g_us_a_ms{1000};

void Sleep(unsigned ms) {
    g_slept += ms;
    g_last_sleep = ms;
    std::this_thread::sleep_for(std::chrono::microseconds((ms < 500 ? ms : 10) * g_us_a_ms));
}

// The long sleeps (a start, a ring restart) are cut short; what the reader waits for in its ring takes its real time.
const ClockSource kHastyClock{[] { return timeval{}; }, [] { return 0L; }, Sleep};

class FrameReader : public support::LoggedTest {
  protected:
    FrameReader() {
        ReplaceClock(&kHastyClock);
        g_us_a_ms = 1000;
        g_wanted = 1;
        g_serials.clear();
        g_with_frame_in_hand = [](const char*, const AVDataInfo&) {};
        AVStreamUrgencySet(kType, nullptr);
        EXPECT_EQ(GetAVStreamInit(kType, TakeFrame, [](int) { return g_wanted.load(); }), 0);
    }
    ~FrameReader() override {
        Stop(0);
        Stop(1);
        GetAVControlCleanup();
        ReplaceClock(nullptr);
    }
    static void Start(int stream = 0) { ASSERT_EQ(AVStreamGetAVData(kType, stream), 0); }
    static void Stop(int stream = 0) { EXPECT_EQ(AVStreamGetAVDataStop(kType, stream), 0); }
    // Whether the frames that come, or came since this was last asked, have these serial numbers.
    static testing::AssertionResult HandedOver(const std::vector<uint32_t>& serials) {
        std::vector<uint32_t> seen;
        const bool is_so = WaitUntil([&] {
            const std::lock_guard guard(g_serials_lock);
            seen = g_serials;
            if (seen == serials) {
                g_serials.clear();
            }
            return seen == serials;
        });
        return is_so ? testing::AssertionSuccess() : testing::AssertionFailure() << testing::PrintToString(seen);
    }

    // Waits until `count` more key frames were asked for: the reader's search is on.
    void AwaitSearch(int count = 3) {
        const int before = peer_.key_requests;
        EXPECT_TRUE(WaitUntil([&] { return peer_.key_requests >= before + count; }));
    }
    void AwaitLine(const std::string& text) const {
        EXPECT_TRUE(WaitUntil([&] { return Logged(text); })) << text;
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
            } else if (kNoFrames.contains(step)) {
                peer_.Put(0, at_, 0, "", kNoFrames.at(step));
            } else {
                at_ = peer_.Put(0, at_, static_cast<uint32_t>(std::stoul(step)), kPayloads.at(step.back()));
            }
        }
    }

    MediaPeer peer_;
    int at_ = 0;  // where Lay goes on
};

TEST_F(FrameReader, HandsOverEveryFrameFromTheWritePositionOn) {
    AVDataInfo sound = MediaPeer::Frame();
    sound.AVSource = AV_FRAME_TYPE_AUDIO;
    sound.TimeStamp = 123;
    std::vector<std::string> payloads;
    g_with_frame_in_hand = [&](const char* data, const AVDataInfo& header) {
        payloads.emplace_back(data, static_cast<size_t>(header.AVDataLen));
        EXPECT_TRUE(header.SerialNumber != 3 || header.TimeStamp == 123);
    };
    Lay("0: 1d C 2k");
    const int end = peer_.Put(0, at_, 3, "sound", sound);
    peer_.Park(0, end);
    Start();
    EXPECT_TRUE(HandedOver({2, 3}));
    AwaitLine("pDataInfo->AVDataLen = 2147483647 up to Max 614400\n");
    peer_.Put(0, end, 4, kDelta);
    EXPECT_TRUE(HandedOver({4}));
    EXPECT_EQ(payloads, (std::vector<std::string>{kKey, "sound", kDelta}));
    EXPECT_EQ(peer_.requests - peer_.key_requests, 1);
}

TEST_F(FrameReader, HasLetGoOfTheClientOnceItIsStopped) {
    std::atomic<bool> in_hand{false}, has_stopped{false};
    g_with_frame_in_hand = [&](const char*, const AVDataInfo& header) {
        in_hand = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        in_hand = false;
        if (header.SerialNumber == 2) {
            Stop();  // from within
            has_stopped = true;
        }
    };
    Lay("0: C 1k park");
    Start();
    EXPECT_TRUE(WaitUntil([&] { return in_hand.load(); }));
    Stop();
    EXPECT_FALSE(in_hand);
    Lay("0: C 2k park");
    Start();
    EXPECT_TRUE(WaitUntil([&] { return has_stopped.load(); }));
    Lay("0: C 3k park");
    Start();
    EXPECT_TRUE(HandedOver({1, 2, 3})) << "also after it was stopped from within";
    Stop();
}

TEST_F(FrameReader, PausesAndGoesOnAtTheServersPosition) {
    Lay("0: 1k park");
    Start();
    EXPECT_TRUE(HandedOver({1}));
    g_wanted = 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // longer than one pause
    Lay("2d C 3d");
    g_wanted = 1;
    EXPECT_TRUE(HandedOver({3}));
}

// What is in the ring when the reader comes, what is laid while it searches, and the frames it hands over.
TEST_F(FrameReader, ReadsAlongTheRingAndGoesOnWhileItSearches) {
    struct Step {
        const char* ring;
        std::vector<uint32_t> frames;  // none: they come with the next step
    };
    const struct {
        const char* what;
        std::vector<Step> steps;
        const char* line = "";
    } cases[] = {
        {"to the beginning where the ring ends", {{"1000: C 7k 8d end 0: 9d park", {7, 8, 9}}}},
        {"a frame that the server has restarted with is not written over", {{"1000: C 7k restart 0: 8d park", {7, 8}}}},
        {"a loss of five frames", {{"0: C 1k 6d 5000: L 9k 10d park", {1, 6, 9, 10}}}, "sub = 6 - 1 = 5 pos ="},
        {"a loss of thirty", {{"0: C 1k 31d 5000: L 39k 40d park", {1, 31, 39, 40}}}, "sub = 31 - 1 = 30 pos ="},
        {"too large a loss", {{"0: C 1k 32d 5000: L 39k 40d park", {1, 39, 40}}}, "sub = 32 - 1 = 31 pos ="},
        {"a repeated record that a frame follows", {{"0: C 1k 1d 2d park", {1, 2}}}},
        {"and one far off", {{"0: C 1k 1d 40d 5000: L 49k 50d park", {1, 49, 50}}}, "sub = 40 - 1 = 39 pos ="},
        {"counting from zero", {{"0: C 0v 1d park", {0, 1}}}},
        {"the last key frame, if the server knows no place", {{"5000: L 9k 10d park", {9, 10}}}},
        {"of H.265", {{"5000: L 9v 10d park", {9, 10}}}},
        {"of JPEG", {{"5000: L 9j 10d park", {9, 10}}}},
        {"after the largest number", {{"0: C 4294967294k 4294967295d 0d 1d park", {0xFFFFFFFE, 0xFFFFFFFF, 0, 1}}}},
        {"a server that counts anew, twice; nothing more comes for a while the second time",
         {{"0: C L 5000k", {5000}},
          {"2000: 1k 2d ( 2000: L )", {}},
          {"3d", {1, 2, 3}},
          {"4000: 1k 2d 4000: L", {1, 2}}}},
        {"a stream slower than its patience", {{"1000: C L 1k", {1}}, {"2d", {2}}, {"( 0: 3d ) end", {3}}}},
        {"the ring ends, and at its beginning is the last lap",
         {{"0: 3k 4d 1000: C L 8k", {8}}, {"end", {}}, {"0: 9d", {9}}}},
        {"a ring's end that turns out to be none", {{"1000: C L 7k end", {7}}, {"8d", {8}}}},
    };
    for (const auto& c : cases) {
        peer_.Restart();
        peer_.current = peer_.last_key = -1;
        for (const Step& step : c.steps) {
            const bool is_first = &step == &c.steps.front();
            if (!is_first) {
                AwaitSearch();
            }
            Lay(step.ring);
            if (is_first) {
                Start();
            }
            EXPECT_TRUE(step.frames.empty() || HandedOver(step.frames)) << c.what << ": " << step.ring;
        }
        EXPECT_TRUE(Logged(c.line)) << c.what;
        Stop();
    }
}

TEST_F(FrameReader, AnswersARestartOfTheRingOnceAndReadsWhatComesThere) {
    AVDataInfo restart = MediaPeer::Frame(AVDATA_END_RESTART, 77);
    restart.AVDataPos = 78;
    restart.TimeStamp = 79;
    Lay("0: 3d 1000: C 7k");  // number 3 is of an earlier lap
    peer_.Put(0, at_, 8, "", restart);
    Start();
    EXPECT_TRUE(HandedOver({7}));
    EXPECT_TRUE(WaitUntil([&] { return peer_.HeaderAt(0, 0).EndFlag == AVDATA_END_RESTART; }));
    const AVDataInfo answer = peer_.HeaderAt(0, 0);
    restart.SerialNumber = 0;
    restart.AVDataLen = restart.AVDataPos = 0;
    EXPECT_EQ(std::memcmp(&answer, &restart, sizeof answer), 0);
    Lay("0: 1k");
    EXPECT_TRUE(HandedOver({1})) << "serial numbers begin anew, and the record is not written over";
}

// Whatever part of it a media server makes anew when it is restarted, and in whatever order.
TEST_F(FrameReader, FollowsEveryPartThatIsMadeAnew) {
    const std::map<char, std::function<void()>> kSteps = {
        {'r', [this] { peer_.RemoveRings(); }},
        {'R', [this] { peer_.MakeRings(); }},
        {'q', [this] { peer_.RemoveQueue(); }},
        {'Q', [this] { peer_.MakeQueue(); }},
        {'.', [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }},  // some of the search's passes
    };
    Start();
    int position = peer_.Put(0, 0, 100, kKey);
    EXPECT_TRUE(HandedOver({100}));
    peer_.current = 9000;  // a new ring is read from its beginning
    for (const std::string restart : {".", "rR.", "qQ.", "rR.qQ", "qQ.rR", "r.R", "q.Q"}) {
        AwaitSearch();
        peer_.silent = true;
        for (const char step : restart) {
            kSteps.at(step)();
        }
        const bool is_new = restart.find('R') != std::string::npos;
        const uint32_t serial = is_new ? 1 : peer_.HeaderAt(0, 0).SerialNumber + 1;
        peer_.silent = false;
        peer_.Put(0, is_new ? 0 : position, serial, is_new ? kKey : kDelta);
        EXPECT_TRUE(HandedOver({serial})) << restart;
        position = peer_.Put(0, 0, serial + 1, kKey);  // the number that goes on
        peer_.last_key = 0;
        EXPECT_TRUE(HandedOver({serial + 1})) << restart;
    }
    std::ifstream mapped("/proc/self/maps");
    const auto rings = std::count_if(std::istream_iterator<std::string>(mapped), {},
                                     [](const std::string& word) { return word == "/SYSV61766c79"; });
    EXPECT_EQ(rings, 2) << "the media server's and the reader's; an old one would stay in memory";
    EXPECT_EQ(GetGetAVStreamSysInfo()->StreamSharememID[0], shmget(0x61766C79, 0, 0));
    EXPECT_EQ(GetGetAVStreamSysInfo()->AVMsgQid, msgget(0x61766C79, 0));

    Stop();
    peer_.Restart();  // while nobody is attached
    Lay("0: C 3k");
    Start();
    EXPECT_TRUE(HandedOver({3}));
}

TEST_F(FrameReader, ThatFoundNoRingIsStartedAgain) {
    GetAVControlCleanup();
    Start();
    AwaitLine("StreamSysInfo->StreamSharememID[0] -1 < 0\n");
    EXPECT_EQ(peer_.requests, 0);
    ASSERT_EQ(GetAVStreamInit(kType, TakeFrame, nullptr), 0);
    Lay("0: 1k");
    Start();
    EXPECT_TRUE(HandedOver({1}));
}

// A key frame that is old, named again and again, is not a server that counts anew.
TEST_F(FrameReader, DeliversNoOldFramesAgain) {
    Lay("3000: 20k 1000: 48k 49k C L 50k");  // of number 20's lap nothing else is left
    Start();
    EXPECT_TRUE(HandedOver({50}));
    for (const int old_key : {1000, 3000, 1000, 3000}) {
        peer_.last_key = old_key;
        AwaitSearch(50);
    }
    EXPECT_TRUE(HandedOver({}));
    Lay("5000: 90k 5000: L");
    EXPECT_TRUE(HandedOver({90}));
}

TEST_F(FrameReader, LosesNoFrameRightInFrontOfTheKeyFrameItSearched) {
    Lay("0: 1k");
    peer_.AnswerWith([this](AVMsgBuf& message) {
        if (message.cmd == 0x2002) {
            const int key = peer_.Put(0, at_, 2, kDelta);
            peer_.Put(0, key, 3, kKey);
            message.video_pos = static_cast<uint32_t>(key);
        }
    });
    Start();
    EXPECT_TRUE(HandedOver({1, 2, 3}));
}

TEST_F(FrameReader, WatchesItsPlaceWhileAQuestionIsOpen) {
    Lay("0: 1k");
    Start();
    EXPECT_TRUE(HandedOver({1}));
    peer_.mute_stream = 0;
    const int before = peer_.requests;
    EXPECT_TRUE(WaitUntil([&] { return peer_.requests != before; }));
    const unsigned slept = g_slept;
    Lay("2d");
    EXPECT_TRUE(HandedOver({2}));
    EXPECT_LT(g_slept - slept, 3000u) << "before the question is given up";
}

// Nothing a record can say makes the reader touch a byte outside the ring, end, or stay.
TEST_F(FrameReader, StaysAtNoRecordForEver) {
    for (const auto& [record, header] : kNoFrames) {
        Lay("0: end 1000: C 1k " + record + " 5000: L 9k 10d park");
        Start();
        EXPECT_TRUE(HandedOver({1, 9, 10})) << record;
        Stop();
    }
}

// Written over, the reader is a whole ring late: what is left of the old lap comes next, and if nothing is, the last
// key frame.
TEST_F(FrameReader, TellsWhetherTheFrameInHandWasWrittenOverAndGoesOn) {
    AVDataInfo bare = MediaPeer::Frame();
    bare.AVDataCheck = 0;
    const struct {
        const char* what;
        uint32_t serial = 0;  // 0: nothing
        AVDataInfo header = MediaPeer::Frame();
        size_t bytes = kDelta.size();
        std::vector<uint32_t> frames = {1, 2, 3, 9};
    } cases[] = {{.what = "nothing"},
                 {"a lap later", 502},
                 {"and the next one, too", 502, MediaPeer::Frame(), 200, {1, 2, 9}},
                 {"being written", 2, MediaPeer::Frame(0)},
                 {"another length", 2, MediaPeer::Frame(AVDATA_END_FRAME, 77)},
                 {"payload in place of the header", 2, bare}};
    for (const auto& c : cases) {
        Lay("5000: L 9k 0: 1k");
        int intact = -1;
        g_with_frame_in_hand = [this, at = at_, &c, &intact](const char* data, const AVDataInfo& header) {
            if (header.SerialNumber == 2) {
                EXPECT_EQ(AVStreamFrameIntact(data + 1, &header), 0) << "not the frame in hand";
                if (c.serial != 0) {
                    peer_.Put(0, at, c.serial, std::string(c.bytes, 'x'), c.header);
                }
                intact = AVStreamFrameIntact(data, &header);
            }
        };
        Lay("2d");
        const int next = at_;
        Lay("3d");
        Start();
        EXPECT_TRUE(HandedOver(c.frames)) << c.what;
        EXPECT_EQ(intact, c.serial == 0 ? 1 : 0) << c.what;
        EXPECT_EQ(log_.Count("VideoPos = " + std::to_string(next) + " AVDataCheck =="), 0) << "it does not wait there";
        Stop();
    }
}

// An earlier process was killed with questions on their way: what comes first are the answers to those.  Later ones
// are about another stream or command; one that names neither is taken.
TEST_F(FrameReader, TakesOnlyTheAnswersToItsQuestions) {
    Lay("3000: 7k");  // an old place that looks good
    peer_.PutAnswer(kType, 0x2001, 0, 3000);
    peer_.PutAnswer(kType, 0x2002, 0, 3000);
    for (const bool names_nothing : {false, true}) {
        peer_.AnswerWith([=, this](AVMsgBuf& message) {
            const uint32_t position = message.cmd == 0x2002 ? 5000 : 0;
            if (names_nothing) {
                message = AVMsgBuf{message.src, 0, 0, 0, position, 0, 0, 0, {}};
                return;
            }
            peer_.PutAnswer(kType, message.cmd, 1, 3000);
            peer_.PutAnswer(kType, message.cmd ^ 0x0003, 0, 3000);
            message.video_pos = position;
        });
        Lay("5000: 9k 10d 0: 1k unready");
        Start();
        EXPECT_TRUE(HandedOver({1, 9, 10})) << names_nothing;
        Stop();
    }
}

TEST_F(FrameReader, AStreamThatIsNeverAnsweredHoldsUpNoOtherAndIsAskedAgain) {
    peer_.mute_stream = 0;
    Lay("0: 1k");
    peer_.Park(1, peer_.Put(1, 0, 7, kKey));
    Start(0);
    Start(1);
    EXPECT_TRUE(HandedOver({7}));
    peer_.mute_stream = -1;
    EXPECT_TRUE(HandedOver({1}));
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
    EXPECT_TRUE(HandedOver({1}));
}

// A stream that is not recorded costs little, loses nothing, and is followed closely again once it is.
TEST_F(FrameReader, LooksSeldomWhereNobodyWaits) {
    static std::atomic<int> urgent{0};
    AVStreamUrgencySet(kType, [](int) { return urgent.load(); });
    Lay("0: 1k park");
    Start();
    for (uint32_t serial = 1; serial <= 20; ++serial) {
        EXPECT_TRUE(HandedOver({serial}));
        Lay(std::to_string(serial + 1) + "d park");
    }
    EXPECT_TRUE(WaitUntil([] { return g_last_sleep == 160; }));
    urgent = 1;
    EXPECT_TRUE(WaitUntil([] { return g_last_sleep < 160; }));
    EXPECT_TRUE(HandedOver({21}));
    Lay("22d");
    EXPECT_TRUE(HandedOver({22}));
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
    Lay("0: unready");
    const unsigned before = g_slept;
    Start();
    EXPECT_TRUE(WaitUntil([] { return slept != 0; }));
    EXPECT_GE(slept - before, 500u + 95u) << "with the sleep of the start";
    EXPECT_LE(slept - before, 500u + 115u);
}

TEST_F(FrameReader, HardlyAsksWhereNobodyAnswers) {
    g_us_a_ms = 50;
    peer_.silent = true;
    Start();
    const unsigned before = g_slept;
    while (g_slept - before < 20000) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(g_last_sleep, 100u);
    peer_.silent = false;
    peer_.Put(0, 0, 1, kKey);
    EXPECT_TRUE(HandedOver({1}));
}

}  // namespace
