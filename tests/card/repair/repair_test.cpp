// What a repair brings back: the index from the stream, the file system from the layout, files from nothing;
// and that whatever was damaged, no footage that is still on the card gets lost.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "fixture/CardFixture.h"
#include "fixture/Mend.h"
#include "fixture/Place.h"
#include "fixture/StoreBytes.h"
#include "index/CardIndex.h"
#include "stream/StreamScanner.h"
#include "volume/CardCopy.h"

namespace {

namespace fs = std::filesystem;
using card::CardIndex;
using card::Volume;
using fixture::Card;
using fixture::Check;
using fixture::Mend;
using fixture::Outcome;
using fixture::Place;
using fixture::Recording;
using fixture::StoreBytes;
using fixture::Tool;

constexpr uint32_t kLarge = 600000;

const Card kDay{.files = 2,
                .sections = {{.seconds = 20, .rate = 5},
                             {.seconds = 10, .pause = 90, .rate = 5, .audio = CODE_AUDIO_AAC},
                             {.seconds = 8, .pause = 1, .rate = 10, .audio = CODE_AUDIO_NULL}},
                .events = {{.after = 5, .seconds = 5}, {.after = 112, .seconds = 2, .type = 4}}};

void Damage(const std::string& path, uint64_t offset, const std::string& bytes) {
    const card::Device device = card::Device::Open(path, card::Access::ReadWrite);
    device.WriteAt(offset, bytes.data(), bytes.size());
}

std::string List(const std::string& path) {
    const Outcome outcome = Tool({"list", "--key-frames", path});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    return outcome.out + Tool({"events", path}).out;
}

void ExpectRepaired(const std::string& path, const std::string& list) {
    const Outcome check = Tool({"check", path});
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_EQ(List(path), list);
}

// Every frame inside a section of its file, and nothing of an earlier lap beside them.
void ExpectReachable(const Recording& recording) {
    const Volume volume = Volume::Open(recording.path);
    const CardIndex index(volume);
    uint64_t lost = 0;
    uint64_t bytes = 0;
    for (const fixture::WrittenFrame* frame : recording.Kept()) {
        if (frame->offset > RECORD_STREAM_LIMIT) continue;  // written while the file was full already: never counted
        bool found = false;
        for (const card::Section& section : index.Sections()) {
            found = found || (section.file == frame->file && section.Begin() <= frame->offset &&
                              frame->offset + frame->size <= section.Limit() && section.Start() <= frame->time &&
                              frame->time <= section.End() + 1);
        }
        if (!found && lost++ == 0) {
            ADD_FAILURE() << "lost: file " << frame->file << " at " << frame->offset << ", " << frame->size
                          << " bytes, time " << frame->time << ", " << (frame->video ? "video" : "sound");
        }
        bytes += frame->size + (frame->first_of_run ? 40 : 0);
    }
    EXPECT_EQ(index.StreamBytes(), bytes);
}

// Damages heads and key-frame records at random, repairs, and puts everything back.
void DamageAndRepair(const Recording& recording, const StoreBytes& before, uint32_t seed) {
    constexpr uint32_t kHeads = RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK;
    std::mt19937 generator(seed);
    const auto any = [&generator](uint32_t below) { return static_cast<uint32_t>(generator() % below); };
    for (uint32_t left = 1 + any(6); left != 0; --left) {
        const uint32_t places[] = {any(236), RECORD_FILE_HEAD_BASE + any(96), fixture::SectionAt(any(2), 1) + any(200),
                                   any(kHeads)};
        const bool key_area = any(4) == 0;
        const uint32_t offset = key_area ? RECORD_KEY_FRAME_BASE + any(2000) : places[any(4)];
        std::string bytes(any(3) == 0 ? 1 + any(8000) : 1 + any(8), '\0');
        if (any(2) == 0) {
            for (char& c : bytes) c = static_cast<char>(generator());
        }
        if (!key_area) bytes.resize(std::min<size_t>(bytes.size(), kHeads - offset));
        recording.Corrupt(key_area ? Volume::RecordFileName(any(2)) : RECORD_INDEX_NAME, offset, bytes);
    }
    Mend(recording.path);
    ExpectReachable(recording);
    for (const card::Finding& left : Check(recording.path)) {
        EXPECT_EQ(left.level, card::Finding::Level::Remark) << left.kind << ": " << left.what;
    }
    before.PutBack();
}

// Once round and a bit: file 0 holds the beginning of the second lap, and after it the end of the first.
const Card kRing{.files = 2,
                 .sections = {{.seconds = 30, .frame_bytes = kLarge},
                              {.seconds = 5, .pause = 30, .frame_bytes = kLarge},
                              {.seconds = 4, .pause = 3, .frame_bytes = kLarge}},
                 .keep_units = false};

TEST(Repair, DestroyedIndexOfARingGivesTheSameList) {
    const Place place;
    const Recording recording = kRing.RecordFolder(place);
    ASSERT_TRUE(recording.sections.front().overwritten);
    const StoreBytes before(recording, 2);
    const std::string list = List(place);
    std::string noise(RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK, '\0');
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
    before.PutBack();
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        DamageAndRepair(recording, before, seed);
    }
}

