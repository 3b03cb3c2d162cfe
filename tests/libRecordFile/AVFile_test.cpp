// Plain file access and the two areas of a record file.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "Bytes.h"
#include "libRecordFile.h"
#include "support/MemoryFile.h"
#include "support/Stderr.h"

using support::MemoryFile;
using test::BytesOf;
using test::Hex;

namespace {

TEST(AVFile, ModesGiveTheirAccessAndOnlyWritersCreate) {
    const std::string path = "/tmp/AVFile_test.bin";
    std::filesystem::remove(path);
    EXPECT_EQ(AVFileOpen(path.c_str(), 4), -1);
    EXPECT_EQ(AVFileOpen(nullptr, AVFILE_READ_WRITE), -1);
    struct {
        int mode;
        bool reads, writes;
    } const cases[] = {
        {0, true, false}, {AVFILE_READ, true, false}, {AVFILE_WRITE, false, true}, {AVFILE_READ_WRITE, true, true}};
    for (const auto& [mode, reads, writes] : cases) {
        std::filesystem::remove(path);
        const int created = AVFileOpen(path.c_str(), mode);
        EXPECT_EQ(std::filesystem::exists(path), writes) << mode;
        EXPECT_EQ(AVFileClose(created), writes ? 0 : -1);
        std::ofstream(path) << "abc";
        const int fd = AVFileOpen(path.c_str(), mode);
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        char bytes[] = "xyz";
        EXPECT_EQ(AVFileWrtie(fd, bytes, 1), writes ? 1 : -1);
        EXPECT_EQ(AVFileRead(fd, bytes, 2), reads ? 2 : -1);
        EXPECT_STREQ(bytes, !reads ? "xyz" : writes ? "bcz" : "abz") << "opening truncated the file";
        EXPECT_EQ(AVFileClose(fd), 0);
    }
}

using Failure = support::LoggedTest;

TEST(AVFile, SeeksWithinWhatAnIntHolds) {
    MemoryFile file;
    file.Resize(3ull << 30);
    EXPECT_EQ(AVFileSeek(file.fd(), 100, SEEKMODE_BEGIN), 100);
    EXPECT_EQ(AVFileSeek(file.fd(), -30, SEEKMODE_CURRENT), 70);
    EXPECT_EQ(AVFileSeek(file.fd(), 5, 3), -1);
    EXPECT_EQ(AVFileSeek(file.fd(), 5, -1), -1);
    EXPECT_EQ(AVFileSeek(-1, 5, SEEKMODE_BEGIN), -1);
    EXPECT_EQ(AVFileSeek(file.fd(), 0, SEEKMODE_END), -1);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(AVFileSeek(file.fd(), 0, SEEKMODE_CURRENT), 70) << "a refused seek moved the position";
    file.Resize(1000);
    EXPECT_EQ(AVFileSeek(file.fd(), -1, SEEKMODE_END), 999);
}

TEST(RecordStream, TransfersAreWholeAndPositioned) {
    MemoryFile file;
    char back[8] = {};
    EXPECT_EQ(AV_RecordStreamInfoWrite(file.fd(), 1000, "frame", 5), 5);
    EXPECT_EQ(AV_RecordKeyFrameWrite(file.fd(), 40, "index", 5), 5);
    EXPECT_EQ(file.Get(1000, 5), "frame");
    EXPECT_EQ(file.Get(0x0FC00000 + 40, 5), "index");
    EXPECT_EQ(AV_RecordStreamInfoRead(file.fd(), 1000, back, 5), 1000) << "the offset, not the count";
    EXPECT_STREQ(back, "frame");
    EXPECT_EQ(AV_RecordStreamInfoRead(file.fd(), 0, back, 5), 0);
    EXPECT_EQ(AV_RecordKeyFrameRead(file.fd(), 40, back, 5), 5);
    EXPECT_STREQ(back, "index");
    EXPECT_EQ(AV_RecordKeyFrameRead(file.fd(), 40, back, 6), -1) << "one byte short";
    EXPECT_EQ(AV_RecordStreamInfoWrite(file.fd(), 0, back, -1), -1);
    EXPECT_EQ(AV_RecordStreamInfoWrite(file.fd(), 0, nullptr, 5), -1);
    EXPECT_EQ(AV_RecordStreamInfoWrite(-1, 0, back, 5), -1);
}

TEST_F(Failure, OfAReadIsToldApartFromThatOfASeek) {
    MemoryFile file;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char back[8];
    EXPECT_EQ(AV_RecordStreamInfoRead(file.fd(), 7, back, 5), -1);
    EXPECT_TRUE(Logged(" Read data error  Offset = 7 offset = 7 \n"));
    EXPECT_EQ(AV_RecordStreamInfoRead(ends[0], 7, back, 5), -1);
    EXPECT_TRUE(Logged("  dataOffset = 7 offset = -1 errno = 29 \n"));
    file.Resize(3ull << 30);
    EXPECT_EQ(AV_RecordStreamInfoRead(file.fd(), 0x80000000u, back, 5), -1) << "its result would look like a failure";
    EXPECT_TRUE(Logged(" AVFileSeek fail fd = "));
    close(ends[0]);
    close(ends[1]);
}

TEST(RecordStream, KeyFrameRecordIsTwentyBytes) {
    KeyFrameInfoHead_S record;
    memset(&record, 0xFF, sizeof record);
    EXPECT_EQ(AV_RecordKeyFrameInfoUpdate(&record, 0x5F000001, 0x00012345, 0x0A0B0C0D, 2), 0);
    EXPECT_EQ(BytesOf(record), Hex("4B464846 0100005F 45230100 0D0C0B0A 02 000000"));
    EXPECT_EQ(AV_RecordKeyFrameInfoUpdate(nullptr, 1, 2, 3, 1), -1);
}

TEST(RecordStream, SlotWritesEndAtHalfAGibibyte) {
    MemoryFile file;
    char back[17] = "0123456789abcdef";
    EXPECT_EQ(AV_RecordKeyFrameDataWrite(file.fd(), 2, 0x1FFFFFF0, back, 16), 16);
    EXPECT_EQ(file.Get(2 * 524288 + 0x1FFFFFF0ull, 16), "0123456789abcdef");
    EXPECT_EQ(AV_RecordKeyFrameDataWrite(file.fd(), 2, 0x1FFFFFF0, back, 17), -1);
    EXPECT_EQ(AV_RecordKeyFrameDataWrite(file.fd(), 2, 0xFFFFFFFF, back, 16), -1) << "the sum must not wrap";
    EXPECT_EQ(AV_RecordKeyFrameDataWrite(file.fd(), -1, 0, back, 16), -1);
    EXPECT_EQ(AV_RecordKeyFrameDataWrite(file.fd(), 8192, 5, back, 16), 16) << "4 GiB and more";
    EXPECT_EQ(file.Get((4ull << 30) + 5, 16), "0123456789abcdef");
    EXPECT_EQ(AV_RecordKeyFrameDataRead(file.fd(), 8192, 15, back, 6), 6);
    EXPECT_EQ(std::string(back, 6), "abcdef");
    EXPECT_EQ(AV_RecordKeyFrameDataRead(file.fd(), -1, 0, back, 6), -1);
}

}  // namespace
