// What a recorder reads first from a fresh card, whatever lay there before.
#include "Image.h"
#include "libPreStore.h"

using test::Ask;
using test::Image;
using test::kGiB;
using test::kMiB;

namespace {

TEST(Heads, AreZeroOnGarbageAndTheRecordFilesAreLeftAlone) {
    constexpr char kGarbage = '\xA5';
    Image image(2 * kGiB);
    // FATs, directory, the 64 MiB files and a bit of the first record file; the end.
    image.Put(0, std::string(300 * kMiB, kGarbage));
    image.Put(2 * kGiB - kMiB, std::string(kMiB, kGarbage));
    const auto result = prestore::Format(image.Path().c_str(), {.video_percent = 100});
    ASSERT_TRUE(result.Ok()) << result.message;
    const auto is_zero = [&image](const std::string& file, size_t offset, size_t length) {
        return image.File(file).substr(offset, length) == std::string(length, '\0');
    };
    EXPECT_TRUE(is_zero("index000.bin", 0, 1024 + 48 * 4)) << "system head and file heads";
    EXPECT_TRUE(is_zero("index000.bin", 131072, 16384 * 4)) << "section heads";
    EXPECT_TRUE(is_zero("event000.bin", 0, 256 * 4)) << "event heads";

    EXPECT_EQ(Ask("fls -r -p " + image.Path() + " | grep -v '\\$'").Lines().size(), 8u) << "no ghosts of old entries";
    EXPECT_EQ(Ask("fsck.fat -n " + image.Path()).Lines().size(), 6u) << "no remark but the free count";
    EXPECT_EQ(image.Get(299 * kMiB, 512), std::string(512, kGarbage)) << "record data was written";
    EXPECT_EQ(image.Get(2 * kGiB - 512, 512), std::string(512, kGarbage));
    // Written but for the garbage: the tables and heads, to the byte what was announced.
    EXPECT_EQ(result.bytes_written, result.bytes_to_write);
    EXPECT_LT(result.bytes_to_write, result.bytes_smallest + result.bytes_smallest / 10);
}

TEST(Heads, AFreshSystemHeadIsTheOneThatARecorderWritesAfterFormatting) {
    const Image image(2 * kGiB);
    uint64_t last = 0, expected = 1;
    const auto progress = [&](uint64_t done, uint64_t total) {
        EXPECT_GT(done, last);
        last = done;
        expected = total;
    };
    const auto result =
        prestore::Format(image.Path().c_str(), {.video_percent = 75, .system_head = true, .progress = progress});
    ASSERT_TRUE(result.Ok()) << result.message;
    EXPECT_EQ(last, expected);
    EXPECT_EQ(result.store.vedio_num, 3u);
    EXPECT_EQ(AV_RecordFileConfigSet("/tmp/recorders.index", &result.store), 0);
    std::string index = Ask("cat /tmp/recorders.index").text;
    index.resize(64 * kMiB);
    EXPECT_TRUE(image.File("index000.bin") == index);
}

}  // namespace
