// What reaches the card when: the steady hand-over, the switch to the next file, and writes in whole sectors.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>

#include "CardFile.h"
#include "OpenRun.h"

namespace {

using support::Card;

struct CardCall {
    char what;  // 'w': written, 's': handed over
    std::string file;
    uint64_t offset;
    uint64_t length;
};
using CardCalls = std::vector<CardCall>;

// The first one at that place, from `from` on.
CardCalls::const_iterator Find(const CardCalls& calls, CardCalls::const_iterator from, char what, const char* file,
                               uint64_t offset) {
    return std::find_if(from, calls.end(), [&](const CardCall& call) {
        return call.what == what && call.file == file && call.offset == offset;
    });
}

// Notes every write and hand-over that passes the door, in order.
class Tape {
  public:
    static constexpr off64_t kNothing = -1;
    static inline std::atomic<off64_t> refused{kNothing};  // the next hand-over, if it is that place's

    Tape() {
        {
            const std::lock_guard guard(lock);
            tape.clear();
        }
        card::ReplaceCardCalls(&Calls());
    }
    ~Tape() { card::ReplaceCardCalls(nullptr); }

    static CardCalls All() {
        const std::lock_guard guard(lock);
        return tape;
    }
    static CardCalls Only(char what) {
        CardCalls found = All();
        std::erase_if(found, [&](const CardCall& call) { return call.what != what; });
        return found;
    }
    static CardCalls AwaitHandOvers(size_t count) {
        support::WaitUntil([&] { return Only('s').size() >= count; });
        return Only('s');
    }

  private:
    static const card::Calls& Calls() {  // made once: a thread of an earlier test may still be at the door
        static const card::Calls real = card::CardCalls();
        static const card::Calls calls = [] {
            card::Calls noting = real;
            noting.WriteAt = [](int fd, const void* buffer, size_t length, off64_t offset) {
                const ssize_t put = real.WriteAt(fd, buffer, length, offset);
                Note('w', fd, static_cast<uint64_t>(offset), length);
                return put;
            };
            noting.SyncRange = [](int fd, off64_t offset, off64_t length) {
                off64_t meant = offset;
                const bool is_refused = refused.compare_exchange_strong(meant, kNothing);
                const int done = is_refused ? -1 : real.SyncRange(fd, offset, length);
                Note('s', fd, static_cast<uint64_t>(offset), static_cast<uint64_t>(length));
                if (done != 0) {
                    errno = EIO;
                }
                return done;
            };
            return noting;
        }();
        return calls;
    }
    static void Note(char what, int fd, uint64_t offset, uint64_t length) {
        const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd));
        const std::lock_guard guard(lock);
        tape.push_back({what, std::filesystem::path(path).filename(), offset, length});
    }
    static inline std::mutex lock;
    static inline CardCalls tape;
};

class HandOverTest : public OpenRun {
  protected:
    explicit HandOverTest(uint32_t length = 0) : OpenRun(length) { AVRecordHandOverSet(RECORD_HAND_OVER_MIN_MS); }
    ~HandOverTest() override {
        KQ_RecordUninit();
        AwaitNoOpenFile();  // the tape goes with the test
        AVRecordHandOverSet(RECORD_HAND_OVER_MS);
    }

    Tape tape_;
};

TEST_F(HandOverTest, GivesTheCardStreamThenKeyRecordsThenHeads) {
    BeginRun();
    EXPECT_EQ(Write(kH264Delta), 0);
    const uint64_t end = AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth;
    const auto given = Tape::AwaitHandOvers(3);
    ASSERT_GE(given.size(), 3u);
    EXPECT_EQ(given[0].file, "hi000000.mp4");
    EXPECT_EQ(given[0].offset, 0u);
    EXPECT_LE(given[0].length, end);
    EXPECT_EQ(given[1].offset, 0x0FC00000u);
    EXPECT_EQ(given[2].file, "index000.bin");

    EXPECT_EQ(Write(kH264Delta), 0);
    KQ_RecordUninit();  // the thread hands over the rest, and keeps no file open
    EXPECT_TRUE(AwaitNoOpenFile());
    const auto all = Tape::Only('s');
    const auto last_stream = std::find_if(all.rbegin(), all.rend(),
                                          [](auto& call) { return call.file[0] == 'h' && call.offset < 0x0FC00000; });
    EXPECT_EQ(last_stream->offset + last_stream->length, AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth);
}

