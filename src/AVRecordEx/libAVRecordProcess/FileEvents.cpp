#include "FileEvents.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "Clock.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libLog.h"

namespace {

constexpr char kOperation[] = "AlarmEventThread";  // for the log
constexpr uint32_t kSaveSeconds = 20;              // an event that waits for its end is saved no more often
constexpr uint8_t kReachBackToSection = 10;        // ucpreRecordTime: from the section's start

// Seconds, by the configuration's ucpreRecordTime and ucrecordDelay.
constexpr std::array<uint32_t, 10> kPreRecordTime{0, 5, 10, 15, 20, 25, 30, 10, 0, 0};
constexpr std::array<uint32_t, 10> kRecordDelayTime{10, 5, 10, 30, 60, 120, 300, 600, 0, 0};

uint32_t Distance(uint32_t a, uint32_t b) {
    return a > b ? a - b : b - a;
}

bool IsSame(const AlarmEventHead_S& a, const AlarmEventHead_S& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// An event that the card has in part or not at all, as the run that it belongs to ended.  Of the thread whose turn it
// is.
struct Unsaved {
    AlarmEventHead_S card_head;  // as the card has it
    AlarmEventHead_S head;       // counts the event
    AlarmFileInfoHead_S record;
};
std::optional<Unsaved> g_unsaved;

}  // namespace

FileEvents::~FileEvents() {
    if (record_is_refused_) {
        g_unsaved = {card_head_, head_, record_};
    }
}

uint32_t FileEvents::Now() const {
    return start_time_ + static_cast<uint32_t>(KQ_COMMON_GetUptime() - start_uptime_);
}

// False: the head may be there and cannot be read now.  A fresh one in its place would cost the file its events.
bool FileEvents::ReadHead() {
    const AVHeadLoad load = AVAlarmEventHeadLoad(fd_, file_no_, &head_);
    if (load != AV_HEAD_LOADED || head_.m_u32AlarmFileNo != file_no_) {
        head_ = {};  // nothing there, or bytes that are no head of this file
    }
    card_head_ = head_;
    head_.m_u32AlarmEventSum = std::min(head_.m_u32AlarmEventSum, ALARM_EVENT_MAX);
    return load != AV_HEAD_FAILED;
}

FileEvents::Outcome FileEvents::Begin() {
    if (!ReadHead()) {
        return Outcome::ReadFailed;
    }
    int own_number = static_cast<int>(file_no_);
    if (g_flags.file_begun_anew == own_number) {
        head_ = {};
        if (AV_AlarmEventInfoReset(fd_, file_no_, &head_) < 0) {
            return Outcome::WriteFailed;
        }
        card_head_ = head_;
        g_flags.file_begun_anew.compare_exchange_strong(own_number, -1);
    }
    TakeOverUnsaved();
    start_time_ = static_cast<uint32_t>(WallSeconds());
    start_uptime_ = KQ_COMMON_GetUptime();
    libAlarmProcessInit();
    return Outcome::GoOn;
}

// The card's head tells whether this is the event's card still, and its file not begun anew: no two are alike once they
// count an event.
void FileEvents::TakeOverUnsaved() {
    if (!g_unsaved) {
        return;
    }
    Unsaved unsaved = *g_unsaved;
    const uint32_t file_no = unsaved.head.m_u32AlarmFileNo;
    AlarmEventHead_S on_card = card_head_;
    if (file_no != file_no_ && AVAlarmEventHeadLoad(fd_, file_no, &on_card) == AV_HEAD_FAILED) {
        return;  // the next run asks again
    }
    g_unsaved.reset();
    if (on_card.m_u32AlarmEventFlag != ALARM_EVENT_FLAG || !IsSame(on_card, unsaved.card_head)) {
        return;
    }
    if (file_no == file_no_) {
        head_ = unsaved.head;
        record_ = unsaved.record;
        record_is_refused_ = true;
        return;
    }
    if (!IsSame(on_card, unsaved.head) && AV_AlarmEventInfoWrite(fd_, file_no, &unsaved.head) == 0) {
        unsaved.card_head = unsaved.head;
    }
    if (!IsSame(unsaved.card_head, unsaved.head) ||
        AV_AlarmEventFileInfoWrite(fd_, &unsaved.head, &unsaved.record) < 0) {
        g_unsaved = unsaved;
    }
}

bool FileEvents::Save() {
    record_is_refused_ = record_.m_u32AlarmEventFlag == ALARM_RECORD_FLAG;  // until it is there
    if (head_.m_u32AlarmEventFlag == ALARM_EVENT_FLAG && !WriteHead()) {
        return false;
    }
    if (record_is_refused_) {
        SaveRecord();
    }
    return true;
}

bool FileEvents::WriteHead() {
    if (AV_AlarmEventInfoWrite(fd_, file_no_, &head_) < 0) {
        return false;
    }
    card_head_ = head_;
    return true;
}

// An event that the card refuses is tried again once a second, after the head that counts it, until the next event
// takes its place in memory.  At the run's end it is left to the next run.
void FileEvents::SaveRecord() {
    const bool is_counted = card_head_.m_u32AlarmEventSum == head_.m_u32AlarmEventSum || WriteHead();
    record_is_refused_ = !is_counted || AV_AlarmEventFileInfoWrite(fd_, &head_, &record_) < 0;
    record_tried_ = Now();
}

// A setting that the tables do not know leaves the one before it.
void FileEvents::TakeSettings(const Record_Config_Data& config) {
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

FileEvents::Outcome FileEvents::LookAtBoard() {
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        return Outcome::NoConfiguration;
    }
    TakeSettings(config->Record_config);
    uint8_t record_time_type;
    if (!RecordTimeTypeNow(*config, &record_time_type)) {
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

    Watched alarm = WatchedAlarm(record_time_type, board);
    alarm.is_on = std::exchange(was_called_, false) || alarm.is_on;
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

bool FileEvents::IsCalled() {
    const SysInfo* config = GetSysconfigData();
    uint8_t record_time_type;
    if (config == nullptr || !RecordTimeTypeNow(*config, &record_time_type)) {
        return true;
    }
    TakeSettings(config->Record_config);
    AlarmData board{};
    AlarmDataRead(&board);
    was_called_ = WatchedAlarm(record_time_type, board).is_on || was_called_;
    return was_called_;
}

// False when the event that was still open could not be saved.
bool FileEvents::Open(const Watched& alarm, const RecordInfoHead_S& section, uint32_t now) {
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

uint32_t FileEvents::ReachBack(const RecordInfoHead_S& section, uint32_t now) const {
    const uint32_t section_start = section.m_u32RecordStartTime;
    const bool has_room = section_start < now && pre_record_ <= now - section_start;
    return has_room && !reaches_back_to_section_ ? now - pre_record_ : section_start;
}

// An event whose reach would overlap the one before it begins at that one's end.
void FileEvents::JoinHead(const Watched& alarm, uint32_t* start) {
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
bool FileEvents::Quiet(const RecordInfoHead_S& section, uint32_t now) {
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

void FileEvents::Measure(const RecordInfoHead_S& section, uint32_t now) {
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
