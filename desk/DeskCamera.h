// Everything the recorder meets on a camera, in one process: media server, system server, alarm board, watchdog.
//
// Owns the peers and the order in which they start and end; follows the settings file, the alarm script and the
// control socket.  Run() belongs to the main thread; RequestStop() may come from a signal handler.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Alarms.h"
#include "ControlSocket.h"
#include "Feeder.h"
#include "Settings.h"
#include "Watchdog.h"

namespace desk {

struct DeskCameraOptions {
    Feed feed;
    std::string settings;  // file; empty: the standard settings
    std::string alarms;    // script; empty: none
    std::string journal;
    std::vector<std::string> dumps;  // elementary video of stream 0, then 1
    std::string control = kStandardControlPath;
    std::optional<double> seconds;    // how long to run
    std::optional<uint32_t> hostile;  // seed
};

class DeskCamera {
  public:
    explicit DeskCamera(const DeskCameraOptions& options);

    // Until the input's end, the given time, or RequestStop().  Throws std::runtime_error when the input fails.
    void Run();
    void RequestStop() { stop_ = true; }

    MediaServer& Media() { return *media_; }
    SystemServer& System() { return *system_; }

  private:
    using Clock = std::chrono::steady_clock;

    SysInfo InitialRecord();
    void ReadSettings();
    std::string ProblemsOf(SysInfo& record);
    void RunDueActions(Clock::duration since_start);
    void TellStatus(Clock::duration since_start);
    std::string Answer(const std::string& line);
    std::string Status();

    DeskCameraOptions options_;
    std::atomic<bool> stop_{false};
    ControlSocket control_;
    Journal journal_;
    std::unique_ptr<Hostility> hostility_;
    std::unique_ptr<MediaServer> media_;
    std::unique_ptr<SystemServer> system_;
    std::optional<SettingsFile> settings_;
    AlarmBoard alarms_;
    Watchdog watchdog_;
    std::vector<TimedAction> actions_;
    size_t next_action_ = 0;
    std::chrono::seconds told_{-1};
    std::unique_ptr<Feeder> feeder_;
};

}  // namespace desk
