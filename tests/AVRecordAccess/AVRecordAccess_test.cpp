#include "AVRecordAccess.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "libAVRecordProcess.h"
#include "libWatchDog.h"
#include "support/Stderr.h"
#include "support/WaitUntil.h"

namespace {

using Process = support::LoggedTest;

TEST_F(Process, TakesLocalSettingsInTheirRangeOnly) {
    const struct {
        const char *stream, *duration;
        int want_stream, want_duration;
        const char* log;
    } cases[] = {
        {"2", "1200", 2, 1200, "nStreamType = 2\n"},
        {"3", "1201", 1, 600, "Param error, nStreamType = 3\n"},
        {"-1", "-1", 1, 600, "Param error, nDuration = -1\n"},
        {"auto", "abc", 0, 0, "nStreamType = 0\n"},
        {"99999999999999999999", "4294967296", 1, 600, "Param error, nDuration = 2147483647\n"},
    };
    int stream = -7, duration = -7;
    for (const auto& each : cases) {
        std::ofstream(CUSTOM_SETTINGS_FILE)
            << "[AVRecordCustom]\nStreamType=" << each.stream << "\nDuration=" << each.duration << "\n";
        ReadCustomSettings(&stream, &duration);
        EXPECT_EQ(stream, each.want_stream) << each.stream;
        EXPECT_EQ(duration, each.want_duration) << each.duration;
        EXPECT_TRUE(Logged(each.log)) << log_.Text();
    }
    std::filesystem::remove(CUSTOM_SETTINGS_FILE);
    stream = duration = 0;
    ReadCustomSettings(&stream, &duration);
    EXPECT_EQ(stream, 1);
    EXPECT_EQ(duration, 600);
}

TEST_F(Process, AStopSignalCountsOnce) {
    SignalProcess(SIGUSR1);
    EXPECT_EQ(GetRecordStopFlag(), 0);
    SignalProcess(SIGTERM);
    EXPECT_EQ(GetRecordStopFlag(), 1);
    SignalProcess(SIGINT);
    EXPECT_EQ(log_.Count(" signo "), 2);
    EXPECT_TRUE(Logged("Get a signal -- SIGTERM \n"));
}

TEST_F(Process, ACommandIsWaitedForAndNoOtherChild) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(42);
    }
    const std::string made = std::filesystem::temp_directory_path() / "made", died = made + ".by";
    EXPECT_EQ(Command_System(("sleep 0.1; touch " + made).c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(made));
    EXPECT_EQ(Command_System("exit 3"), 0) << "its own status does not count";
    EXPECT_EQ(Command_System(nullptr), -1);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(Command_System(("kill -PIPE $$; touch " + died).c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(died)) << "a command dies of a broken pipe, whatever this process does";
    signal(SIGPIPE, SIG_DFL);
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

// Last: its thread stays.
TEST_F(Process, BeatsIntoItsSlotOfTheWatchdogTable) {
    EXPECT_EQ(WatchDogStart(), 0);
    EXPECT_EQ(WatchDogIsRunning(), 1);
    const support::Captured printed(STDOUT_FILENO);  // the table's reader prints it
    EXPECT_TRUE(support::WaitUntil([] {
        WatchDogData table{};
        return WatchDogDataRead(&table) == 0 && table.WatchDog[WATCH_DOG_SOURCE_AVRECORD].time != 0;
    }));
}

}  // namespace
