// The index file: every head against bytes written down by hand, at offsets worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "Bytes.h"
#include "libRecordFile.h"
#include "support/MemoryFile.h"
#include "support/Stderr.h"

using support::MemoryFile;
using test::BytesOf;
using test::Hex;

namespace {

constexpr uint32_t kFull = 0x0F900000;

RecordSystemInfoHead_S System(uint32_t files, uint32_t current = 0, uint32_t used = 0) {
    RecordSystemInfoHead_S system;
    memset(&system, 0xEE, sizeof system);
    EXPECT_EQ(AV_SystemInfoHeadParamInit(&system, 30528, files), 0);
    system.m_u32RecordFileNo = current;
    system.m_u32RecordUsedFileSum = used;
    return system;
}

RecordFileInfoHead_S File(uint32_t number, uint32_t length, uint32_t sections = 1, uint32_t key_frames = 0) {
    RecordFileInfoHead_S file{};
    file.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
    file.m_u32FileInfoHeadNo = number;
    file.m_u32RecordFileSumLenth = length;
    file.m_u32RecordSectionSum = sections;
    file.m_u32RecordKeyFrameSum = key_frames;
    return file;
}

TEST(SystemHead, IsWrittenAndReadAsItsBytes) {
    MemoryFile index;
    const auto system = System(8, 3, 5);
    const std::string bytes = Hex("53494846 01000000 40770000 00000080 00000000 08000000"
                                  "05000000 03000000 55BBAA55 00000000 00000000") +
                              std::string(192, '\0');
    EXPECT_EQ(AV_SystemInfoHeadWrite(index.fd(), &system), 236);
    EXPECT_EQ(index.Get(0, 300), bytes) << "236 bytes, not one more";
    RecordSystemInfoHead_S back{};
    EXPECT_EQ(AV_SystemInfoHeadRead(index.fd(), &back), 236);
    EXPECT_EQ(BytesOf(back), bytes);
    index.Resize(235);
    EXPECT_EQ(AV_SystemInfoHeadRead(index.fd(), &back), -1);
    EXPECT_EQ(System(16).m_u32RecordSpaceSize, 0u) << "32 bits hold no 4 GiB";
}

TEST(SystemHead, CheckWantsFlagAndFormat) {
    auto system = System(1);
    EXPECT_EQ(AV_SystemInfoHeadCheck(&system), 0);
    system.m_u32SystemInfoCrc = 0;
    EXPECT_EQ(AV_SystemInfoHeadCheck(&system), 0) << "the check word is never tested";
    system.m_u32SDCardFormat = 2;
    EXPECT_EQ(AV_SystemInfoHeadCheck(&system), -1);
    system = System(1);
    system.m_u32SystemInfoHeadFlag ^= 1;
    EXPECT_EQ(AV_SystemInfoHeadCheck(&system), -1);
    EXPECT_EQ(AV_SystemInfoHeadCheck(nullptr), -1);
    EXPECT_EQ(AV_SystemInfoInitCheck("/nowhere/index000.bin"), -1);
}

TEST(SystemHead, GoesRoundTheRingWhenAFileIsFull) {
    struct {
        uint32_t files, current, used, length;
        uint32_t next, used_after;
    } const cases[] = {
        {3, 0, 0, kFull - 1, 0, 0},                                                               // not full: nothing
        {3, 0, 0, kFull, 1, 1},          {3, 1, 1, kFull + 70000, 2, 2}, {3, 2, 2, kFull, 0, 3},  // round, all used
        {3, 1, 3, kFull, 2, 3},                                   // used stays at the count
        {1, 0, 1, kFull, 0, 1},          {3, 7, 1, kFull, 0, 2},  // a number outside the ring comes back into it
        {0, 0xFFFFFFFF, 0, kFull, 0, 0},
    };
    for (const auto& c : cases) {
        auto system = System(c.files, c.current, c.used);
        const auto file = File(c.current, c.length);
        EXPECT_EQ(AV_SystemInfoHeadUsedFileSumFresh(&system, &file), 0);
        EXPECT_EQ(AV_SystemInfoHeadFileNoFresh(&system, &file), 0);
        EXPECT_EQ(system.m_u32RecordFileNo, c.next) << "file " << c.current << " of " << c.files;
        EXPECT_EQ(system.m_u32RecordUsedFileSum, c.used_after) << "file " << c.current << " of " << c.files;
    }
}

TEST(FileHead, IsWrittenAtItsPlaceAsItsBytes) {
    MemoryFile index;
    index.Resize(1 << 20);
    const auto system = System(8, 3);
    RecordFileInfoHead_S head;
    memset(&head, 0xEE, sizeof head);
    EXPECT_EQ(AV_RecordFileInfoHeadAdd(&system, &head, 0x5F000000, 1), 0);
    AV_RecordFileInfoHeadEndTimeFresh(&head, 0x5F000010);
    AV_RecordFileInfoHeadFileLenthFresh(&head, 0x01020304);
    AV_RecordFileInfoHeadFileFileFresh(&head, 4);
    AV_RecodrFileInfoHeadKeyFrameFresh(&head, 1);
    AV_RecodrFileInfoHeadKeyFrameFresh(&head, 0);
    const std::string bytes =
        Hex("52464846 03000000 0000005F 1000005F 04030201 05000000 01000000 01000000"
            "00000000 00000000 00000000 00000000");
    EXPECT_EQ(AV_RecordFileInfoHeadWrite(index.fd(), &system, &head), 0);
    EXPECT_EQ(index.Get(1168, 48), bytes);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoWrite(index.fd(), 5, &head), 0);
    EXPECT_EQ(index.Get(1264, 48), bytes);

