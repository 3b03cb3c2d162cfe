#include "stream/StreamSurvey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"

namespace {

using namespace fixture;

// A section's stream head and first frame are one write: the head's place decides whether both count, also when the
// head itself is lost.
TEST(StreamSurvey, EndsWithTheWriteThatBeginsAtTheMark) {
    const Place place;
    const Recording card = Card{.sections = {{.seconds = 1}, {.seconds = 2}}}.RecordFolder(place);
    const auto second = std::ranges::find(card.frames, 1u, &WrittenFrame::section);
    const uint64_t head = second->offset - record_file::kStreamHeadSize;
    const std::string run = card.Read("hi000000.mp4", head, card.frames.back().offset - head);
    constexpr uint64_t kMark = RECORD_STREAM_LIMIT;
    for (const auto& [begin, lost_head] :
         {std::pair{kMark, false}, std::pair{kMark, true}, std::pair{kMark + 1, false}}) {
        const uint64_t shown = begin + (lost_head ? record_file::kStreamHeadSize : 0);
        card::Surveyor surveyor(
            [&](uint64_t offset, void* buffer, size_t length) -> size_t {
                char* const to = static_cast<char*>(buffer);
                const size_t zeros = offset < shown ? std::min<uint64_t>(length, shown - offset) : 0;
                std::memset(to, 0, zeros);
                if (zeros == length) return length;
                return zeros + run.copy(to + zeros, length - zeros, offset + zeros - begin);
            },
            begin + run.size());
        surveyor.GoToEnd();
        const auto runs = surveyor.Result().runs;
        ASSERT_EQ(runs.size(), begin == kMark ? 1u : 0u);
        if (runs.empty()) continue;
        EXPECT_EQ(runs[0].begin, shown);
        EXPECT_EQ(runs[0].end, begin + record_file::kStreamHeadSize + second->size);
    }
}

}  // namespace
