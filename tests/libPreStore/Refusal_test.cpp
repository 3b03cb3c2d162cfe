// Cards and arguments that are refused, untouched, and devices that fail half-way.
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>

#include "Image.h"
#include "libPreStore.h"
#include "support/Card.h"
#include "support/Stderr.h"

using prestore::FormatError;
using test::Ask;
using test::Image;
using test::kGiB;
using test::kMiB;
using testing::HasSubstr;

namespace {

void ExpectRefused(const std::string& path, int percent, const std::string& message,
                   FormatError error = FormatError::kRefused) {
    SCOPED_TRACE(path + " " + message);
    const auto result = prestore::Format(path.c_str(), {.video_percent = percent});
    EXPECT_EQ(result.error, error);
    EXPECT_THAT(result.message, HasSubstr(path + ": " + message));
    EXPECT_EQ(result.bytes_written, 0u);
    EXPECT_EQ(prestore::CheckFormat(path.c_str(), {.video_percent = percent}).message, result.message);
}

TEST(Refusal, OfSizesAndSharesSaysWhy) {
    const struct {
        uint64_t bytes;
        int percent;
        const char* message;
    } cases[] = {
        {0, 100, "the image is too small for FAT32"},
        {9 * 512, 100, "the image is too small for FAT32"},
        {10 * 512, 100, "too small: 0 MiB, a recording card has at least 1280 MiB"},
        {1280 * kMiB - 512, 100, "too small: 1279 MiB"},
        {1280 * kMiB, 99, "this share of video leaves no room for a record file of 256 MiB"},
        {2 * kGiB, 0, "this share of video leaves no room for a record file of 256 MiB"},
        {2 * kGiB, 101, "a video percent of 101 is not within 0 to 100"},
        {2 * kGiB, -1, "a video percent of -1 is not within 0 to 100"},
        {2048 * kGiB, 1, "too large: FAT32 counts at most 4294967295 sectors, this device has 4294967296"},
        {1024 * kGiB, 100, "the index has room for 2709 record files, not 4092; use a video percent of at most 66"},
    };
    for (const auto& refused : cases) {
        const Image image(refused.bytes);
        ExpectRefused(image.Path(), refused.percent, refused.message);
        EXPECT_EQ(image.BytesOnDisk(), 0u);
    }
    const Image image(1024 * kGiB);
    EXPECT_EQ(prestore::CheckFormat(image.Path().c_str(), {.video_percent = 66}).store.vedio_num, 2700u);
    EXPECT_THAT(prestore::CheckFormat(image.Path().c_str(), {.video_percent = 67}).message, HasSubstr("at most 66"));
}

TEST(Refusal, OfWhatIsNoFreeDeviceSaysWhy) {
    ExpectRefused("/tmp", 100, "neither a block device nor an image file");
    ExpectRefused("/dev/null", 100, "neither a block device nor an image file");
    ExpectRefused("/dev/none", 100, "cannot open: No such file or directory", FormatError::kDevice);
    {
        const Image image(2 * kGiB);
        const int other = open(image.Path().c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(other, LOCK_EX), 0);
        ExpectRefused(image.Path(), 100, "in use: another program holds its lock");
        close(other);
        EXPECT_TRUE(prestore::Format(image.Path().c_str(), {}).Ok()) << "and leaves no lock behind";
        EXPECT_TRUE(prestore::Format(image.Path().c_str(), {}).Ok());
    }
    {
        const support::Card card;
        ExpectRefused(support::kCardDevice, 100, "mounted at /var/etc/sdcard; unmount it first");
    }
    ASSERT_EQ(Ask("mkdir -p /tmp/small && mount -t tmpfs none /tmp/small && truncate -s 2G /tmp/small/locked.img && "
                  "mount -o remount,ro /tmp/small")
                  .text,
              "");
    ExpectRefused("/tmp/small/locked.img", 100, "cannot be written to: Read-only file system");
    umount2("/tmp/small", MNT_DETACH);
}

// The C interface: a refusal returns, a device error ends the process; either says why in one line.
TEST(Refusal, OfTheCInterface) {
    ConfigStoreInfo_S store{};
    EXPECT_EQ(mkfs_vfat(nullptr, &store, 100), -1);
    EXPECT_EQ(mkfs_vfat("/tmp/none", nullptr, 100), -1);
    {
        const Image image(kGiB);
        const support::Captured said;
        EXPECT_EQ(mkfs_vfat(image.Path().c_str(), &store, 100), -1);
        EXPECT_EQ(said.Text(), image.Path() + ": too small: 1024 MiB, a recording card has at least 1280 MiB\n");
    }
    EXPECT_EXIT(mkfs_vfat("/tmp/none", &store, 100), testing::ExitedWithCode(1),
                "^/tmp/none: cannot open: No such file or directory\n$");
}

TEST(DeviceError, InTheMiddleEndsTheProcessAndLeavesNoVolume) {
    const Image image(2 * kGiB);
    ASSERT_TRUE(prestore::Format(image.Path().c_str(), {}).Ok());
    ConfigStoreInfo_S store{};
    const auto format = [&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {3 * kMiB, 3 * kMiB};
        setrlimit(RLIMIT_FSIZE, &limit);
        mkfs_vfat(image.Path().c_str(), &store, 100);
    };
    EXPECT_EXIT(format(), testing::ExitedWithCode(1),
                "\n/proc/[0-9]+/fd/[0-9]+: write of [0-9]+ bytes at byte 3145728: File too large; "
                "the card holds no volume now, format it again\n$");
    EXPECT_EQ(image.Get(0, 512), std::string(512, '\0'));
    for (const std::string reader : {"fsck.fat -n ", "fsstat ", "mdir :: -i "}) {
        EXPECT_NE(Ask(reader + image.Path()).status, 0) << reader;
    }
    EXPECT_TRUE(prestore::Format(image.Path().c_str(), {}).Ok());
    EXPECT_EQ(Ask("fsck.fat -n " + image.Path()).Lines().size(), 6u) << "and the next format mends it";
}

}  // namespace
