#include "AlarmEvent.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "CardFile.h"
#include "Clock.h"
#include "FileEvents.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAlarmProcess.h"
#include "libOthers.h"
#include "support/Card.h"
#include "support/CardFault.h"
#include "support/Process.h"
#include "support/Stderr.h"
#include "support/WaitUntil.h"

namespace {

using support::CardFault;
using support::kEventFile;
using support::WaitUntil;

constexpr int64_t kNoon = 1700049600;  // Wednesday 2023-11-15 12:00:00 UTC; times below are seconds after it
constexpr uint32_t kFile = 1;          // the record file in use

// Time that stands still until the test lets it go on; a sleeper then finds it gone by.
class Timeline {
  public:
    void Restart(int64_t wall_shift = 0) {
        now_ms_ = kPhaseMs;
        limit_ms_ = wake_ms_ = 0;
        wall_shift_ = wall_shift;
        is_asleep_ = false;
    }
    // Lets so much time pass; returns when the alarm thread sleeps towards a moment after them.
    void Run(int64_t ms) {
        Allow(limit_ms_ + ms);
        ASSERT_TRUE(WaitUntil([this] { return is_asleep_ && wake_ms_ > limit_ms_; }));
    }
    void RunFreely() { Allow(INT64_MAX / 2); }
    void SetWallClock(int64_t shift) { wall_shift_ = shift; }
    void Sleep(unsigned int ms) {
        wake_ms_ = now_ms_ + ms;
        is_asleep_ = true;
        for (int64_t limit; (limit = limit_ms_) < wake_ms_;) {
            limit_ms_.wait(limit);
        }
        is_asleep_ = false;
        now_ms_ = wake_ms_.load();
    }
    int64_t Seconds() const { return now_ms_ / 1000; }
    bool IsAsleep() const { return is_asleep_; }
    timeval Wall() const { return {static_cast<time_t>(kNoon + Seconds() + wall_shift_), 0}; }

  private:
    static constexpr int64_t kPhaseMs = 20;  // a thread that looks every 80 ms never does so on a full second

    void Allow(int64_t limit_ms) {
        limit_ms_ = limit_ms;
        limit_ms_.notify_all();
    }

    std::atomic<int64_t> now_ms_{kPhaseMs};
    std::atomic<int64_t> limit_ms_{0};  // time goes no further
    std::atomic<int64_t> wake_ms_{0};
    std::atomic<int64_t> wall_shift_{0};
    std::atomic<bool> is_asleep_{false};
};

Timeline g_timeline;
constexpr ClockSource kTestClock{[] { return g_timeline.Wall(); },
                                 [] { return static_cast<long>(5000 + g_timeline.Seconds()); },
                                 [](unsigned int ms) { g_timeline.Sleep(ms); }};

AlarmEventHead_S Head(uint32_t file = kFile) {
    return support::Card::At<AlarmEventHead_S>(kEventFile, 256 * uint64_t{file});
}
AlarmFileInfoHead_S Event(uint32_t number, uint32_t file = kFile) {
    return support::Card::At<AlarmFileInfoHead_S>(kEventFile, (uint64_t{file} + 8) * 131072 + 48 * (number - 1));
}

// "10-24 30-31:4": start and end of the events 1 to n in seconds after noon, and the type of those that are no motion.
std::string Events(uint32_t file = kFile) {
    std::ostringstream text;
    uint32_t first = UINT32_MAX, last = 0;
    int types = 0;
    const AlarmEventHead_S head = Head(file);
    for (uint32_t number = 1; number <= head.m_u32AlarmEventSum; ++number) {
        const AlarmFileInfoHead_S event = Event(number, file);
        EXPECT_EQ(event.m_u32AlarmEventFlag, ALARM_RECORD_FLAG) << number;
        EXPECT_EQ(event.m_u16AlarmFileNo, file) << number;
        EXPECT_EQ(event.m_u16AlarmFileUseNo, number);
        first = std::min(first, event.m_u32AlarmStartTime);
        last = std::max(last, event.m_u32AlarmEndTime);
        types |= event.m_u8AlarmFileType;
        text << (number == 1 ? "" : " ") << event.m_u32AlarmStartTime - kNoon << '-' << event.m_u32AlarmEndTime - kNoon;
        if (event.m_u8AlarmFileType != 1) {
            text << ':' << int{event.m_u8AlarmFileType};
        }
    }
    if (head.m_u32AlarmEventSum != 0) {
        EXPECT_EQ(head.m_u32AlarmEventFlag, ALARM_EVENT_FLAG);
        EXPECT_EQ(head.m_u32AlarmFileNo, file);
        EXPECT_EQ(head.m_u32AlarmStartTime, first);
        EXPECT_EQ(head.m_u32AlarmEndTime, last);
        EXPECT_EQ(head.m_u8AlarmEventType, types);
    }
    return text.str();
}

class AlarmThread : public support::LoggedTest {
  protected:
    AlarmThread() {
        setenv("TZ", "UTC", 1);
        ReplaceClock(&kTestClock);
        EXPECT_EQ(SysConfigInit(), 0);
        EXPECT_EQ(libAlarmProcessInit(), 0);
        *GetSysconfigData() = {};
        AlarmsOfMotion();
        g_flags.range = 0;
        g_flags.file_begun_anew = -1;
        g_flags.stop_requested = false;
    }
    ~AlarmThread() override {
        End();
        libAlarmProcessCleanup();
        SysconfigExit();
        ReplaceClock(nullptr);
    }

