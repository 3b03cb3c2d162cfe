// Whole runs against a real card, configuration record and command queue.  The loop's own pauses are where
// a test acts: what it does there is what the next look of the run finds.
#include <dlfcn.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "DueCamera.h"
#include "RunWatch.h"
#include "libAVRecord.h"
#include "libAVServerAccess.h"
#include "libGetAVStream.h"
#include "support/CardFault.h"
#include "support/Process.h"
#include "support/QueuePeer.h"

namespace {
std::atomic<bool> g_no_more_threads{false};
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return g_no_more_threads ? EAGAIN : real(thread, attributes, body, argument);
}

namespace {

using std::string_literals::operator""s;
using support::Card;
using support::kIndexFile;
using support::Store;

constexpr unsigned int kWatchMs = 20;   // pause of the record loop
constexpr unsigned int kAlarmMs = 80;   // and of the alarm thread
constexpr unsigned int kNewDayMs = 50;  // and of the wait after midnight's end
constexpr int kForceKeyFrame = 0x2010;

class RecordLoop : public DueCamera {
  protected:
    RecordLoop() : card_(Store{}), media_server_(AVACCESS_MSG_KEY, [](auto&) { return MSG_AVACCESS_TYPE_MSG2; }) {
        ReplaceClock(&kLoopClock);
        wall = kNoon;
        before_pass_ = {};
        AVServerAccessCleanup();
    }
    ~RecordLoop() override {
        g_flags.run_is_on = false;
        KQ_RecordUninit();
        EXPECT_TRUE(support::WaitUntil([this] { return support::Threads() <= resting_threads_; }))
            << "an alarm thread stays";
        media_server_.Leave();
        AVServerAccessCleanup();
    }

    // One run; before its second look `change` happens.  A run that nothing ends is ended by a stop request.
    static int Run(std::function<void()> change) {
        EXPECT_EQ(CheckRecordStart(), 0);
        g_flags.stop_requested = false;
        before_pass_ = {std::move(change), [] {}, [] { StopRecord(); }};
        return StartRecord(0, 600);
    }
    // One run as it should be, with a key frame in it.
    static void RunWithKeyFrame(std::function<void()> change = [] {}) {
        const auto frame_and_change = [&] {
            EXPECT_EQ(WriteKeyFrame(), 0);
            change();
        };
        EXPECT_EQ(Run(frame_and_change), 0);
    }
    static int WriteKeyFrame(size_t length = 100) {
        return WriteFrame("\0\0\0\1\x67sps\0\0\0\1\x68pps\0\0\0\1\x65"s + std::string(length, 'x'));
    }
    static int WriteFrame(std::string frame) {
        AVDataInfo info{};
        info.AVDataLen = static_cast<int32_t>(frame.size());
        return Mp4RecordVideoCallbackFunc(AV_FRAME_TYPE_VIDEO, 0, frame.data(), &info);
    }
    static RecordSystemInfoHead_S SystemHead() { return Card::At<RecordSystemInfoHead_S>(kIndexFile, 0); }
    static std::string Index(uint64_t offset, uint64_t length) { return Card::Read(kIndexFile, offset, length); }

    Card card_;
    support::QueuePeer<8> media_server_;
    static inline int64_t steady_us = 0;  // stands still; 0: the real one goes on

  private:
    // Besides this one the media server's, and those of a sanitizer or emulator.
    const long resting_threads_ = support::Threads();

