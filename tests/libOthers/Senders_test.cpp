#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <map>
#include <optional>
#include <thread>
#include <vector>

#include "SenderCodes.h"
#include "libLog.h"
#include "libOthers.h"
#include "support/AtOnce.h"
#include "support/NoMore.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"
#include "support/SystemServer.h"

namespace {

using support::SystemServer;

#define SENDER(function, message, command, field, code) {#function, function},
const std::map<std::string, int (*)(void*, unsigned int)> kSenders = {SYS_SENDERS(SENDER)};
#undef SENDER

using Bytes = std::vector<uint8_t>;

// A client with process number 5 at a running system server.
class Client : public testing::Test {
  protected:
    Client() { EXPECT_EQ(SysDrvInit(5), 0); }
    ~Client() override { SysDrvExit(); }

    // Sends `payload` with command 271.
    static int Send(Bytes payload) { return SetIRLed(payload.data(), static_cast<unsigned>(payload.size())); }

    support::SteppedClock clock_;
    support::Captured stderr_;
    std::atomic<int> verdict_{0};  // added to the payload's length
    std::optional<SystemServer> server_{
        std::in_place, [this](const SystemServer::Request& request) { return request.length + verdict_.load(); }};
};

TEST_F(Client, EverySenderAndItsFieldSendTheCommandAndThePayload) {
    ASSERT_EQ(kSenders.size(), 331u);
    ASSERT_EQ(kSenderCodes.size(), 331u);
    const support::Captured output(STDOUT_FILENO);
    uint32_t value = 0xA0000000;
    unsigned next_field = 4096;
    for (const auto& [name, command] : kSenderCodes) {
        ++value;
        ASSERT_EQ(kSenders.at(name)(&value, sizeof value), command == 247 ? 0 : 4) << name;
        const auto request = server_->Last();
        ASSERT_EQ(request.cmd, command) << name;
        ASSERT_TRUE(request.payload.size() == 4 && std::memcmp(request.payload.data(), &value, 4) == 0) << name;
        ControlSystemData(next_field++, &value, sizeof value);
        ASSERT_EQ(server_->Last().cmd, command) << name;
    }
    EXPECT_EQ(output.Text(), " control systemdata SFIELD_SET_DNS");
    EXPECT_EQ(server_->Count(), 2 * 331u);
    for (unsigned field : {0u, 271u, 4095u, 4427u, 4442u, 4443u, 8192u, 0x80001000u, ~0u}) {
        EXPECT_EQ(ControlSystemData(field, &value, sizeof value), -1) << field;
    }
    EXPECT_EQ(ControlSystemData(4096, nullptr, 0), -1);
    EXPECT_EQ(server_->Count(), 2 * 331u);
    EXPECT_EQ(int{SYS_MSG_MAX}, 369);
}

TEST_F(Client, RequestHasTwentyBytesAfterItsType) {
    EXPECT_EQ(Send({1, 2, 3}), 3);
    EXPECT_EQ(SendSysQuitCmd(), 0);
    ASSERT_TRUE(support::WaitUntil([&] { return server_->Queue().Requests().size() == 2; }));
    const auto requests = server_->Queue().Requests();
    EXPECT_EQ(requests[0], (std::array<int32_t, 5>{271, 5, 0, 3, 3 * 12288}));
    EXPECT_EQ(requests[1], (std::array<int32_t, 5>{251, 0, 0, 0, 0}));
}

TEST_F(Client, ResultIsTheServersExceptForALogin) {
    verdict_ = -1003;
    EXPECT_EQ(Send({1, 2, 3}), -1000);
    uint8_t password[8] = "secret";
    EXPECT_EQ(DoSysLogin(password, sizeof password), -1);
    EXPECT_EQ(server_->Last().cmd, 247);
    verdict_ = 0;
    EXPECT_EQ(DoSysLogin(password, sizeof password), 0);
    EXPECT_EQ(SetSysCommon(password, 2, 4711), 2);
    EXPECT_EQ(server_->Last().cmd, 4711);
    EXPECT_EQ(SetIRLed(nullptr, 0), 0) << "a request without payload";
}

TEST_F(Client, PayloadStaysInItsOwnSlot) {
    std::fill_n(server_->Segment(), SystemServer::kSegmentSize, uint8_t{0x77});
    EXPECT_EQ(Send(Bytes(12288, 1)), 12288);
    EXPECT_EQ(std::count(server_->Segment(), server_->Segment() + SystemServer::kSegmentSize, 1), 12288);
    EXPECT_EQ(server_->Segment()[4 * 12288 - 1], 1);

    EXPECT_EQ(Send(Bytes(12289, 2)), -1);
    EXPECT_EQ(SetIRLed(nullptr, 4), -1);
    uint8_t byte = 3;
    EXPECT_EQ(SetIRLed(&byte, 0xFFFFFFFFu), -1);
    EXPECT_EQ(server_->Count(), 1u);

    SetSysProcId(2);
    EXPECT_EQ(Send({4}), 1);
    EXPECT_EQ(server_->Segment()[0], 4);
    SetSysProcId(13);
    EXPECT_EQ(Send(Bytes(12288, 5)), 12288) << "the last slot";
    EXPECT_EQ(server_->Segment()[SystemServer::kSegmentSize - 1], 5);
    for (int without_slot : {1, 14, 15}) {
        SetSysProcId(without_slot);
        EXPECT_EQ(Send({6}), -1) << without_slot;
    }
    EXPECT_EQ(server_->Count(), 3u);
}

TEST_F(Client, ThreadsGetTheirOwnAnswersAlsoWhileItStopsAndStarts) {
    std::atomic<int> wrong{0};
    std::jthread others([&wrong](const std::stop_token& over) {
        support::AtOnce(4, [&](int number) {
            const Bytes payload(static_cast<size_t>(10 * number + 10), static_cast<uint8_t>(number));
            while (!over.stop_requested()) {
                const int result = Send(payload);
                wrong += result != static_cast<int>(payload.size()) && result != -1;
            }
        });
    });
    for (size_t round = 1; round <= 50; ++round) {
        ASSERT_TRUE(support::WaitUntil([&] { return server_->Count() >= 8 * round; }));
        EXPECT_EQ(SysDrvExit(), 0);
        EXPECT_EQ(SysDrvInit(5), 0);
    }
    EXPECT_EQ(SysDrvExit(), 0);
    others = {};
    EXPECT_EQ(wrong, 0);
    for (const auto& request : server_->Requests()) {
        const auto length = static_cast<size_t>(request.length);
        ASSERT_EQ(request.payload, Bytes(length, static_cast<uint8_t>(length / 10 - 1)));
    }
    EXPECT_EQ(Send({1}), -1) << "process number 1 has no slot";
}

TEST_F(Client, RequestReachesAServerThatCameBack) {
    server_->Silent(true);
    std::future<int> result = std::async(std::launch::async, [] { return Send({1, 2, 3, 4, 5}); });
    EXPECT_TRUE(support::WaitUntil([&] { return server_->Count() == 1; }));
    const int32_t foreign[5] = {270, 5, 0, 99, 0};
    server_->Queue().Put(5, foreign, sizeof foreign);
    server_.reset();  // its queue while the answer is awaited, and its segment
    server_.emplace([](const SystemServer::Request& request) { return request.length + 10; });
    EXPECT_EQ(result.get(), 15);
    EXPECT_EQ(server_->Last().payload, (Bytes{1, 2, 3, 4, 5}));

    server_.reset();
    server_.emplace([](const SystemServer::Request& request) { return request.length + 20; });
    EXPECT_EQ(Send({6, 7}), 22) << "removed while nobody was waiting";
    EXPECT_EQ(server_->Last().payload, (Bytes{6, 7}));
    server_.reset();
    const auto unheard = [] { return Send({8}); };
    EXPECT_EQ(support::ResultAfter(4, unheard, [] { return true; }), 1);
    EXPECT_EQ(msgget(14073, 0), -1) << "a new queue is the server's to create";
}

TEST(Driver, RefusesNumbersOutOfRangeAndStartsWithoutServer) {
    const support::Captured log;
    for (int number : {0, 16, -1}) {
        EXPECT_EQ(SysDrvInit(number), -1);
    }
    EXPECT_EQ(log.Text(), "Error:Invalid Parameter\nError:Invalid Parameter\nError:Invalid Parameter\n");
    LogInit(nullptr, LOG_MODE_CONSOLE);
    EXPECT_EQ(SysCtrlInit(15), 0);
    EXPECT_TRUE(log.Has("[Trace]: SysDrvInit ") && log.Has(" gSysProcId 15\n"));
    EXPECT_EQ(SysCtrlExit(), 0);
    LogCleanup();
    EXPECT_EQ(msgctl(msgget(14073, 0), IPC_RMID, nullptr), 0) << "the queue stays";
    EXPECT_EQ(shmctl(shmget(14073, 0, 0), IPC_RMID, nullptr), 0) << "and so does the segment";
}

TEST(Driver, FailsInItsWordsWhenTheSystemIsFullAndTriesAgain) {
    const support::Captured log;
    uint8_t byte = 1;
    {
        const support::NoMore none(support::NoMore::kSegments);
        EXPECT_EQ(SysCtrlInit(5), -1);
        EXPECT_TRUE(log.Has("Error:Share Memory init fail\n"));
    }
    {
        const support::NoMore none(support::NoMore::kQueues);
        EXPECT_EQ(SysDrvInit(5), -1);
        EXPECT_TRUE(log.Has("Error:Msg_Init fail\n"));
        EXPECT_EQ(SetIRLed(&byte, 1), -1) << "the process number is 1 again";
    }
    const SystemServer server;
    EXPECT_EQ(SetIRLed(&byte, 1), 1) << "the start is tried again with the next request";
    SysDrvExit();
}

}  // namespace
