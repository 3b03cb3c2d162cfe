// Cards of which a file is missing, or a place cannot be read: what is there is shown and saved, what is not is told.
// A repair saves the rest in a copy, and says what is not in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "RecordFormat.h"
#include "export/Exporter.h"
#include "fixture/BadBlocks.h"
#include "fixture/Folder.h"
#include "fixture/StoreBytes.h"
#include "text/TimeText.h"

namespace {

namespace fs = std::filesystem;
using namespace fixture;
using card::Volume;
using ::testing::_;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr uint64_t kPage = 4096;
constexpr uint64_t kNowhere = UINT64_MAX - kPage;

const Card kCard{
    .files = 1, .sections = {{.seconds = 6}, {.seconds = 4, .pause = 20}}, .events = {{}, {.after = 25, .seconds = 2}}};
const SectionPlan kQuarter{
    .seconds = 15, .pause = 0, .rate = 20, .audio = CODE_AUDIO_NULL, .frame_bytes = 60000, .next_file = true};
const Card kThreeFiles{
    .files = 4,
    .sections = {{.seconds = 15, .rate = 20, .audio = CODE_AUDIO_NULL, .frame_bytes = 60000}, kQuarter, kQuarter},
    .events = {{.after = 2, .seconds = 2}, {.after = 20, .seconds = 2}},
    .keep_units = false};

uint64_t PageOf(uint64_t offset) {
    return offset / kPage * kPage;
}

std::string BytesOf(uint64_t page) {
    return "bytes " + std::to_string(page) + " to " + std::to_string(page + kPage - 1) + ": ";
}

// That an export took out.
size_t Pictures(const Outcome& exported) {
    const size_t at = exported.out.find(" pictures, ");
    return at == std::string::npos ? 0 : std::stoul(exported.out.substr(exported.out.rfind(' ', at - 1)));
}

class Losses : public Folder {
  protected:
    Outcome Export(const std::string& card, const std::string& name, std::vector<std::string> what = {"--all"}) const {
        fs::remove(Path(name));
        what.insert(what.begin(), {"export", card, Path(name)});
        return Tool(what);
    }