    static void Sleep(unsigned int milliseconds) {
        if (milliseconds == kWatchMs && !before_pass_.empty()) {
            const std::function<void()> act = std::move(before_pass_.front());
            before_pass_.erase(before_pass_.begin());
            act();
        } else if (milliseconds == kNewDayMs) {
            ++wall;
        } else if (milliseconds == kAlarmMs) {  // it rests until a run is over: it says what the loop says
            support::WaitUntil([] { return !g_flags.run_is_on; });
        }
    }
    static int64_t Steady() { return steady_us != 0 ? steady_us : SystemSteadyUs(); }
    static constexpr ClockSource kLoopClock{Wall, Uptime, Sleep, Steady};
    static inline std::vector<std::function<void()>> before_pass_;  // taken one a pause of the watch
};

struct Reason {
    const char* message;
    void (*change)(SysInfo& config);
};

// In the order the run asks.
const Reason kReasons[] = {
    {"This is MJPEG Stream, not support!\n", [](SysInfo& c) { c.lan_config.nEncodingType1 = 4; }},
    {"Audio Encoding Change!  0 change to 1 \n", [](SysInfo& c) { c.audio_config.codectype = 1; }},
    {"Video Encoding Change!  0 change to 1 \n", [](SysInfo& c) { c.lan_config.nEncodingType1 = 1; }},
    {"Video FrameRate Change!  25 change to 20 \n", [](SysInfo& c) { c.lan_config.nFrameRate1 = 20; }},
    {"Video Record StreamType Change ! ( 0 != 1 ) \n", [](SysInfo& c) { c.Record_config.ucVideoStreamType = 1; }},
    {"StreamType[0] Resolution Change ! ( W:1280 != 1280 or H:720 != 700 ) \n",
     [](SysInfo& c) { c.stream_config[0].height = 700; }},
    {"Video Record Enable close ! \n", [](SysInfo& c) { c.Record_config.ucEnable = 0; }},
    {"Video codec mode change !  0 change to 2 \n", [](SysInfo& c) { c.lan_config.nVideocodecmode = 2; }},
    {"Video Rotate mode change !  0 change to 1 (preRotate :3  )\n",
     [](SysInfo& c) {
         c.lan_config.nRotateAngle = 1;
         c.lan_config.nPreRotateAngle = 3;
     }},
    {" TIME_SCOPE_DIFF Record Time Over ! \n",
     [](SysInfo& c) { c.Record_config.weekScope.dayScope[3].ucSocpeMode = TIME_SCOPE_DIFF; }},
    {"Stop Record\n", [](SysInfo&) { StopRecord(); }},
};

TEST_F(RecordLoop, EndsForTheFirstReasonInOrder) {
    const SysInfo before = Config();
    for (const Reason* first = std::begin(kReasons); first != std::end(kReasons); ++first) {
        const support::Captured log;
        EXPECT_EQ(Run([&] {
                      for (const Reason* each = std::end(kReasons); each-- != first;) {
                          each->change(Config());
                      }
                  }),
                  0);
        // The alarm thread says that the range is over for itself.
        const std::string told = std::regex_replace(log.Text(), std::regex("[^\n]*AlarmEventThread[^\n]*\n"), "");
        for (const Reason& other : kReasons) {
            const bool is_told = told.find(" "s + other.message) != std::string::npos;
            EXPECT_EQ(is_told, other.message == first->message) << first->message << log.Text();
        }
        EXPECT_NE(log.Text().find("#########Record Over !!!!!!!!!!!!#######\n"), std::string::npos);
        EXPECT_EQ(KQ_RecordStreamFdGet(), -1);
        EXPECT_FALSE(g_flags.run_is_on);
        Config() = before;
    }
    EXPECT_EQ(media_server_.Requests().size(), std::size(kReasons));
    EXPECT_EQ(media_server_.Requests().front()[1], kForceKeyFrame);
}

TEST_F(RecordLoop, GoesOnWhenAudioIsSwitched) {
    EXPECT_EQ(Run([] { Config().audio_config.audioenable = 0; }), 0);
    EXPECT_TRUE(Logged("Stop Record\n"));
    EXPECT_FALSE(Logged("Audio Enable Change!"));
    EXPECT_EQ(Run([] { Config().audio_config.codectype = 1; }), 0);
    EXPECT_FALSE(Logged("Audio Encoding Change!")) << "audio was off when this run began";
}

TEST_F(RecordLoop, EndsWhenTheClockWasSetByMoreThanFiveSeconds) {
    for (const int step : {5, -5, 6, -6}) {
        const support::Captured log;
        EXPECT_EQ(Run([&] {
                      uptime += 100;
                      wall += 100 + step;
                  }),
                  0);
        const std::string line =
            "Changed the time: SinceBootDuration = 100, CurrentDuration = " + std::to_string(100 + step) + "\n";
        EXPECT_EQ(log.Has(line), step == 6 || step == -6) << step;
    }
}

TEST_F(RecordLoop, APictureMakesThePassThatIsDue) {
    const support::Captured log;
    const std::string line = "Video FrameRate Change!  25 change to 20 \n";
    EXPECT_EQ(Run([&] {
                  steady_us = SystemSteadyUs() + 10000;
                  WatchWithPicture();
                  Config().lan_config.nFrameRate1 = 20;
                  steady_us += 9999;
                  WatchWithPicture();
                  EXPECT_FALSE(log.Has(line)) << "so soon after a pass";
                  steady_us += 1;
                  WatchWithPicture();
                  EXPECT_TRUE(log.Has(line));
                  steady_us = 0;
                  Config().lan_config.nFrameRate1 = 25;
              }),
              0);
    EXPECT_FALSE(log.Has(" Stop Record\n")) << "what a picture's pass found ends the run";
    WatchWithPicture();  // no run is watched any more
}

TEST_F(RecordLoop, EndsBeforeMidnightOnceTheSectionHoldsMoreThanASecond) {
    const auto to_last_second = [] { wall = kNoon + 12 * 3600 - 1; };
    wall = kNoon + 12 * 3600 - 3;
    RunWithKeyFrame(to_last_second);
    EXPECT_FALSE(Logged(": 23:59:59\n")) << "it has just begun";
    wall = kNoon + 12 * 3600 - 2;
    RunWithKeyFrame([&] {
        ++uptime, ++uptime;
        wall += 2;
    });
    EXPECT_FALSE(g_flags.stop_requested) << "and ends with its day nevertheless";
    wall = kNoon + 12 * 3600 - 5;
    RunWithKeyFrame([&] {
        to_last_second();
        EXPECT_EQ(WriteKeyFrame(), 0);
    });
    EXPECT_TRUE(Logged(": 23:59:59\n"));
    EXPECT_TRUE(Logged("  m_u32RecordEndTime = " + std::to_string(kNoon + 12 * 3600 - 1) + "  \n"));
    EXPECT_EQ(g_control.last_end, kNoon + 12 * 3600 - 1);
    EXPECT_EQ(wall, kNoon + 12 * 3600) << "the run after it is asked for in the new day";
    EXPECT_FALSE(g_flags.stop_requested);
}

TEST_F(RecordLoop, AStartThatFailsCountsNoSectionAndForcesNoKeyFrame) {
    card_.Prepare({.files = 3, .current_length = 777});
    const std::string file = Card::RecordFile(0);
    std::filesystem::rename(file, file + "x");
    for (int start = 0; start < 3; ++start) {
        EXPECT_EQ(Run([] { FAIL() << "there is no run"; }), -1);
    }
    EXPECT_FALSE(std::filesystem::exists(file)) << "recording creates no file";
    EXPECT_TRUE(media_server_.Requests().empty());
    std::filesystem::rename(file + "x", file);
    EXPECT_EQ(Run([] {}), 0);
    RunWithKeyFrame();
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u16RecordUseNo, 2) << "nor does a run without a frame";
}

