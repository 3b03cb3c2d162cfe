// The alarm-event thread: notes in the event file which stretches of a run belong to alarms.
//
// Owns the working copies of the record file's event head and of its newest event record, also of one that the card
// refused until its run was over.
// Never touches recording: whatever fails here ends this thread and nothing else.
// Threads: one a run, detached; it waits until the one of the run before has left.
// Invariants: at most one event is open; its record belongs into the slot of the head's count; all times
// are the run's start plus the time since, so setting the clock moves no event.
#include "AlarmEvent.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "CardFile.h"
#include "Clock.h"
#include "Mutex.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "Signal.h"
#include "Thread.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAlarmProcess.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr char kOperation[] = "AlarmEventThread";  // for the log
constexpr unsigned int kLookMs = 80;
constexpr int kPassesALook = 4;              // of the record loop
constexpr int kRestMs = 1000;                // should the record loop be held up, the thread looks for itself
constexpr uint32_t kSaveSeconds = 20;        // an event that waits for its end is saved no more often
constexpr uint8_t kReachBackToSection = 10;  // ucpreRecordTime: from the section's start

// Seconds, by the configuration's ucpreRecordTime and ucrecordDelay.
constexpr std::array<uint32_t, 10> kPreRecordTime{0, 5, 10, 15, 20, 25, 30, 10, 0, 0};
constexpr std::array<uint32_t, 10> kRecordDelayTime{10, 5, 10, 30, 60, 120, 300, 600, 0, 0};

uint32_t Distance(uint32_t a, uint32_t b) {
    return a > b ? a - b : b - a;
}

// ---- Which alarms count ----

enum RecordTimeType : uint8_t {  // Hour_Info::ucType of a range's end: what the range records
    ARG_RECORD_TIME_REGULAR = 0,
    ARG_RECORD_TIME_MOTION = 1,
    ARG_RECORD_TIME_IO = 2,
    ARG_RECORD_TIME_IO_MOTION = 3,
    ARG_RECORD_TIME_SMART_EVENT = 4
};

struct Watched {  // the one alarm that a range asks for
    int source;   // AlarmSourceDef; -1: none
    uint8_t event_type;
    bool is_on;
};

Watched WatchedAlarm(uint8_t record_time_type, const AlarmData& board) {
    const auto is_on = [&](int source) { return board.alarm[source].status == ALARM_STATUS_DEF_ON; };
    switch (record_time_type) {
        case ARG_RECORD_TIME_MOTION:
            return {ALARM_SOURCE_DEF_MOTION, 1, is_on(ALARM_SOURCE_DEF_MOTION)};
        case ARG_RECORD_TIME_IO:
            return {ALARM_SOURCE_DEF_IO_0, 4, is_on(ALARM_SOURCE_DEF_IO_0)};
        case ARG_RECORD_TIME_IO_MOTION:
            return {
                ALARM_SOURCE_DEF_IO_MOTION, 8,
                is_on(ALARM_SOURCE_DEF_IO_MOTION) || (is_on(ALARM_SOURCE_DEF_IO_0) && is_on(ALARM_SOURCE_DEF_MOTION))};
        case ARG_RECORD_TIME_SMART_EVENT:  // all smart alarms count as one
            return {ALARM_SOURCE_DEF_PEOPLE_GATHERING, 32,
                    is_on(ALARM_SOURCE_DEF_CROSSBORDER) || is_on(ALARM_SOURCE_DEF_INTRUSION) ||
                        is_on(ALARM_SOURCE_DEF_PEOPLE_STAY) || is_on(ALARM_SOURCE_DEF_PEOPLE_GATHERING)};
        default:
            return {-1, 0, false};
    }
}

// Tells what the present moment is recorded for; false when the run's range is over.
bool RecordTimeType(const SysInfo& config, uint8_t* type) {
    *type = ARG_RECORD_TIME_REGULAR;
    const tm local = LocalTime(WallSeconds());
    if (config.Record_config.weekScope.dayScope[local.tm_wday].ucSocpeMode != TIME_SCOPE_DIFF) {
        return true;
    }
    const Hour_Scope range = RunRange(config, local);
    *type = range.endHour.ucType;
    return DayRange::Of(range).Holds(MinuteOfDay(local));
}

// ---- The events of one record file ----

enum class Outcome { GoOn, ReadFailed, WriteFailed, NoConfiguration };

// The card counts this event and does not have it: for the thread of the next run.
struct Unsaved {
    AlarmEventHead_S head;
    AlarmFileInfoHead_S record;
};
std::optional<Unsaved> g_unsaved;  // the thread's whose turn it is

