#include "index/CardIndex.h"

#include <gtest/gtest.h>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "fixture/StoreBytes.h"
#include "fixture/StoreWriter.h"

namespace {

using namespace fixture;
using card::CardIndex;
using card::Volume;

const Card kMorning{
    .files = 3,
    .sections = {{.seconds = 20}, {.seconds = 10, .pause = 60, .rate = 12}, {.seconds = 5, .pause = 7200}},
    .events = {{.after = 5, .seconds = 8, .type = 1}, {.after = 82, .seconds = 0, .type = 32}}};

TEST(CardIndex, ShowsWhatWasRecordedInAFolderAndInAnImage) {
    for (const bool image : {false, true}) {
        const Place place;
        const Recording recording = image ? kMorning.RecordImage(place) : kMorning.RecordFolder(place);
        const Volume volume = Volume::Open(place);
        const CardIndex index(volume);
        EXPECT_EQ(index.FileCount(), 3u);
        ASSERT_EQ(index.Events().size(), 2u);
        EXPECT_EQ(index.Events()[0].Start(), kMorning.start + 5);
        EXPECT_EQ(index.Events()[0].End(), kMorning.start + 13);
        EXPECT_TRUE(index.Events()[1].Open());
        ASSERT_EQ(index.Gaps().size(), 2u);
        EXPECT_EQ(index.Gaps()[1].to - index.Gaps()[1].from, 7201u);  // from the last whole second recorded
        EXPECT_EQ(index.Oldest(), kMorning.start);
        uint64_t written = 0;
        for (const auto& frame : recording.frames) written += frame.size + (frame.first_of_run ? 40 : 0);
        EXPECT_EQ(index.StreamBytes(), written);
        const double rate = static_cast<double>(written) / (19 + 9 + 4);  // to the last whole second of each section
        EXPECT_NEAR(*index.HoursKept(), 3.0 * 0x0F900000 / rate / 3600, 0.01);
    }
}

// Full and named as current, a file was either just filled or is the next to be written over.
TEST(CardIndex, KnowsWhetherAFullCurrentFileIsTheNewestOrTheOldest) {
    const Place place;
    const Recording recording = kMorning.RecordFolder(place);
    for (const bool oldest : {true, false}) {
        for (const uint32_t file : {0u, 1u, 2u}) {
            const uint32_t start = kMorning.start + 100 * (file == 0 && !oldest ? 9 : file);
            const RecordFileInfoHead_S head{.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG,
                                            .m_u32FileInfoHeadNo = file,
                                            .m_u32RecordStartTime = start,
                                            .m_u32RecordEndTime = start + 99,
                                            .m_u32RecordFileSumLenth = RECORD_STREAM_LIMIT,
                                            .m_u32RecordFileSumType = 1,
                                            .m_u32RecordSectionSum = 1,
                                            .m_u32RecordKeyFrameSum = 0,
                                            .m_u8Res = {}};
            recording.Corrupt("index000.bin", FileHeadAt(file), Bytes(head));
        }
        const std::vector<uint32_t> wanted = oldest ? std::vector<uint32_t>{0, 1, 2} : std::vector<uint32_t>{1, 2, 0};
        EXPECT_EQ(CardIndex(Volume::Open(place)).RingOrder(), wanted);
    }
}

TEST(CardIndex, NamesTheFaultOfADamagedSectionAndKeepsTheOthers) {
    using Fault = card::Section::Fault;
    const Place place;
    const Recording recording = kMorning.RecordFolder(place);
    const struct {
        const char* what;
        uint32_t offset;  // in section head 2
        uint32_t value;
        Fault fault;
    } cases[] = {
        {"start before its file's", 4, kMorning.start - 1, Fault::EarlierLap},
        {"start on its predecessor", 16, 40, Fault::EarlierLap},
        {"start after the stream", 16, 0xFFFFFFF0, Fault::OutsideFile},
        {"key-frame record between two", 32, 7, Fault::BadKeyFrames},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string before = recording.Read("index000.bin", SectionAt(0, 2) + c.offset, 4);
        recording.Corrupt("index000.bin", SectionAt(0, 2) + c.offset, Word(c.value));
        const Volume volume = Volume::Open(place);
        const CardIndex index(volume);
        ASSERT_EQ(index.AllSections().size(), 3u);
        EXPECT_EQ(index.AllSections()[1].fault, c.fault) << card::FaultText(index.AllSections()[1].fault);
        ASSERT_EQ(index.Sections().size(), 2u);
        EXPECT_EQ(index.Sections()[1].number, 3u);
        recording.Corrupt("index000.bin", SectionAt(0, 2) + c.offset, before);
    }
}

TEST(CardIndex, KeepsASectionThatAPowerCutLeftAheadOfItsFile) {
    const Place place;
    const Recording recording = kMorning.RecordFolder(place);
    const auto length = recording.Get<uint32_t>("index000.bin", FileHeadAt(0) + 16);
    recording.Corrupt("index000.bin", FileHeadAt(0) + 16, Word(length - 1500));
    const Volume cut = Volume::Open(place);
    ASSERT_EQ(CardIndex(cut).Sections().size(), 3u);
    EXPECT_EQ(CardIndex(cut).Sections()[2].cut_bytes, 1500u);
    EXPECT_EQ(CardIndex(cut).Sections()[2].Limit(), length - 1500);
    // The next run begins where the file head says, on the frame that was ahead.
    {
        StoreWriter writer(place);
        writer.BeginSection(kMorning.start + 9000, {});
        writer.Video(std::string("\0\0\0\1\x67sps\0\0\0\1\x65slice", 17), true, false, kMorning.start + 9000);
        writer.EndSection();
    }
    const Volume volume = Volume::Open(place);
    const CardIndex index(volume);
    ASSERT_EQ(index.Sections().size(), 4u);
    EXPECT_EQ(index.Sections()[2].cut_bytes, 1500u);
    EXPECT_EQ(index.Sections()[2].Limit(), index.Sections()[3].Begin());
}

}  // namespace
