// The door to the card: what it opens, what it tells of a transfer, and what it says in the log.
#include "CardFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "CardHealth.h"
#include "Clock.h"
#include "RecorderStatus.h"
#include "support/CardFault.h"
#include "support/MemoryFile.h"
#include "support/Stderr.h"

namespace {

using card::Kind;
using card::Result;
using support::CardFault;
using support::MemoryFile;
using support::Refused;

class Door : public support::LoggedTest {
  protected:
    Door() { ReplaceClock(&kClock); }
    ~Door() override { ReplaceClock(nullptr); }

    Result Read(size_t length = 4, uint64_t offset = 0) {
        return card::ReadAt(Kind::kIndex, file_.fd(), offset, buffer_, static_cast<int64_t>(length));
    }
    Result Write(Kind kind = Kind::kRecord) { return card::WriteAt(kind, file_.fd(), 96, "four", 4); }
    int Lines(const std::string& word) const { return log_.Count(word); }
    static void Wait(int seconds) { uptime_ms += seconds * 1000; }

    static inline int64_t uptime_ms = 5000000;
    MemoryFile file_;
    char buffer_[64] = {};

  private:
    static constexpr ClockSource kClock{[] { return timeval{}; }, [] { return static_cast<long>(uptime_ms / 1000); },
                                        [](unsigned int) {}, [] { return uptime_ms * 1000; }};
};

TEST_F(Door, TellsTheEndOfTheFileFromAFailure) {
    file_.Put(0, "four");
    EXPECT_EQ(Read(), Result::kDone);
    EXPECT_EQ(Read(5), Result::kEndOfFile);
    EXPECT_EQ(Read(4, 2), Result::kEndOfFile);
    EXPECT_EQ(Read(4, 1ull << 33), Result::kEndOfFile);
    EXPECT_EQ(log_.Text(), "") << "an end is no failure";
    const struct {
        Refused fault;
        Result result;
        int error;
    } cases[] = {
        {{.access = Refused::kReads, .error = EIO}, Result::kFailed, EIO},
        {{.access = Refused::kReads, .error = 0}, Result::kFailed, EIO},  // it came short, and the file goes on
        {{.access = Refused::kReads, .error = EINTR, .times = 3}, Result::kDone, 0},
        {{.error = EINTR, .times = 3}, Result::kDone, 0},
        {{.error = 0}, Result::kFailed, ENOSPC},
    };
    for (const auto& c : cases) {
        const CardFault fault(c.fault);
        EXPECT_EQ(c.fault.access == Refused::kReads ? Read() : Write(), c.result);
        EXPECT_TRUE(c.error == 0 || errno == c.error) << errno;
    }
    for (const int fd : {-1, file_.fd()}) {
        EXPECT_EQ(card::ReadAt(Kind::kIndex, fd, 0, fd < 0 ? buffer_ : nullptr, 1), Result::kFailed);
        EXPECT_EQ(card::WriteAt(Kind::kIndex, fd, 0, buffer_, fd < 0 ? 1 : -1), Result::kFailed);
    }
}

TEST_F(Door, HeadsThatAreAbsentAreNotHeadsThatCannotBeRead) {
    RecordSystemInfoHead_S system;
    RecordFileInfoHead_S file;
    AlarmEventHead_S event;
    file_.Resize(1024 + 48 * 3 - 1);
    EXPECT_EQ(AVRecordSystemHeadLoad(file_.fd(), &system), AV_HEAD_LOADED);
    EXPECT_EQ(AVRecordFileHeadLoad(file_.fd(), 1, &file), AV_HEAD_LOADED);
    EXPECT_EQ(AVRecordFileHeadLoad(file_.fd(), 2, &file), AV_HEAD_ABSENT) << "all but its last byte";
    EXPECT_EQ(AVAlarmEventHeadLoad(file_.fd(), 3, &event), AV_HEAD_LOADED);
    EXPECT_EQ(AVAlarmEventHeadLoad(file_.fd(), 4, &event), AV_HEAD_ABSENT);
    EXPECT_EQ(AVRecordFileHeadLoad(file_.fd(), RECORD_FILE_MAX, &file), AV_HEAD_FAILED);
    EXPECT_EQ(AVAlarmEventHeadLoad(file_.fd(), ALARM_EVENT_FILE_MAX, &event), AV_HEAD_FAILED);
    const CardFault fault({.access = Refused::kReads});
    EXPECT_EQ(AVRecordSystemHeadLoad(file_.fd(), &system), AV_HEAD_FAILED);
    EXPECT_EQ(AVRecordFileHeadLoad(file_.fd(), 1, &file), AV_HEAD_FAILED);
    EXPECT_EQ(AVAlarmEventHeadLoad(file_.fd(), 3, &event), AV_HEAD_FAILED);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoRead(file_.fd(), 1, &file), -1);
}

