// What the card is told to take: all that a run wrote, again what it refused, and in whole sectors.  In which order,
// every card that a power cut can make asks.
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>

#include "CardFile.h"
#include "OpenRun.h"

namespace {

using support::Card;

constexpr uint64_t kKeyRecords = 0x0FC00000;

struct CardCall {
    char what;  // 'w': written, 's': handed over
    uint64_t offset;
    uint64_t length;
};

// Notes what happens to the record file at the door, in order.
class Tape {
  public:
    static constexpr off64_t kNothing = -1;
    static inline std::atomic<off64_t> refused{kNothing};  // the next hand-over, if it is that place's

    Tape() {
        All(true);
        card::ReplaceCardCalls(&kNoting);
    }
    ~Tape() { card::ReplaceCardCalls(nullptr); }

    static std::vector<CardCall> All(bool forget = false) {
        const std::lock_guard guard(lock);
        return forget ? std::exchange(tape, {}) : tape;
    }

  private:
    static void Note(char what, int fd, off64_t offset, uint64_t length) {
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)) == Card::RecordFile(0)) {
            const std::lock_guard guard(lock);
            tape.push_back({what, static_cast<uint64_t>(offset), length});
        }
    }
    static inline std::mutex lock;
    static inline std::vector<CardCall> tape;

    // A thread of an earlier test may still be at the door.
    static inline const card::Calls kReal = card::CardCalls();
    static inline const card::Calls kNoting = [] {
        card::Calls calls = kReal;
        calls.WriteAt = [](int fd, const void* buffer, size_t length, off64_t offset) {
            const ssize_t put = kReal.WriteAt(fd, buffer, length, offset);
            Note('w', fd, offset, length);
            return put;
        };
        calls.SyncRange = [](int fd, off64_t offset, off64_t length) {
            off64_t meant = offset;
            const bool is_refused = refused.compare_exchange_strong(meant, kNothing);
            const int done = is_refused ? -1 : kReal.SyncRange(fd, offset, length);
            Note('s', fd, offset, static_cast<uint64_t>(length));
            if (done != 0) {
                errno = EIO;
            }
            return done;
        };
        return calls;
    }();
};

class HandOverTest : public OpenRun {
  protected:
    HandOverTest() { AVRecordHandOverSet(RECORD_HAND_OVER_MIN_MS); }
    ~HandOverTest() override {
        EXPECT_TRUE(EndsItsRun());  // the tape goes with the test
        AVRecordHandOverSet(RECORD_HAND_OVER_MS);
    }
    static bool EndsItsRun() {
        KQ_RecordUninit();
        return AwaitNoOpenFile();
    }

    Tape tape_;
};

// The system counts what the card refused as written, and says so once.
TEST_F(HandOverTest, WritesAgainWhatTheCardRefused) {
    for (const uint64_t place : {uint64_t{0}, kKeyRecords + 20}) {  // the second run's first record
        SCOPED_TRACE(place);
        Tape::refused = static_cast<off64_t>(place);
        BeginRun();
        EXPECT_TRUE(support::WaitUntil([&] {
            std::string done;
            for (const CardCall& call : Tape::All()) {
                done += call.offset == place ? std::string(1, call.what) : "";
            }
            return done.find("sws") != std::string::npos;  // refused, written again, taken
        }));
        ASSERT_TRUE(EndsItsRun());
    }
}

TEST_F(HandOverTest, GivesTheCardAllOfALongInterval) {
    constexpr uint32_t kRecords = 300;  // more than fit in a page
    AVRecordHandOverSet(RECORD_HAND_OVER_MAX_MS);
    Open();
    for (uint32_t i = 0; i < kRecords; ++i) {
        EXPECT_EQ(Write(kH264Key), 0);
    }
    ASSERT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordKeyFrameSum, kRecords);
    ASSERT_TRUE(EndsItsRun()) << "its thread hands over the rest, and keeps no file open";
    uint64_t stream = 0, records = kKeyRecords;
    for (const CardCall& call : Tape::All()) {
        for (uint64_t* const given : {&stream, &records}) {
            *given += call.what == 's' && call.offset == *given ? call.length : 0;
        }
    }
    EXPECT_EQ(stream, AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth);
    EXPECT_GE(records, kKeyRecords + 20 * kRecords);
}

TEST_F(HandOverTest, WritesWholeSectorsAndNothingElse) {
    BeginRun();
    EXPECT_EQ(Write(kH264Delta), 0);
    uint64_t end = 0;
    for (const CardCall& call : Tape::All()) {
        if (call.what == 'w' && call.offset < kKeyRecords) {
            EXPECT_GE(call.offset, end) << "each frame begins at the end of the one before, not of its zeros";
            EXPECT_EQ((call.offset + call.length) % 512, 0u);
            EXPECT_LT(call.offset + call.length - end, 2048u);
            end = call.offset;
        }
    }
    EXPECT_EQ(std::filesystem::file_size(Card::RecordFile(0)), 0x10000000u);
}

}  // namespace
