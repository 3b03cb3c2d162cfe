// Cards with places that cannot be read: a repair saves the rest in a copy, and says what is not in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "RecordFormat.h"
#include "fixture/BadBlocks.h"
#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "fixture/StoreBytes.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace {

namespace fs = std::filesystem;
using card::Volume;
using fixture::BadBlocks;
using fixture::Card;
using fixture::Outcome;
using fixture::Recording;
using fixture::SectionAt;
using fixture::Tool;
using fixture::WrittenFrame;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr uint64_t kPage = 4096;

const Card kCard{
    .files = 1, .sections = {{.seconds = 6}, {.seconds = 4, .pause = 20}}, .events = {{}, {.after = 25, .seconds = 2}}};

uint64_t PageOf(uint64_t offset) {
    return offset / kPage * kPage;
}

std::string Bytes(uint64_t page) {
    return "bytes " + std::to_string(page) + " to " + std::to_string(page + kPage - 1) + ": ";
}

class Unread : public fixture::Folder {
  protected:
    // That can be exported; the exit status is that of the export.
    size_t Pictures(const std::string& card, int* status = nullptr) const {
        fs::remove(Path("all.h264"));
        const Outcome all = Tool({"export", "--all", card, Path("all.h264")});
        if (status != nullptr) *status = all.status;
        const size_t at = all.out.find(" pictures, ");
        if (at == std::string::npos) return 0;
        return std::stoul(all.out.substr(all.out.rfind(' ', at - 1)));
    }

    std::string Copy() const { return Path("copy"); }
    Outcome Repair(const std::string& card) const {
        fs::remove_all(Copy());
        return Tool({"repair", "--out", Copy(), card});
    }
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

TEST_F(Unread, AFoldersPageCostsNoMoreThanItself) {
    const Recording card = kCard.RecordFolder(Path("card"));
    const size_t recorded = card.KeptVideo().size();
    const uint64_t second = PageOf(std::find_if(card.frames.begin(), card.frames.end(), [](const WrittenFrame& frame) {
                                       return frame.section == 1;
                                   })->offset);
    const struct {
        const char* file;
        uint64_t page;
        size_t least;  // pictures in the copy
        const char* told;
    } kCases[] = {
        {"hi000000.mp4", PageOf(card.KeptVideo()[60]->offset), recorded - 50,
         "footage between 2026-03-01 08:00:02 and 2026-03-01 08:00:0"},
        {"hi000000.mp4", 0, recorded - 50, "what was recorded there before 2026-03-01 08:00:0"},
        {"hi000000.mp4", second, recorded - 50, "footage between 2026-03-01 08:00:05 and 2026-03-01 08:00:27"},
        {"hi000000.mp4", PageOf(card.frames.back().offset), recorded - 25,
         "what was recorded there after 2026-03-01 08:00:29, if anything"},
        {"hi000000.mp4", RECORD_KEY_FRAME_BASE, recorded, "places of key frames, made again from the pictures"},
        {"index000.bin", 0, recorded, "made again from the record files"},
        {"index000.bin", PageOf(SectionAt(0, 1)), recorded, "made again from the record files"},
        {"event000.bin", 8 * ALARM_EVENT_BLOCK, recorded, "alarm events that stood there are lost"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.file) + " at " + std::to_string(c.page));
        size_t before = 0;
        {
            const BadBlocks bad(card.path + "/" + c.file, c.page, c.page + kPage);
            before = Pictures(card.path);
            const Outcome repair = Repair(card.path);
            EXPECT_EQ(repair.status, 1) << repair.out << repair.err;
            EXPECT_EQ(repair.err, "");
            EXPECT_THAT(repair.out, AllOf(HasSubstr("\n1 page (4.0 KiB) of " + card.path + " cannot be read"),
                                          HasSubstr("  " + std::string(c.file) + ", " + Bytes(c.page) + c.told),
                                          HasSubstr(Copy() + " holds all that could be read. ")));
        }
        const size_t after = Pictures(Copy());
        EXPECT_GE(after, before);
        EXPECT_GE(after, c.least);
        EXPECT_LE(after, recorded);
        const bool event = c.file == std::string("event000.bin");
        const std::string events = Tool({"events", Copy()}).out;
        EXPECT_EQ(events == Tool({"events", card.path}).out, !event) << events;
        ExpectFrames(card, Copy(), c.file == std::string("hi000000.mp4") ? c.page : UINT64_MAX - kPage);
    }
}

