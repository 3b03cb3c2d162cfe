// Alarms as the camera's detectors would raise them: the shared alarm board and a script of timed alarms.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "SharedSegment.h"
#include "libAlarmProcess.h"

namespace desk {

// The names that scripts and commands use for alarm sources, in the order of AlarmSourceDef; "io+motion" may stand
// for "io_motion", "io" for "io0".
std::optional<AlarmSourceDef> AlarmByName(const std::string& name);
std::string AlarmNames();  // for messages: "io0, io1, motion, ..."

// One line of a script: an alarm raised or cleared, or a setting changed, at a time after the start.
struct TimedAction {
    std::chrono::milliseconds at;
    std::optional<AlarmSourceDef> alarm;
    bool on = false;
    std::string setting;  // "NAME = VALUE" when it is no alarm
};

// Lines "at 5s motion on", "at 1m30s motion off", "at 7.5s set NAME = VALUE"; "#" begins a comment.  Sorted by time.
// Throws std::runtime_error that names the line.
std::vector<TimedAction> ParseAlarmScript(const std::string& text);

// The writer of the alarm board, which it owns.  The board is written whole, so there is one in the camera.
class AlarmBoard {
  public:
    AlarmBoard();
    ~AlarmBoard();
    AlarmBoard(const AlarmBoard&) = delete;
    AlarmBoard& operator=(const AlarmBoard&) = delete;

    void Set(AlarmSourceDef source, bool on);
    std::string Status() const;  // the names of the alarms that are on, or "none"

  private:
    SharedSegment board_;
};

}  // namespace desk
