// Cards of which a file is missing, or a place cannot be read: what is there is shown and saved, what is not is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "export/Exporter.h"
#include "fixture/BadBlocks.h"
#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "volume/Volume.h"

namespace {

namespace fs = std::filesystem;
using fixture::BadBlocks;
using fixture::Card;
using fixture::Outcome;
using fixture::ReadAll;
using fixture::Recording;
using fixture::Tool;
using fixture::WrittenFrame;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Losses : public fixture::Folder {
  protected:
    Outcome Export(const Recording& card, const std::string& name, std::vector<std::string> what = {"--all"}) const {
        fs::remove(Path(name));
        std::vector<std::string> arguments = {"export", card.path, Path(name)};
        arguments.insert(arguments.end(), what.begin(), what.end());
        return Tool(arguments);
    }
};

// One run over three files: the first two are full.
Card ThreeFiles() {
    return {.files = 4,
            .sections = {{.seconds = 45, .rate = 20, .audio = CODE_AUDIO_NULL, .frame_bytes = 600000}},
            .events = {{.after = 2, .seconds = 2}, {.after = 30, .seconds = 2}},
            .keep_units = false};
}

Card OneFile() {
    return {.files = 1, .sections = {{.seconds = 6}, {.seconds = 4, .pause = 20}}, .events = {{}}};
}

TEST_F(Losses, AMissingFileTakesNoOtherWithIt) {
    const Recording card = ThreeFiles().RecordFolder(Path("card"));
    ASSERT_EQ(card.sections.size(), 3u);
    for (const uint32_t file : {1u, 0u, 2u}) {
        SCOPED_TRACE(file);
        const std::string name = card::Volume::RecordFileName(file);
        fs::rename(card.path + "/" + name, Path("away"));
        const auto told = HasSubstr(name + " is missing: 1 section from 2026-03-01 08:00:");

        const Outcome list = Tool({"list", card.path});
        EXPECT_EQ(list.status, 1);
        EXPECT_THAT(list.err, told);
        EXPECT_THAT(list.out,
                    AllOf(HasSubstr("2 sections"), Not(HasSubstr("1970")), Not(HasSubstr("nothing recorded"))));
        EXPECT_EQ(list.out.find("-- hi000001.mp4 is missing --") != std::string::npos, file == 1);
        const auto json = nlohmann::json::parse(Tool({"list", "--json", card.path}).out);
        EXPECT_EQ(json.at("sections").size(), 2u);
        EXPECT_EQ(json.at("lost").at(0).at("name"), name);
        EXPECT_EQ(json.at("lost").at(0).at("sections"), 1);

        const Outcome all = Export(card, "all.mkv");
        EXPECT_EQ(all.status, 1);
        EXPECT_THAT(all.err, told);
        const std::vector<const WrittenFrame*> video = card.KeptVideo();
        const auto left = std::count_if(video.begin(), video.end(), [=](const auto* f) { return f->file != file; });
        EXPECT_THAT(all.out, HasSubstr(", " + std::to_string(left) + " pictures, "));
        const Outcome page = Tool({"timeline", "--force", "--thumbnails", "4", card.path, Path("page.html")});
        EXPECT_EQ(page.status, 1);
        EXPECT_THAT(page.err, told);
        EXPECT_THAT(ReadAll(Path("page.html")), HasSubstr("\"lost\":[{\"name\":\"" + name + "\""));

        // Who asks for other footage hears nothing of it, and what is lost is not called never recorded.
        EXPECT_EQ(Export(card, "some.mkv", {"--from", "08:00:44"}).status, file == 2 ? 1 : 0);
        EXPECT_EQ(Export(card, "other.mkv", {"--section", file == 0 ? "1:1" : "0:1"}).status, 0);
        const Outcome section = Export(card, "section.mkv", {"--section", std::to_string(file) + ":1"});
        EXPECT_EQ(section.status, 1);
        EXPECT_THAT(section.err, HasSubstr(name + ", in which that section lies"));
        const Outcome event = Export(card, "event.mkv", {"--event", "1"});
        EXPECT_EQ(event.status, file == 0 ? 1 : 0);
        EXPECT_EQ(event.err.find("cannot be had: hi000000.mp4 is missing") != std::string::npos, file == 0)
            << event.err;
        fs::rename(Path("away"), card.path + "/" + name);
    }
    fs::remove(card.path + "/event000.bin");
    const Outcome events = Tool({"events", card.path});
    EXPECT_EQ(events.status, 1);
    EXPECT_THAT(events.err, HasSubstr("event000.bin is missing: the alarm events are not shown"));
    EXPECT_EQ(events.out, "");
}

TEST_F(Losses, AFileThatCannotBeReadTakesNoOtherWithIt) {
    const Recording card = ThreeFiles().RecordFolder(Path("card"));
    const BadBlocks bad(card.path + "/hi000001.mp4", 0, RECORD_FILE_SIZE);
    const std::vector<const WrittenFrame*> video = card.KeptVideo();
    const auto left = std::count_if(video.begin(), video.end(), [](const auto* frame) { return frame->file != 1; });
    const Outcome all = Export(card, "all.mkv");
    EXPECT_EQ(all.status, 1);
    EXPECT_THAT(all.out, HasSubstr(", " + std::to_string(left) + " pictures, "));
    EXPECT_THAT(all.err, HasSubstr(" MiB of hi000001.mp4 cannot be read, from byte 0 on"));
    EXPECT_EQ(Export(card, "first.mkv", {"--event", "1"}).status, 0);
    const Outcome second = Export(card, "second.mkv", {"--event", "2"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr("hi000001.mp4 cannot be read"));
    EXPECT_EQ(Tool({"list", card.path}).status, 1);
    EXPECT_EQ(Tool({"timeline", "--thumbnails", "4", card.path, Path("page.html")}).status, 1);
    const Outcome check = Tool({"check", card.path});
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(check.out, AllOf(HasSubstr("hi000001.mp4 cannot be read"), Not(HasSubstr("hi000002.mp4"))));
}

// A page that cannot be read costs what it costs when it holds zeros, and is told.
TEST_F(Losses, APlaceThatCannotBeReadCostsNoMoreThanItself) {
    const Recording card = OneFile().RecordFolder(Path("card"));
    ASSERT_EQ(Export(card, "good.h264").status, 0);
    const auto page_of = [](uint64_t offset) { return offset / 4096 * 4096; };
    const struct {
        const char* file;
        uint64_t page;
    } kCases[] = {{"hi000000.mp4", page_of(card.KeptVideo()[60]->offset)},
                  {"hi000000.mp4", 0},
                  {"hi000000.mp4", page_of(card.frames.back().offset)},
                  {"hi000000.mp4", RECORD_KEY_FRAME_BASE},
                  {"event000.bin", 8 * ALARM_EVENT_BLOCK},
                  {"index000.bin", RECORD_SECTION_BASE}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.file) + " at " + std::to_string(c.page));
        const std::string present = card.Read(c.file, c.page, 4096);
        card.Corrupt(c.file, c.page, std::string(4096, '\0'));
        const std::string listed = Tool({"list", card.path}).out;
        const bool any = Export(card, "zeros.h264").out != "";
        card.Corrupt(c.file, c.page, present);

        const BadBlocks bad(card.path + "/" + c.file, c.page, c.page + 4096);
        const Outcome list = Tool({"list", card.path});
        EXPECT_TRUE(!any || list.out == listed) << list.out << listed;
        const Outcome bytes = Export(card, "bad.h264");
        EXPECT_EQ(list.status, list.err.empty() ? 0 : 1);
        EXPECT_EQ(bytes.status, c.page == RECORD_KEY_FRAME_BASE ? 0 : 1) << "no footage stands there: " << bytes.err;
        EXPECT_TRUE(!any || ReadAll(Path("bad.h264")) == ReadAll(Path("zeros.h264")));
        if (&c == kCases) fs::rename(Path("bad.h264"), Path("first.h264"));
        EXPECT_THAT(list.err + bytes.err, HasSubstr(std::string(" of ") + c.file + " cannot be read, from byte "));
    }
    // What was exported before the page went bad is kept beside what can be read now.
    const std::string before = ReadAll(Path("good.h264"));
    {
        const BadBlocks bad(card.path + "/hi000000.mp4", kCases[0].page, kCases[0].page + 4096);
        for (const char* beside : {"good-incomplete.h264", "good-incomplete2.h264"}) {
            const Outcome again = Tool({"export", "--force", "--all", card.path, Path("good.h264")});
            EXPECT_EQ(again.status, 1);
            EXPECT_THAT(again.err, HasSubstr("good.h264 is kept as it was, and what could be read now is "));
            EXPECT_THAT(again.out, HasSubstr(beside));
            EXPECT_TRUE(ReadAll(Path(beside)) == ReadAll(Path("first.h264")));
            EXPECT_TRUE(ReadAll(Path("good.h264")) == before);
        }
    }
    const BadBlocks bad(card.path + "/index000.bin", 0, 4096);
    const Outcome list = Tool({"list", card.path});
    EXPECT_EQ(list.status, 3);
    EXPECT_THAT(list.err, HasSubstr("index000.bin cannot be read, and nothing is found without it"));
}