    RecordFileInfoHead_S back{};
    EXPECT_EQ(AV_RecordFileInfoHeadRead(index.fd(), &system, &back), 0);
    EXPECT_EQ(BytesOf(back), bytes);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoRead(index.fd(), 4, &back), 0);
    EXPECT_EQ(BytesOf(back), std::string(48, '\0'));
    EXPECT_EQ(AV_RecordFileInfoHeadWrite(index.fd(), nullptr, &head), -1);
    EXPECT_EQ(AV_RecordFileInfoHeadRead(-1, &system, &back), -1);
}

TEST(FileHead, NeverLiesOnTheSectionHeads) {
    MemoryFile index;
    RecordFileInfoHead_S head = File(0, 0);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoWrite(index.fd(), 2708, &head), 0);
    EXPECT_EQ(index.Size(), 131056u);
    const auto system = System(4000, 2709);
    EXPECT_EQ(AV_RecordFileInfoHeadWrite(index.fd(), &system, &head), -1);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoWrite(index.fd(), 0xFFFFFFFF, &head), -1);
    EXPECT_EQ(AV_RecordFileInfoHeadAccecsFileNoRead(index.fd(), 2709, &head), -1);
    EXPECT_EQ(index.Size(), 131056u);
}

TEST(FileHead, LengthPassesTheLimitByOneFrameAtMost) {
    auto head = File(0, kFull);
    EXPECT_EQ(AV_RecordFileInfoHeadFileLenthFresh(&head, 1), 0);
    EXPECT_EQ(head.m_u32RecordFileSumLenth, kFull + 1);
    EXPECT_EQ(AV_RecordFileInfoHeadFileLenthFresh(&head, 1), 0);
    EXPECT_EQ(head.m_u32RecordFileSumLenth, kFull + 1);

    RecordInfoHead_S section{};
    section.m_u32RecordStartPos = kFull - 100;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(AV_RecordSectionInfoHeadFileSizeFresh(&section, 100), 0);
    }
    EXPECT_EQ(section.m_u32RecordSize, 200u);
    section.m_u32RecordStartPos = 0xFFFFFFFF;  // a damaged head: the sum must not wrap below the limit
    AV_RecordSectionInfoHeadFileSizeFresh(&section, 100);
    EXPECT_EQ(section.m_u32RecordSize, 200u);
}