    // Nothing is on; the whole day is a range in which motion is watched, and its events are as long as it.
    static void AlarmsOfMotion() {
        for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) {
            Set(source, false);
        }
        Play("mode=3 type=1 hour=23 minute=59 pre=0 delay=8");
    }
    static void Set(int source, bool on) {
        ASSERT_EQ(AlarmDataWrite(source, on ? ALARM_STATUS_DEF_ON : ALARM_STATUS_DEF_OFF), 0);
    }

    // A run that goes on in `file` with a section that began at `section_start`.
    static void Begin(int64_t section_start = 0, uint32_t file = kFile, int64_t clock = 0) {
        Launch(section_start, file, clock);
        g_timeline.Run(0);
    }
    static void Launch(int64_t section_start = 0, uint32_t file = kFile, int64_t clock = 0) {
        g_timeline.Restart(clock);
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
    // "pre=2 100 motion:5 +io 80ms -io type=2": the setting of that name is 2, 100 s pass, motion is on for 5 s, io for
    // 80 ms, then the range records type 2.
    static void Play(const std::string& script) {
        static const std::map<std::string, int> kSources = {{"io", 0},         {"motion", 2}, {"crossing", 9},
                                                            {"intrusion", 10}, {"stay", 12},  {"gathering", 13}};
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            const size_t mark = std::min(step.find_first_of(":="), step.size());
            const std::string name = step.substr(0, mark);
            const std::string value = step.substr(std::min(mark + 1, step.size()));
            if (isdigit(step[0]) != 0) {
                g_timeline.Run(Milliseconds(step));
            } else if (step[0] == '+' || step[0] == '-') {
                Set(kSources.at(step.substr(1)), step[0] == '+');
            } else if (step[mark] == '=') {
                Change(name, std::stoi(value));
            } else {
                Set(kSources.at(name), true);
                g_timeline.Run(Milliseconds(value));
                Set(kSources.at(name), false);
            }
        }
    }
    // Pre-record time and delay are indexes into the camera's tables: 0 none, 1 5 s, 2 10 s, 6 30 s, 10 the section's
    // start; 0 10 s, 1 5 s, 3 30 s, 4 60 s, 7 600 s, 8 none.
    static void Change(const std::string& setting, int value) {
        Record_Config_Data& config = GetSysconfigData()->Record_config;
        Day_Hour_Scope& today = config.weekScope.dayScope[3];
        Hour_Info& end = today.hourScope[0].endHour;
        const std::map<std::string, uint8_t*> settings = {{"pre", &config.ucpreRecordTime},
                                                          {"delay", &config.ucrecordDelay},
                                                          {"mode", &today.ucSocpeMode},
                                                          {"type", &end.ucType},
                                                          {"hour", &end.ucHour},
                                                          {"minute", &end.ucMinute}};
        if (setting == "clock") {
            g_timeline.SetWallClock(value);
        } else {
            *settings.at(setting) = static_cast<uint8_t>(value);
        }
    }
    void End() {
        g_flags.run_is_on = false;
        EXPECT_TRUE(Leaves());
    }
    // A whole run, whose clock is `clock` seconds ahead.
    void RecordRun(const std::string& script, int64_t section_start = 0, uint32_t file = kFile, int64_t clock = 0) {
        Begin(section_start, file, clock);
        Play(script);
        End();
    }
    // Whether the alarm thread ends, however long that takes.
    bool Leaves() const {
        g_timeline.RunFreely();
        return WaitUntil([this] { return support::Threads() == idle_threads_; });
    }

