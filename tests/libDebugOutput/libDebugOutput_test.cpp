#include "libDebugOutput.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Clock.h"
#include "Descriptor.h"
#include "support/Process.h"
#include "support/Stderr.h"
#include "support/WaitUntil.h"

namespace {

using support::WaitUntil;

constexpr unsigned short kPort = 409;
constexpr char kMarker[] = "/tmp/Debug_Port_ON";

sockaddr_in ConsoleAddress() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(kPort);
    return address;
}

// The console's pauses, fifty times shorter.
constexpr ClockSource kQuickClock{[] { return timeval{}; }, [] { return 0L; },
                                  [](unsigned int ms) { usleep(ms * 1000 / 50); }};

// What the process holds; the console must give all of it back.
struct Holdings {
    long descriptors = support::Descriptors();
    long threads = support::Threads();

    bool operator==(const Holdings&) const = default;
    bool AreBack() const {
        return WaitUntil([this] { return Holdings() == *this; });
    }
};

class Viewer {
  public:
    explicit Viewer(int receive_buffer = 0) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (receive_buffer != 0) {
            setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        }
        const sockaddr_in console = ConsoleAddress();
        connected_ = connect(fd_.Get(), reinterpret_cast<const sockaddr*>(&console), sizeof console) == 0;
    }

    bool Connected() const { return connected_; }
    void Leave() { fd_.Close(); }
    void Vanish() {  // a reset instead of an orderly end
        const linger at_once{1, 0};
        setsockopt(fd_.Get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        Leave();
    }
    bool Send(const std::string& bytes) {
        return send(fd_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // Everything received so far.
    const std::string& Seen() {
        char bytes[65536];
        ssize_t got;
        while ((got = recv(fd_.Get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
            seen_.append(bytes, static_cast<size_t>(got));
        }
        ended_ = ended_ || got == 0;
        return seen_;
    }
    bool Sees(const std::string& text) {
        return WaitUntil([&] { return Seen().find(text) != std::string::npos; });
    }
    bool SeesTheEnd() {
        return WaitUntil([this] { return Seen(), ended_; });
    }

  private:
    Descriptor fd_;
    bool connected_ = false;
    bool ended_ = false;
    std::string seen_;
};

class Console : public support::LoggedTest {
  protected:
    // Once before anything is counted: an emulator opens what it needs for a session with the first one.
    static void SetUpTestSuite() {
        support::ThreadsAtRest();
        DOStart(kPort);
        Viewer();
        DOStop();
    }
    Console() {
        ReplaceClock(&kQuickClock);
        EXPECT_TRUE(WaitUntil([] { return support::Threads() == support::ThreadsAtRest(); }));
    }
    ~Console() override {
        Shut();
        ReplaceClock(nullptr);
        RepeatFailures();
    }

    // What the test's own framework printed while a viewer was attached went to the viewer.
    static void RepeatFailures() {
        const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int part = 0; part < result.total_part_count(); ++part) {
            const testing::TestPartResult& failure = result.GetTestPartResult(part);
            std::printf("line %d: %s\n", failure.line_number(), failure.message());
        }
    }

    static void Open() {
        std::ofstream marker(kMarker);
        ASSERT_EQ(libDebugOutputStart(kPort), 0);
    }
    static void Shut() {
        std::filesystem::remove(kMarker);
        ASSERT_EQ(libDebugOutputStart(kPort), 0);
    }
    bool Printed(const std::string& text) const {
        return WaitUntil([&] { return Logged(text); });
    }
    // Logs until `viewer` sees it: the redirection follows the connection by a moment.
    bool Attached(Viewer& viewer) const {
        return WaitUntil([&] {
            LogInfo("are you there?\n");
            return viewer.Seen().find("[Info]: are you there?\n") != std::string::npos;
        });
    }
};

TEST_F(Console, FollowsTheMarker) {
    ASSERT_EQ(libDebugOutputStart(kPort), 0);
    EXPECT_FALSE(Viewer().Connected()) << "no marker, no port";
    EXPECT_EQ(log_.Text(), "");
    const Holdings before;

    Open();
    Open();
    EXPECT_TRUE(Viewer().Connected());
    EXPECT_TRUE(Printed(": Command disconnect\n"));
    EXPECT_TRUE(Printed(":Run Debuginfo++++\n"));
    EXPECT_TRUE(Printed("create tcp connect success "));
    EXPECT_EQ(log_.Count("Run Debuginfo"), 1) << "started once";

    Shut();
    EXPECT_FALSE(Viewer().Connected());
    EXPECT_TRUE(Printed(":Stop Debuginfo----\n"));
    EXPECT_TRUE(before.AreBack());
    Shut();
    EXPECT_EQ(log_.Count("Stop Debuginfo"), 1) << "stopped once";
}

TEST_F(Console, AViewerReceivesBothDescriptorsUntilItLeaves) {
    Open();
    Viewer viewer;
    ASSERT_TRUE(Attached(viewer));
    EXPECT_TRUE(Printed("A stupid connect!ip = 127.0.0.1, port = "));
    EXPECT_TRUE(viewer.Send(std::string(200000, '\x04') + "quit\n"));  // far more than one receive takes
    ASSERT_EQ(write(STDOUT_FILENO, "to standard output\n", 19), 19);
    LogError("%s", "to standard error\n");
    EXPECT_TRUE(viewer.Sees("to standard output\n[Error]: to standard error\n"));
    EXPECT_FALSE(Logged("to standard error")) << "only the viewer has it";

    viewer.Leave();  // after bytes that nobody may have read yet
    EXPECT_TRUE(Printed(": Command disconnect\n"));
    LogError("%s", "back home\n");
    EXPECT_TRUE(Logged("[Error]: back home\n"));
}

TEST_F(Console, ASecondViewerWaitsForTheFirstToLeave) {
    Open();
    Viewer first;
    ASSERT_TRUE(Attached(first));
    Viewer second;
    ASSERT_TRUE(second.Connected()) << "in the backlog";
    for (int line = 0; line < 100; ++line) {  // a second of the console's time
        LogInfo("line %d\n", line);
        usleep(10000 / 50);
    }
    EXPECT_TRUE(first.Sees("[Info]: line 99\n"));
    EXPECT_EQ(second.Seen(), "");
    first.Vanish();
    EXPECT_TRUE(Attached(second));
    EXPECT_EQ(second.Seen().find("line 99"), std::string::npos);
}

TEST_F(Console, ASlowViewerStallsNobody) {
    Open();
    Viewer asleep(4096);
    ASSERT_TRUE(Attached(asleep));
    const std::string line(1000, 'x');
    for (int i = 0; i < 20000; ++i) {  // 20 MB, several times what any socket buffers: a write that waits never returns
        LogTrace("%s\n", line.c_str());
    }
    errno = 0;
    EXPECT_EQ(write(STDERR_FILENO, line.data(), line.size()), -1);
    EXPECT_EQ(errno, EAGAIN) << "what does not fit is lost";
}

TEST_F(Console, StopsWithAViewerAttached) {
    const Holdings before;
    EXPECT_EQ(SetupNetwork(kPort), 0);  // threads begun outside of a start do not stand in its way
    EXPECT_TRUE(WaitUntil([&] { return Holdings().threads == before.threads; }));
    Open();
    EXPECT_EQ(Holdings().threads, before.threads + 2);
    Viewer viewer;
    ASSERT_TRUE(Attached(viewer));
    Shut();
    EXPECT_TRUE(viewer.SeesTheEnd());
    LogInfo("%s", "home again\n");
    EXPECT_TRUE(Logged("[Info]: home again\n"));
    viewer.Leave();
    EXPECT_TRUE(before.AreBack());
}

TEST_F(Console, APortInUseIsReportedAndLetsTheNextStartSucceed) {
    const int taken = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(taken, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in here = ConsoleAddress();
    ASSERT_EQ(bind(taken, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
    ASSERT_EQ(listen(taken, 1), 0);
    const Holdings before;
    Open();
    EXPECT_TRUE(Printed("libDebugOutput SetupNetwork "));
    EXPECT_TRUE(Printed(": Bind error. errno = 98\n"));
    EXPECT_EQ(SetupNetwork(kPort), -1);
    Shut();
    EXPECT_TRUE(before.AreBack());
    close(taken);
    Open();
    EXPECT_TRUE(Viewer().Connected());
}

TEST_F(Console, RedirectionKeepsItsOwnDescriptors) {
    const Holdings before;
    EXPECT_EQ(redirectionOutputCancle(), -1);
    EXPECT_EQ(redirectionOutput(-1), -4);
    EXPECT_TRUE(Printed("err in dup STDOUT.\n"));
    EXPECT_EQ(Holdings().descriptors, before.descriptors);

    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(redirectionOutput(ends[1]), 0);
    EXPECT_EQ(redirectionOutput(ends[1]), -1);
    close(ends[1]);  // the caller's; the redirection lives on
    const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(other, ends[1]) << "its number is free for anybody";
    ASSERT_EQ(write(STDOUT_FILENO, "o", 1), 1);
    ASSERT_EQ(write(STDERR_FILENO, "e", 1), 1);
    EXPECT_EQ(redirectionOutputCancle(), 0);
    EXPECT_EQ(redirectionOutputCancle(), -1);
    EXPECT_EQ(close(other), 0) << "not closed a second time by the redirection";
    char bytes[8];
    EXPECT_EQ(read(ends[0], bytes, sizeof bytes), 2);
    EXPECT_EQ(std::memcmp(bytes, "oe", 2), 0);
    EXPECT_EQ(read(ends[0], bytes, sizeof bytes), 0) << "no writer is left";
    close(ends[0]);
    EXPECT_EQ(Holdings().descriptors, before.descriptors);
}

}  // namespace
