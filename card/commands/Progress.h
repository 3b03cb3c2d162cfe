// How far a long task is: a bar with the time to go on a terminal, a line now and then elsewhere.  Always on
// standard error, so that what a command gives to a pipe stays its data.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace card {

class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Draws when there is something new to see; cheap to call often.
    void Show(uint64_t done, uint64_t total);

    // Takes the bar away: before anything else is printed, and at the end.
    void Clear();

  private:
    using Clock = std::chrono::steady_clock;

    std::string TimeToGo(uint64_t done, uint64_t total, double seconds) const;

    std::string what_;
    bool terminal_;
    int shown_ = -1;  // percent
    Clock::time_point begin_;
    Clock::time_point drawn_;
};

}  // namespace card
