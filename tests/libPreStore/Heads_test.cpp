// What a recorder reads first from a fresh card, whatever lay there before.
#include <algorithm>
#include <fstream>
#include <sstream>

#include "Image.h"
#include "libPreStore.h"

using test::Ask;
using test::Image;
using test::kGiB;
using test::kMiB;

namespace {

constexpr char kGarbage = '\xA5';

bool AllZero(const std::string& bytes, uint64_t offset, uint64_t length) {
    const auto begin = bytes.begin() + static_cast<ptrdiff_t>(offset);
    return bytes.size() >= offset + length &&
           std::all_of(begin, begin + static_cast<ptrdiff_t>(length), [](char c) { return c == '\0'; });
}

// Every head of `files` record files.
void ExpectHeadsZero(const Image& image, uint32_t files) {
    const std::string index = image.File("index000.bin");
    ASSERT_EQ(index.size(), 64 * kMiB);
    EXPECT_TRUE(AllZero(index, 0, 1024 + 48 * files)) << "system head and file heads";
    EXPECT_TRUE(AllZero(index, 131072, 16384 * files)) << "section heads";
    const std::string event = image.File("event000.bin");
    ASSERT_EQ(event.size(), 64 * kMiB);
    EXPECT_TRUE(AllZero(event, 0, 256 * files)) << "event heads";
}

TEST(Heads, AreZeroOnGarbageAndTheRecordFilesAreLeftAlone) {
    const Image image(2 * kGiB);
    image.Fill(0, 300, kGarbage);  // FATs, directory, the 64 MiB files and a bit of the first record file
    image.Fill(2 * kGiB - kMiB, 1, kGarbage);
    const auto result = prestore::Format(image.Path().c_str(), {.video_percent = 100});
    ASSERT_TRUE(result.Ok()) << result.message;
    ExpectHeadsZero(image, 4);

    EXPECT_EQ(Ask("fls -r -p " + image.Path() + " | grep -v '\\$'").Lines().size(), 8u) << "no ghosts of old entries";
    EXPECT_EQ(Ask("fsck.fat -n " + image.Path()).Lines().size(), 6u) << "no remark but the free count";
    EXPECT_EQ(image.Get(299 * kMiB, 512), std::string(512, kGarbage)) << "record data was written";
    EXPECT_EQ(image.Get(2 * kGiB - 512, 512), std::string(512, kGarbage));
    // Written but for the garbage: the tables and heads, to the byte what was announced.
    EXPECT_EQ(result.bytes_written, result.bytes_to_write);
    EXPECT_LT(result.bytes_to_write, result.bytes_smallest + result.bytes_smallest / 10);
}

TEST(Heads, AFreshSystemHeadMakesItARecordingCard) {
    const Image image(2 * kGiB);
    uint64_t last = 0;
    uint64_t expected = 0;
    const auto progress = [&](uint64_t done, uint64_t total) {
        EXPECT_GT(done, last);
        last = done;
        expected = total;
    };
    const auto result =
        prestore::Format(image.Path().c_str(), {.video_percent = 75, .system_head = true, .progress = progress});
    ASSERT_TRUE(result.Ok()) << result.message;
    EXPECT_EQ(last, expected);
    EXPECT_GT(last, 0u);
    const std::string index = image.File("index000.bin");
    const std::string copy = image.Path() + ".index";
    std::ofstream(copy, std::ios::binary) << index;
    EXPECT_EQ(AV_SystemInfoInitCheck(copy.c_str()), 0);
    uint32_t space = 0;
    uint32_t free_mib = 0;
    EXPECT_EQ(AV_RecordConfigInfoGet(copy.c_str(), &space, &free_mib), 0);
    EXPECT_EQ(free_mib, 3u * 256);
    EXPECT_EQ(AV_RecordFileConfigSet(copy.c_str(), &result.store), 0);
    std::ostringstream set;
    set << std::ifstream(copy, std::ios::binary).rdbuf();
    EXPECT_TRUE(set.str() == index) << "the same 236 bytes as a recorder writes after formatting";
    unlink(copy.c_str());
}

}  // namespace