// The system counts what the card refused as written, and says so once.
TEST_F(HandOverTest, WritesAgainWhatTheCardRefused) {
    for (const uint32_t place : {0u, 0x0FC00000u + 20}) {  // the second run's first record
        SCOPED_TRACE(place);
        Tape::refused = place;
        BeginRun();
        EXPECT_TRUE(support::WaitUntil([&] {
            const CardCalls all = Tape::All();
            auto at = all.begin();
            for (const char what : {'s', 'w', 's'}) {  // refused, written again, taken
                at = Find(all, at, what, "hi000000.mp4", place);
            }
            return at != all.end();
        }));
        KQ_RecordUninit();
        ASSERT_TRUE(AwaitNoOpenFile());
    }
}

TEST_F(HandOverTest, GivesTheCardEveryKeyRecordOfALongInterval) {
    constexpr uint32_t kRecords = 300;  // more than fit in a page
    AVRecordHandOverSet(RECORD_HAND_OVER_MAX_MS);
    Open();
    for (uint32_t i = 0; i < kRecords; ++i) {
        EXPECT_EQ(Write(kH264Key), 0);
    }
    ASSERT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordKeyFrameSum, kRecords);
    KQ_RecordUninit();
    ASSERT_TRUE(AwaitNoOpenFile());
    uint64_t given = 0x0FC00000;
    for (const CardCall& call : Tape::Only('s')) {
        if (call.file == "hi000000.mp4" && call.offset == given) {
            given += call.length;
        }
    }
    EXPECT_GE(given, 0x0FC00000 + 20 * kRecords);
}

TEST_F(HandOverTest, WritesWholeSectorsAndNothingElse) {
    BeginRun();
    EXPECT_EQ(Write(kH264Delta), 0);
    uint64_t end = 0;
    for (const CardCall& call : Tape::Only('w')) {
        if (call.file == "hi000000.mp4" && call.offset < 0x0FC00000) {
            EXPECT_GE(call.offset, end) << "each frame begins at the end of the one before, not of its zeros";
            EXPECT_EQ((call.offset + call.length) % 512, 0u);
            EXPECT_LT(call.offset + call.length - end, 2048u);
            end = call.offset;
        }
    }
    EXPECT_EQ(std::filesystem::file_size(Card::RecordFile(0)), 0x10000000u);
}

class HandOverAtTheLimit : public HandOverTest {
  protected:
    HandOverAtTheLimit() : HandOverTest(0x0F900000 - 100) {}
};

TEST_F(HandOverAtTheLimit, NamesTheNextFileBeforeAHeadSaysThatThisOneIsFull) {
    BeginRun();
    const auto all = Tape::All();
    const auto named = Find(all, all.begin(), 'w', "index000.bin", 0);
    const auto given = Find(all, named, 's', "index000.bin", 0);
    ASSERT_NE(given, all.end());
    EXPECT_LT(given, Find(all, all.begin(), 'w', "index000.bin", 1024)) << "the full file's head";
    const auto system = Card::At<RecordSystemInfoHead_S>(support::kIndexFile, 0);
    EXPECT_EQ(system.m_u32RecordFileNo, 1u);
    EXPECT_EQ(system.m_u32RecordUsedFileSum, 1u);

    EXPECT_EQ(Write(kH264Delta), 0);  // after the limit, until the run ends: the same file, and no further step
    EXPECT_EQ(AV_RecordSystemInfoHeadGet()->m_u32RecordFileNo, 1u);
}

}  // namespace
