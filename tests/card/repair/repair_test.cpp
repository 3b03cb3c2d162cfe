// What a repair brings back: the index from the stream, the file system from the layout, files from nothing;
// and that whatever was damaged, no footage that is still on the card gets lost.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "fixture/Folder.h"
#include "fixture/Mend.h"
#include "fixture/Plans.h"
#include "fixture/StoreBytes.h"
#include "volume/CardCopy.h"

namespace {

namespace fs = std::filesystem;
using namespace fixture;
using card::CardIndex;
using card::Volume;

constexpr uint32_t kHeads = RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK;

void Damage(const std::string& path, uint64_t offset, const std::string& bytes) {
    const card::Device device = card::Device::Open(path, card::Access::ReadWrite);
    device.WriteAt(offset, bytes.data(), bytes.size());
}

std::string List(const std::string& path) {
    const Outcome outcome = Tool({"list", "--key-frames", path});
    EXPECT_THAT(outcome, Ends(0, ""));
    return outcome.out + Tool({"events", path}).out;
}

void ExpectRepaired(const std::string& path, const std::string& list) {
    EXPECT_THAT(Tool({"check", path}), Ends(0));
    EXPECT_EQ(List(path), list);
}

TEST(Repair, DestroyedIndexOfARingGivesTheSameList) {
    const Place place;
    const Recording recording = kRing.RecordFolder(place);
    ASSERT_TRUE(recording.sections.front().overwritten);
    const StoreBytes before(recording, 2);
    const std::string list = List(place);
    std::string noise(kHeads, '\0');
    std::mt19937 generator(4711);
    for (const bool random : {false, true}) {
        SCOPED_TRACE(random ? "noise" : "zero");
        for (char& c : noise) c = random ? static_cast<char>(generator()) : '\0';
        recording.Corrupt(RECORD_INDEX_NAME, 0, noise);
        Mend(place);
        EXPECT_EQ(List(place), list);
        EXPECT_EQ(before.Difference(), "index000.bin at 8");  // the card's size, which a folder does not know
        const CardIndex index{Volume::Open(place)};
        EXPECT_EQ(index.RingOrder(), (std::vector<uint32_t>{1, 0}));
        EXPECT_EQ(index.System().m_u32RecordUsedFileSum, 2u);
        EXPECT_EQ(card::Errors(Check(place)), 0u);
    }
}

TEST(Repair, MendsACopyUnlessToldOtherwise) {
    const Place image;
    const Recording recording = kDay.RecordImage(image);
    const std::string list = List(image);
    EXPECT_THAT(Tool({"repair", image}), Ends(0));
    EXPECT_FALSE(fs::exists(image.Path() + ".repaired"));

    recording.Corrupt(RECORD_INDEX_NAME, 0, std::string(kHeads, '\0'));
    const Place copy;
    EXPECT_THAT(Tool({"repair", "--out", copy, image}), Ends(0));
    ExpectRepaired(copy, list);
    EXPECT_EQ(Tool({"check", image}).status, 1);
    EXPECT_EQ(Tool({"repair", "--out", copy, image}).status, 2) << "an existing copy is not written over";

    const Place folder;
    EXPECT_EQ(Tool({"repair", "--out", folder.Path() + "/", image}).status, 0);
    ExpectRepaired(folder, list);

    EXPECT_EQ(Tool({"repair", "--in-place", image}).status, 2) << "nobody said yes";
    EXPECT_EQ(Tool({"check", image}).status, 1);
    EXPECT_EQ(Tool({"repair", "--in-place", "--yes", image}).status, 0);
    ExpectRepaired(image, list);
}

TEST(Repair, BringsBackTheFileSystem) {
    const Place image;
    kDay.RecordImage(image);
    const std::string list = List(image);
    const card::FatGeometry g = Volume::Open(image).Fat()->Geometry();
    const uint32_t fat = g.sectors_per_fat * g.bytes_per_sector;
    const std::string noise(4096, '\xA5');
    std::string random(g.ClusterOffset(2) + g.ClusterBytes(), '\0');
    std::mt19937 generator(4711);
    for (char& c : random) c = static_cast<char>(generator());
    const struct {
        const char* name;
        uint64_t offset;
        std::string bytes;
    } kCases[] = {
        {"boot sector", 0, std::string(512, '\0')},
        {"backup", 3 * 512, noise.substr(0, 512)},
        {"all reserved sectors", 0, std::string(6 * 512, '\0')},
        {"first table", g.FatOffset(0), std::string(fat, '\0')},
        {"part of the second table", g.FatOffset(1) + 1000, noise},
        {"both tables", g.FatOffset(0), std::string(2 * fat, '\xFF')},
        {"directory", g.ClusterOffset(2), std::string(g.ClusterBytes(), '\0')},
        {"one directory entry", g.ClusterOffset(2) + 64, noise.substr(0, 64)},
        {"everything in front of the files", 0, std::string(g.ClusterOffset(2) + g.ClusterBytes(), '\0')},
        {"random bytes in front of the files", 0, random},
    };
    for (const auto& damage : kCases) {
        SCOPED_TRACE(damage.name);
        Damage(image, damage.offset, damage.bytes);
        card::RepairLog log;
        card::RepairVolume(image, log);
        EXPECT_FALSE(log.empty());
        const card::Findings left = Check(image);
        EXPECT_TRUE(left.empty()) << left.front().what;
    }
    ExpectRepaired(image, list);
    // File system and index at once.
    const auto index = Volume::Open(image).OpenFile(RECORD_INDEX_NAME).Extents()[0];
    Damage(image, index.offset, std::string(kHeads, '\0'));
    Damage(image, 0, std::string(g.ClusterOffset(2) + g.ClusterBytes(), '\0'));
    EXPECT_EQ(Tool({"repair", "--in-place", "--yes", image}).status, 0);
    ExpectRepaired(image, list);
}

TEST(Repair, FindsRecordFilesAnywhere) {
    const Place image;
    kDay.RecordImage(image);
    const std::string list = Tool({"list", image}).out;
    const Volume volume = Volume::Open(image);
    const card::Extent record = volume.OpenFile("hi000000.mp4").Extents()[0];
    const uint64_t shift = 7 * 512;
    const card::Extent nothing{volume.OpenFile("keyframe.bin").Extents()[0].offset, shift};
    const Place other;  // no file system at all, and not where the formatter puts it
    card::Salvage salvage;
    card::CopySparse({std::make_shared<const card::Device>(card::Device::Open(image)), {nothing, record}, ""}, other,
                     600u << 20, salvage);
    EXPECT_EQ(Tool({"repair", "--in-place", "--yes", other}).status, 3);
    const Place folder;
    EXPECT_THAT(Tool({"repair", "--out", folder.Path() + "/", other}), Ends(0));
    EXPECT_EQ(Tool({"list", folder}).out, list);
}

TEST(Repair, AFlippedBitInATimeCostsNothing) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const StoreBytes before(recording, 2);
    size_t number = 0;
    for (const WrittenFrame* picture : recording.KeptVideo()) {
        if (++number % 37 != 1) continue;  // first, last and others of a section
        SCOPED_TRACE("picture " + std::to_string(number));
        const std::string stream = Volume::RecordFileName(picture->file);
        const std::string time = recording.Read(stream, picture->offset + 14, 4);
        for (const int bit : {12, 24, 30}) {
            std::string flipped = time;
            flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
            recording.Corrupt(stream, picture->offset + 14, flipped);
            EXPECT_EQ(Mend(place).pictures_after, recording.KeptVideo().size());
            EXPECT_EQ(CardIndex(Volume::Open(place)).Sections().size(), recording.sections.size());
            EXPECT_EQ(before.Difference(), "");
        }
        recording.Corrupt(stream, picture->offset + 14, time);
    }
}