TEST_F(Door, WaitsAtNoPipe) {
    const char kPath[] = "/tmp/CardFile_test";
    ASSERT_EQ(mkfifo(kPath, 0600), 0);
    EXPECT_FALSE(card::OpenExisting(Kind::kIndex, kPath, AVFILE_READ).IsOpen());
    EXPECT_EQ(errno, EINVAL);
    std::filesystem::remove(kPath);
}

TEST_F(Door, LogsTheFirstFailureOneAMinuteAndTheEnd) {
    {
        const CardFault fault({.access = Refused::kReads});
        Read();
        EXPECT_EQ(Lines("failed"), 1);
    }
    const CardFault fault({.times = 502});
    for (int i = 0; i < 500; ++i) Write();
    EXPECT_EQ(Lines("failed"), 2) << "another operation, another file: a line of its own";
    EXPECT_TRUE(
        Logged(" : writing /memfd:test (deleted), 4 bytes at 96 failed: errno 5 Input/output error (failure 1 "
               "in 0 s)\n"));
    Wait(59);
    Write();
    EXPECT_EQ(Lines("failed"), 2);
    Wait(1);
    Write();
    EXPECT_TRUE(Logged("(failure 502 in 60 s)\n"));
    Wait(1);
    Write();
    Write();
    EXPECT_TRUE(Logged(" : writing record files works again, after 502 failures in 61 s\n"));
    EXPECT_EQ(Lines("works again"), 1);
}

TEST_F(Door, ACardThatFailsNowAndThenDoesNotFloodTheLog) {
    CardFault fault({});
    for (int second = 0; second < 60; ++second) {
        fault.Again(1);
        Write();
        Write();
        Wait(1);
    }
    EXPECT_EQ(Lines("\n"), 2) << "a failure and its end, in a minute";
}

TEST_F(Door, AnotherErrnoIsNewsOnceASecond) {
    CardFault fault({});
    Write();
    fault.Again(1, EROFS);
    Write();
    EXPECT_EQ(Lines("failed"), 1);
    Wait(1);
    fault.Again(1, EROFS);
    Write();
    EXPECT_EQ(Lines("failed"), 2);
}

TEST_F(Door, JudgesTheCard) {
    struct Case {
        const char* what;
        int error, step_s, writes;
        bool is_failing;
    };
    file_.Put(0, "four");
    for (const Case& c :
         {Case{"read-only", EROFS, 0, 1, true}, Case{"gone", ENODEV, 1, 4, true},
          Case{"gone for a moment", ENODEV, 1, 3, false}, Case{"refuses for 10 s", ENOSPC, 1, 11, true},
          Case{"refuses for 9 s", ENOSPC, 1, 10, false}, Case{"one failure and silence", ENOSPC, 20, 1, false}}) {
        SCOPED_TRACE(c.what);
        const CardFault fault({.error = c.error, .times = c.writes});
        for (int i = 0; i < c.writes; ++i) {
            Write();
            Wait(c.step_s);
        }
        EXPECT_EQ(card::IsFailing(), c.is_failing);
        EXPECT_EQ(Read(), Result::kDone);
        EXPECT_EQ(card::IsFailing(), c.is_failing) << "what can be read need not be writable";
        Write();
        EXPECT_FALSE(card::IsFailing());
    }
    const CardFault fault({.error = EROFS});
    Write();
    card::Pardon();
    EXPECT_FALSE(card::IsFailing());
}

TEST_F(Door, CountsFailedWritesAndTheLongest) {
    const RecorderStatus before = RecorderStatusGet();
    card::Calls slow = card::CardCalls();
    slow.WriteAt = [](int, const void*, size_t length, off64_t) {
        uptime_ms += 1234;
        return static_cast<ssize_t>(length);
    };
    card::ReplaceCardCalls(&slow);
    Write();
    const CardFault fault({.times = 2});
    Write();
    Write(Kind::kEvents);
    Write(Kind::kOther);
    EXPECT_EQ(RecorderStatusGet().failed_writes, before.failed_writes + 2);
    EXPECT_EQ(RecorderStatusGet().longest_write_ms, 1234u);
}

}  // namespace