TEST_F(Unread, OfEventsThoseOnOtherPagesAreKept) {
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
        EXPECT_EQ(Repair(card.path).status, 1);
    }
    EXPECT_LT(left, 200);
    EXPECT_GT(left, 0);
    EXPECT_EQ(count(Tool({"events", Copy()}).out), left);
    EXPECT_EQ(Tool({"check", Copy()}).status, 0);
}

TEST_F(Unread, AnImagesPageCostsNoMoreThanItself) {
    const Recording card = kCard.RecordImage(Path("card.img"));
    const size_t recorded = card.KeptVideo().size();
    const Volume volume = Volume::Open(card.path);
    const card::FatGeometry g = volume.Fat()->Geometry();
    const auto place = [&](const char* file, uint64_t at) { return volume.OpenFile(file).Extents()[0].offset + at; };
    const uint64_t stream = PageOf(card.KeptVideo()[60]->offset);
    const uint64_t tables[] = {PageOf(g.FatOffset(0)) + kPage, PageOf(g.FatOffset(1)) + kPage};
    const struct {
        const char* name;
        std::vector<uint64_t> pages;
        size_t least;
        std::string told;
    } kCases[] = {
        {"stream", {place("hi000000.mp4", stream)}, recorded - 50, "  hi000000.mp4, " + Bytes(stream) + "footage"},
        {"index", {place("index000.bin", 0)}, recorded, "  index000.bin, " + Bytes(0) + "made again"},
        {"boot", {g.base}, recorded, "  the file system, " + Bytes(g.base)},
        {"directory", {g.ClusterOffset(2)}, recorded, "  the file system, " + Bytes(g.ClusterOffset(2))},
        {"tables", {tables[0], tables[1]}, recorded, Bytes(tables[1])},
        {"everywhere",
         {g.base, tables[0], tables[1], g.ClusterOffset(2), place("index000.bin", 0), place("hi000000.mp4", stream),
          place("event000.bin", 0)},
         recorded - 50,
         "  hi000000.mp4, " + Bytes(stream) + "footage"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        size_t before = 0;
        {
            std::vector<BadBlocks::Stretch> pages;
            for (const uint64_t page : c.pages) pages.push_back({page, page + kPage});
            const BadBlocks bad(card.path, pages);
            before = Pictures(card.path);
            const Outcome repair = Repair(card.path);
            EXPECT_EQ(repair.status, 1) << repair.out << repair.err;
            EXPECT_THAT(repair.out, AllOf(HasSubstr(c.told), HasSubstr(card::Counted(c.pages.size(), "page") + " (")));
        }
        const size_t after = Pictures(Copy());
        EXPECT_GE(after, before);
        EXPECT_GE(after, c.least);
        EXPECT_EQ(fs::file_size(Copy()), fs::file_size(card.path));
        EXPECT_THAT(Tool({"check", Copy()}).out, Not(HasSubstr(" FAT ")));
        if (c.least != recorded) ExpectFrames(card, Copy(), stream);
    }
}

// Where the layout does not help, what the card has twice is taken from where it can be read, and no page of the
// directory hides the next one.
TEST_F(Unread, AnUnknownLayoutKeepsWhatTheCardSays) {
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
    const Outcome repair = Repair(card.path);
    EXPECT_EQ(repair.status, 1) << repair.out << repair.err;
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

TEST_F(Unread, FilesAreTakenOutOfAnImage) {
    const Recording card = kCard.RecordImage(Path("card.img"));
    const size_t recorded = card.KeptVideo().size();
    const uint64_t stream = PageOf(card.KeptVideo()[60]->offset);
    {
        const Volume volume = Volume::Open(card.path);
        const uint64_t place = volume.OpenFile("hi000000.mp4").Extents()[0].offset + stream;
        const uint64_t index = volume.OpenFile("index000.bin").Extents()[0].offset;
        const BadBlocks bad(card.path, {{place, place + kPage}, {index, index + kPage}});
        const Outcome repair = Tool({"repair", "--out", Copy() + "/", card.path});
        EXPECT_EQ(repair.status, 1) << repair.out << repair.err;
        EXPECT_THAT(repair.out, AllOf(HasSubstr("2 pages (8.0 KiB)"), HasSubstr("  index000.bin, " + Bytes(0)),
                                      HasSubstr("  hi000000.mp4, " + Bytes(stream) + "footage")));
    }
    EXPECT_GE(Pictures(Copy()), recorded - 50);
    ExpectFrames(card, Copy(), stream);
}

TEST_F(Unread, NothingIsWrittenToACardThatFails) {
    const Recording card = kCard.RecordFolder(Path("card"));
    card.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), "XXXX");  // could be mended
    const fixture::StoreBytes before(card, 1);
    const uint64_t page = PageOf(card.KeptVideo()[60]->offset);
    {
        const BadBlocks bad(card.path + "/hi000000.mp4", page, page + kPage);
        const Outcome repair = Tool({"repair", "--in-place", "--yes", card.path});
        EXPECT_EQ(repair.status, 3);
        EXPECT_THAT(repair.err, AllOf(HasSubstr("not all of it can be read, so nothing is written to it"),
                                      HasSubstr("--out COPY")));
    }
    EXPECT_EQ(before.Difference(), "");
}