class Events {
  public:
    Events(int fd, uint32_t file_no) : fd_(fd), file_no_(file_no) {}
    ~Events() {
        if (record_is_refused_) {
            g_unsaved = {head_, record_};
        }
    }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    Outcome Begin();
    bool ReadHead();
    Outcome LookAtBoard();
    bool IsAtRest() const { return open_source_ < 0 && !record_is_refused_; }
    bool IsCalled();  // at rest: whether there is something to do or to say
    bool Save();      // false: the head could not be written

  private:
    uint32_t Now() const { return start_time_ + static_cast<uint32_t>(KQ_COMMON_GetUptime() - start_uptime_); }
    void TakeSettings(const Record_Config_Data& config);
    bool Open(const Watched& alarm, const RecordInfoHead_S& section, uint32_t now);
    uint32_t ReachBack(const RecordInfoHead_S& section, uint32_t now) const;
    void JoinHead(const Watched& alarm, uint32_t* start);
    bool Quiet(const RecordInfoHead_S& section, uint32_t now);
    void Measure(const RecordInfoHead_S& section, uint32_t now);
    void SaveRecord();
    void TakeOverUnsaved();

    const int fd_;
    const uint32_t file_no_;
    uint32_t start_time_ = 0;
    long start_uptime_ = 0;

    bool reaches_back_to_section_ = false;
    uint32_t pre_record_ = kPreRecordTime[0];
    uint32_t delay_ = kRecordDelayTime[0];

    AlarmEventHead_S head_{};
    AlarmFileInfoHead_S record_{};
    int open_source_ = -1;    // the alarm whose event is open; -1: none
    uint32_t mark_ = 0;       // when the alarm was last seen on
    uint32_t save_time_ = 0;  // when the event was last saved, at first when it began
    uint32_t size_ = 0;       // the section's when the event began
    uint32_t frames_ = 0;
    bool record_is_refused_ = false;
    uint32_t record_tried_ = 0;
};

// False: the head may be there and cannot be read now.  A fresh one in its place would cost the file its events.
bool Events::ReadHead() {
    const AVHeadLoad load = AVAlarmEventHeadLoad(fd_, file_no_, &head_);
    if (load != AV_HEAD_LOADED || head_.m_u32AlarmFileNo != file_no_) {
        head_ = {};  // nothing there, or bytes that are no head of this file
    }
    head_.m_u32AlarmEventSum = std::min(head_.m_u32AlarmEventSum, ALARM_EVENT_MAX);
    return load != AV_HEAD_FAILED;
}

Outcome Events::Begin() {
    if (!ReadHead()) {
        return Outcome::ReadFailed;
    }
    int own_number = static_cast<int>(file_no_);
    if (g_flags.file_begun_anew == own_number) {
        head_ = {};
        if (AV_AlarmEventInfoReset(fd_, file_no_, &head_) < 0) {
            return Outcome::WriteFailed;
        }
        g_flags.file_begun_anew.compare_exchange_strong(own_number, -1);
    }
    TakeOverUnsaved();
    start_time_ = static_cast<uint32_t>(WallSeconds());
    start_uptime_ = KQ_COMMON_GetUptime();
    libAlarmProcessInit();
    return Outcome::GoOn;
}

// Another head than the one that counts it is another card's, or its file has begun anew.
void Events::TakeOverUnsaved() {
    if (!g_unsaved) {
        return;
    }
    const Unsaved unsaved = *g_unsaved;
    const bool is_ours = unsaved.head.m_u32AlarmFileNo == file_no_;
    AlarmEventHead_S on_card = head_;
    if (!is_ours && AVAlarmEventHeadLoad(fd_, unsaved.head.m_u32AlarmFileNo, &on_card) == AV_HEAD_FAILED) {
        return;  // the next run asks again
    }
    g_unsaved.reset();
    if (std::memcmp(&unsaved.head, &on_card, sizeof on_card) != 0) {
        return;
    }
    if (is_ours) {
        record_ = unsaved.record;
        record_is_refused_ = true;
    } else if (AV_AlarmEventFileInfoWrite(fd_, &unsaved.head, &unsaved.record) < 0) {
        g_unsaved = unsaved;
    }
}

bool Events::Save() {
    record_is_refused_ = record_.m_u32AlarmEventFlag == ALARM_RECORD_FLAG;  // until it is there
    if (head_.m_u32AlarmEventFlag == ALARM_EVENT_FLAG && AV_AlarmEventInfoWrite(fd_, file_no_, &head_) < 0) {
        return false;
    }
    if (record_is_refused_) {
        SaveRecord();
    }
    return true;
}

// The head counts the record already: one that the card refuses is tried again once a second, until the next event
// takes its place in memory, also by the next run.
void Events::SaveRecord() {
    record_is_refused_ = AV_AlarmEventFileInfoWrite(fd_, &head_, &record_) < 0;
    record_tried_ = Now();
}