    std::string Copy() const { return Path("copy"); }
    Outcome Repair(const Recording& card, const std::string& out) const {
        fs::remove_all(Copy());
        return Tool({"repair", "--out", out, card.path});
    }
    Outcome Repair(const Recording& card) const { return Repair(card, Copy()); }
};

// Every frame that touches no bad page stands in the copy as it stands on the card.
void ExpectFrames(const Recording& card, const std::string& copy, uint64_t bad) {
    const card::StoreFile from = Volume::Open(card.path).OpenFile("hi000000.mp4");
    const card::StoreFile to = Volume::Open(copy).OpenFile("hi000000.mp4");
    EXPECT_EQ(to.Size(), from.Size());
    for (const WrittenFrame& frame : card.frames) {
        if (frame.offset < bad + kPage && bad < frame.offset + frame.size) continue;
        std::string bytes(frame.size, '\0');
        std::string copied(frame.size, '\0');
        from.ReadAt(frame.offset, bytes.data(), bytes.size());
        to.ReadAt(frame.offset, copied.data(), copied.size());
        EXPECT_TRUE(bytes == copied) << "frame at " << frame.offset;
    }
}

TEST_F(Losses, AMissingFileTakesNoOtherWithIt) {
    const Recording card = kThreeFiles.RecordFolder(Path("card"));
    ASSERT_EQ(card.sections.size(), 3u);
    for (const uint32_t file : {1u, 0u, 2u}) {
        SCOPED_TRACE(file);
        const std::string name = Volume::RecordFileName(file);
        fs::rename(card.path + "/" + name, Path("away"));
        const auto told = HasSubstr(name + " is missing: 1 section from 2026-03-01 08:00:");

        const Outcome list = Tool({"list", card.path});
        EXPECT_THAT(
            list,
            Ends(1, told, AllOf(HasSubstr("2 sections"), Not(HasSubstr("1970")), Not(HasSubstr("nothing recorded")))));
        EXPECT_EQ(list.out.find("-- hi000001.mp4 is missing --") != std::string::npos, file == 1);
        const auto json = nlohmann::json::parse(Tool({"list", "--json", card.path}).out);
        EXPECT_EQ(json.at("sections").size(), 2u);
        EXPECT_EQ(json.at("lost").at(0).at("name"), name);
        EXPECT_EQ(json.at("lost").at(0).at("sections"), 1);

        const Outcome all = Export(card.path, "all.mkv");
        EXPECT_THAT(all, Ends(1, told));
        const std::vector<const WrittenFrame*> video = card.KeptVideo();
        const auto left = std::count_if(video.begin(), video.end(), [=](const auto* f) { return f->file != file; });
        EXPECT_THAT(all.out, HasSubstr(", " + std::to_string(left) + " pictures, "));
        const Outcome page = Tool({"timeline", "--force", "--thumbnails", "4", card.path, Path("page.html")});
        EXPECT_THAT(page, Ends(1, told));
        EXPECT_THAT(ReadAll(Path("page.html")), HasSubstr("\"lost\":[{\"name\":\"" + name + "\""));

        // Who asks for other footage hears nothing of it, and what is lost is not called never recorded.
        EXPECT_EQ(Export(card.path, "some.mkv", {"--from", "08:00:44"}).status, file == 2 ? 1 : 0);
        EXPECT_EQ(Export(card.path, "other.mkv", {"--section", file == 0 ? "1:1" : "0:1"}).status, 0);
        EXPECT_THAT(Export(card.path, "section.mkv", {"--section", std::to_string(file) + ":1"}),
                    Ends(1, HasSubstr(name + ", in which that section lies")));
        const Outcome event = Export(card.path, "event.mkv", {"--event", "1"});
        EXPECT_THAT(event, Ends(file == 0 ? 1 : 0));
        EXPECT_EQ(event.err.find("cannot be had: hi000000.mp4 is missing") != std::string::npos, file == 0)
            << event.err;
        fs::rename(Path("away"), card.path + "/" + name);
    }
    fs::remove(card.path + "/event000.bin");
    EXPECT_THAT(Tool({"events", card.path}),
                Ends(1, HasSubstr("event000.bin is missing: the alarm events are not shown"), ""));
}

TEST_F(Losses, AFileThatCannotBeReadTakesNoOtherWithIt) {
    const Recording card = kThreeFiles.RecordFolder(Path("card"));
    const BadBlocks bad(card.path + "/hi000001.mp4", 0, RECORD_FILE_SIZE);
    const std::vector<const WrittenFrame*> video = card.KeptVideo();
    const auto left = std::count_if(video.begin(), video.end(), [](const auto* frame) { return frame->file != 1; });
    EXPECT_THAT(Export(card.path, "all.mkv"), Ends(1, HasSubstr(" MiB of hi000001.mp4 cannot be read, from byte 0 on"),
                                                   HasSubstr(", " + std::to_string(left) + " pictures, ")));
    EXPECT_EQ(Export(card.path, "first.mkv", {"--event", "1"}).status, 0);
    EXPECT_THAT(Export(card.path, "second.mkv", {"--event", "2"}), Ends(1, HasSubstr("hi000001.mp4 cannot be read")));
    EXPECT_EQ(Tool({"list", card.path}).status, 1);
    EXPECT_EQ(Tool({"timeline", "--thumbnails", "4", card.path, Path("page.html")}).status, 1);
    EXPECT_THAT(Tool({"check", card.path}),
                Ends(1, _, AllOf(HasSubstr("hi000001.mp4 cannot be read"), Not(HasSubstr("hi000002.mp4")))));
}

// A page that cannot be read costs what it costs when it holds zeros, and is told; a repair brings back what stands
// elsewhere, too.
TEST_F(Losses, APlaceThatCannotBeReadCostsNoMoreThanItself) {
    const Recording card = kCard.RecordFolder(Path("card"));
    const size_t recorded = card.KeptVideo().size();
    const auto second = std::ranges::find(card.frames, 1u, &WrittenFrame::section);
    const struct {
        const char* file;
        uint64_t page;
        size_t least;  // pictures in the copy
        const char* told;
    } kCases[] = {
        {"hi000000.mp4", PageOf(card.KeptVideo()[60]->offset), recorded - 50,
         "footage between 2026-03-01 08:00:02 and 2026-03-01 08:00:0"},
        {"hi000000.mp4", 0, recorded - 50, "what was recorded there before 2026-03-01 08:00:0"},
        {"hi000000.mp4", PageOf(second->offset), recorded - 50,
         "footage between 2026-03-01 08:00:05 and 2026-03-01 08:00:27"},
        {"hi000000.mp4", PageOf(card.frames.back().offset), recorded - 25,
         "what was recorded there after 2026-03-01 08:00:29, if anything"},
        {"hi000000.mp4", RECORD_KEY_FRAME_BASE, recorded, "places of key frames, made again from the pictures"},
        {"index000.bin", 0, recorded, "made again from the record files"},
        {"index000.bin", PageOf(SectionAt(0, 1)), recorded, "made again from the record files"},
        {"event000.bin", 8 * ALARM_EVENT_BLOCK, recorded, "alarm events that stood there are lost"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.file) + " at " + std::to_string(c.page));
        const std::string present = card.Read(c.file, c.page, kPage);
        card.Corrupt(c.file, c.page, std::string(kPage, '\0'));
        const std::string listed = Tool({"list", card.path}).out;
        const bool any = Export(card.path, "zeros.h264").out != "";
        card.Corrupt(c.file, c.page, present);

        size_t before = 0;
        {
            const BadBlocks bad(card.path + "/" + c.file, c.page, c.page + kPage);
            const Outcome list = Tool({"list", card.path});
            const Outcome bytes = Export(card.path, "bad.h264");
            const std::string told = list.err + bytes.err;
            before = Pictures(bytes);
            if (c.file == std::string("index000.bin") && c.page == 0) {
                EXPECT_EQ(list.status, 3);
                EXPECT_THAT(told, HasSubstr("index000.bin cannot be read, and nothing is found without it"));
            } else {
                EXPECT_TRUE(!any || list.out == listed) << list.out << listed;
                EXPECT_EQ(list.status, list.err.empty() ? 0 : 1);
                EXPECT_EQ(bytes.status, c.page == RECORD_KEY_FRAME_BASE ? 0 : 1) << "no footage is there: " << told;
                EXPECT_TRUE(!any || ReadAll(Path("bad.h264")) == ReadAll(Path("zeros.h264")));
                EXPECT_THAT(told, HasSubstr(std::string(" of ") + c.file + " cannot be read, from byte "));
            }
            EXPECT_THAT(Repair(card),
                        Ends(1, "",
                             AllOf(HasSubstr("\n1 page (4.0 KiB) of " + card.path + " cannot be read"),
                                   HasSubstr("  " + std::string(c.file) + ", " + BytesOf(c.page) + c.told),
                                   HasSubstr(Copy() + " holds all that could be read. "))));
        }
        const size_t after = Pictures(Export(Copy(), "copy.h264"));
        EXPECT_GE(after, std::max(before, c.least));
        EXPECT_LE(after, recorded);
        const bool event = c.file == std::string("event000.bin");
        const std::string events = Tool({"events", Copy()}).out;
        EXPECT_EQ(events == Tool({"events", card.path}).out, !event) << events;
        ExpectFrames(card, Copy(), c.file == std::string("hi000000.mp4") ? c.page : kNowhere);
    }
}

