// A system that is full: it makes no further queue or segment while the object lives.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace support {

class NoMore {
  public:
    enum Kind { kQueues, kSegments };

    explicit NoMore(Kind kind) : limit_(kind == kQueues ? "/proc/sys/kernel/msgmni" : "/proc/sys/kernel/shmmni") {
        std::ifstream(limit_) >> before_;
        Allow("0");
    }
    ~NoMore() { Allow(before_); }
    NoMore(const NoMore&) = delete;
    NoMore& operator=(const NoMore&) = delete;

  private:
    void Allow(const std::string& count) const {
        std::ofstream file(limit_);
        EXPECT_TRUE(file << count << std::flush) << limit_;
    }

    const std::string limit_;  // of these namespaces, which are the test's own
    std::string before_;
};

}  // namespace support