// Much of a record file at once, and many pages of another.
TEST_F(Unread, ManyPagesCostNoMoreThanThemselves) {
    const Recording card =
        Card{.files = 3,
             .sections = {{.seconds = 24, .rate = 20, .audio = CODE_AUDIO_NULL, .frame_bytes = 600000}},
             .keep_units = false}
            .RecordFolder(Path("card"));
    const BadBlocks all(card.path + "/hi000000.mp4", 0, 32 << 20);
    const BadBlocks some(card.path + "/hi000001.mp4", 4 << 20, 8 << 20, BadBlocks::Then::OneIn16);
    const size_t before = Pictures(card.path);
    EXPECT_GT(before, 400u);
    const Outcome repair = Repair(card.path);
    EXPECT_EQ(repair.status, 1) << repair.out << repair.err;
    EXPECT_THAT(repair.out, AllOf(HasSubstr("  hi000000.mp4, bytes 0 to 33554431: "),
                                  HasSubstr("  hi000001.mp4, 64 pages of bytes 4255744 to 8388607: footage between "),
                                  HasSubstr(std::to_string(before) + " before, ")));
    EXPECT_GE(Pictures(Copy()), before);
}

// What a card gave before it died is not thrown away, and does not look like a whole copy.
TEST_F(Unread, ACardThatIsPulledLeavesWhatItGave) {
    Card plan = kCard;
    plan.files = 2;
    const Recording card = plan.RecordImage(Path("card.img"));
    card.Corrupt(RECORD_INDEX_NAME, SectionAt(0, 1), "XXXX");
    card.Corrupt("hi000001.mp4", 1 << 20, std::string(kPage, 'x'));  // nobody but the copy reads it
    const uint64_t stream = Volume::Open(card.path).OpenFile("hi000000.mp4").Extents()[0].offset;
    const uint64_t place = Volume::Open(card.path).OpenFile("hi000001.mp4").Extents()[0].offset + (1 << 20);
    ASSERT_GT(place, stream);
    {
        const BadBlocks pulled(card.path, place, place + 1, BadBlocks::Then::IsGone);
        const Outcome repair = Repair(card.path);
        EXPECT_EQ(repair.status, 3) << repair.out;
        EXPECT_THAT(repair.err, AllOf(HasSubstr("The card is gone"), HasSubstr("is kept, not mended: " + Copy())));
    }
    EXPECT_FALSE(fs::exists(Copy()));
    ExpectFrames(card, Copy() + ".incomplete", UINT64_MAX - kPage);
}

}  // namespace
