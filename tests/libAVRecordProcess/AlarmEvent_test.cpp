#include "AlarmEvent.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CardFile.h"
#include "Clock.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAlarmProcess.h"
#include "libLog.h"
#include "libOthers.h"
#include "support/Card.h"
#include "support/ReadFault.h"
#include "support/Stderr.h"

namespace {

constexpr int64_t kNoon = 1700049600;  // Wednesday 2023-11-15 12:00:00 UTC; times below are seconds after it
constexpr uint32_t kFile = 1;          // the record file in use
constexpr std::chrono::seconds kBound{20};
constexpr int kMotionType = 1, kIoType = 4, kIoMotionType = 8, kSmartType = 32;

// Time that stands still until the test lets it go on; a sleeper then finds it gone by.
class Timeline {
  public:
    void Restart() {
        const std::lock_guard lock(mutex_);
        now_ms_ = kPhaseMs;
        limit_ms_ = wake_ms_ = 0;
        wall_shift_ = 0;
        is_asleep_ = false;
    }
    // Lets `seconds` pass; returns when the alarm thread sleeps towards a moment behind them.
    void Run(int64_t seconds) {
        std::unique_lock lock(mutex_);
        limit_ms_ += seconds * 1000;
        moved_.notify_all();
        ASSERT_TRUE(moved_.wait_for(lock, kBound, [this] { return is_asleep_ && wake_ms_ > limit_ms_; }));
    }
    void RunFreely() {
        const std::lock_guard lock(mutex_);
        limit_ms_ = INT64_MAX / 2;
        moved_.notify_all();
    }
    void SetWallClock(int64_t shift) {
        const std::lock_guard lock(mutex_);
        wall_shift_ = shift;
    }
    void Sleep(unsigned int ms) {
        std::unique_lock lock(mutex_);
        wake_ms_ = now_ms_ + ms;
        is_asleep_ = true;
        moved_.notify_all();
        moved_.wait(lock, [this] { return wake_ms_ <= limit_ms_; });
        is_asleep_ = false;
        now_ms_ = wake_ms_;
    }
    int64_t Seconds() {
        const std::lock_guard lock(mutex_);
        return now_ms_ / 1000;
    }
    int64_t Wall() { return kNoon + Seconds() + wall_shift_; }

  private:
    static constexpr int64_t kPhaseMs = 20;  // a thread that looks every 80 ms never does so on a full second