TEST_F(RecordLoop, WithoutAnAlarmThreadTheSameSectionGoesOnUntilThereIsOne) {
    g_no_more_threads = true;
    for (int start = 0; start < 3; ++start) {
        EXPECT_EQ(Run([] { FAIL() << "there is no watch"; }), -1);
        EXPECT_EQ(WriteKeyFrame(), 0) << "what arrives is recorded";
    }
    EXPECT_TRUE(Logged(" errno Resource temporarily unavailable\n"));
    g_no_more_threads = false;
    RunWithKeyFrame();
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u16RecordUseNo, 1);
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u32KeyFrameSum, 4u);
    EXPECT_EQ(media_server_.Requests().size(), 1u);

    g_no_more_threads = true;  // such a run ends as any other
    card_.Prepare({.files = 3, .used_files = 1, .current_file = 1, .current_length = kFull - 1});
    EXPECT_EQ(Run([] {}), -1);
    EXPECT_EQ(WriteKeyFrame(), 0);
    EXPECT_EQ(Run([] {}), 0);
    EXPECT_EQ(KQ_RecordStreamFdGet(), -1);
    EXPECT_EQ(SystemHead().m_u32RecordFileNo, 2u) << "the full file was finished";
    g_no_more_threads = false;
}

TEST_F(RecordLoop, TheHeadsOfACardThatIsGoneAreNotWrittenIntoTheOneThatTookItsPlace) {
    card_.Prepare({.files = 3, .used_files = 1, .current_file = 1, .current_length = kFull - 1});
    RunWithKeyFrame([this] {
        card_.Pull();
        card_.Plug();
        card_.Prepare({.files = 5, .used_files = 4, .current_file = 4, .current_length = 555});
    });
    EXPECT_TRUE(Logged("File size  lager  over! \n"));
    EXPECT_EQ(SystemHead().m_u32RecordUsedFileSum, 4u);
    EXPECT_EQ(SystemHead().m_u32RecordFileNo, 4u);
    RunWithKeyFrame();
    EXPECT_TRUE(Logged("FileName = /var/etc/sdcard/hi000004.mp4 \n"));
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u32RecordStartPos, 555u);
}

TEST_F(RecordLoop, HeadsThatTheCardRefusedAtTheEndAreThereBeforeTheNextRun) {
    card_.Prepare({.files = 3, .current_length = 777});
    for (const bool is_key : {true, false}) {  // the last frame: does it count in the heads' key frames?
        std::string before;
        RunWithKeyFrame([&] {
            before = Index(1024, 48);
            EXPECT_EQ(is_key ? WriteKeyFrame() : WriteFrame("\0\0\0\1\x41 between key frames"s), 0);
        });
        const std::string after = Index(1024, 48);
        std::fstream(kIndexFile).seekp(1024) << before;
        ASSERT_NE(Index(1024, 48), after);
        EXPECT_EQ(CheckRecordStart(), 0);
        EXPECT_EQ(Index(1024, 48), after) << "what they count would be written over";
    }
}