TEST_F(Losses, WhatWasExportedBeforeIsKeptBesideWhatCanBeReadNow) {
    const Recording card = kCard.RecordFolder(Path("card"));
    ASSERT_EQ(Export(card.path, "good.h264").status, 0);
    const std::string good = ReadAll(Path("good.h264"));
    const uint64_t page = PageOf(card.KeptVideo()[60]->offset);
    const BadBlocks bad(card.path + "/hi000000.mp4", page, page + kPage);
    Export(card.path, "bad.h264");
    for (const char* beside : {"good-incomplete.h264", "good-incomplete2.h264"}) {
        EXPECT_THAT(
            Tool({"export", "--force", "--all", card.path, Path("good.h264")}),
            Ends(1, HasSubstr("good.h264 is kept as it was, and what could be read now is "), HasSubstr(beside)));
        EXPECT_TRUE(ReadAll(Path(beside)) == ReadAll(Path("bad.h264")));
        EXPECT_TRUE(ReadAll(Path("good.h264")) == good);
    }
}

TEST_F(Losses, OfEventsThoseOnOtherPagesAreKept) {
    Card plan = kCard;
    plan.events.clear();
    for (uint32_t i = 0; i < 200; ++i) plan.events.push_back({.after = i / 40, .seconds = 1});
    const Recording card = plan.RecordFolder(Path("card"));
    const auto count = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    ASSERT_EQ(count(Tool({"events", card.path}).out), 200);
    long left = 0;
    {
        const uint64_t page = PageOf(record_file::EventOffset(0, 50));
        const BadBlocks bad(card.path + "/event000.bin", page, page + kPage);
        left = count(Tool({"events", card.path}).out);
        EXPECT_EQ(Repair(card).status, 1);
    }
    EXPECT_LT(left, 200);
    EXPECT_GT(left, 0);
    EXPECT_EQ(count(Tool({"events", Copy()}).out), left);
    EXPECT_EQ(Tool({"check", Copy()}).status, 0);
}