    const support::Card card_{support::Store{.files = 3}};
    const long idle_threads_ = support::ThreadsAtRest();
};

TEST_F(AlarmThread, AnAlarmBecomesAnEventFromItsReachBackToTheEndOfItsDelay) {
    Play("pre=2 delay=3");  // 10 s, 30 s
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
    EXPECT_EQ(Head().m_u32PreAlarmEndTime, kNoon + 134) << "where the next one may begin";
    EXPECT_EQ(Event(1).m_u32FileSize, 600'000u);
    EXPECT_EQ(Event(1).m_u32FrameCount, 125u);
    EXPECT_EQ(Event(1).m_u8FrameRate, 25);
}

TEST_F(AlarmThread, TimesOfEvents) {
    struct {
        const char* what;
        int64_t section_start;
        const char* script;
        const char* events;
    } const cases[] = {
        {"none begins before its section", -4, "pre=2 motion:1 10 motion:1 1", "-4-1 1-12"},
        {"as far as there is footage; a setting that is none leaves the one before", -500,
         "pre=10 delay=1 100 motion:1 5 pre=11 delay=10 95 motion:1 5", "-500-105 201-206"},
        {"or the first of the table", -500, "pre=200 delay=200 100 motion:1 20", "100-110"},
        {"a range that asks for nothing leaves an open event", 0, "delay=4 type=2 io:5 1 type=0 70", "0-5:4"},
        {"one that reaches back beyond the one before", -500, "100 motion:1 1 pre=10 motion:1 1", "100-101 -500-103"},
        {"the first alarm may be an input's", 0, "type=2 io:2 1", "0-2:4"},
        {"one look lasts its delay", 0, "delay=3 10 motion:80ms 60", "10-40"},
        {"an alarm within the delay extends its event", 0, "pre=1 delay=3 50 motion:5 25 motion:5 60 motion:5 60",
         "45-114 140-179"},
        {"one that would reach into the one before begins at its end", -1000,
         "pre=6 delay=1 100 motion:4 20 motion:4 7", "70-108 108-132"},
        {"the run's end saves an open event", 0, "delay=7 10 motion:2 5", "10-16"},
        {"setting the clock moves none", 0, "delay=1 10 +motion 5 clock=-3600 5 -motion 20", "10-24"},
        {"io and motion make one", 0, "delay=1 type=3 +io 10 +motion 10 -io 20", "10-24:8"},
        {"smart alarms fold into one", 0, "delay=1 type=4 10 crossing:3 gathering:3 3 +intrusion stay:3 -intrusion 20",
         "10-26:32"},
        {"a day that is recorded whole has none", 0, "mode=1 +motion +io 100", ""},
        {"nor is one noted after the end of the range", 0, "hour=12 minute=1 60 motion:10 60", ""},
        {"a new one takes another alarm's place", 0, "delay=4 10 motion:2 3 type=2 io:2 100", "10-14 15-76:4"},
    };
    uint32_t file = 0;
    for (const auto& c : cases) {
        AlarmsOfMotion();
        RecordRun(c.script, c.section_start, file);
        EXPECT_EQ(Events(file++), c.events) << c.what;
    }
    EXPECT_GT(log_.Count("  TIME_SCOPE_DIFF Record Time Over ! \n"), 0);
}

TEST_F(AlarmThread, EverySettingMeansItsSeconds) {
    constexpr int kPreRecord[] = {0, 5, 10, 15, 20, 25, 30, 10, 0, 0};
    constexpr int kDelay[] = {10, 5, 10, 30, 60, 120, 300, 600, 0, 0};
    std::ostringstream expected;
    Begin(-1000);
    int64_t now = 0;
    for (int setting = 0; setting < 10; ++setting) {
        Change("pre", setting);
        Change("delay", setting);
        const int64_t rest = kDelay[setting] + 40;
        Play("motion:1 " + std::to_string(rest));
        expected << (setting == 0 ? "" : " ") << now - kPreRecord[setting] << '-' << now + std::max(kDelay[setting], 1);
        now += 1 + rest;
    }
    EXPECT_EQ(Events(), expected.str());
}

TEST_F(AlarmThread, TheNextRunGoesOnInTheFile) {
    Play("pre=6 delay=1");  // 30 s, 5 s
    RecordRun("100 motion:4 20", -1000);
    RecordRun("motion:1 100 motion:1 100", 100, kFile, 130);
    EXPECT_EQ(Events(), "70-108 108-135 201-236") << "joined over the border";
}

TEST_F(AlarmThread, AnOpenEventIsSavedEveryTwentySeconds) {
    Play("delay=4");  // none, 60 s
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
    Play("delay=1");
    const auto is_called = [&] {  // by an alarm that is over again when the thread would have looked by itself
        Set(ALARM_SOURCE_DEF_MOTION, true);
        for (int pass = 0; pass < 4; ++pass) {
            watch.Pass();
        }
        Set(ALARM_SOURCE_DEF_MOTION, false);
        return g_timeline.IsAsleep();
    };
    ASSERT_TRUE(WaitUntil(is_called)) << "then it looks every 80 ms by itself";
    Play("+motion 10 -motion");
    g_timeline.RunFreely();
    EXPECT_TRUE(WaitUntil([] { return Event(1).m_u32AlarmEndTime == kNoon + 14; })) << "the record follows its head";
    EXPECT_EQ(Events(), "0-14");
}

TEST_F(AlarmThread, AnAlarmThatIsOverAgainWhenTheThreadWakesIsAnEvent) {
    Launch();
    const Descriptor file = card::OpenEvents(AVFILE_READ_WRITE);
    FileEvents events(file.Get(), 2);
    ASSERT_EQ(events.Begin(), FileEvents::Outcome::GoOn);
    EXPECT_FALSE(events.IsCalled());
    Set(ALARM_SOURCE_DEF_MOTION, true);
    EXPECT_TRUE(events.IsCalled());
    Set(ALARM_SOURCE_DEF_MOTION, false);
    EXPECT_TRUE(events.IsCalled());
    EXPECT_EQ(events.LookAtBoard(), FileEvents::Outcome::GoOn);
    EXPECT_FALSE(events.IsAtRest()) << "its event is open";
}

TEST_F(AlarmThread, AnOverwrittenFileStartsWithoutEvents) {
    RecordRun("motion:1 1", 0, 1);
    RecordRun("motion:1 1", 0, 2);
    g_flags.file_begun_anew = 1;
    Begin();
    EXPECT_EQ(g_flags.file_begun_anew, -1);
    EXPECT_EQ(support::Card::Read(kEventFile, 256, 256), std::string(256, '\0'));
    Play("30 motion:1 1");
    End();
    EXPECT_EQ(Events(1), "30-31");
    EXPECT_EQ(Events(2), "0-1");
}

TEST_F(AlarmThread, EachKindOfRangeWatchesItsOwnAlarms) {
    const char* const kEvents[] = {"", "4-5", "0-1:4", "28-29:8", "18-19:32 20-21:32 24-25:32 26-27:32", ""};
    for (uint32_t kind = 0; kind < std::size(kEvents); ++kind) {
        Change("type", static_cast<int>(kind));
        Begin(0, kind);
        for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) {
            Set(source, true);
            Play("1");
            Set(source, false);
            Play("1");
        }
        End();
        EXPECT_EQ(Events(kind), kEvents[kind]) << kind;
    }
}

