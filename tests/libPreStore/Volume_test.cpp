// Formatted cards from 1.25 GiB to 512 GiB, judged by readers that know nothing of the formatter:
// a FAT checker, The Sleuth Kit and mtools.
#include <gmock/gmock.h>

#include "BlockDevice.h"
#include "Formatter.h"
#include "Image.h"
#include "VolumePlan.h"
#include "libPreStore.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

using test::Ask;
using test::Image;
using test::kGiB;
using test::kMiB;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

struct Usage {  // as the checker counted
    unsigned long long files = 0, used = 0, clusters = 0;
};

// The checker finds nothing but the free count, which the formatter sets to all clusters but one.
Usage ExpectSound(const Image& image) {
    const std::string verdict = Ask("fsck.fat -n " + image.Path()).text;
    Usage usage;
    unsigned long long told = 0;
    EXPECT_THAT(verdict, MatchesRegex("fsck.fat [^\n]*\nFree cluster summary wrong [^\n]*\n  Auto-correcting.\n\n"
                                      "Leaving filesystem unchanged.\n" +
                                      image.Path() + ": [^\n]*\n"));
    sscanf(verdict.c_str(), "%*[^\n]\nFree cluster summary wrong (%llu", &told);
    sscanf(&verdict[verdict.rfind(':')], ": %llu files, %llu/%llu", &usage.files, &usage.used, &usage.clusters);
    EXPECT_EQ(told, usage.clusters - 1);
    return usage;
}

std::vector<std::string> NamesOfStore(unsigned pictures, unsigned videos) {
    return Ask("seq -f hi%06.0f.pic 0 " + std::to_string(int(pictures) - 1) + "; seq -f hi%06.0f.mp4 0 " +
               std::to_string(int(videos) - 1) + "; printf '%s\n' event000.bin keyframe.bin index000.bin index001.bin")
        .Lines();
}

ConfigStoreInfo_S Formatted(const Image& image, int percent) {
    ConfigStoreInfo_S store{};
    const support::Captured silenced;
    EXPECT_EQ(mkfs_vfat(image.Path().c_str(), &store, percent), 0) << silenced.Text();
    return store;
}

struct Case {
    uint64_t bytes;
    int percent;
    unsigned videos;
    unsigned pictures;
    unsigned sectors_per_cluster;
};

class FormattedCard : public testing::TestWithParam<Case> {};