// A setting that the tables do not know leaves the one before it.
void Events::TakeSettings(const Record_Config_Data& config) {
    const uint8_t pre_record = config.ucpreRecordTime;
    const uint8_t delay = config.ucrecordDelay;
    reaches_back_to_section_ = pre_record == kReachBackToSection;
    if (pre_record < kPreRecordTime.size()) {
        pre_record_ = kPreRecordTime[pre_record];
    }
    if (delay < kRecordDelayTime.size()) {
        delay_ = kRecordDelayTime[delay];
    }
}

Outcome Events::LookAtBoard() {
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        return Outcome::NoConfiguration;
    }
    TakeSettings(config->Record_config);
    uint8_t record_time_type;
    if (!RecordTimeType(*config, &record_time_type)) {
        LOG_TRACE_AS(kOperation, "  TIME_SCOPE_DIFF Record Time Over ! \n");
        return Outcome::GoOn;
    }
    if (CardWasPulled()) {
        StopRecord();
    }
    AlarmData board{};
    AlarmDataRead(&board);
    const uint32_t now = Now();
    if (record_is_refused_ && now != record_tried_) {
        SaveRecord();
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);

    const Watched alarm = WatchedAlarm(record_time_type, board);
    const bool is_open = alarm.source >= 0 && alarm.source == open_source_;
    bool is_written = true;
    if (alarm.is_on && is_open) {
        mark_ = now;
    } else if (alarm.is_on) {
        is_written = Open(alarm, heads.section, now);
    } else if (is_open) {
        is_written = Quiet(heads.section, now);
    }
    return is_written ? Outcome::GoOn : Outcome::WriteFailed;
}

bool Events::IsCalled() {
    const SysInfo* config = GetSysconfigData();
    uint8_t record_time_type;
    if (config == nullptr || !RecordTimeType(*config, &record_time_type)) {
        return true;
    }
    TakeSettings(config->Record_config);
    AlarmData board{};
    AlarmDataRead(&board);
    return WatchedAlarm(record_time_type, board).is_on;
}

// False when the event that was still open could not be saved.
bool Events::Open(const Watched& alarm, const RecordInfoHead_S& section, uint32_t now) {
    if (open_source_ >= 0 && !Save()) {  // the schedule now asks for another alarm: the old event ends here
        return false;
    }
    if (record_is_refused_) {
        SaveRecord();
    }
    open_source_ = alarm.source;
    mark_ = now;
    save_time_ = now;
    uint32_t start = ReachBack(section, now);
    JoinHead(alarm, &start);
    size_ = section.m_u32RecordSize;
    frames_ = section.m_u32FrameSum;
    record_is_refused_ = false;
    AV_AlarmEventInfoEventSumFresh(&head_);
    AV_AlarmEventFileInfoAdd(&head_, &record_, start, alarm.event_type);
    return true;
}

uint32_t Events::ReachBack(const RecordInfoHead_S& section, uint32_t now) const {
    const uint32_t section_start = section.m_u32RecordStartTime;
    const bool has_room = section_start < now && pre_record_ <= now - section_start;
    return has_room && !reaches_back_to_section_ ? now - pre_record_ : section_start;
}

// An event whose reach would overlap the one before it begins at that one's end.
void Events::JoinHead(const Watched& alarm, uint32_t* start) {
    if (head_.m_u32AlarmEventFlag != ALARM_EVENT_FLAG) {
        AV_AlarmEventInfoHeadAdd(&head_, file_no_, *start, alarm.event_type);
        return;
    }
    const uint32_t previous_end = head_.m_u32PreAlarmEndTime;
    if (*start <= previous_end && previous_end - *start <= pre_record_) {
        *start = previous_end;
    }
    if (head_.m_u32AlarmStartTime > *start) {
        AV_AlarmEventInfoStartTimeFresh(&head_, *start);
    }
    AV_AlarmEventInfoEventTypeFresh(&head_, alarm.event_type);
}

// The alarm is off: its event goes on until it has been so for the whole delay.
bool Events::Quiet(const RecordInfoHead_S& section, uint32_t now) {
    Measure(section, now);
    const uint32_t quiet = Distance(record_.m_u32AlarmEndTime, mark_);
    if (quiet < delay_) {
        if (now < save_time_ || Distance(record_.m_u32AlarmEndTime, save_time_) < kSaveSeconds) {
            return true;
        }
        save_time_ = now;
        if (!Save()) {
            return false;
        }
        LOG_TRACE_AS(kOperation,
                     " :######################AlarmEndTime = %d RecordDelayTime = %d m_u32FileInfoHeadNo = %d \n",
                     static_cast<int>(now), static_cast<int>(delay_), static_cast<int>(file_no_));
        return true;
    }
    LOG_TRACE_AS(kOperation, " :AlarmDurationTime = %d RecordDelayTime = %d m_u32FileInfoHeadNo = %d\n",
                 static_cast<int>(quiet), static_cast<int>(delay_), static_cast<int>(file_no_));
    open_source_ = -1;
    return Save();
}