TEST_F(AlarmThread, EventsThatCannotBeReadForAWhileAreNotWrittenOver) {
    RecordRun("motion:1 1");
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
    uint32_t file = 0;
    for (const auto& [next_event, events] : {std::pair{"2", "0-1"}, {"+motion 160ms -motion 1", "0-1 1-1"}}) {
        const CardFault fault({.length = sizeof(AlarmFileInfoHead_S), .times = 1});
        Begin(0, file);
        Play("motion:1 160ms");
        EXPECT_EQ(Head(file).m_u32AlarmEventSum, 1u);
        EXPECT_EQ(Event(1, file).m_u32AlarmEventFlag, 0u) << "counted and refused";
        Play(next_event);
        EXPECT_EQ(Events(file++), events) << "within a second, or before the next one takes its place";
        End();
    }
}

TEST_F(AlarmThread, AnEventRefusedUntilItsRunWasOverIsSavedByTheNextRunOnTheSameCard) {
    const auto refused_run = [this](const std::string& script, uint32_t file) {
        const CardFault fault({.length = sizeof(AlarmFileInfoHead_S)});
        RecordRun(script, 0, file);
    };
    for (const uint32_t file : {1, 2}) {
        refused_run("motion:1 1", file);
        EXPECT_EQ(Head(file).m_u32AlarmEventSum, 1u);
        EXPECT_EQ(Event(1, file).m_u32AlarmEventFlag, 0u) << "counted and refused";
        if (file == 2) {  // another card
            std::fstream(kEventFile).seekp(256 * file) << std::string(256, '\0');
        }
        RecordRun("2", 0, file);
    }
    EXPECT_EQ(Events(1), "0-1");
    EXPECT_EQ(Event(1, 2).m_u32AlarmEventFlag, 0u);
    refused_run("5 motion:1 1", 1);
    refused_run("1", 2);
    EXPECT_EQ(Event(2).m_u32AlarmEventFlag, 0u);
    RecordRun("1", 0, 2);
    EXPECT_EQ(Events(1), "0-1 5-6") << "saved by a run in another file";
    for (const uint32_t next_file : {2, 1}) {
        const uint32_t count = Head().m_u32AlarmEventSum;
        {
            const CardFault fault({.length = sizeof(AlarmEventHead_S)});
            Begin();
            Play("motion:1");
            EXPECT_TRUE(Leaves());
            End();
        }
        EXPECT_EQ(Head().m_u32AlarmEventSum, count) << "its head was refused as well";
        RecordRun("1", 0, next_file);
    }
    EXPECT_EQ(Events(1), "0-1 5-6 0-1 0-1");
}