    std::mutex mutex_;
    std::condition_variable moved_;
    int64_t now_ms_ = kPhaseMs;
    int64_t limit_ms_ = 0;  // time goes no further
    int64_t wake_ms_ = 0;
    int64_t wall_shift_ = 0;
    bool is_asleep_ = false;
};

Timeline g_timeline;
constexpr ClockSource kTestClock{[] {
                                     return timeval{static_cast<time_t>(g_timeline.Wall()), 0};
                                 },
                                 [] { return static_cast<long>(5000 + g_timeline.Seconds()); },
                                 [](unsigned int ms) { g_timeline.Sleep(ms); }};

uint32_t Number(const std::string& bytes, size_t offset, size_t length = 4) {
    uint32_t value = 0;
    for (size_t i = 0; i < length; ++i) {
        value |= uint32_t{static_cast<unsigned char>(bytes.at(offset + i))} << (8 * i);
    }
    return value;
}

// The two records as a reader of the card meets them; times in seconds after noon.
struct Head {
    std::string flag;
    uint32_t file_no, events, type;
    int64_t start, end, previous_end;
};
struct Event {
    std::string flag;
    int64_t start, end;
    uint32_t size, frames, file_no, number, type, rate;
};

std::string EventFile(uint64_t offset, uint64_t length) {
    return support::Card::Read(std::string(support::kCardDirectory) + "event000.bin", offset, length);
}

Head HeadOf(uint32_t file) {
    const std::string bytes = EventFile(256 * file, 256);
    return {.flag = bytes.substr(0, 4),
            .file_no = Number(bytes, 4),
            .events = Number(bytes, 16),
            .type = Number(bytes, 24, 1),
            .start = Number(bytes, 8) - kNoon,
            .end = Number(bytes, 12) - kNoon,
            .previous_end = Number(bytes, 20) - kNoon};
}

Event EventOf(uint32_t file, uint32_t number) {
    const std::string bytes = EventFile((file + 8) * 131072 + 48 * (number - 1), 48);
    return {.flag = bytes.substr(0, 4),
            .start = Number(bytes, 4) - kNoon,
            .end = Number(bytes, 8) - kNoon,
            .size = Number(bytes, 12),
            .frames = Number(bytes, 16),
            .file_no = Number(bytes, 20, 2),
            .number = Number(bytes, 22, 2),
            .type = Number(bytes, 24, 1),
            .rate = Number(bytes, 25, 1)};
}

// Start and end of the events 1 to n.
std::vector<std::pair<int64_t, int64_t>> EventTimes(uint32_t file = kFile) {
    std::vector<std::pair<int64_t, int64_t>> times;
    for (uint32_t number = 1; number <= HeadOf(file).events; ++number) {
        times.emplace_back(EventOf(file, number).start, EventOf(file, number).end);
    }
    return times;
}

using Times = std::vector<std::pair<int64_t, int64_t>>;

long Threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}
// Of this test and of a sanitizer, whose own starts with the first thread; without any that is just leaving.
long ThreadsAtRest() {
    static const long count = [] {
        long with_one_more = 0;
        std::thread([&] { with_one_more = Threads(); }).join();
        return with_one_more - 1;
    }();
    return count;
}
long Descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class AlarmThread : public testing::Test {
  protected:
    AlarmThread() {
        setenv("TZ", "UTC", 1);
        g_timeline.Restart();
        ReplaceClock(&kTestClock);
        LogInit(nullptr, LOG_MODE_CONSOLE);
        EXPECT_EQ(SysConfigInit(), 0);
        EXPECT_EQ(libAlarmProcessInit(), 0);
        *GetSysconfigData() = {};
        Schedule({.type = 1});
        for (int source = 0; source < 16; ++source) {
            Clear(source);
        }
        g_flags.range = 0;
        g_flags.file_begun_anew = -1;
        g_flags.stop_requested = false;
    }
    ~AlarmThread() override {
        End();
        libAlarmProcessCleanup();
        SysconfigExit();
        LogCleanup();
        ReplaceClock(nullptr);
    }

    struct Today {
        int mode = 3;  // the ranges
        int type = 0;  // what range 0 records
        int until_hour = 23, until_minute = 59;
    };
    static void Schedule(const Today& today) {
        Day_Hour_Scope& day = GetSysconfigData()->Record_config.weekScope.dayScope[3];
        day.ucSocpeMode = static_cast<uint8_t>(today.mode);
        day.hourScope[0] = {.beginHour = {},
                            .endHour = {.ucHour = static_cast<uint8_t>(today.until_hour),
                                        .ucMinute = static_cast<uint8_t>(today.until_minute),
                                        .ucSecond = 0,
                                        .ucType = static_cast<uint8_t>(today.type)}};
    }
    // Indexes into the camera's tables.
    static void PreRecordAndDelay(int pre_record, int delay) {
        GetSysconfigData()->Record_config.ucpreRecordTime = static_cast<uint8_t>(pre_record);
        GetSysconfigData()->Record_config.ucrecordDelay = static_cast<uint8_t>(delay);
    }
    static void Raise(int source) { ASSERT_EQ(AlarmDataWrite(source, ALARM_STATUS_DEF_ON), 0); }
    static void Clear(int source) { ASSERT_EQ(AlarmDataWrite(source, ALARM_STATUS_DEF_OFF), 0); }

    // A run that goes on in `file` with a section that began at `section_start`.
    static void Begin(int64_t section_start = 0, uint32_t file = kFile) {
        Launch(section_start, file);
        g_timeline.Run(0);
    }
    static void Launch(int64_t section_start = 0, uint32_t file = kFile) {
        AVRecordHeadsLock();
        AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadNo = file;
        *AV_RecordInfoHeadGet() = {};
        AV_RecordInfoHeadGet()->m_u32RecordStartTime = static_cast<uint32_t>(kNoon + section_start);
        AV_RecordInfoHeadGet()->m_u8Frame = 25;
        AVRecordHeadsUnlock();
        g_flags.run_is_on = true;
        ASSERT_EQ(AlarmEventStart(), 0);
    }
    static void Written(uint32_t bytes, uint32_t frames) {
        AVRecordHeadsLock();
        AV_RecordInfoHeadGet()->m_u32RecordSize = bytes;
        AV_RecordInfoHeadGet()->m_u32FrameSum = frames;
        AVRecordHeadsUnlock();
    }
    static void Run(int64_t seconds) { g_timeline.Run(seconds); }
    static void Alarm(int source, int64_t seconds) {
        Raise(source);
        Run(seconds);
        Clear(source);
    }
    void End() {
        g_flags.run_is_on = false;
        g_timeline.RunFreely();
        EXPECT_TRUE(HasLeft());
    }
    bool ThreadsBecome(long count) const {
        for (const auto end = std::chrono::steady_clock::now() + kBound; std::chrono::steady_clock::now() < end;
             usleep(500)) {
            if (Threads() == count) {
                return true;
            }
        }
        return false;
    }
    bool HasLeft() const { return ThreadsBecome(idle_threads_); }
    int HowOftenLogged(const std::string& line_end) const {
        const std::string log = log_.Text();
        int count = 0;
        for (size_t at = log.find(line_end); at != std::string::npos; at = log.find(line_end, at + 1)) {
            ++count;
        }
        return count;
    }
    bool Logged(const std::string& text) const { return HowOftenLogged(text) > 0; }

    support::Captured log_;
    const support::Card card_{support::Store{.files = 3}};
    const long idle_threads_ = ThreadsAtRest();
};

