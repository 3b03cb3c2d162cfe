// The alarm events of the record file that a run goes on in.
//
// Owns the working copies of the file's event head and of its newest event record.  Of one thread, but for IsCalled.
// Invariants: at most one event is open; its record belongs into the slot of the head's count; all times are the run's
// start plus the time since, so setting the clock moves no event.
#pragma once

#include <cstdint>

#include "WatchedAlarm.h"
#include "libOthers.h"
#include "libRecordFile.h"

class FileEvents {
  public:
    enum class Outcome { GoOn, ReadFailed, WriteFailed, NoConfiguration };

    FileEvents(int fd, uint32_t file_no) : fd_(fd), file_no_(file_no) {}
    ~FileEvents();
    FileEvents(const FileEvents&) = delete;
    FileEvents& operator=(const FileEvents&) = delete;

    // Reads what the card has of this file; ReadFailed: to be tried again.
    Outcome Begin();
    // One look at the alarm board.
    Outcome LookAtBoard();
    // No event is open and nothing waits for the card.
    bool IsAtRest() const { return open_source_ < 0 && !record_is_refused_; }
    // At rest: whether there is something to do or to say.  An alarm that is on counts at the next LookAtBoard, also
    // when it is off again by then.  Another thread may ask, while this one's owner rests.
    bool IsCalled();
    // The newest event as it stands, and the head; false: the head could not be written.
    bool Save();

  private:
    bool ReadHead();
    uint32_t Now() const;
    void TakeSettings(const Record_Config_Data& config);
    bool Open(const Watched& alarm, const RecordInfoHead_S& section, uint32_t now);
    uint32_t ReachBack(const RecordInfoHead_S& section, uint32_t now) const;
    void JoinHead(const Watched& alarm, uint32_t* start);
    bool Quiet(const RecordInfoHead_S& section, uint32_t now);
    void Measure(const RecordInfoHead_S& section, uint32_t now);
    bool WriteHead();
    void SaveRecord();
    void TakeOverUnsaved();

    const int fd_;
    const uint32_t file_no_;
    uint32_t start_time_ = 0;
    long start_uptime_ = 0;

    bool reaches_back_to_section_ = false;
    uint32_t pre_record_ = 0;  // s
    uint32_t delay_ = 10;      // s

    AlarmEventHead_S card_head_{};  // as the card has it
    AlarmEventHead_S head_{};
    AlarmFileInfoHead_S record_{};
    bool was_called_ = false;  // by an alarm that may be over
    int open_source_ = -1;     // the alarm whose event is open; -1: none
    uint32_t mark_ = 0;        // when the alarm was last seen on
    uint32_t save_time_ = 0;   // when the event was last saved, at first when it began
    uint32_t size_ = 0;        // the section's when the event began
    uint32_t frames_ = 0;
    bool record_is_refused_ = false;
    uint32_t record_tried_ = 0;
};