TEST_F(AlarmThread, AFailureEndsTheThreadAndNothingElse) {
    EXPECT_FALSE(CardWasPulled());  // it keeps a descriptor from the first look on
    const long descriptors = support::Descriptors();
    ASSERT_TRUE(std::filesystem::remove(kEventFile) && std::filesystem::create_directory(kEventFile));
    Launch();
    EXPECT_TRUE(Leaves());
    EXPECT_EQ(log_.Count("AlarmEvent end"), 0) << "a file that cannot be opened is no news";

    ASSERT_TRUE(std::filesystem::remove(kEventFile) && std::ofstream(kEventFile));
    std::filesystem::resize_file(kEventFile, 64 << 20);
    const CardFault full({.error = ENOSPC});
    Begin();
    Play("motion:1");
    EXPECT_TRUE(Leaves());
    EXPECT_EQ(log_.Count(":AlarmEvent end !!!\n"), 1);
    g_flags.file_begun_anew = 1;
    Launch();
    EXPECT_TRUE(Leaves()) << "the events of an overwritten file could not be cleared";
    EXPECT_EQ(g_flags.file_begun_anew, 1) << "the next run does it";
    g_flags.file_begun_anew = -1;

    Begin();
    SysconfigExit();
    EXPECT_TRUE(Leaves()) << "no configuration";
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
    ASSERT_EQ(umount2(support::kCardDirectory, MNT_DETACH), 0);
    Launch();
    EXPECT_TRUE(Leaves());
    EXPECT_TRUE(std::filesystem::is_empty(support::kCardDirectory));
    EXPECT_EQ(GetRecordStopFlag(), 0);
}

}  // namespace
