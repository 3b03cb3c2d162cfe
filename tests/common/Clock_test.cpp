#include "Clock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "support/SteppedClock.h"

namespace {

constexpr char kZone[] = "/tmp/zone";

// A zone of one offset east of UTC, written in place as a copy that keeps the time of writing: its inode, size and time
// are those of the zone before.
void Put(const std::string& path, int hours) {
    std::string bytes(44, '\0');
    bytes.replace(0, 4, "TZif");
    bytes[39] = 1;  // one kind of time
    bytes[43] = 4;  // bytes of abbreviations
    const uint32_t offset = htonl(static_cast<uint32_t>(hours) * 3600);
    bytes += std::string(reinterpret_cast<const char*>(&offset), 4) + std::string("\0\0LMT\0", 6);
    std::ofstream(path, std::ios::binary) << bytes;
    const timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), long_ago, 0), 0);
}

class Zone : public testing::Test {
  protected:
    ~Zone() override {
        unsetenv("TZ");
        unlink(kZone);
    }
    // The local hour of 1970-01-01 00:00 UTC a second later.
    int NextHour() {
        clock_.uptime += 1;
        return LocalTime(0).tm_hour;
    }

    support::SteppedClock clock_;
};

TEST_F(Zone, ThatTheEnvironmentNamesIsReadAgainWhenItsFileChanges) {
    Put(kZone, 2);
    setenv("TZ", ":/tmp/zone", 1);
    EXPECT_EQ(NextHour(), 2);
    Put(kZone, 5);
    EXPECT_EQ(LocalTime(0).tm_hour, 2) << "looked at once a second";
    for (const int hour : {1, 2, 3, 4, 5, 6, 1}) {
        EXPECT_EQ(LocalTime(hour * 3600).tm_hour, hour + 2) << "each moment its own time";
    }
    EXPECT_EQ(NextHour(), 5);
    EXPECT_STREQ(getenv("TZ"), ":/tmp/zone");

    Put("/tmp/other", 7);
    unlink(kZone);
    ASSERT_EQ(symlink("/tmp/other", kZone), 0);
    EXPECT_EQ(NextHour(), 7) << "another link";
    Put("/tmp/other", 8);
    EXPECT_EQ(NextHour(), 8) << "what it leads to";
    unlink("/tmp/other");
    EXPECT_EQ(NextHour(), 0) << "none is UTC";
}

TEST_F(Zone, OfTheSystemIsReadAgainWhenItChanges) {
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount("none", "/etc", "tmpfs", 0, nullptr), 0);
    for (const int hours : {3, 4}) {
        Put("/etc/localtime", hours);
        EXPECT_EQ(NextHour(), hours);
    }
    EXPECT_EQ(getenv("TZ"), nullptr);
    EXPECT_EQ(umount2("/etc", MNT_DETACH), 0);
}

TEST_F(Zone, IsWholeForEveryThreadWhileItChanges) {
    Put(kZone, 1);
    setenv("TZ", ":/tmp/zone", 1);
    EXPECT_EQ(NextHour(), 1);
    const std::jthread reader([](const std::stop_token& over) {
        while (!over.stop_requested()) {
            EXPECT_GE(LocalTime(0).tm_hour, 1) << "never UTC";
        }
    });
    for (int round = 0; round < 100; ++round) {
        Put("/tmp/next", 1 + round % 9);
        rename("/tmp/next", kZone);
        clock_.uptime += 1;
        std::this_thread::yield();
    }
}

}  // namespace