TEST(SectionHead, IsWrittenAtItsPlaceAsItsBytes) {
    MemoryFile index;
    const auto file = File(3, 0x00ABCDEF, 2, 7);
    RecordInfoHead_S section;
    memset(&section, 0xEE, sizeof section);
    EXPECT_EQ(AV_RecordSectionInfoHeadAdd(&file, &section, 0x5F000000, 1, 1), 0);
    const RecordVedioInfo_S video{1920, 1080, 25, 0x01, 0x02, {}};
    EXPECT_EQ(AV_RecordSectionInfoHeadVedioParamFresh(&section, &video), 0);
    AV_RecordSectionInfoHeadEndTimeFresh(&section, 0x5F000020);
    AV_RecordSectionInfoHeadFileSizeFresh(&section, 0x1234);
    AV_RecordSecitonInfoHeadKeyFrameFresh(&section, 1, AV_FRAME_TYPE_VIDEO);
    AV_RecordSecitonInfoHeadKeyFrameFresh(&section, 0, AV_FRAME_TYPE_VIDEO);
    AV_RecordSecitonInfoHeadKeyFrameFresh(&section, 0, AV_FRAME_TYPE_AUDIO);
    const std::string bytes = Hex("52494846 0000005F 2000005F 0300 0200 EFCDAB00 34120000 02000000 01000000 8C000000"
                                  "8007 3804 19 01 01 02 01") +
                              std::string(19, '\xEE');  // the reserved bytes stay as they were
    EXPECT_EQ(AV_RecordSectionInfoHeadWrite(index.fd(), &file, &section), 0);
    EXPECT_EQ(index.Get(180352, 65), bytes);
    EXPECT_EQ(AV_RecordSectionInfoHeadAdd(nullptr, &section, 1, 1, 0), -1);
}

TEST(SectionHead, AFilesSectionsAreReadInOneStretch) {
    MemoryFile index;
    auto file = File(0, 0);
    for (uint32_t u = 1; u <= 3; ++u) {
        file.m_u32RecordSectionSum = u;
        RecordInfoHead_S section{};
        AV_RecordSectionInfoHeadAdd(&file, &section, 1000 * u, 1, 0);
        ASSERT_EQ(AV_RecordSectionInfoHeadWrite(index.fd(), &file, &section), 0);
    }
    EXPECT_EQ(index.Get(131136, 8), Hex("52494846 E8030000"));
    std::vector<RecordInfoHead_S> sections(3);
    EXPECT_EQ(AV_RecordSectionInfoHeadRead(index.fd(), &file, sections.data()), 0);
    EXPECT_EQ(sections[2].m_u32RecordStartTime, 3000u);
    EXPECT_EQ(sections[2].m_u16RecordUseNo, 3);

    // A count that came damaged from a card reads no more than a block holds, and not past the array.
    file.m_u32RecordSectionSum = 0xFFFFFFFF;
    sections.resize(251);
    EXPECT_EQ(AV_RecordSectionInfoHeadRead(index.fd(), &file, sections.data()), -1) << "the file ends before";
    index.Resize(1 << 20);
    EXPECT_EQ(AV_RecordSectionInfoHeadRead(index.fd(), &file, sections.data()), 0);
    file.m_u32FileInfoHeadNo = 0x12345678;
    EXPECT_EQ(AV_RecordSectionInfoHeadRead(index.fd(), &file, sections.data()), -1);
}

