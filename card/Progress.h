// A progress bar on standard error; silent when that is not a terminal.
#pragma once

#include <cstdint>
#include <string>

namespace card {

class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress();  // clears the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Draws when the percentage has changed; cheap to call often.
    void Show(uint64_t done, uint64_t total);

  private:
    std::string what_;
    bool terminal_;
    int shown_ = -1;  // percent
};

}  // namespace card
