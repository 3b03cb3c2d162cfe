// Every field of every head and record with wrong values: each is harmless, since nothing that is shown depends on
// it, or found by the check and mended by a repair.  And no single number spoils what is shown until then.
//
// CARD_SWEEP_TABLE=1 tries more values and prints the table: field, value, found by, mended.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "fixture/Folder.h"
#include "fixture/Mend.h"
#include "fixture/StoreBytes.h"

namespace {

using namespace fixture;
using card::Finding;

const Card kCard{.files = 2,
                 .sections = {{.seconds = 12, .rate = 5}, {.seconds = 8, .pause = 90, .rate = 5, .width = 640}},
                 .events = {{.after = 3, .seconds = 4}, {.after = 103, .seconds = 2, .type = 4}},
                 .keep_units = false};

const bool kAll = std::getenv("CARD_SWEEP_TABLE") != nullptr;

struct Field {
    const char* name;
    const char* file;
    uint64_t offset;
    size_t size;
};

#define FIELD(what, file, record, type, member)                                         \
    Field {                                                                             \
        what " " #member, file, (record) + offsetof(type, member), sizeof(type::member) \
    }
#define SYSTEM(member) FIELD("system", RECORD_INDEX_NAME, 0, RecordSystemInfoHead_S, member)
#define FILE_HEAD(member) FIELD("file", RECORD_INDEX_NAME, FileHeadAt(0), RecordFileInfoHead_S, member)
#define SECTION(member) FIELD("section", RECORD_INDEX_NAME, SectionAt(0, 1), RecordInfoHead_S, member)
#define LAST(member) FIELD("last section", RECORD_INDEX_NAME, SectionAt(0, 2), RecordInfoHead_S, member)
#define KEY(member) FIELD("key frame", "hi000000.mp4", RECORD_KEY_FRAME_BASE + 60, KeyFrameInfoHead_S, member)
#define EVENT_HEAD(member) FIELD("event head", RECORD_EVENT_NAME, 0, AlarmEventHead_S, member)
#define EVENT(member) FIELD("event", RECORD_EVENT_NAME, 8 * ALARM_EVENT_BLOCK, AlarmFileInfoHead_S, member)

// clang-format off
const Field kFields[] = {
    SYSTEM(m_u32SystemInfoHeadFlag), SYSTEM(m_u32SDCardFormat), SYSTEM(m_u32SDCardSpaceSize),
    SYSTEM(m_u32RecordSpaceSize), SYSTEM(m_u32PictureSpaceSize), SYSTEM(m_u32RecordFileSum),
    SYSTEM(m_u32RecordUsedFileSum), SYSTEM(m_u32RecordFileNo), SYSTEM(m_u32SystemInfoCrc),
    SYSTEM(m_u32RecordStartTime), SYSTEM(m_u32RecordEndTime),
    FILE_HEAD(m_u32FileInfoHeadFlag), FILE_HEAD(m_u32FileInfoHeadNo), FILE_HEAD(m_u32RecordStartTime),
    FILE_HEAD(m_u32RecordEndTime), FILE_HEAD(m_u32RecordFileSumLenth), FILE_HEAD(m_u32RecordFileSumType),
    FILE_HEAD(m_u32RecordSectionSum), FILE_HEAD(m_u32RecordKeyFrameSum),
    SECTION(m_u32RecordInfoHeadFlag), SECTION(m_u32RecordStartTime), SECTION(m_u32RecordEndTime),
    SECTION(m_u16RecordFileNo), SECTION(m_u16RecordUseNo), SECTION(m_u32RecordStartPos),
    SECTION(m_u32RecordSize), SECTION(m_u32FrameSum), SECTION(m_u32KeyFrameSum), SECTION(m_u32StartKeyFramePos),
    SECTION(m_u16Width), SECTION(m_u16Height), SECTION(m_u8Frame), SECTION(m_u8RecordType),
    SECTION(m_u8VideoType), SECTION(m_u8AudioType), SECTION(m_u8SmartEnable),
    LAST(m_u32RecordStartTime), LAST(m_u32RecordEndTime), LAST(m_u32RecordStartPos), LAST(m_u32RecordSize),
    LAST(m_u32KeyFrameSum),
    KEY(m_u32KeyFrameHeadFlag), KEY(m_u32KeyFrameTime), KEY(m_u32KeyFrameLenth), KEY(m_u32KeyFilePos),
    KEY(m_u8KeyFrameType),
    EVENT_HEAD(m_u32AlarmEventFlag), EVENT_HEAD(m_u32AlarmFileNo), EVENT_HEAD(m_u32AlarmStartTime),
    EVENT_HEAD(m_u32AlarmEndTime), EVENT_HEAD(m_u32AlarmEventSum), EVENT_HEAD(m_u32PreAlarmEndTime),
    EVENT_HEAD(m_u8AlarmEventType),
    EVENT(m_u32AlarmEventFlag), EVENT(m_u32AlarmStartTime), EVENT(m_u32AlarmEndTime), EVENT(m_u32FileSize),
    EVENT(m_u32FrameCount), EVENT(m_u16AlarmFileNo), EVENT(m_u16AlarmFileUseNo), EVENT(m_u8AlarmFileType),
    EVENT(m_u8FrameRate),
};
// clang-format on

// Kinds of damage that leave nothing to mend it from: what the event itself said is gone.
bool Irreplaceable(const std::string& field) {
    return field.starts_with("event ") && !field.starts_with("event head");
}

class Sweep : public testing::Test {
  protected:
    void Try(const Field& field, const char* name, const std::string& value) {
        const std::string present = recording_.Read(field.file, field.offset, field.size);
        // An end of 0 is a value of its own: the alarm was still on when the run ended.
        const bool means_something =
            field.name == std::string("event m_u32AlarmEndTime") && value == std::string(4, '\0');
        if (value == present || means_something) return;
        SCOPED_TRACE(std::string(field.name) + " = " + name);
        recording_.Corrupt(field.file, field.offset, value);
        const Shown damaged = Show(place_);
        EXPECT_LE(damaged.newest, pristine_.newest + 60);
        EXPECT_LE(damaged.hours, 4 * pristine_.hours);
        std::string found;
        std::set<std::string> kinds;
        for (const Finding& finding : Check(place_)) {
            if (kinds.insert(finding.kind).second) found += (found.empty() ? "" : ", ") + finding.kind;
        }
        EXPECT_TRUE(!found.empty() || damaged.text == pristine_.text) << "not found, and not harmless";
        Mend(place_);
        EXPECT_EQ(card::Errors(Check(place_)), 0u);
        const Shown after = Show(place_);
        const bool mended = after.text == pristine_.text;
        EXPECT_TRUE(mended || Irreplaceable(field.name));
        ASSERT_FALSE(after.events.empty());  // the other event is left as it was, though it may move up
        EXPECT_EQ(after.events.back().Start(), pristine_.events.back().Start());
        EXPECT_EQ(after.events.back().End(), pristine_.events.back().End());
        EXPECT_EQ(after.events.back().record.m_u8AlarmFileType, pristine_.events.back().record.m_u8AlarmFileType);
        if (!found.empty() && !Irreplaceable(field.name)) {
            EXPECT_TRUE(found == "index" || recording_.Read(field.file, field.offset, field.size) == present);
            EXPECT_EQ(before_.Difference(),
                      found == "index" ? "index000.bin at 8" : "");  // no folder knows the card's size
        }
        if (kAll) {
            std::printf("| %s | %s | %s | %s |\n", field.name, name, found.empty() ? "harmless" : found.c_str(),
                        mended ? "yes" : "as far as it can be known");
        }
        before_.PutBack();
        recording_.Corrupt(field.file, field.offset, present);
    }