void Events::Measure(const RecordInfoHead_S& section, uint32_t now) {
    if (record_.m_u32AlarmEndTime <= now) {
        AV_AlarmEventFileInfoEndTimeFresh(&record_, now);
    }
    if (record_.m_u32AlarmEndTime != 0) {
        head_.m_u32PreAlarmEndTime = record_.m_u32AlarmEndTime;
    }
    if (head_.m_u32AlarmEndTime <= now) {
        AV_AlarmEventInfoEndTimeFresh(&head_, now);
    }
    if (section.m_u32RecordSize != 0) {
        AV_AlarmEventFileInfoFileSizeFresh(&record_, Distance(section.m_u32RecordSize, size_));
        AV_AlarmEventFileInfoFrameCountFresh(&record_, Distance(section.m_u32FrameSum, frames_));
        AV_AlarmEventFileInfoFrameRateFresh(&record_, section.m_u8Frame);
    }
}

// ---- The thread ----

struct Start {
    uint32_t run;
    uint32_t file_no;
};

std::atomic<uint32_t> g_run{0};  // number of the newest run
Mutex g_turn;                    // held by the thread at work; recording never takes it

// Where the thread waits while the record loop looks at the board for it.
class Rest {
  public:
    void WatchBegins() {
        const std::lock_guard guard(lock_);
        is_watched_ = true;
    }
    void WatchEnds() {
        const std::lock_guard guard(lock_);
        is_watched_ = false;
        if (resting_ != nullptr) {
            call_.Set();
        }
    }
    void Look() {
        const std::lock_guard guard(lock_);
        if (resting_ != nullptr && resting_->IsCalled()) {
            call_.Set();
        }
    }
    // True after a rest; false when there is none to be had, or the watch ended meanwhile: the run ends, too.
    bool Take(Events& events) {
        if (!events.IsAtRest() || !Begin(events)) {
            return false;
        }
        call_.TakeWithin(kRestMs);
        return End();
    }

  private:
    bool Begin(Events& events) {
        const std::lock_guard guard(lock_);
        if (is_watched_) {
            call_.Clear();  // one that came too late for the rest before
            resting_ = &events;
        }
        return is_watched_;
    }
    bool End() {
        const std::lock_guard guard(lock_);
        resting_ = nullptr;
        return is_watched_;
    }

    Mutex lock_;
    bool is_watched_ = false;    // by the record loop
    Events* resting_ = nullptr;  // who may be called
    Signal call_;
};
constinit Rest g_rest;

bool IsOn(const Start& start) {
    return g_flags.run_is_on && g_run == start.run;
}

// False when the thread is to end without a word.
bool FollowRun(Events& events, const Start& start) {
    Outcome outcome = events.Begin();
    if (outcome == Outcome::ReadFailed) {
        LOG_ERROR_AS(kOperation, ": the events of file %u cannot be read, tried again\n", start.file_no);
    }
    while (outcome == Outcome::GoOn || outcome == Outcome::ReadFailed) {
        if (outcome != Outcome::GoOn || !g_rest.Take(events)) {
            SleepMs(kLookMs);
        }
        if (!IsOn(start)) {
            events.Save();
            return true;
        }
        outcome = outcome == Outcome::GoOn ? events.LookAtBoard() : events.Begin();
    }
    return outcome == Outcome::WriteFailed;
}

void* AlarmEventThread(void* argument) {
    const std::unique_ptr<const Start> start(static_cast<const Start*>(argument));
    const std::lock_guard turn(g_turn);
    if (!IsOn(*start)) {
        return nullptr;
    }
    const Descriptor file = card::OpenEvents(AVFILE_READ_WRITE);
    if (!file.IsOpen()) {
        return nullptr;
    }
    Events events(file.Get(), start->file_no);
    if (FollowRun(events, *start)) {
        LOG_TRACE_AS(kOperation, " :AlarmEvent end !!!\n");
    }
    return nullptr;
}

}  // namespace

int AlarmEventStart() {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    std::unique_ptr<Start> start(new (std::nothrow) Start{++g_run, heads.file.m_u32FileInfoHeadNo});
    if (start == nullptr) {
        return ENOMEM;
    }
    pthread_t thread;
    const int error = StartThread(thread, ThreadEnd::kDetached, AlarmEventThread, start.get());
    if (error == 0) {
        static_cast<void>(start.release());  // the thread's now
    }
    return error;
}

AlarmWatch::AlarmWatch() {
    g_rest.WatchBegins();
}
AlarmWatch::~AlarmWatch() {
    g_rest.WatchEnds();
}
void AlarmWatch::Pass() {
    if (++passes_ % kPassesALook == 0) {
        g_rest.Look();
    }
}
