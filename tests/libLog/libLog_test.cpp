#include "libLog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Stderr.h"

namespace {

TEST(Log, IsSilentUntilInitAndAfterCleanup) {
    support::Captured out;
    LogError("%s\n", "early");
    EXPECT_EQ(LogInit(nullptr, LOG_MODE_FILE), 0);
    LogError("%s\n", "on");
    EXPECT_EQ(LogCleanup(), 0);
    LogError("%s\n", "late");
    EXPECT_EQ(out.Text(), "[Error]: on\n");
}

TEST(Log, EveryLevelHasItsTagAndNothingElseIsAdded) {
    support::Captured out;
    LogInit(nullptr, LOG_MODE_ALL);
    LogTrace("%d", 1);
    LogDebug("%d", 2);
    LogError("%d", 3);
    LogWarn("%d", 4);
    LogInfo("%d", 5);
    LogCleanup();
    EXPECT_EQ(out.Text(), "[Trace]: 1[Debug]: 2[Error]: 3[Warn]: 4[Info]: 5");
}

TEST(Log, CutsALongMessageAt4095Characters) {
    support::Captured out;
    LogInit(nullptr, LOG_MODE_ALL);
    LogTrace("%s", std::string(5000, 'x').c_str());
    LogCleanup();
    EXPECT_EQ(out.Text(), "[Trace]: " + std::string(4095, 'x'));
}

TEST(Log, NamesFunctionAndLineInFrontOfTheText) {
    support::Captured out;
    LogInit(nullptr, LOG_MODE_ALL);
    const int line = __LINE__ + 1;
    LOG_TRACE(" nStreamType = %d\n", 7);
    LOG_ERROR("\n");
    LOG_WARN(": %s\n", "text");
    LOG_TRACE_AS("StartRecord", " %s\n", "text");
    LogCleanup();
    PrintToStandardError("%s\n", "untagged");
    std::ostringstream wanted;
    wanted << "[Trace]: TestBody " << line << " nStreamType = 7\n[Error]: TestBody " << line + 1
           << "\n[Warn]: TestBody " << line + 2 << ": text\n[Trace]: StartRecord " << line + 3 << " text\nuntagged\n";
    EXPECT_EQ(out.Text(), wanted.str());
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
}

INSTANTIATE_TEST_SUITE_P(Log, DeadReader, testing::Bool(),
                         [](const auto& is_pipe) { return is_pipe.param ? "Pipe" : "Socket"; });

// Nobody can read there, so nothing is formatted, and the first line after it is whole again.
TEST(Log, ForTheNullDeviceIsNotFormatted) {
    support::Captured out;
    LogInit(nullptr, LOG_MODE_ALL);
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
    LogCleanup();
    close(null);
    close(saved);
    EXPECT_EQ(out.Text(), "[Trace]: seen\n");
}

TEST(Log, LinesOfManyThreadsNeverMix) {
    constexpr int kThreads = 8;
    constexpr int kLines = 200;
    support::Captured out;
    LogInit(nullptr, LOG_MODE_ALL);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                LogTrace("%s\n", std::string(300, static_cast<char>('a' + t)).c_str());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    LogCleanup();
    const std::string text = out.Text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), kThreads * kLines);
    for (int t = 0; t < kThreads; ++t) {
        const std::string line = "[Trace]: " + std::string(300, static_cast<char>('a' + t)) + "\n";
        size_t found = 0;
        for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
            ++found;
        }
        EXPECT_EQ(found, kLines) << "thread " << t;
    }
}

}  // namespace