TEST_F(Losses, AnImagesPageCostsNoMoreThanItself) {
    const Recording card = kCard.RecordImage(Path("card.img"));
    const size_t recorded = card.KeptVideo().size();
    const card::FatGeometry g = Volume::Open(card.path).Fat()->Geometry();
    const uint64_t stream = PageOf(card.KeptVideo()[60]->offset);
    const uint64_t in_stream = card.InImage("hi000000.mp4", stream);
    const uint64_t index = card.InImage("index000.bin", 0);
    const uint64_t tables[] = {PageOf(g.FatOffset(0)) + kPage, PageOf(g.FatOffset(1)) + kPage};
    const std::string told_stream = "  hi000000.mp4, " + BytesOf(stream) + "footage";
    const std::string told_index = "  index000.bin, " + BytesOf(0) + "made again";
    const struct {
        const char* name;
        std::vector<uint64_t> pages;
        size_t lost;  // at most
        std::vector<std::string> told;
        const char* into = "";
    } kCases[] = {
        {"stream", {in_stream}, 50, {told_stream}},
        {"index", {index}, 0, {told_index}},
        {"boot", {g.base}, 0, {"  the file system, " + BytesOf(g.base)}},
        {"directory", {g.ClusterOffset(2)}, 0, {"  the file system, " + BytesOf(g.ClusterOffset(2))}},
        {"tables", {tables[0], tables[1]}, 0, {BytesOf(tables[1])}},
        {"everywhere",
         {g.base, tables[0], tables[1], g.ClusterOffset(2), index, in_stream, card.InImage("event000.bin", 0)},
         50,
         {told_stream}},
        {"into a folder", {in_stream, index}, 50, {told_stream, told_index}, "/"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        size_t before = 0;
        {
            std::vector<BadBlocks::Stretch> pages;
            for (const uint64_t page : c.pages) pages.push_back({page, page + kPage});
            const BadBlocks bad(card.path, pages);
            before = Pictures(Export(card.path, "bad.h264"));
            const Outcome repair = Repair(card, Copy() + c.into);
            EXPECT_THAT(repair, Ends(1, _, HasSubstr(card::Counted(c.pages.size(), "page") + " (")));
            for (const std::string& told : c.told) EXPECT_THAT(repair.out, HasSubstr(told));
        }
        const size_t after = Pictures(Export(Copy(), "copy.h264"));
        EXPECT_GE(after, std::max(before, recorded - c.lost));
        EXPECT_TRUE(fs::is_directory(Copy()) || fs::file_size(Copy()) == fs::file_size(card.path));
        EXPECT_THAT(Tool({"check", Copy()}).out, Not(HasSubstr(" FAT ")));
        if (c.lost != 0) ExpectFrames(card, Copy(), stream);
    }
}

// Boot sector and allocation table have spare copies: an unreadable one costs nothing, and check tells it.
TEST_F(Losses, ASpareCopyServesWhereTheFileSystemCannotBeRead) {
    const Recording card = kCard.RecordImage(Path("card.img"));
    ASSERT_EQ(Export(card.path, "all.h264").status, 0);
    const card::FatGeometry g = Volume::Open(card.path).Fat()->Geometry();
    const std::pair<uint64_t, const char*> kCases[] = {
        {g.base, "the boot sector is damaged or cannot be read"},
        {g.FatOffset(0), "a page of the first allocation table cannot be read"},
        {g.FatOffset(1), "a page of the second allocation table cannot be read"}};
    for (const auto& [sector, told] : kCases) {
        SCOPED_TRACE(told);
        const BadBlocks bad(card.path, sector, sector + 512);
        const Outcome again = Export(card.path, "again.h264");
        EXPECT_THAT(again, Ends(0, ""));
        EXPECT_TRUE(ReadAll(Path("again.h264")) == ReadAll(Path("all.h264")));
        EXPECT_THAT(Tool({"check", card.path}), Ends(1, _, HasSubstr(told)));
    }
}

// Where the layout does not help, what the card has twice is taken from where it can be read, and no page of the
// directory hides the next one.
TEST_F(Losses, AnUnknownLayoutKeepsWhatTheCardSays) {
    Card plan = kCard;
    plan.files = 70;  // the directory has a second page
    const Recording card = plan.RecordImage(Path("card.img"));
    fs::resize_file(card.path, fs::file_size(card.path) + (600 << 20));
    const card::FatGeometry g = Volume::Open(card.path).Fat()->Geometry();
    const auto page = [](uint64_t offset) { return BadBlocks::Stretch{PageOf(offset), PageOf(offset) + kPage}; };
    const BadBlocks bad(card.path, {{g.base, g.base + 512},
                                    page(g.FatOffset(0) + 2 * kPage),
                                    page(g.FatOffset(1) + 4 * kPage),
                                    page(g.ClusterOffset(2))});
    EXPECT_THAT(Repair(card), Ends(1));
    const Volume from = Volume::Open(card.path);
    const Volume to = Volume::Open(Copy());
    EXPECT_FALSE(from.Names().empty());
    for (const std::string& name : from.Names()) {
        SCOPED_TRACE(name);
        const card::StoreFile there = from.OpenFile(name);
        ASSERT_TRUE(to.Has(name));
        const card::StoreFile here = to.OpenFile(name);
        EXPECT_EQ(here.Reachable(), there.Size());
        EXPECT_EQ(here.Extents()[0].offset, there.Extents()[0].offset);
    }
}

TEST_F(Losses, NothingIsWrittenToACardThatFails) {
    const Recording card = kCard.RecordFolder(Path("card"));
    card.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), "XXXX");  // could be mended
    const StoreBytes before(card, 1);
    const uint64_t page = PageOf(card.KeptVideo()[60]->offset);
    {
        const BadBlocks bad(card.path + "/hi000000.mp4", page, page + kPage);
        EXPECT_THAT(Tool({"repair", "--in-place", "--yes", card.path}),
                    Ends(3, AllOf(HasSubstr("not all of it can be read, so nothing is written to it"),
                                  HasSubstr("--out COPY"))));
    }
    EXPECT_EQ(before.Difference(), "");
}