TEST_F(AlarmThread, AnAlarmBecomesAnEventFromItsReachBackToTheEndOfItsDelay) {
    PreRecordAndDelay(2, 3);  // 10 s, 30 s
    Begin();
    Written(1'000'000, 500);
    Run(100);
    Raise(ALARM_SOURCE_DEF_MOTION);
    Run(5);
    Clear(ALARM_SOURCE_DEF_MOTION);
    Written(1'600'000, 625);
    Run(60);

    const Head head = HeadOf(kFile);
    EXPECT_EQ(head.flag, "AEMF");
    EXPECT_EQ(head.file_no, kFile);
    EXPECT_EQ(head.events, 1u);
    EXPECT_EQ(head.type, 1u);
    EXPECT_EQ(head.start, 90);
    EXPECT_EQ(head.end, 134);  // last seen on at 104
    EXPECT_EQ(head.previous_end, 134);
    const Event event = EventOf(kFile, 1);
    EXPECT_EQ(event.flag, "ADEF");
    EXPECT_EQ(event.start, 90);
    EXPECT_EQ(event.end, 134);
    EXPECT_EQ(event.size, 600'000u);
    EXPECT_EQ(event.frames, 125u);
    EXPECT_EQ(event.file_no, kFile);
    EXPECT_EQ(event.number, 1u);
    EXPECT_EQ(event.type, 1u);
    EXPECT_EQ(event.rate, 25u);
    EXPECT_TRUE(Logged(":AlarmDurationTime = 30 RecordDelayTime = 30 m_u32FileInfoHeadNo = 1\n"));
    End();
    EXPECT_TRUE(Logged(":AlarmEvent end !!!\n"));
    EXPECT_EQ(EventTimes(), (Times{{90, 134}}));
}

TEST_F(AlarmThread, NoEventBeginsBeforeItsSection) {
    PreRecordAndDelay(2, 8);  // 10 s, none
    Begin(-4);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(10);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    EXPECT_EQ(EventTimes(), (Times{{-4, 1}, {1, 12}}));
}

TEST_F(AlarmThread, ReachingBackAsTheCameraSeesFitMeansToTheSectionsStart) {
    PreRecordAndDelay(10, 8);
    Begin(-500);
    Run(100);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    PreRecordAndDelay(200, 200);  // no such setting: as before
    Run(99);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    EXPECT_EQ(EventTimes(), (Times{{-500, 101}, {201, 202}}));
}

TEST_F(AlarmThread, AnEventThatReachesFarBehindTheOneBeforeIsNotCut) {
    PreRecordAndDelay(0, 8);
    Begin(-500);
    Run(100);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    EXPECT_EQ(HeadOf(kFile).start, 100);
    PreRecordAndDelay(10, 8);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    EXPECT_EQ(EventTimes(), (Times{{100, 101}, {-500, 103}}));
    EXPECT_EQ(HeadOf(kFile).start, -500);
}

TEST_F(AlarmThread, AnAlarmWithinTheDelayExtendsItsEvent) {
    PreRecordAndDelay(1, 3);  // 5 s, 30 s
    Begin();
    Run(50);
    Alarm(ALARM_SOURCE_DEF_MOTION, 5);
    Run(25);
    Alarm(ALARM_SOURCE_DEF_MOTION, 5);  // 80 to 85
    Run(60);
    Alarm(ALARM_SOURCE_DEF_MOTION, 5);  // 145 to 150, an event of its own
    Run(60);
    End();
    EXPECT_EQ(EventTimes(), (Times{{45, 114}, {140, 179}}));
}

TEST_F(AlarmThread, AnEventThatWouldReachIntoTheOneBeforeBeginsAtItsEnd) {
    PreRecordAndDelay(6, 1);  // 30 s, 5 s
    Begin(-1000);
    Run(100);
    Alarm(ALARM_SOURCE_DEF_MOTION, 4);  // ends at 108
    Run(20);
    Alarm(ALARM_SOURCE_DEF_MOTION, 4);  // 124 to 128, ends at 132
    Run(7);
    EXPECT_EQ(EventTimes(), (Times{{70, 108}, {108, 132}}));
    End();

    g_timeline.Restart();  // the next run goes on in the file, with a section of its own
    g_timeline.SetWallClock(140);
    Begin(110);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(100);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(100);
    End();
    EXPECT_EQ(EventTimes(), (Times{{70, 108}, {108, 132}, {132, 145}, {211, 246}}));
    EXPECT_EQ(HeadOf(kFile).start, 70);
    EXPECT_EQ(HeadOf(kFile).end, 246);
}

TEST_F(AlarmThread, AnOpenEventIsSavedEveryTwentySeconds) {
    PreRecordAndDelay(0, 4);  // none, 60 s
    Begin();
    Run(100);
    Alarm(ALARM_SOURCE_DEF_MOTION, 2);
    std::vector<int64_t> saved_ends;
    for (int second = 0; second < 80; ++second) {
        Run(1);
        const int64_t end = EventOf(kFile, 1).end;
        if (end >= 0 && (saved_ends.empty() || saved_ends.back() != end)) {
            saved_ends.push_back(end);
        }
    }
    EXPECT_EQ(saved_ends, (std::vector<int64_t>{120, 140, 160, 161}));
    EXPECT_EQ(HeadOf(kFile).end, 161);
    EXPECT_TRUE(
        Logged(std::string(22, '#') + "AlarmEndTime = 1700049720 RecordDelayTime = 60 m_u32FileInfoHeadNo = 1 \n"));
}

TEST_F(AlarmThread, TheEndOfTheRunSavesAnOpenEvent) {
    PreRecordAndDelay(0, 7);
    Begin();
    Run(10);
    Alarm(ALARM_SOURCE_DEF_MOTION, 2);
    Run(5);
    EXPECT_EQ(HeadOf(kFile).events, 0u);
    End();
    EXPECT_EQ(EventTimes(), (Times{{10, 17 - 1}}));
}

TEST_F(AlarmThread, AnOverwrittenFileStartsWithoutEvents) {
    PreRecordAndDelay(0, 8);
    for (const uint32_t file : {1u, 2u}) {
        Begin(0, file);
        Alarm(ALARM_SOURCE_DEF_MOTION, 1);
        Run(1);
        End();
        g_timeline.Restart();
    }
    const std::string other = EventFile(2 * 256, 256);
    g_flags.file_begun_anew = 1;
    Begin();
    EXPECT_EQ(g_flags.file_begun_anew, -1);
    EXPECT_EQ(EventFile(256, 256), std::string(256, '\0'));
    EXPECT_EQ(EventFile(2 * 256, 256), other);
    Run(30);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    EXPECT_EQ(EventTimes(), (Times{{30, 31}}));
    EXPECT_EQ(EventFile(0, 256), std::string(256, '\0'));
}

TEST_F(AlarmThread, TheEventsOfAFileStopAt1024) {
    PreRecordAndDelay(0, 8);
    Begin();
    for (int alarm = 0; alarm < 1026; ++alarm) {
        Alarm(ALARM_SOURCE_DEF_MOTION, 1);
        Run(1);
    }
    End();
    EXPECT_EQ(HeadOf(kFile).events, 1024u);
    EXPECT_EQ(EventOf(kFile, 1023).start, 2 * 1022);
    EXPECT_EQ(EventOf(kFile, 1024).start, 2 * 1025) << "the last one is written over";
    EXPECT_EQ(EventOf(kFile, 1024).number, 1024u);
    EXPECT_EQ(EventOf(kFile, 1025).flag, std::string(4, '\0'));
}

TEST_F(AlarmThread, AHeadThatCannotBeIsNotBelieved) {
    PreRecordAndDelay(0, 8);
    const int fd = AV_AlarmEvnetOpen("/var/etc/sdcard/event000.bin", AVFILE_READ_WRITE);
    AlarmEventHead_S head{};
    AV_AlarmEventInfoHeadAdd(&head, 77, 1, 1);  // another file's
    ASSERT_EQ(AV_AlarmEventInfoWrite(fd, 1, &head), 0);
    AV_AlarmEventInfoHeadAdd(&head, 2, 1, 1);
    head.m_u32AlarmEventSum = 70000;
    ASSERT_EQ(AV_AlarmEventInfoWrite(fd, 2, &head), 0);
    AV_AlarmEvnetClose(fd);
    for (const uint32_t file : {1u, 2u}) {
        Begin(0, file);
        Alarm(ALARM_SOURCE_DEF_MOTION, 1);
        Run(1);
        End();
        g_timeline.Restart();
    }
    EXPECT_EQ(EventTimes(1), (Times{{0, 1}}));
    EXPECT_EQ(HeadOf(2).events, 1024u);
    EXPECT_EQ(EventOf(2, 1024).start, 0);
}

TEST_F(AlarmThread, EachKindOfRangeWatchesItsOwnAlarms) {
    PreRecordAndDelay(0, 8);
    const auto expected = [](int record_type, int source) {
        switch (record_type) {
            case 1:
                return source == 2 ? kMotionType : 0;
            case 2:
                return source == 0 ? kIoType : 0;
            case 3:
                return source == 14 ? kIoMotionType : 0;
            case 4:
                return source == 9 || source == 10 || source == 12 || source == 13 ? kSmartType : 0;
            default:
                return 0;
        }
    };
    Begin();
    uint32_t events = 0;
    for (int record_type = 0; record_type <= 5; ++record_type) {
        Schedule({.type = record_type});
        for (int source = 0; source < 16; ++source) {
            Alarm(source, 1);
            Run(1);
            const int type = expected(record_type, source);
            events += type != 0;
            ASSERT_EQ(HeadOf(kFile).events, events) << record_type << " " << source;
            if (type != 0) {
                EXPECT_EQ(EventOf(kFile, events).type, static_cast<uint32_t>(type)) << record_type << " " << source;
            }
        }
    }
    EXPECT_EQ(events, 7u);
    EXPECT_EQ(HeadOf(kFile).type, uint32_t{1 | 4 | 8 | 32});
}

TEST_F(AlarmThread, IoAndMotionTogetherMakeOneEvent) {
    Schedule({.type = 3});
    PreRecordAndDelay(0, 1);  // none, 5 s
    Begin();
    Raise(ALARM_SOURCE_DEF_IO_0);
    Run(10);
    Raise(ALARM_SOURCE_DEF_MOTION);
    Run(10);
    Clear(ALARM_SOURCE_DEF_IO_0);
    Run(20);
    EXPECT_EQ(EventTimes(), (Times{{10, 24}}));
    EXPECT_EQ(EventOf(kFile, 1).type, uint32_t{kIoMotionType});
}

TEST_F(AlarmThread, SmartAlarmsFoldIntoOneEvent) {
    Schedule({.type = 4});
    PreRecordAndDelay(0, 1);  // none, 5 s
    Begin();
    Run(10);
    Alarm(ALARM_SOURCE_DEF_CROSSBORDER, 3);
    Alarm(ALARM_SOURCE_DEF_PEOPLE_GATHERING, 3);
    Run(3);
    Raise(ALARM_SOURCE_DEF_INTRUSION);
    Alarm(ALARM_SOURCE_DEF_PEOPLE_STAY, 3);
    Clear(ALARM_SOURCE_DEF_INTRUSION);
    Run(20);
    EXPECT_EQ(EventTimes(), (Times{{10, 26}}));
}

TEST_F(AlarmThread, ADayThatIsRecordedWholeHasNoEvents) {
    Schedule({.mode = 1, .type = 1});
    Begin();
    for (int source = 0; source < 16; ++source) {
        Raise(source);
    }
    Run(100);
    End();
    EXPECT_EQ(EventFile(0, 1 << 20), std::string(1 << 20, '\0'));
}

TEST_F(AlarmThread, NothingIsNotedBehindTheEndOfTheRange) {
    Schedule({.type = 1, .until_hour = 12, .until_minute = 1});
    Begin();
    Run(60);
    EXPECT_FALSE(Logged("Record Time Over"));
    Alarm(ALARM_SOURCE_DEF_MOTION, 10);
    Run(60);
    End();
    EXPECT_TRUE(Logged("  TIME_SCOPE_DIFF Record Time Over ! \n"));
    EXPECT_EQ(EventTimes(), Times{});
}

TEST_F(AlarmThread, AnotherAlarmsEventIsSavedBeforeANewOneTakesItsPlace) {
    PreRecordAndDelay(0, 4);  // none, 60 s
    Begin();
    Run(10);
    Alarm(ALARM_SOURCE_DEF_MOTION, 2);
    Run(3);
    Schedule({.type = 2});
    Alarm(ALARM_SOURCE_DEF_IO_0, 2);
    Run(100);
    EXPECT_EQ(EventTimes(), (Times{{10, 14}, {15, 76}}));
    EXPECT_EQ(EventOf(kFile, 1).type, uint32_t{kMotionType});
    EXPECT_EQ(EventOf(kFile, 2).type, uint32_t{kIoType});
}

TEST_F(AlarmThread, SettingTheClockMovesNoEvent) {
    PreRecordAndDelay(0, 1);
    Begin();
    Run(10);
    Raise(ALARM_SOURCE_DEF_MOTION);
    Run(5);
    g_timeline.SetWallClock(-3600);
    Run(5);
    Clear(ALARM_SOURCE_DEF_MOTION);
    Run(20);
    EXPECT_EQ(EventTimes(), (Times{{10, 24}}));
}

TEST_F(AlarmThread, EventsThatCannotBeReadForAWhileAreNotWrittenOver) {
    PreRecordAndDelay(0, 8);
    Begin();
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    g_timeline.Restart();
    {
        const support::ReadFault fault(256 * kFile, EIO);
        Begin();
        Alarm(ALARM_SOURCE_DEF_MOTION, 1);
        Run(10);
    }
    Run(1);
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    Run(1);
    End();
    EXPECT_EQ(EventTimes(), (Times{{0, 1}, {12, 13}}));
    EXPECT_EQ(HowOftenLogged(": the events of file 1 cannot be read, tried again\n"), 1);
}

TEST_F(AlarmThread, AnEventThatTheCardRefusedIsTriedAgain) {
    static const card::Calls real = card::CardCalls();
    static std::atomic<int> refusals;
    refusals = 1;
    card::Calls calls = real;
    calls.WriteAt = [](int fd, const void* buffer, size_t length, off64_t offset) {
        if (length == sizeof(AlarmFileInfoHead_S) && refusals-- > 0) {
            errno = EIO;
            return ssize_t{-1};
        }
        return real.WriteAt(fd, buffer, length, offset);
    };
    card::ReplaceCardCalls(&calls);
    PreRecordAndDelay(0, 8);
    Begin();
    Alarm(ALARM_SOURCE_DEF_MOTION, 2);
    Run(1);
    EXPECT_EQ(HeadOf(kFile).events, 1u);
    EXPECT_NE(EventOf(kFile, 1).flag, "ADEF") << "counted and refused";
    Run(2);
    EXPECT_EQ(EventOf(kFile, 1).flag, "ADEF");
    End();
    card::ReplaceCardCalls(nullptr);
}

TEST_F(AlarmThread, AFailureEndsTheThreadAndNothingElse) {
    const long descriptors = Descriptors();
    ASSERT_EQ(unlink("/var/etc/sdcard/event000.bin"), 0);
    ASSERT_TRUE(std::filesystem::create_directory("/var/etc/sdcard/event000.bin"));
    Launch();
    EXPECT_TRUE(HasLeft());
    EXPECT_FALSE(Logged("AlarmEvent end")) << "a file that cannot be opened is no news";

    ASSERT_EQ(rmdir("/var/etc/sdcard/event000.bin"), 0);
    close(creat("/var/etc/sdcard/event000.bin", 0600));
    std::filesystem::resize_file("/var/etc/sdcard/event000.bin", 64 << 20);
    card::Calls full = card::CardCalls();
    full.WriteAt = [](int, const void*, size_t, off64_t) {
        errno = ENOSPC;
        return ssize_t{-1};
    };
    card::ReplaceCardCalls(&full);
    Begin();
    Alarm(ALARM_SOURCE_DEF_MOTION, 1);
    g_timeline.RunFreely();
    EXPECT_TRUE(HasLeft());
    EXPECT_TRUE(Logged(":AlarmEvent end !!!\n"));
    g_timeline.Restart();
    g_flags.file_begun_anew = 1;
    Launch();
    EXPECT_TRUE(HasLeft()) << "the events of an overwritten file could not be cleared";
    EXPECT_EQ(g_flags.file_begun_anew, 1) << "the next run does it";
    g_flags.file_begun_anew = -1;

    Begin();
    SysconfigExit();
    g_timeline.RunFreely();
    EXPECT_TRUE(HasLeft()) << "no configuration";
    EXPECT_EQ(HowOftenLogged(":AlarmEvent end !!!\n"), 2) << "only failed writes are told";
    card::ReplaceCardCalls(nullptr);
    EXPECT_TRUE(g_flags.run_is_on);
    EXPECT_EQ(GetRecordStopFlag(), 0);
    EXPECT_EQ(Descriptors(), descriptors);
}

TEST_F(AlarmThread, ACardThatIsGoneEndsTheRunAndGetsNoFileOnTheCamerasFlash) {
    Begin();
    unlink(support::kCardDevice);
    Run(1);
    EXPECT_EQ(GetRecordStopFlag(), 1);
    End();
    StartRecordSet();
    g_timeline.Restart();
    ASSERT_EQ(umount2(support::kCardDirectory, MNT_DETACH), 0);
    Launch();
    EXPECT_TRUE(HasLeft());
    EXPECT_TRUE(std::filesystem::is_empty(support::kCardDirectory));
    EXPECT_EQ(GetRecordStopFlag(), 0);
}

TEST_F(AlarmThread, RunsFollowEachOtherWithoutLeavingAnythingBehind) {
    PreRecordAndDelay(0, 7);
    const long descriptors = Descriptors();
    Begin();
    for (int run = 0; run < 100; ++run) {
        Alarm(ALARM_SOURCE_DEF_MOTION, 1);
        Launch(g_timeline.Seconds());  // although the thread before it is still at work
        Run(1);
    }
    EXPECT_TRUE(ThreadsBecome(idle_threads_ + 1)) << Threads();
    EXPECT_EQ(Descriptors(), descriptors + 1);
    EXPECT_EQ(HeadOf(kFile).events, 100u) << "each run found the events of the one before";
    End();
    EXPECT_EQ(Descriptors(), descriptors);
}

}  // namespace