TEST(Repair, BelievesAFilesOwnMark) {
    const Place image;
    kDay.RecordImage(image);
    const std::string list = List(image);
    const uint64_t root = Volume::Open(image).Fat()->Geometry().ClusterOffset(2);
    std::string directory(4096, '\0');
    Volume::Open(image).Raw()->ReadAt(root, directory.data(), directory.size());
    const auto place_of = [&](const char* name) {  // first cluster and size in its short entry
        return directory.begin() + static_cast<ptrdiff_t>(directory.find(name)) + 20;
    };
    std::swap_ranges(place_of("INDEX000BIN"), place_of("INDEX000BIN") + 12, place_of("EVENT000BIN"));
    Damage(image, root, directory);
    EXPECT_NE(Tool({"check", image}).out.find("points at something else"), std::string::npos);
    EXPECT_THAT(Tool({"repair", "--in-place", "--yes", image}), Ends(0));
    ExpectRepaired(image, list);
}

TEST(Repair, TakesNoOtherFileForARecordFile) {
    const Place place;
    kDay.RecordFolder(place);
    fs::remove(place.Path() + "/hi000001.mp4");
    for (const char* other : {"/hi5.mp4", "/hi+00005.mp4", "/hi    5.mp4"})
        fs::copy(place.Path() + "/event000.bin", place.Path() + other);
    card::RepairLog log;
    card::RepairFolder(place, log);
    EXPECT_FALSE(fs::exists(place.Path() + "/hi000005.mp4"));
}

TEST(Repair, LeavesNoHalfCopy) {
    const Place place;
    kDay.RecordFolder(place).Corrupt(RECORD_INDEX_NAME, 0, "XXXX");
    const Place small;
    fs::create_directories(small.Path());
    ASSERT_EQ(mount("none", small.Path().c_str(), "tmpfs", 0, "size=256k"), 0);
    EXPECT_EQ(Tool({"repair", "--out", small.Path() + "/copy", place}).status, 3);
    EXPECT_TRUE(fs::is_empty(small.Path()));
    EXPECT_EQ(umount(small.Path().c_str()), 0);
}

}  // namespace