TEST(Repair, MendsACopyUnlessToldOtherwise) {
    const Place image;
    const Recording recording = kDay.RecordImage(image);
    const std::string list = List(image);
    const Outcome nothing = Tool({"repair", image});
    EXPECT_EQ(nothing.status, 0) << nothing.out << nothing.err;
    EXPECT_FALSE(fs::exists(image.Path() + ".repaired"));

    recording.Corrupt(RECORD_INDEX_NAME, 0, std::string(RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK, '\0'));
    const Place copy;
    const Outcome copied = Tool({"repair", "--out", copy, image});
    EXPECT_EQ(copied.status, 0) << copied.out << copied.err;
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
    Damage(image, index.offset, std::string(RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK, '\0'));
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
    const Outcome repair = Tool({"repair", "--out", folder.Path() + "/", other});
    EXPECT_EQ(repair.status, 0) << repair.out << repair.err;
    EXPECT_EQ(Tool({"list", folder}).out, list);
}

TEST(Repair, LosesNothingWhateverIsDamaged) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const StoreBytes before(recording, 2);
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        DamageAndRepair(recording, before, seed);
    }
}

TEST(Repair, FindsWhatIsLeftOfADamagedStream) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const StoreBytes before(recording, 2);
    const uint32_t end = recording.frames.back().offset;
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 generator(seed);
        const uint32_t length = 512 << generator() % 6;
        const uint32_t offset = static_cast<uint32_t>(generator() % (end - length)) / 512 * 512;
        const std::string intact = recording.Read("hi000000.mp4", offset, length);
        recording.Corrupt("hi000000.mp4", offset, std::string(length, '\0'));
        recording.Corrupt(RECORD_INDEX_NAME, 0, std::string(RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK, '\0'));
        Mend(place);
        const CardIndex index{Volume::Open(place)};
        bool decodable = false;
        for (const fixture::WrittenFrame* frame : recording.Kept()) {
            const bool hit = frame->offset < offset + length && frame->offset + frame->size > offset;
            if (frame->first_of_run) decodable = false;  // until its key frame has been seen
            decodable = (decodable || frame->key) && !(hit && frame->first_of_run);
            if (hit || !decodable) continue;
            const bool found =
                std::any_of(index.Sections().begin(), index.Sections().end(), [frame](const card::Section& section) {
                    return section.Begin() <= frame->offset && frame->offset + frame->size <= section.Limit() &&
                           (!frame->video || (section.Start() <= frame->time &&
                                              frame->time <= section.End() + 1));  // sound has no time of its own
                });
            EXPECT_TRUE(found) << "frame at " << frame->offset << ", damage at " << offset << " of " << length;
        }
        for (const card::Finding& left : Check(place)) {
            const bool of_stream =
                left.kind == "stream-damaged" || left.kind == "stream-foreign" || left.kind == "section-begin";
            EXPECT_TRUE(of_stream || left.level == card::Finding::Level::Remark) << left.kind << ": " << left.what;
        }
        recording.Corrupt("hi000000.mp4", offset, intact);
        before.PutBack();
    }
}