// However many pages are bad, none costs more than itself while failing takes no time: much of a record file at once,
// and many pages of another.
TEST_F(Losses, ManyPagesCostNoMoreThanThemselves) {
    const Card full{.files = 2,
                    .sections = {{.seconds = 24, .rate = 20, .audio = CODE_AUDIO_NULL, .frame_bytes = 600000}},
                    .keep_units = false};
    const Recording card = full.RecordFolder(Path("card"));
    const BadBlocks all(card.path + "/hi000000.mp4", 0, 32 << 20);
    const BadBlocks some(card.path + "/hi000001.mp4", 4 << 20, 8 << 20, BadBlocks::Then::OneIn16);
    const Outcome exported = Export(card.path, "all.h264");
    EXPECT_THAT(exported, Ends(1, HasSubstr("256.0 KiB of hi000001.mp4 cannot be read, from byte ")));
    const size_t before = Pictures(exported);
    EXPECT_GT(before, 380u);
    EXPECT_THAT(Repair(card),
                Ends(1, _,
                     AllOf(HasSubstr("  hi000000.mp4, bytes 0 to 33554431: "),
                           HasSubstr("  hi000001.mp4, 64 pages of bytes 4255744 to 8388607: footage between "),
                           HasSubstr(std::to_string(before) + " before, "))));
    EXPECT_GE(Pictures(Export(Copy(), "copy.h264")), before);
}