TEST_F(Losses, ACardThatIsPulledReplacesNothing) {
    const Recording card = OneFile().RecordImage(Path("card.img"));
    const std::string out = Path("all.mkv");
    ASSERT_EQ(Export(card, "all.mkv").status, 0);
    const std::string before = ReadAll(out);
    uint64_t place = 0;
    {
        const card::Volume volume = card::Volume::Open(card.path);
        place = volume.OpenFile("hi000000.mp4").Extents()[0].offset + card.KeptVideo()[60]->offset;
    }
    const BadBlocks pulled(card.path, place, place + 1, BadBlocks::Then::IsGone);
    const Outcome all = Tool({"export", "--force", "--all", card.path, out});
    EXPECT_EQ(all.status, 3);
    EXPECT_THAT(all.err, HasSubstr("The card is gone"));
    EXPECT_TRUE(ReadAll(out) == before);
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(out).parent_path()), {}), 2)
        << "the image and what was exported";
}

// Boot sector and allocation table have spare copies: an unreadable one costs nothing, and check tells it.
TEST_F(Losses, ASpareCopyServesWhereTheFileSystemCannotBeRead) {
    const Recording card = OneFile().RecordImage(Path("card.img"));
    ASSERT_EQ(Export(card, "all.h264").status, 0);
    const card::FatGeometry geometry = card::Volume::Open(card.path).Fat()->Geometry();
    const struct {
        uint64_t from;
        uint64_t to;
        const char* told;
    } kCases[] = {
        {geometry.base, geometry.base + 512, "the boot sector is damaged or cannot be read"},
        {geometry.FatOffset(0), geometry.FatOffset(0) + 512, "a page of the first allocation table cannot be read"},
        {geometry.FatOffset(1), geometry.FatOffset(1) + 512, "a page of the second allocation table cannot be read"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.told);
        const BadBlocks bad(card.path, c.from, c.to);
        const Outcome again = Export(card, "again.h264");
        EXPECT_EQ(again.status, 0) << again.err;
        EXPECT_EQ(again.err, "");
        EXPECT_TRUE(ReadAll(Path("again.h264")) == ReadAll(Path("all.h264")));
        const Outcome check = Tool({"check", card.path});
        EXPECT_EQ(check.status, 1);
        EXPECT_THAT(check.out, HasSubstr(c.told)) << check.err;
    }
}