TEST_F(RecordLoop, AHeadThatTheCardRefusedIsWrittenDuringTheNextRun) {
    const struct {
        const char* what;
        uint32_t length;  // of the file when the run begins
        size_t head_size;
        uint64_t place;
        const void* head;
    } cases[] = {
        {"the section's", 777, sizeof(RecordInfoHead_S), 131072 + 64 * 2, AV_RecordInfoHeadGet()},
        {"that of a file that is full", kFull - 1, sizeof(RecordFileInfoHead_S), 1024, AV_RecordFileInfoHeadGet()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::optional<support::CardFault> fault;
        card_.Prepare({.files = 3, .current_length = c.length});
        RunWithKeyFrame([&] {
            fault.emplace(support::Refused{.length = c.head_size});
            EXPECT_EQ(WriteKeyFrame(), 0);
        });
        const std::string held(static_cast<const char*>(c.head), c.head_size);
        EXPECT_NE(Index(c.place, c.head_size), held);
        RunWithKeyFrame([&] {  // recording goes on meanwhile
            fault.reset();
            ++uptime, ++wall;
        });
        EXPECT_EQ(Index(c.place, c.head_size), held);
    }
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadNo, 1u) << "in the next file, when one is full";
}

TEST_F(RecordLoop, ACardThatTakesNoDataEndsTheRunAndIsRecordedOnOnceItDoes) {
    std::optional<support::CardFault> fault;
    RunWithKeyFrame([&] {
        fault.emplace(support::Refused{});
        for (int second = 0; second <= 10; ++second, ++uptime, ++wall) {
            WriteKeyFrame();
        }
    });
    EXPECT_TRUE(Logged(": the card takes no data\n"));
    EXPECT_EQ(GetRecordStopFlag(), 0) << "the process stays";
    const size_t key_frames_forced = media_server_.Requests().size();
    for (int second = 0; second < 3; ++second) {
        EXPECT_EQ(CheckRecordStart(), -1);
    }
    EXPECT_EQ(media_server_.Requests().size(), key_frames_forced);
    fault.reset();
    RunWithKeyFrame();
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u16RecordUseNo, 2);
}

TEST_F(RecordLoop, ARecordFileThatTakesNoDataIsLeftForTheNext) {
    std::optional<support::CardFault> fault;
    card_.Prepare({.files = 3, .current_length = 777});
    const auto offer = [] {
        for (int second = 0; second <= 10; ++second, ++uptime, ++wall) {
            EXPECT_EQ(WriteKeyFrame(), -1);
        }
    };
    RunWithKeyFrame([&] {
        const off64_t end = AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth;
        fault.emplace(support::Refused{.offset = end});  // the frames, not the index
        offer();
    });
    EXPECT_EQ(CheckRecordStart(), 0);
    EXPECT_TRUE(Logged(": record file 0 takes no data, recording goes on in file 1\n"));
    EXPECT_EQ(SystemHead().m_u32RecordFileNo, 1u) << "another start would try the old file again";

    ASSERT_TRUE(AwaitNoOpenFile()) << "the first frame is handed over, and the file has taken something";
    fault.emplace(support::Refused{.length = 512});  // the first frame of any file
    uint32_t current = 0;
    for (int run = 0; run < 3; ++run) {
        current = SystemHead().m_u32RecordFileNo;
        EXPECT_EQ(Run(offer), 0);
        EXPECT_EQ(CheckRecordStart(), 0);
    }
    EXPECT_EQ(SystemHead().m_u32RecordFileNo, current)
        << "none takes anything: the ring's heads are not spent on trying";
    fault.reset();
    RunWithKeyFrame();
}

TEST_F(RecordLoop, AFrameThatIsNotInTheRingAnyMoreIsNotWritten) {
    g_no_more_threads = true;
    EXPECT_EQ(StartAVStream(MSG_AV_TYPE_MSG5), 0);
    EXPECT_EQ(AVStreamsAreRunning(), 0) << "is to be tried again";
    g_no_more_threads = false;
    EXPECT_EQ(Run([] { EXPECT_EQ(WriteKeyFrame(), -1) << "no reader has it in hand"; }), 0);
    EXPECT_EQ(AV_RecordInfoHeadGet()->m_u32RecordSize, 0u);
    AVRecordFrameCheckSet(nullptr);
    StopAVStream();
}

TEST_F(RecordLoop, ALostConfigurationLeavesTheWriterToTheNextRun) {
    EXPECT_EQ(Run([] { SysconfigExit(); }), -1);
    SysConfigInit();
    EXPECT_FALSE(Logged("Record Over"));
    EXPECT_GE(KQ_RecordStreamFdGet(), 0);
    EXPECT_EQ(WriteKeyFrame(), 0) << "what arrives is still recorded";
    EXPECT_EQ(Run([] {}), 0);
    EXPECT_EQ(KQ_RecordStreamFdGet(), -1);
}

}  // namespace