    Place place_;
    Recording recording_ = kCard.RecordFolder(place_);
    StoreBytes before_{recording_, 2};
    Shown pristine_ = Show(place_);
};

TEST_F(Sweep, EveryFieldIsHarmlessOrFoundAndMended) {
    std::mt19937 generator(4711);
    for (const Field& field : kFields) {
        std::string random(field.size, '\0');
        for (char& c : random) c = static_cast<char>(generator());
        std::string one(field.size, '\0');
        one[0] = 1;
        Try(field, "0", std::string(field.size, '\0'));
        Try(field, "all ones", std::string(field.size, '\xFF'));
        if (!kAll) continue;
        Try(field, "1", one);
        Try(field, "random", random);
        Try(field, "its neighbour's", recording_.Read(field.file, field.offset + field.size, field.size));
    }
}

TEST_F(Sweep, WhatIsGoneIsFoundAndMadeAgain) {
    const auto second = std::ranges::find(recording_.frames, 1u, &WrittenFrame::section);
    const Field kGone[] = {{"system head", RECORD_INDEX_NAME, 0, sizeof(RecordSystemInfoHead_S)},
                           {"file head", RECORD_INDEX_NAME, FileHeadAt(0), sizeof(RecordFileInfoHead_S)},
                           {"section head", RECORD_INDEX_NAME, SectionAt(0, 1), sizeof(RecordInfoHead_S)},
                           {"key-frame records", "hi000000.mp4", RECORD_KEY_FRAME_BASE, 400},
                           {"stream head", "hi000000.mp4", second->offset - 40, 40}};
    for (const Field& field : kGone) Try(field, "gone", std::string(field.size, '\0'));
}

}  // namespace