// However many places are bad, none costs more than its page while failing takes no time.
TEST_F(Losses, ManyBadPagesCostNoMoreThanThemselves) {
    const Recording card = ThreeFiles().RecordFolder(Path("card"));
    constexpr uint64_t kBegin = 16 << 20;
    constexpr uint64_t kEnd = 48 << 20;
    const BadBlocks bad(card.path + "/hi000001.mp4", kBegin, kEnd, BadBlocks::Then::OneIn16);
    const Outcome all = Export(card, "all.h264");
    EXPECT_EQ(all.status, 1);
    EXPECT_THAT(all.err, HasSubstr("2.0 MiB of hi000001.mp4 cannot be read, from byte "));
}

// Every frame is read twice: to be listed and to be saved.
TEST_F(Losses, AFrameThatIsGoneTheSecondTimeCostsItselfAlone) {
    for (const bool video : {true, false}) {
        SCOPED_TRACE(video);
        const Card large{.files = 1, .sections = {{.seconds = 3, .frame_bytes = 600000}}, .keep_units = false};
        const Recording recording = large.RecordFolder(Path("card"));
        const card::Volume volume = card::Volume::Open(recording.path);
        const card::CardIndex index(volume);
        const auto frame = std::find_if(recording.frames.begin() + 20, recording.frames.end(),
                                        [&](const WrittenFrame& f) { return f.video == video && !f.key; });
        size_t listed = 0;
        const auto lose = [&](uint64_t bytes) {
            if (bytes == 0 && listed++ == 0)  // all are listed, and the first is put in order
                recording.Corrupt("hi000000.mp4", frame->offset, std::string(frame->size, '\0'));
        };
        card::Exporter exporter(index, Path("all.mp4"), card::OutputFiles::Mode::Overwrite, {});
        const card::ExportReport report = exporter.Run(card::SelectAll(index), lose);
        ASSERT_EQ(report.parts.size(), 1u);
        EXPECT_EQ(report.parts[0].pictures, video ? 74u : 75u);
        EXPECT_EQ(report.damaged_bytes, frame->size);
        fs::remove_all(recording.path);
    }
}

}  // namespace
