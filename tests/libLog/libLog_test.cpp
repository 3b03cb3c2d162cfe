#include "libLog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "support/AtOnce.h"
#include "support/Stderr.h"

namespace {

TEST(LogLevel, AddsATagAndIsSilentUntilInitAndAfterCleanup) {
    support::Captured out;
    LogError("%s\n", "early");
    EXPECT_EQ(LogInit(nullptr, LOG_MODE_FILE), 0);
    LogTrace("%d", 1);
    LogDebug("%d", 2);
    LogError("%d", 3);
    LogWarn("%d", 4);
    LogInfo("%d", 5);
    LogTrace("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(LogCleanup(), 0);
    LogError("%s\n", "late");
    EXPECT_EQ(out.Text(), "[Trace]: 1[Debug]: 2[Error]: 3[Warn]: 4[Info]: 5[Trace]: " + std::string(4095, 'x'));
}

using Log = support::LoggedTest;

TEST_F(Log, NamesFunctionAndLineInFrontOfTheText) {
    EXPECT_EQ(LogMayWait(), 0) << "memory takes a line at once";
    const auto line = [at = __LINE__](int after) { return std::to_string(at + after); };
    LOG_TRACE(" nStreamType = %d\n", 7);
    LOG_ERROR("\n");
    LOG_WARN(": %s\n", "text");
    LOG_TRACE_AS("StartRecord", " %s\n", "text");
    PrintToStandardError("%s\n", "untagged");
    EXPECT_EQ(log_.Text(), "[Trace]: TestBody " + line(1) + " nStreamType = 7\n[Error]: TestBody " + line(2) +
                               "\n[Warn]: TestBody " + line(3) + ": text\n[Trace]: StartRecord " + line(4) +
                               " text\nuntagged\n");
}

// A pipe or a socket as standard error, made so that writing is to be avoided.
class DeadReader : public testing::TestWithParam<bool> {
  protected:
    DeadReader() : saved_(dup(STDERR_FILENO)) {
        EXPECT_EQ(GetParam() ? pipe(ends_) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0);
        EXPECT_EQ(dup2(ends_[1], STDERR_FILENO), STDERR_FILENO);
        LogInit(nullptr, LOG_MODE_ALL);
    }
    ~DeadReader() override {
        LogCleanup();
        dup2(saved_, STDERR_FILENO);
        LogOutputChanged();
        for (int fd : {saved_, ends_[0], ends_[1]}) {
            close(fd);
        }
    }

    int saved_;
    int ends_[2] = {-1, -1};
};

TEST_P(DeadReader, ThatLeftKillsNobody) {
    close(std::exchange(ends_[0], -1));
    LogTrace("a write would raise SIGPIPE\n");
    PrintToStandardError("here too\n");
}

TEST_P(DeadReader, ThatHangsStopsNobody) {
    const std::string line(1000, 'x');
    for (int i = 0; i < 1000; ++i) {  // more than either holds
        LogTrace("%s\n", line.c_str());
    }
    std::string seen(1 << 20, '\0');
    EXPECT_GT(read(ends_[0], seen.data(), seen.size()), 1010);
    LogTrace("once more\n");
    EXPECT_GT(read(ends_[0], seen.data(), seen.size()), 0) << "a reader that is back reads on";
    EXPECT_EQ(LogMayWait() == 1, GetParam()) << "a pipe takes a line in its own time";
}

INSTANTIATE_TEST_SUITE_P(Log, DeadReader, testing::Bool(),
                         [](const auto& is_pipe) { return is_pipe.param ? "Pipe" : "Socket"; });

// Nobody can read there, so nothing is formatted, and the first line after it is whole again.
TEST_F(Log, ForTheNullDeviceIsNotFormatted) {
    const int null = open("/dev/null", O_WRONLY);
    const int saved = dup(STDERR_FILENO);
    dup2(null, STDERR_FILENO);
    LogOutputChanged();
    int formatted = 0;
    LogTrace("%s%n\n", "lost", &formatted);
    dup2(saved, STDERR_FILENO);
    LogOutputChanged();
    EXPECT_EQ(formatted, 0);
    LogTrace("%s\n", "seen");
    close(null);
    close(saved);
    EXPECT_EQ(log_.Text(), "[Trace]: seen\n");
}

TEST_F(Log, LinesOfManyThreadsNeverMix) {
    const auto line = [](int number) { return std::string(300, static_cast<char>('a' + number)) + "\n"; };
    support::AtOnce(8, [&line](int number) {
        for (int i = 0; i < 200; ++i) {
            LogTrace("%s", line(number).c_str());
        }
    });
    EXPECT_EQ(log_.Count("\n"), 8 * 200);
    for (int number = 0; number < 8; ++number) {
        EXPECT_EQ(log_.Count("[Trace]: " + line(number)), 200) << line(number);
    }
}

}  // namespace