TEST_F(Losses, ACardThatIsPulledReplacesNothing) {
    const Recording card = kCard.RecordImage(Path("card.img"));
    ASSERT_EQ(Export(card.path, "all.mkv").status, 0);
    const std::string before = ReadAll(Path("all.mkv"));
    const uint64_t place = card.InImage("hi000000.mp4", card.KeptVideo()[60]->offset);
    const BadBlocks pulled(card.path, place, place + 1, BadBlocks::Then::IsGone);
    const Outcome all = Tool({"export", "--force", "--all", card.path, Path("all.mkv")});
    EXPECT_THAT(all, Ends(3, HasSubstr("The card is gone")));
    EXPECT_TRUE(ReadAll(Path("all.mkv")) == before);
    EXPECT_EQ(std::distance(fs::directory_iterator(Path()), {}), 2) << "the image and what was exported";
}

// What a card gave before it died is not thrown away, and does not look like a whole copy.
TEST_F(Losses, ACardThatIsPulledLeavesACopyWhatItGave) {
    Card plan = kCard;
    plan.files = 2;
    const Recording card = plan.RecordImage(Path("card.img"));
    card.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), "XXXX");
    card.Corrupt("hi000001.mp4", 1 << 20, std::string(kPage, 'x'));  // nobody but the copy reads it
    const uint64_t place = card.InImage("hi000001.mp4", 1 << 20);
    ASSERT_GT(place, card.InImage("hi000000.mp4", 0));
    {
        const BadBlocks pulled(card.path, place, place + 1, BadBlocks::Then::IsGone);
        EXPECT_THAT(Repair(card),
                    Ends(3, AllOf(HasSubstr("The card is gone"), HasSubstr("is kept, not mended: " + Copy()))));
    }
    EXPECT_FALSE(fs::exists(Copy()));
    ExpectFrames(card, Copy() + ".incomplete", kNowhere);
}

// Every frame is read twice: to be listed and to be saved.
TEST_F(Losses, AFrameThatIsGoneTheSecondTimeCostsItselfAlone) {
    for (const bool video : {true, false}) {
        SCOPED_TRACE(video);
        const Card large{.files = 1, .sections = {{.seconds = 3, .frame_bytes = 600000}}, .keep_units = false};
        const Recording recording = large.RecordFolder(Path("card"));
        const Volume volume = Volume::Open(recording.path);
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
