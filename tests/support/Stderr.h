// Catches what the process writes to one of its standard descriptors, at the descriptor itself.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "libLog.h"
#include "support/MemoryFile.h"

namespace support {

// While it lives, everything written to `fd` lands in an unnamed file; Text() returns it so far.
class Captured {
  public:
    explicit Captured(int fd = STDERR_FILENO) : fd_(fd), saved_(dup(fd)) {
        fcntl(file_.fd(), F_SETFL, O_APPEND);  // a memory file does not order the writes of several threads by itself
        dup2(file_.fd(), fd_);
        LogOutputChanged();
    }
    ~Captured() {
        dup2(saved_.Get(), fd_);
        LogOutputChanged();
    }

    std::string Text() const { return file_.Get(0, file_.Size()); }
    bool Has(const std::string& part) const { return Text().find(part) != std::string::npos; }
    // How often `part` stands in it.
    int Count(const std::string& part) const {
        const std::string text = Text();
        int count = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++count;
        }
        return count;
    }

  private:
    const int fd_;
    const Descriptor saved_;
    const MemoryFile file_;
};

// A test of what logs: the log is on, and caught.
class LoggedTest : public testing::Test {
  protected:
    LoggedTest() { LogInit(nullptr, LOG_MODE_ALL); }
    ~LoggedTest() override { LogCleanup(); }
    bool Logged(const std::string& text) const { return log_.Has(text); }

    Captured log_;
};

}  // namespace support
