#include "AlarmEvent.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>

#include "Clock.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAlarmProcess.h"
#include "libLog.h"
#include "libOthers.h"
#include "support/Card.h"
#include "support/CardFault.h"
#include "support/Process.h"
#include "support/QueuePeer.h"
#include "support/Stderr.h"

namespace {

using support::CardFault;
using support::WaitUntil;

constexpr int64_t kNoon = 1700049600;  // Wednesday 2023-11-15 12:00:00 UTC; times below are seconds after it
constexpr uint32_t kFile = 1;          // the record file in use
constexpr std::chrono::seconds kBound{20};
const std::string kEventFile = std::string(support::kCardDirectory) + "event000.bin";

// Time that stands still until the test lets it go on; a sleeper then finds it gone by.
class Timeline {
  public:
    void Restart(int64_t wall_shift = 0) {
        const std::lock_guard lock(mutex_);
        now_ms_ = kPhaseMs;
        limit_ms_ = wake_ms_ = 0;
        wall_shift_ = wall_shift;
        is_asleep_ = false;
    }
    // Lets so much time pass; returns when the alarm thread sleeps towards a moment after them.
    void Run(int64_t ms) {
        std::unique_lock lock(mutex_);
        limit_ms_ += ms;
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
    bool IsAsleep() {
        const std::lock_guard lock(mutex_);
        return is_asleep_;
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

// The records as a reader of the card meets them; times in seconds after noon.
class Record {
  public:
    Record(uint64_t offset, uint64_t length) : bytes_(support::Card::Read(kEventFile, offset, length)) {}
    static Record Head(uint32_t file) { return {256 * uint64_t{file}, 256}; }
    static Record Event(uint32_t file, uint32_t number) {
        return {(uint64_t{file} + 8) * 131072 + 48 * (uint64_t{number} - 1), 48};
    }

    const std::string& Bytes() const { return bytes_; }
    std::string Flag() const { return bytes_.substr(0, 4); }
    int64_t Time(size_t offset) const { return Number(offset) - kNoon; }
    uint32_t Number(size_t offset, size_t length = 4) const {
        uint32_t value = 0;
        for (size_t i = 0; i < length; ++i) {
            value |= uint32_t{static_cast<unsigned char>(bytes_.at(offset + i))} << (8 * i);
        }
        return value;
    }

  private:
    std::string bytes_;
};

uint32_t EventCount(uint32_t file = kFile) {
    return Record::Head(file).Number(16);
}

// "10-24 30-31:4": start and end of the events 1 to n, and the type of those that are no motion.
std::string Events(uint32_t file = kFile) {
    std::ostringstream text;
    int64_t first = INT64_MAX, last = INT64_MIN;
    const uint32_t count = EventCount(file);
    for (uint32_t number = 1; number <= count; ++number) {
        const Record event = Record::Event(file, number);
        EXPECT_EQ(event.Flag(), "ADEF") << number;
        EXPECT_EQ(event.Number(20, 2), file) << number;
        EXPECT_EQ(event.Number(22, 2), number);
        first = std::min(first, event.Time(4));
        last = std::max(last, event.Time(8));
        text << (number == 1 ? "" : " ") << event.Time(4) << '-' << event.Time(8);
        if (const uint32_t type = event.Number(24, 1); type != 1) {
            text << ':' << type;
        }
    }
    if (count != 0) {
        const Record head = Record::Head(file);
        EXPECT_EQ(head.Flag(), "AEMF");
        EXPECT_EQ(head.Number(4), file);
        EXPECT_EQ(head.Time(8), first);
        EXPECT_EQ(head.Time(12), last);
    }
    return text.str();
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
        for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) {
            Set(source, false);
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
    static void Set(int source, bool on) {
        ASSERT_EQ(AlarmDataWrite(source, on ? ALARM_STATUS_DEF_ON : ALARM_STATUS_DEF_OFF), 0);
    }

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
    static int64_t Milliseconds(const std::string& text) {
        return std::stoll(text) * (text.ends_with("ms") ? 1 : 1000);
    }
    // "100 motion:5 +io 80ms -io type=2": 100 s pass, motion is on for 5 s, io for 80 ms, then the range records
    // type 2.
    static void Play(const std::string& script) {
        static const std::map<std::string, int> kSources = {{"io", 0},         {"motion", 2}, {"crossing", 9},
                                                            {"intrusion", 10}, {"stay", 12},  {"gathering", 13}};
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            const size_t mark = step.find_first_of(":=");
            const std::string name = step.substr(0, mark);
            const std::string value = mark == std::string::npos ? "0" : step.substr(mark + 1);
            Record_Config_Data& config = GetSysconfigData()->Record_config;
            if (isdigit(step[0]) != 0) {
                g_timeline.Run(Milliseconds(step));
            } else if (step[0] == '+' || step[0] == '-') {
                Set(kSources.at(step.substr(1)), step[0] == '+');
            } else if (name == "pre") {
                config.ucpreRecordTime = static_cast<uint8_t>(std::stoi(value));
            } else if (name == "delay") {
                config.ucrecordDelay = static_cast<uint8_t>(std::stoi(value));
            } else if (name == "type") {
                Schedule({.type = std::stoi(value)});
            } else if (name == "clock") {
                g_timeline.SetWallClock(std::stoll(value));
            } else {
                Set(kSources.at(name), true);
                g_timeline.Run(Milliseconds(value));
                Set(kSources.at(name), false);
            }
        }
    }
    void End() {
        g_flags.run_is_on = false;
        g_timeline.RunFreely();
        EXPECT_TRUE(HasLeft());
    }
    // A whole run, whose clock is `clock` seconds ahead.
    void RecordRun(const std::string& script, int64_t section_start = 0, uint32_t file = kFile, int64_t clock = 0) {
        g_timeline.Restart(clock);
        Begin(section_start, file);
        Play(script);
        End();
    }
    bool HasLeft() const {
        return WaitUntil([this] { return support::Threads() == idle_threads_; });
    }

    support::Captured log_;
    const support::Card card_{support::Store{.files = 3}};
    const long idle_threads_ = support::ThreadsAtRest();
};

TEST_F(AlarmThread, AnAlarmBecomesAnEventFromItsReachBackToTheEndOfItsDelay) {
    PreRecordAndDelay(2, 3);  // 10 s, 30 s
    Begin();
    Written(1'000'000, 500);
    Play("100 motion:5");
    Written(1'600'000, 625);
    Play("60");
    EXPECT_EQ(log_.Count(":AlarmDurationTime = 30 RecordDelayTime = 30 m_u32FileInfoHeadNo = 1\n"), 1);
    End();
    EXPECT_EQ(log_.Count(":AlarmEvent end !!!\n"), 1);
    EXPECT_EQ(log_.Count("cannot be read"), 0);
    EXPECT_EQ(Events(), "90-134") << "last seen on at 104";
    EXPECT_EQ(Record::Head(kFile).Time(20), 134) << "where the next one may begin";
    EXPECT_EQ(Record::Head(kFile).Number(24, 1), 1u);
    EXPECT_EQ(Record::Event(kFile, 1).Number(12), 600'000u);
    EXPECT_EQ(Record::Event(kFile, 1).Number(16), 125u);
    EXPECT_EQ(Record::Event(kFile, 1).Number(25, 1), 25u);
}

TEST_F(AlarmThread, TimesOfEvents) {
    struct {
        const char* what;
        int pre_record, delay;  // 0: none, 1: 5 s, 2: 10 s, 6: 30 s; 1: 5 s, 3: 30 s, 4: 60 s, 7: 600 s, 8: none
        int64_t section_start;
        const char* script;
        const char* events;
    } const cases[] = {
        {"none begins before its section", 2, 8, -4, "motion:1 10 motion:1 1", "-4-1 1-12"},
        {"as far as there is footage; a setting that is none leaves the one before", 10, 1, -500,
         "100 motion:1 5 pre=11 delay=10 95 motion:1 5", "-500-105 201-206"},
        {"or the first of the table", 200, 200, -500, "100 motion:1 20", "100-110"},
        {"a range that asks for nothing leaves an open event as it is", 0, 4, 0, "type=2 io:5 1 type=0 70", "0-5:4"},
        {"one that reaches back beyond the one before is not cut", 0, 8, -500, "100 motion:1 1 pre=10 motion:1 1",
         "100-101 -500-103"},
        {"the first alarm may be an input's", 0, 8, 0, "type=2 io:2 1", "0-2:4"},
        {"an alarm of one look lasts its delay", 0, 3, 0, "10 motion:80ms 60", "10-40"},
        {"an alarm within the delay extends its event", 1, 3, 0, "50 motion:5 25 motion:5 60 motion:5 60",
         "45-114 140-179"},
        {"one that would reach into the one before begins at its end", 6, 1, -1000, "100 motion:4 20 motion:4 7",
         "70-108 108-132"},
        {"the run's end saves an open event", 0, 7, 0, "10 motion:2 5", "10-16"},
        {"setting the clock moves none", 0, 1, 0, "10 +motion 5 clock=-3600 5 -motion 20", "10-24"},
        {"io and motion together make one", 0, 1, 0, "type=3 +io 10 +motion 10 -io 20", "10-24:8"},
        {"smart alarms fold into one", 0, 1, 0, "type=4 10 crossing:3 gathering:3 3 +intrusion stay:3 -intrusion 20",
         "10-26:32"},
        {"another alarm's event is saved before a new one takes its place", 0, 4, 0, "10 motion:2 3 type=2 io:2 100",
         "10-14 15-76:4"},
    };
    uint32_t file = 0;
    for (const auto& c : cases) {
        for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) {
            Set(source, false);
        }
        Schedule({.type = 1});
        PreRecordAndDelay(c.pre_record, c.delay);
        RecordRun(c.script, c.section_start, file);
        EXPECT_EQ(Events(file++), c.events) << c.what;
    }
}

TEST_F(AlarmThread, EverySettingMeansItsSeconds) {
    constexpr int kPreRecord[] = {0, 5, 10, 15, 20, 25, 30, 10, 0, 0};
    constexpr int kDelay[] = {10, 5, 10, 30, 60, 120, 300, 600, 0, 0};
    std::ostringstream expected;
    Begin(-1000);
    int64_t now = 0;
    for (int setting = 0; setting < 10; ++setting) {
        PreRecordAndDelay(setting, setting);
        const int64_t rest = kDelay[setting] + 40;
        Play("motion:1 " + std::to_string(rest));
        expected << (setting == 0 ? "" : " ") << now - kPreRecord[setting] << '-' << now + std::max(kDelay[setting], 1);
        now += 1 + rest;
    }
    EXPECT_EQ(Events(), expected.str());
}

TEST_F(AlarmThread, TheNextRunGoesOnInTheFile) {
    PreRecordAndDelay(6, 1);  // 30 s, 5 s
    RecordRun("100 motion:4 20", -1000);
    RecordRun("motion:1 100 motion:1 100", 100, kFile, 130);
    EXPECT_EQ(Events(), "70-108 108-135 201-236") << "joined over the border";
}

TEST_F(AlarmThread, AnOpenEventIsSavedEveryTwentySeconds) {
    PreRecordAndDelay(0, 4);  // none, 60 s
    Begin();
    Play("100 motion:2");
    std::string saved;
    for (int second = 0; second < 80; ++second) {
        Play("1");
        if (const std::string now = Events(); !saved.ends_with(now)) {
            saved.append(" ").append(now);
        }
    }
    EXPECT_EQ(saved, " 100-120 100-140 100-160 100-161");
    EXPECT_EQ(
        log_.Count(std::string(22, '#') + "AlarmEndTime = 1700049720 RecordDelayTime = 60 m_u32FileInfoHeadNo = 1 \n"),
        1);
}

TEST_F(AlarmThread, RestsWhileTheRecordLoopLooksForIt) {
    AlarmWatch watch;
    Launch();
    const auto looks_until = [&](const std::function<bool()>& is_so) {
        return WaitUntil([&] {
            watch.Pass();
            return is_so();
        });
    };
    PreRecordAndDelay(0, 1);
    Set(ALARM_SOURCE_DEF_MOTION, true);
    ASSERT_TRUE(looks_until([] { return g_timeline.IsAsleep(); })) << "called, it looks every 80 ms by itself";
    g_timeline.Run(10000);
    Set(ALARM_SOURCE_DEF_MOTION, false);
    g_timeline.RunFreely();
    EXPECT_TRUE(WaitUntil([] { return Record::Event(kFile, 1).Time(8) == 14; })) << "the record follows its head";
    EXPECT_EQ(Events(), "0-14");
}

TEST_F(AlarmThread, AnOverwrittenFileStartsWithoutEvents) {
    PreRecordAndDelay(0, 8);
    RecordRun("motion:1 1", 0, 1);
    RecordRun("motion:1 1", 0, 2);
    const std::string other = Record::Head(2).Bytes();
    g_flags.file_begun_anew = 1;
    g_timeline.Restart();
    Begin();
    EXPECT_EQ(g_flags.file_begun_anew, -1);
    EXPECT_EQ(Record::Head(1).Bytes(), std::string(256, '\0'));
    EXPECT_EQ(Record::Head(2).Bytes(), other);
    Play("30 motion:1 1");
    End();
    EXPECT_EQ(Events(), "30-31");
    EXPECT_EQ(Record::Head(0).Bytes(), std::string(256, '\0'));
}

TEST_F(AlarmThread, TheEventsOfAFileStopAt1024) {
    PreRecordAndDelay(0, 8);
    Begin();
    for (int alarm = 0; alarm < 1026; ++alarm) {
        Play("motion:1 1");
    }
    End();
    EXPECT_EQ(EventCount(), 1024u);
    EXPECT_EQ(Record::Event(kFile, 1023).Time(4), 2 * 1022);
    EXPECT_EQ(Record::Event(kFile, 1024).Time(4), 2 * 1025) << "the last one is written over";
    EXPECT_EQ(Record::Event(kFile, 1024).Number(22, 2), 1024u);
    EXPECT_EQ(Record::Event(kFile, 1025).Flag(), std::string(4, '\0'));
}

TEST_F(AlarmThread, AHeadThatCannotBeIsNotBelieved) {
    PreRecordAndDelay(0, 8);
    const int fd = AV_AlarmEvnetOpen(kEventFile.c_str(), AVFILE_READ_WRITE);
    AlarmEventHead_S head{};
    AV_AlarmEventInfoHeadAdd(&head, 77, 1, 1);  // another file's
    ASSERT_EQ(AV_AlarmEventInfoWrite(fd, 1, &head), 0);
    AV_AlarmEventInfoHeadAdd(&head, 2, 1, 1);
    head.m_u32AlarmEventSum = 70000;
    ASSERT_EQ(AV_AlarmEventInfoWrite(fd, 2, &head), 0);
    AV_AlarmEvnetClose(fd);
    RecordRun("motion:1 1", 0, 1);
    RecordRun("motion:1 1", 0, 2);
    EXPECT_EQ(Events(1), "0-1");
    EXPECT_EQ(EventCount(2), 1024u);
    EXPECT_EQ(Record::Event(2, 1024).Time(4), 0);
}

TEST_F(AlarmThread, EachKindOfRangeWatchesItsOwnAlarms) {
    PreRecordAndDelay(0, 8);
    struct Watched {
        std::set<int> sources;
        uint32_t type;
    };
    const std::map<int, Watched> kinds = {
        {0, {}}, {1, {{2}, 1}}, {2, {{0}, 4}}, {3, {{14}, 8}}, {4, {{9, 10, 12, 13}, 32}}, {5, {}}};
    Begin();
    uint32_t events = 0;
    for (const auto& [kind, watched] : kinds) {
        Schedule({.type = kind});
        for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) {
            Set(source, true);
            Play("1");
            Set(source, false);
            Play("1");
            events += watched.sources.contains(source) ? 1 : 0;
            ASSERT_EQ(EventCount(), events) << kind << " " << source;
            if (watched.sources.contains(source)) {
                EXPECT_EQ(Record::Event(kFile, events).Number(24, 1), watched.type) << kind << " " << source;
            }
        }
    }
    EXPECT_EQ(events, 7u);
    EXPECT_EQ(Record::Head(kFile).Number(24, 1), uint32_t{1 | 4 | 8 | 32});
}

TEST_F(AlarmThread, ADayThatIsRecordedWholeHasNoEvents) {
    Schedule({.mode = 1, .type = 1});
    RecordRun("+motion +io +stay 100");
    EXPECT_EQ(support::Card::Read(kEventFile, 0, 1 << 20), std::string(1 << 20, '\0'));
}

TEST_F(AlarmThread, NothingIsNotedAfterTheEndOfTheRange) {
    Schedule({.type = 1, .until_hour = 12, .until_minute = 1});
    Begin();
    Play("60");
    EXPECT_EQ(log_.Count("Record Time Over"), 0);
    Play("motion:10 60");
    End();
    EXPECT_GT(log_.Count("  TIME_SCOPE_DIFF Record Time Over ! \n"), 0);
    EXPECT_EQ(Events(), "");
}

TEST_F(AlarmThread, EventsThatCannotBeReadForAWhileAreNotWrittenOver) {
    PreRecordAndDelay(0, 8);
    RecordRun("motion:1 1");
    g_timeline.Restart();
    {
        const CardFault fault({.access = support::Refused::kReads, .offset = 256 * kFile});
        Begin();
        Play("motion:1 10");
    }
    Play("1 motion:1 1");
    End();
    EXPECT_EQ(Events(), "0-1 12-13");
    EXPECT_EQ(log_.Count(": the events of file 1 cannot be read, tried again\n"), 1);
}

TEST_F(AlarmThread, AnEventThatTheCardRefusedIsTriedAgain) {
    PreRecordAndDelay(0, 8);
    uint32_t file = 0;
    for (const auto& [next_event, events] : {std::pair{"2", "0-1"}, {"+motion 160ms -motion 1", "0-1 1-1"}}) {
        const CardFault fault({.length = sizeof(AlarmFileInfoHead_S), .times = 1});
        g_timeline.Restart();
        Begin(0, file);
        Play("motion:1 160ms");
        EXPECT_EQ(EventCount(file), 1u);
        EXPECT_EQ(Record::Event(file, 1).Number(22, 2), 0u) << "counted and refused";
        Play(next_event);
        EXPECT_EQ(Events(file++), events) << "within a second, or before the next one takes its place";
        End();
    }
}

TEST_F(AlarmThread, AnEventRefusedUntilItsRunWasOverIsSavedByTheNextRunOnTheSameCard) {
    PreRecordAndDelay(0, 8);
    for (const bool same_card : {true, false}) {
        {
            const CardFault fault({.length = sizeof(AlarmFileInfoHead_S)});
            RecordRun("motion:1 1", 0, same_card ? 1 : 2);
        }
        const uint32_t file = same_card ? 1 : 2;
        EXPECT_EQ(EventCount(file), 1u);
        EXPECT_EQ(Record::Event(file, 1).Flag(), std::string(4, '\0')) << "counted and refused";
        if (!same_card) {
            const int fd = AV_AlarmEvnetOpen(kEventFile.c_str(), AVFILE_READ_WRITE);
            const AlarmEventHead_S none{};
            ASSERT_EQ(AV_AlarmEventInfoWrite(fd, file, &none), 0);
            AV_AlarmEvnetClose(fd);
        }
        RecordRun("2", 0, file);
        EXPECT_EQ(Record::Event(file, 1).Flag(), same_card ? "ADEF" : std::string(4, '\0'));
    }
    EXPECT_EQ(Events(1), "0-1");
    {
        const CardFault fault({.length = sizeof(AlarmFileInfoHead_S)});
        RecordRun("5 motion:1 1");
        RecordRun("1", 0, 2);
    }
    EXPECT_EQ(Record::Event(1, 2).Flag(), std::string(4, '\0'));
    RecordRun("1", 0, 2);
    EXPECT_EQ(Events(1), "0-1 5-6") << "saved by a run in another file";
}

TEST_F(AlarmThread, AFailureEndsTheThreadAndNothingElse) {
    const long descriptors = support::Descriptors();
    ASSERT_TRUE(std::filesystem::remove(kEventFile) && std::filesystem::create_directory(kEventFile));
    Launch();
    EXPECT_TRUE(HasLeft());
    EXPECT_EQ(log_.Count("AlarmEvent end"), 0) << "a file that cannot be opened is no news";

    ASSERT_TRUE(std::filesystem::remove(kEventFile) && std::ofstream(kEventFile));
    std::filesystem::resize_file(kEventFile, 64 << 20);
    const CardFault full({.error = ENOSPC});
    Begin();
    Play("motion:1");
    g_timeline.RunFreely();
    EXPECT_TRUE(HasLeft());
    EXPECT_EQ(log_.Count(":AlarmEvent end !!!\n"), 1);
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
    EXPECT_EQ(log_.Count(":AlarmEvent end !!!\n"), 2) << "only failed writes are told";
    EXPECT_TRUE(g_flags.run_is_on);
    EXPECT_EQ(GetRecordStopFlag(), 0);
    EXPECT_EQ(support::Descriptors(), descriptors);
}

TEST_F(AlarmThread, ACardThatIsGoneEndsTheRunAndGetsNoFileOnTheCamerasFlash) {
    Begin();
    unlink(support::kCardDevice);
    Play("1");
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
    RecordRun("2");  // from then on the device's node is held
    g_timeline.Restart();
    const long descriptors = support::Descriptors();
    Begin();
    for (int run = 0; run < 100; ++run) {
        Play("motion:1");
        Launch(g_timeline.Seconds());  // although the thread before it is still at work
        Play("1");
    }
    EXPECT_TRUE(WaitUntil([this] { return support::Threads() == idle_threads_ + 1; })) << support::Threads();
    EXPECT_EQ(support::Descriptors(), descriptors + 1);
    EXPECT_EQ(EventCount(), 100u) << "each run found the events of the one before";
    End();
    EXPECT_EQ(support::Descriptors(), descriptors);
}

}  // namespace
