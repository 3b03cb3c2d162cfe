// The alarm event file, against bytes and offsets worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "Bytes.h"
#include "libRecordFile.h"
#include "support/MemoryFile.h"

using support::MemoryFile;
using test::BytesOf;
using test::Hex;

namespace {

AlarmEventHead_S Head(uint32_t file_no, uint32_t count) {
    AlarmEventHead_S head{};
    EXPECT_EQ(AV_AlarmEventInfoHeadAdd(&head, file_no, 100, 1), 0);
    head.m_u32AlarmEventSum = count;
    return head;
}

TEST(AlarmEvents, HeadIsWrittenAtItsPlaceAsItsBytes) {
    MemoryFile events;
    AlarmEventHead_S head;
    memset(&head, 0xEE, sizeof head);
    EXPECT_EQ(AV_AlarmEventInfoHeadAdd(&head, 5, 0x5F000000, 1), 0);
    AV_AlarmEventInfoStartTimeFresh(&head, 0x5F000001);
    AV_AlarmEventInfoEndTimeFresh(&head, 0x5F000002);
    AV_AlarmEventInfoEventTypeFresh(&head, 0x82);
    AV_AlarmEventInfoEventSumFresh(&head);
    const std::string bytes = Hex("41454D46 05000000 0100005F 0200005F 01000000 EEEEEEEE 83 0000000000000000000000") +
                              std::string(220, '\xEE');
    EXPECT_EQ(AV_AlarmEventInfoWrite(events.fd(), 5, &head), 0);
    EXPECT_EQ(events.Get(1280, 300), bytes);

    AlarmEventHead_S back{};
    EXPECT_EQ(AV_AlarmEventInfoRead(events.fd(), 5, &back), 0);
    EXPECT_EQ(BytesOf(back), bytes);
    back = {};
    EXPECT_EQ(AV_AlarmEventInfoReset(events.fd(), 5, &back), 0);
    EXPECT_EQ(events.Get(1280, 256), std::string(256, '\0'));
    EXPECT_EQ(AV_AlarmEventInfoRead(events.fd(), 6, &back), -1) << "the file ends there";
}

TEST(AlarmEvents, RecordGoesIntoTheSlotOfTheCount) {
    MemoryFile events;
    auto head = Head(5, 0);
    AlarmFileInfoHead_S record;
    memset(&record, 0xEE, sizeof record);
    EXPECT_EQ(AV_AlarmEventFileInfoWrite(events.fd(), &head, &record), -1);
    EXPECT_EQ(events.Size(), 0u) << "a count of 0 names no slot";
    for (int i = 0; i < 3; ++i) {
        AV_AlarmEventInfoEventSumFresh(&head);
    }
    EXPECT_EQ(AV_AlarmEventFileInfoAdd(&head, &record, 0x5F000000, 2), 0);
    AV_AlarmEventFileInfoEndTimeFresh(&record, 0x5F000010);
    AV_AlarmEventFileInfoFileSizeFresh(&record, 0x00012345);
    AV_AlarmEventFileInfoFrameCountFresh(&record, 400);
    AV_AlarmEventFileInfoFrameRateFresh(&record, 25);
    EXPECT_EQ(AV_AlarmEventFileInfoWrite(events.fd(), &head, &record), 0);
    EXPECT_EQ(events.Get(1703936 + 2 * 48, 100),
              Hex("41444546 0000005F 1000005F 45230100 90010000 0500 0300 02 19") + std::string(22, '\0'));
}

TEST(AlarmEvents, CountStopsAt1024And1023AreReadBack) {
    MemoryFile events;
    auto head = Head(0, 1023);
    AV_AlarmEventInfoEventSumFresh(&head);
    EXPECT_EQ(AV_AlarmEventInfoEventSumFresh(&head), 0);
    EXPECT_EQ(head.m_u32AlarmEventSum, 1024u);
    AlarmFileInfoHead_S record{};
    for (uint32_t start : {1, 2}) {  // the second lands on the first
        AV_AlarmEventFileInfoAdd(&head, &record, start, 1);
        EXPECT_EQ(AV_AlarmEventFileInfoWrite(events.fd(), &head, &record), 0);
    }
    EXPECT_EQ(events.Size(), 8 * 131072u + 48 * 1024);
    EXPECT_EQ(events.Get(8 * 131072 + 48 * 1023, 8), Hex("41444546 02000000"));

    std::vector<AlarmFileInfoHead_S> records(1023);
    for (const uint32_t count : {1024u, 0xFFFFFFFFu}) {
        head.m_u32AlarmEventSum = count;
        EXPECT_EQ(AV_AlarmEventFileInfoRead(events.fd(), &head, records.data()), 0);
        EXPECT_EQ(head.m_u32AlarmEventSum, 1023u);
    }
    head.m_u32AlarmEventSum = 0;
    EXPECT_EQ(AV_AlarmEventFileInfoRead(events.fd(), &head, records.data()), -1);
    head.m_u32AlarmEventSum = 1025;
    EXPECT_EQ(AV_AlarmEventFileInfoWrite(events.fd(), &head, &record), -1) << "a count nobody counted to";
}

TEST(AlarmEvents, ClearTakesTheHeadsAlone) {
    MemoryFile events;
    EXPECT_EQ(AV_AlarmEventInfoClear(events.Path().c_str(), 0), 0);
    EXPECT_EQ(events.Size(), 0u);
    events.Put(0, std::string(2 << 20, 'e'));
    EXPECT_EQ(AV_AlarmEventInfoClear(events.Path().c_str(), 3), 0);
    EXPECT_EQ(events.Get(0, 769), std::string(768, '\0') + "e");
    EXPECT_EQ(AV_AlarmEventInfoClear(events.Path().c_str(), 0xFFFFFFFF), 0);
    EXPECT_EQ(events.Get((1 << 20) - 1, 2), std::string("\0e", 2)) << "records stay whatever the count";
    EXPECT_EQ(AV_AlarmEventInfoClear("/nowhere/event000.bin", 1), -1);
}

}  // namespace
