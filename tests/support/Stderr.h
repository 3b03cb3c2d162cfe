// Catches what the process writes to one of its standard descriptors, at the descriptor itself.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "libLog.h"

namespace support {

// While it lives, everything written to `fd` lands in an unnamed file; Text() returns it so far.
class Captured {
  public:
    explicit Captured(int fd = STDERR_FILENO) : fd_(fd), saved_(dup(fd)), file_(memfd_create("captured", MFD_CLOEXEC)) {
        fcntl(file_, F_SETFL, O_APPEND);  // a memory file does not order the writes of several threads by itself
        dup2(file_, fd_);
        LogOutputChanged();
    }
    ~Captured() {
        dup2(saved_, fd_);
        LogOutputChanged();
        close(saved_);
        close(file_);
    }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

    std::string Text() const {
        struct stat status {};
        EXPECT_EQ(fstat(file_, &status), 0);
        std::string text(static_cast<size_t>(status.st_size), '\0');
        const ssize_t got = pread(file_, text.data(), text.size(), 0);
        EXPECT_EQ(got, static_cast<ssize_t>(text.size()));
        return text;
    }
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
    int fd_;
    int saved_;
    int file_;
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
