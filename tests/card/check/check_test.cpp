// What a check says of cards that are in order, of the leftovers of normal life, and of every kind of damage.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "fixture/Folder.h"
#include "fixture/Mend.h"
#include "fixture/StoreBytes.h"

namespace {

using namespace fixture;
using card::Finding;
using card::Findings;
using card::Volume;

constexpr uint32_t kLarge = 600000;  // bytes a frame: fills a record file in 435 frames

bool Has(const Findings& findings, const std::string& kind) {
    return std::ranges::find(findings, kind, &Finding::kind) != findings.end();
}

const Card kDay{.files = 2,
                .sections = {{.seconds = 50, .rate = 5, .virtual_every = 0},
                             {.seconds = 20, .pause = 90, .rate = 5, .width = 720, .height = 480, .virtual_every = 3},
                             {.seconds = 30, .pause = 1, .rate = 5, .audio = CODE_AUDIO_NULL}},
                .events = {{.after = 10, .seconds = 5, .type = 1}, {.after = 150, .seconds = 0, .type = 4}}};

TEST(Check, LeavesCardsInOrderAlone) {
    const Place blank;
    ASSERT_EQ(Tool({"format", "--yes", "--size", "1536M", blank}).status, 0);
    EXPECT_EQ(Listed(Check(blank)), "");

    const Place day;
    kDay.RecordImage(day);
    EXPECT_EQ(Listed(Check(day)), "");
    const Outcome outcome = Tool({"check", "--json", day});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(nlohmann::json::parse(outcome.out).at("clean"), true);
}

// As a cut between section head and file head leaves it.
TEST(Check, RemarksOnASectionThatIsAheadOfItsFile) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const StoreBytes before(recording, 2);
    auto head = recording.Get<RecordFileInfoHead_S>(RECORD_INDEX_NAME, FileHeadAt(0));
    head.m_u32RecordFileSumLenth -= recording.frames.back().size;
    recording.Corrupt(RECORD_INDEX_NAME, FileHeadAt(0), Bytes(head));
    EXPECT_TRUE(Has(Check(place), "section-ahead"));
    EXPECT_EQ(Tool({"check", place}).status, 0);
    Mend(place);
    EXPECT_EQ(Listed(Check(place)), "");
    EXPECT_EQ(before.Difference(), "");
}

// Naming the next file takes the file head to the card, ahead of section and stream.
TEST(Check, RemarksOnAFileHeadThatIsAheadAtASwitch) {
    const Place place;
    const Card card{.files = 3, .sections = {{.seconds = 20, .frame_bytes = kLarge}}, .keep_units = false};
    const Recording recording = card.RecordFolder(place);
    auto head = recording.Get<RecordFileInfoHead_S>(RECORD_INDEX_NAME, FileHeadAt(0));
    head.m_u32RecordFileSumLenth -= 2 * kLarge;
    const uint32_t end = std::ranges::find_if(recording.frames, [&](const WrittenFrame& frame) {
                             return frame.offset + 9 * kLarge > head.m_u32RecordFileSumLenth;
                         })->offset;
    recording.Corrupt(RECORD_INDEX_NAME, FileHeadAt(0), Bytes(head));
    auto section = recording.Get<RecordInfoHead_S>(RECORD_INDEX_NAME, SectionAt(0, 1));
    section.m_u32RecordSize = end;
    section.m_u32FrameSum = section.m_u32KeyFrameSum = 0;
    for (const WrittenFrame& frame : recording.frames) {
        if (frame.section != 0 || frame.offset >= end) continue;
        section.m_u32RecordEndTime = frame.time;
        section.m_u32FrameSum += frame.video ? 1 : 0;
        section.m_u32KeyFrameSum += frame.key ? 1 : 0;
    }
    recording.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), Bytes(section));
    recording.Corrupt("hi000000.mp4", end, std::string(RECORD_KEY_FRAME_BASE - end, '\0'));
    const Findings findings = Check(place);
    EXPECT_EQ(card::Errors(findings), 0u) << Listed(findings);
    EXPECT_THAT(findings, testing::Contains(testing::Field(
                              &Finding::consequence, "none beyond the cut: power went while the next file was named")));
    Mend(place);
    EXPECT_FALSE(Has(Check(place), "file-length")) << Listed(Check(place));
    EXPECT_EQ(card::Errors(Check(place)), 0u) << Listed(Check(place));
}

// A section's end is its start at the least, also where the last picture is older: so repair writes it.
TEST(Check, KnowsASectionWhoseClockWasSetBack) {
    const Place place;
    const Recording recording = Card{.sections = {{.seconds = 4}}}.RecordFolder(place);
    auto section = recording.Get<RecordInfoHead_S>(RECORD_INDEX_NAME, SectionAt(0, 1));
    const auto last = std::find_if(recording.frames.rbegin(), recording.frames.rend(),
                                   [](const WrittenFrame& frame) { return frame.video; });
    const uint32_t earlier = section.m_u32RecordStartTime - 10;
    section.m_u32RecordEndTime = section.m_u32RecordStartTime;
    recording.Corrupt("hi000000.mp4", last->offset + 14, Bytes(earlier));
    recording.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), Bytes(section));
    EXPECT_EQ(Listed(Check(place)), "");
}

TEST(Check, TellsOfDamagedFootageThatNothingBringsBack) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const auto& frame = recording.frames[recording.frames.size() / 2];
    recording.Corrupt("hi000000.mp4", frame.offset, std::string(300, 'x'));
    const Outcome outcome = Tool({"check", "--json", place});
    EXPECT_EQ(outcome.status, 1);
    const auto report = nlohmann::json::parse(outcome.out);
    const auto found = std::find_if(report.at("findings").begin(), report.at("findings").end(),
                                    [](const auto& finding) { return finding.at("kind") == "stream-damaged"; });
    ASSERT_NE(found, report.at("findings").end()) << outcome.out;
    EXPECT_EQ(found->at("place"), "hi000000.mp4");
    EXPECT_EQ(found->at("offset"), frame.offset);
    EXPECT_EQ(found->at("mendable"), false);
}

}  // namespace