TEST_P(FormattedCard, IsWhatIndependentReadersExpect) {
    const Case card = GetParam();
    const Image image(card.bytes);
    const ConfigStoreInfo_S store = Formatted(image, card.percent);
    EXPECT_EQ(store.vedio_num, card.videos);
    EXPECT_EQ(store.picture_num, card.pictures);
    EXPECT_EQ(store.total_size_byte, card.bytes / kMiB);

    const uint64_t cluster = card.sectors_per_cluster * 512;
    const Usage usage = ExpectSound(image);
    EXPECT_EQ(usage.files, card.videos + card.pictures + 4);
    // An event file that grows (record files beyond number 503) finds its room outside all other files.
    const uint64_t grown = (card.videos + 8) * 131072ull;
    EXPECT_GE((usage.clusters - usage.used) * cluster + 64 * kMiB, grown);

    const std::string system = Ask("fsstat " + image.Path()).text;
    EXPECT_THAT(system, HasSubstr("File System Type: FAT32\n"));
    EXPECT_THAT(system, HasSubstr("Cluster Size: " + std::to_string(cluster) + "\n"));
    unsigned long long data = 0;
    const size_t area = system.find("** Cluster Area: ");
    ASSERT_NE(area, std::string::npos) << system;
    EXPECT_EQ(sscanf(&system[area], "** Cluster Area: %llu", &data), 1);
    EXPECT_EQ(data % card.sectors_per_cluster, 0u) << "clusters begin on multiples of themselves";

    std::vector<std::string> names;
    for (const std::string& line : Ask("mshowfat -i " + image.Path() + " '::/*'").Lines()) {
        char name[32];
        unsigned long long first = 0, last = 0;
        EXPECT_EQ(sscanf(line.c_str(), "::/%31s <%llu-%llu>", name, &first, &last), 3) << line;
        names.push_back(name);
        const uint64_t size = names.back().ends_with(".bin") ? 64 * kMiB : 256 * kMiB;
        EXPECT_EQ((last - first + 1) * cluster, size) << line;
        EXPECT_EQ((data * 512 + (first - 2) * cluster) % (4 * kMiB), 0u) << line;
    }
    EXPECT_EQ(names, NamesOfStore(card.pictures, card.videos));
    // The Sleuth Kit agrees: each file and the directory are one run of clusters.
    EXPECT_THAT(Ask("fsstat " + image.Path() + " | sed -n 's/.*-> //p' | sort | uniq -c").text,
                MatchesRegex(" *" + std::to_string(names.size() + 1) + " EOF\n"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, FormattedCard,
                         testing::Values(Case{1280 * kMiB, 100, 1, 0, 8},        // the smallest there is
                                         Case{1280 * kMiB, 99, 0, 0, 8},         // no file of either kind
                                         Case{2 * kGiB, 0, 0, 4, 8},             // pictures alone
                                         Case{3'965'190'144, 90, 9, 1, 8},       // a "4 GB" card
                                         Case{8 * kGiB - 512, 100, 27, 0, 8},    //
                                         Case{8 * kGiB, 75, 21, 7, 16},          //
                                         Case{16 * kGiB, 10, 6, 54, 32},         //
                                         Case{31'914'983'424, 100, 114, 0, 32},  // a "32 GB" card
                                         Case{32 * kGiB, 100, 124, 0, 64},       //
                                         Case{128 * kGiB, 100, 508, 0, 128},     // the event file will grow
                                         Case{512 * kGiB, 80, 1635, 408, 128}));

// Bytes worked out by hand, but for the volume id at 67.
TEST(Volume, BootAndInformationSectorsAreTheirBytes) {
    const Image image(32 * kGiB);
    Formatted(image, 90);
    const std::string boot = image.Get(0, 512);
    EXPECT_EQ(boot.substr(0, 67), std::string("\xEB\x58\x90mkdosfs\0"
                                              "\x00\x02\x40\x06\x00\x02\x00\x00\x00\x00\xF8\x00\x00\x3F\x00\xFF\x00"
                                              "\x00\x00\x00\x00\x00\x00\x00\x04\x1D\x20\x00\x00\x00\x00\x00\x00"
                                              "\x02\x00\x00\x00\x01\x00\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                                              "\x00\x00\x80\x00\x29",
                                              67));
    EXPECT_EQ(boot.substr(71, 19), "NO NAME    FAT32   ");
    EXPECT_EQ(boot.substr(90, 54),
              std::string("\xFC\x31\xC0\x8E\xD8\xBE\x73\x7C\xAC\x84\xC0\x74\x09\xB4\x0E\xBB\x07\x00"
                          "\xCD\x10\xEB\xF2\xF4\xEB\xFD"
                          "This is not a bootable disk\r\n",
                          54));
    EXPECT_EQ(boot.substr(510), "\x55\xAA");
    const std::string info = image.Get(512, 512);
    EXPECT_EQ(info.substr(0, 4), "RRaA");
    EXPECT_EQ(info.substr(484, 12), std::string("rrAa\xFE\xFE\x0F\x00\x02\x00\x00\x00", 12))
        << "1048319 - 1 clusters free";
    EXPECT_EQ(info.substr(510), "\x55\xAA");
    EXPECT_EQ(image.Get(1024, 512), std::string(512, '\0')) << "the spare sector";
    EXPECT_EQ(image.Get(3 * 512, 3 * 512), image.Get(0, 3 * 512)) << "the backup";
    EXPECT_EQ(image.Get(6 * 512, 12), std::string("\xF8\xFF\xFF\x0F\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x0F", 12));
    const uint64_t fat = 8221 * 512;
    EXPECT_TRUE(image.Get(6 * 512, fat) == image.Get(6 * 512 + fat, fat)) << "both FATs";
}

// The first record file of a card formatted on 2026-11-21 07:38:45 local time.
TEST(Volume, DirectoryEntriesAreTheirBytes) {
    support::SteppedClock clock;
    clock.wall = 1795246725;
    setenv("TZ", "UTC0", 1);
    const Image image(1280 * kMiB);
    Formatted(image, 100);
    const std::string listed = Ask("istat -z UTC0 " + image.Path() + " 3; fls -F -l -z UTC0 " + image.Path()).text;
    EXPECT_THAT(listed, HasSubstr("hi000000.mp4\t2026-11-21 07:38:44 (UTC)")) << "two seconds are the unit";
    const uint64_t root = 6 * 512 + 2 * 2557 * 512;
    EXPECT_EQ(image.Get(root, 43), std::string("\x41h\0i\0000\0000\0000\0\x0F\0\xBD"
                                               "0\0000\0000\0.\0m\0p\0\0\0004\0\0\0HI000000MP4",
                                               43));
}

class ImageDevice : public prestore::BlockDevice {
  public:
    explicit ImageDevice(Image& image) : image_(image) {}
    bool Write(uint64_t offset, std::span<const std::byte> bytes) override {
        EXPECT_EQ(offset % 4096 + bytes.size() % 4096, 0u);
        image_.Put(offset, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        return true;
    }
    bool Flush() override { return true; }

  private:
    Image& image_;
};

TEST(Volume, IsJudgedSoundWithSectorsOf4096Bytes) {
    Image image(2 * kGiB);
    ImageDevice device(image);
    prestore::VolumePlan plan;
    ASSERT_EQ(prestore::PlanVolume({.bytes = 2 * kGiB, .sector_bytes = 4096}, 100, plan), "");
    uint64_t written = 0;
    ASSERT_EQ(prestore::WriteVolume(device, plan, WallTime(), {}, written), "");
    const Usage usage = ExpectSound(image);
    EXPECT_EQ(usage.files, 4u + 4);
    EXPECT_GE(usage.clusters, 65525u) << "fewer, and some readers take it for FAT16";
}

using CardsOwn = support::LoggedTest;

TEST_F(CardsOwn, FormatSaysWhatItDoes) {
    // In a camera "/dev" is private: the card's partition is a file there.
    const int fd = open64("/dev/mmcblk0p1", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(ftruncate64(fd, 32 * kGiB), 0);
    ConfigStoreInfo_S store{};
    EXPECT_EQ(AV_RecordSDCardFormat(&store, 90), 0);
    close(fd);
    unlink("/dev/mmcblk0p1");
    EXPECT_EQ(store.vedio_size_byte, 31u * 1024 * 90 / 100);
    EXPECT_EQ(store.picture_size_byte, 31u * 1024 * 10 / 100);
    EXPECT_THAT(
        log_.Text(),
        MatchesRegex(
            "\\[Trace\\]: AV_RecordSDCardFormat [0-9]+ \n"
            "Device '/dev/mmcblk0p1':\nheads:255, sectors/track:63, bytes/sector:512\nmedia descriptor:f8\n"
            "total sectors:67108864, clusters:1048319, sectors/cluster:64\nFATs:2, sectors/FAT:8221\n"
            "volumeID:[0-9a-f]{8}, label:'NO NAME    '\nbufsize = [0-9]+ \n"
            "vdeio_file_num = 111 picture_file_num = 12 dir_clust = 1 clust_per_file = 8192  reserved_sect = 6 \n"));
}

TEST(Name, IsWidened) {
    unsigned char wide[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(AssciToUnicode("h\xE9i", wide), 6);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(wide), 8), std::string("h\0\xE9\0i\0\x09\x09", 8));
    EXPECT_EQ(AssciToUnicode(nullptr, wide), -1);
    EXPECT_EQ(AssciToUnicode("h", nullptr), -1);
}

}  // namespace