TEST(Repair, AFlippedBitInATimeCostsNothing) {
    const Place place;
    const Recording recording = kDay.RecordFolder(place);
    const StoreBytes before(recording, 2);
    size_t number = 0;
    for (const fixture::WrittenFrame* picture : recording.KeptVideo()) {
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

// What a power cut left uncounted comes back when sound stands first, and when a hole does.
TEST(Repair, BringsBackWhatACutLeftUncounted) {
    const Place place;
    const Recording recording = Card{.files = 2, .sections = {{.seconds = 8, .rate = 10}}}.RecordFolder(place);
    const StoreBytes before(recording, 2);
    const std::string list = List(place);
    std::vector<const fixture::WrittenFrame*> sounds;
    std::vector<const fixture::WrittenFrame*> pictures;
    for (const fixture::WrittenFrame& frame : recording.frames) (frame.video ? pictures : sounds).push_back(&frame);
    const auto cut_at = [&](const fixture::WrittenFrame& first) {
        const auto index = Volume::Open(place, card::Access::ReadWrite).OpenFile(RECORD_INDEX_NAME);
        auto section = *index.Get<RecordInfoHead_S>(fixture::SectionAt(0, 1));
        auto file = *index.Get<RecordFileInfoHead_S>(fixture::FileHeadAt(0));
        section.m_u32RecordSize = file.m_u32RecordFileSumLenth = first.offset;
        section.m_u32RecordEndTime = file.m_u32RecordEndTime = first.time;
        const auto counts = [&](const auto* frame) { return frame->offset < first.offset; };
        section.m_u32FrameSum = static_cast<uint32_t>(std::count_if(pictures.begin(), pictures.end(), counts));
        section.m_u32KeyFrameSum = file.m_u32RecordKeyFrameSum = static_cast<uint32_t>(
            std::count_if(pictures.begin(), pictures.end(), [&](const auto* f) { return f->key && counts(f); }));
        index.WriteAt(fixture::SectionAt(0, 1), &section, sizeof section);
        index.WriteAt(fixture::FileHeadAt(0), &file, sizeof file);
    };
    const auto repair = [&] {
        EXPECT_NE(Tool({"check", place}).out.find("after what the heads count"), std::string::npos);
        Mend(place);
    };
    cut_at(*sounds[sounds.size() / 2]);
    repair();
    EXPECT_EQ(before.Difference(), "");
    ExpectRepaired(place, list);

    const fixture::WrittenFrame& first = *pictures[52];
    cut_at(first);
    recording.Corrupt("hi000000.mp4", first.offset, std::string(pictures[58]->offset - first.offset, '\0'));
    repair();
    const CardIndex index(Volume::Open(place));
    EXPECT_EQ(index.Sections().at(0).head.m_u32FrameSum, 80u - 6);
    EXPECT_EQ(index.Sections().at(0).Limit(), recording.frames.back().offset + recording.frames.back().size);
}

TEST(Repair, BelievesAFilesOwnMark) {
    const Place image;
    const Recording recording = kDay.RecordImage(image);
    const std::string list = List(image);
    const uint64_t root = Volume::Open(image).Fat()->Geometry().ClusterOffset(2);
    const auto entry_of = [&](const std::string& name) {  // the short entry: first cluster at 20 and 26, size at 28
        std::string directory(4096, '\0');
        Volume::Open(image).Raw()->ReadAt(root, directory.data(), directory.size());
        return root + directory.find(name);
    };
    const uint64_t a = entry_of("INDEX000BIN");
    const uint64_t b = entry_of("EVENT000BIN");
    const auto bytes = [&](uint64_t at) {
        std::string text(12, '\0');
        Volume::Open(image).Raw()->ReadAt(at + 20, text.data(), text.size());
        return text;
    };
    const std::string first = bytes(a);
    const std::string second = bytes(b);
    Damage(image, a + 20, second);
    Damage(image, b + 20, first);
    EXPECT_NE(Tool({"check", image}).out.find("points at something else"), std::string::npos);
    const Outcome repair = Tool({"repair", "--in-place", "--yes", image});
    EXPECT_EQ(repair.status, 0) << repair.out << repair.err;
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