TEST(SectionHead, Number252ReplacesNumber251) {
    MemoryFile index;
    auto file = File(1, 0, 250);
    RecordInfoHead_S section{};
    for (const int expected : {0, -1}) {
        EXPECT_EQ(AV_RecordFileInfoHeadSectionSumFresh(&file), expected);
        AV_RecordSectionInfoHeadAdd(&file, &section, 77 - static_cast<uint32_t>(expected), 1, 0);
        EXPECT_EQ(AV_RecordSectionInfoHeadWrite(index.fd(), &file, &section), 0);
    }
    EXPECT_EQ(index.Get(131072 + 16384 + 64 * 251, 100).substr(0, 8), Hex("52494846 4E000000"));
    EXPECT_EQ(index.Size(), 131072u + 16384 + 64 * 252) << "nothing after slot 251";
    for (const uint16_t number : {0, 252, 65535}) {  // somebody else's slots
        section.m_u16RecordUseNo = number;
        EXPECT_EQ(AV_RecordSectionInfoHeadWrite(index.fd(), &file, &section), -1) << number;
    }
}

using Store = support::LoggedTest;

TEST_F(Store, IsConfiguredAskedAndCleared) {
    MemoryFile index;
    const std::string path = index.Path();
    ConfigStoreInfo_S store{};
    store.total_size_byte = 0x1'0000'7740;  // MiB; its low 32 bits are kept
    store.vedio_num = 12;
    EXPECT_EQ(AV_RecordFileConfigSet(path.c_str(), &store), 0);
    EXPECT_TRUE(Logged(":StoreFileNum = 12 \n"));
    EXPECT_EQ(BytesOf(System(12)), index.Get(0, 1000));
    EXPECT_EQ(AV_SystemInfoInitCheck(path.c_str()), 0);

    const auto used = System(12, 5, 5);
    AV_SystemInfoHeadParamSave(path.c_str(), &used);
    uint32_t space = 0;
    uint32_t free_mib = 0;
    EXPECT_EQ(AV_RecordConfigInfoGet(path.c_str(), &space, &free_mib), 0);
    EXPECT_EQ(space, 0xC0000000u);
    EXPECT_EQ(free_mib, 7 * 256u);
    EXPECT_TRUE(Logged(" : m_u32RecordFileSum = 12  m_u32RecordSpaceSize = 3221225472  m_u32RecordFreeSize = 7 \n"));

    index.Put(1024, std::string(48 * 13, 'h'));
    index.Put(131136, std::string(64, 's'));
    uint32_t count = 0;
    EXPECT_EQ(AV_RecordFileConfigClear(path.c_str(), &count), 0);
    EXPECT_EQ(count, 12u);
    EXPECT_EQ(index.Get(0, 236), std::string(236, '\0'));
    EXPECT_EQ(index.Get(1024, 48 * 12), std::string(48 * 12, '\0'));
    EXPECT_EQ(index.Get(1024 + 48 * 12, 48), std::string(48, 'h'));
    EXPECT_EQ(index.Get(131136, 64), std::string(64, 's')) << "section heads stay";
    EXPECT_EQ(AV_RecordFileConfigClear(path.c_str(), &count), -1) << "no store any more";
    EXPECT_EQ(AV_RecordConfigInfoGet(path.c_str(), &space, &free_mib), -1);
}

TEST_F(Store, LargerThanTheIndexIsRefusedAndNeverRunsOver) {
    MemoryFile index;
    ConfigStoreInfo_S store{};
    store.vedio_num = 2710;
    EXPECT_EQ(AV_RecordFileConfigSet(index.Path().c_str(), &store), -1);
    EXPECT_EQ(index.Size(), 0u);

    const auto damaged = System(0xFFFFFFFF);
    AV_SystemInfoHeadParamSave(index.Path().c_str(), &damaged);
    index.Put(131072, std::string(128, 's'));
    uint32_t count = 0;
    EXPECT_EQ(AV_RecordFileConfigClear(index.Path().c_str(), &count), 0);
    EXPECT_EQ(index.Get(131056, 1000), std::string(16, '\0') + std::string(128, 's'));
}

}  // namespace
