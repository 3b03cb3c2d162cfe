#include "RecorderStatus.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

namespace fs = std::filesystem;
const std::string kState = RECORDER_STATE_FILE;

class StateFile : public support::LoggedTest {
  protected:
    StateFile() {
        clock_.uptime = ++second_;  // none is twice in the life of the process
        RecorderStatusActivity("testing");
    }
    ~StateFile() override {
        fs::remove_all(kState);
        fs::remove_all(kState + ".new");
    }
    void PublishASecondLater() {
        clock_.uptime = ++second_;
        RecorderStatusPublish();
    }
    static std::string Text() {
        std::ifstream file(kState);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static bool Says(const std::string& line) { return Text().find(line + "\n") != std::string::npos; }

    support::SteppedClock clock_;

  private:
    static inline long second_ = 1000;
};

TEST_F(StateFile, TellsEveryFigure) {
    PublishASecondLater();
    EXPECT_TRUE(Says("\nfile none\nsection none")) << Text();
    RecorderStatusActivity("recording");
    RecorderStatusPlace(3, 251);
    RecorderStatusFrame(1700000001);
    RecorderStatusWriteTook(40);
    RecorderStatusWriteTook(12);
    std::thread([] { RecorderStatusResynchronised(); }).join();
    for (int i = 0; i < 2; ++i) RecorderStatusWriteFailed();
    for (int i = 0; i < 3; ++i) RecorderStatusFrameDropped();
    for (int i = 0; i < 4; ++i) RecorderStatusFrameTorn();
    PublishASecondLater();
    EXPECT_EQ(Text(), "activity recording\nprocess " + std::to_string(getpid()) +
                          "\nfile 3\nsection 251\nlast_frame 1700000001\nfailed_writes 2\nlongest_write_ms 40\n"
                          "dropped_frames 3\ntorn_frames 4\nresynchronisations 1\n");
    EXPECT_FALSE(fs::exists(kState + ".new"));
}

TEST_F(StateFile, IsWrittenWhenSomethingChangedAndOnceASecond) {
    PublishASecondLater();
    RecorderStatusFrame(1);
    RecorderStatusPublish();
    EXPECT_FALSE(Says("last_frame 1")) << "not twice in a second";
    PublishASecondLater();
    EXPECT_TRUE(Says("last_frame 1"));
    fs::remove(kState);
    PublishASecondLater();
    EXPECT_FALSE(fs::exists(kState)) << "nothing changed";
    RecorderStatusFrame(2);
    RecorderStatusPublish();
    EXPECT_TRUE(Says("last_frame 2")) << "the pass in which nothing changed used up no turn";
}

TEST_F(StateFile, SaysStoppedAtTheEndWheneverItWasWrittenLast) {
    RecorderStatusFrameTorn();  // a change, to be written at once
    PublishASecondLater();
    RecorderStatusFrame(3);
    RecorderStatusEnd();
    EXPECT_TRUE(Says("activity stopped")) << Text();
    EXPECT_TRUE(Says("last_frame 3"));
}

TEST_F(StateFile, FollowsNoLink) {
    const fs::path victim = "/tmp/victim";
    std::ofstream(victim) << "untouched";
    for (const char* const planted : {"", ".new"}) {
        fs::remove(kState + planted);
        fs::create_symlink(victim, kState + planted);
        RecorderStatusFrameDropped();
        PublishASecondLater();
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(kState))) << planted;
        EXPECT_TRUE(Says("activity testing")) << planted;
    }
    EXPECT_EQ(fs::file_size(victim), 9u);
    EXPECT_EQ(log_.Text(), "");
    fs::remove(victim);
}

TEST_F(StateFile, OneThatCannotBeWrittenIsLoggedOnceAndTriedAgain) {
    for (const std::string& name : {kState, kState + ".new"}) {  // a folder stands in the way
        fs::remove_all(kState);
        fs::create_directories(name + "/full");
        RecorderStatusFrameTorn();
        for (int i = 0; i < 5; ++i) PublishASecondLater();
        EXPECT_FALSE(fs::is_regular_file(kState + ".new")) << "what could not take its place is gone";
        fs::remove_all(name);
        PublishASecondLater();
        EXPECT_TRUE(Says("activity testing")) << name << ": tried again although nothing changed since";
    }
    EXPECT_EQ(log_.Count("\n"), 2) << log_.Text();
}

}  // namespace
