// A progress bar on standard error; silent when that is not a terminal.
#pragma once

#include <cstdint>
#include <string>

namespace card {

class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Draws when the percentage has changed; cheap to call often.
    void Show(uint64_t done, uint64_t total);

    // Takes the bar away: before anything else is printed, and at the end.
    void Clear();

  private:
    std::string what_;
    bool terminal_;
    int shown_ = -1;  // percent
};

}  // namespace card
