#include "libLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
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
