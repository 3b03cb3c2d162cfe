#include <cstring>
#include <fstream>

#include "DueCamera.h"
#include "RecordCard.h"
#include "RecorderStatus.h"
#include "libAVRecord.h"
#include "support/CardFault.h"

namespace {

using support::Card;
using support::kIndexFile;
using support::Store;

constexpr int kFileHead2 = 1024 + 48 * 2;

class RecordCheck : public DueCamera {
  protected:
    static void SetRange(int number, uint8_t begin_hour, uint8_t end_hour) {
        Today().ucSocpeMode = TIME_SCOPE_DIFF;
        Today().hourScope[number].beginHour.ucHour = begin_hour;
        Today().hourScope[number].endHour.ucHour = end_hour;
    }
    static int CheckAt(int64_t second_of_day) {
        wall = kMidnight + second_of_day;
        return CheckRecordStart();
    }
    static void PutIndex(uint64_t offset, const std::string& bytes) {
        std::fstream(kIndexFile).seekp(static_cast<std::streamoff>(offset)) << bytes;
    }
};

TEST_F(RecordCheck, FollowsTheRangesOfTheDayToTheMinute) {
    const Card card(Store{});
    SetRange(0, 8, 12);
    EXPECT_EQ(CheckAt(8 * 3600 - 1), -1);
    EXPECT_EQ(CheckAt(8 * 3600), 0);
    EXPECT_EQ(CheckAt(12 * 3600 - 1), 0);
    EXPECT_EQ(CheckAt(12 * 3600), -1);
    SetRange(3, 9, 10);
    EXPECT_EQ(CheckAt(9 * 3600 + 1800), 0);
    EXPECT_EQ(g_flags.range, 3);
    SetRange(0, 22, 6);  // ends before it begins
    EXPECT_EQ(CheckAt(23 * 3600), -1);
    EXPECT_EQ(CheckAt(24 * 3600), -1) << "another day";
}

TEST_F(RecordCheck, TellsWhyNot) {
    const auto why_not = [] {
        EXPECT_EQ(CheckRecordStart(), -1);
        return std::string(RecorderStatusGet().activity);
    };
    EXPECT_EQ(why_not(), "no card");
    EXPECT_TRUE(Logged("NO SDCARD MOUNT /var/etc/sdcard/"));
    Card card(Store{.files = 3, .used_files = 3, .current_file = 1, .current_length = kFull});
    Config().Record_config.ucLackSpaceModel = 0;
    EXPECT_EQ(why_not(), "card full");
    unlink(kIndexFile.c_str());
    EXPECT_EQ(why_not(), "card cannot be written");
    PutIndex(0, "");
    g_control.heads_loaded = false;
    EXPECT_EQ(why_not(), "card cannot be read");
    EXPECT_TRUE(Logged(": open file fail \n"));
    card.Prepare({});
    PutIndex(0, "XXXX");
    EXPECT_EQ(why_not(), "card not prepared for recording");
    EXPECT_TRUE(Logged(": chek file Head fail \n"));
    for (const uint8_t mode : {0, 2, 4}) {
        Today().ucSocpeMode = mode;
        EXPECT_EQ(why_not(), "waiting for schedule") << int{mode};
    }
    EXPECT_TRUE(
        Logged(": RegularRecordProertyOut.weekScop.dayScope[RecordDay].ucSocpeMode = 4, pTm_time->tm_wday = 3\n"));
    EXPECT_TRUE(Logged(": ##2023-11-15 00:00:00 week 3##\n"));
    Config().Record_config.ucEnable = 0;
    EXPECT_EQ(why_not(), "switched off");
    unlink(support::kCardDevice);
    EXPECT_EQ(why_not(), "no card device");
}

TEST_F(RecordCheck, RefusesACardThatIsNoStore) {
    const Card card(Store{});
    for (const char number : {'\x03', '\x7F'}) {
        PutIndex(28, std::string(1, number));
        EXPECT_EQ(CheckRecordStart(), -1) << "a current file that the ring of 3 does not hold";
    }
    PutIndex(20, std::string(12, '\0'));
    EXPECT_EQ(CheckRecordStart(), -1) << "a ring of no files";
    PutIndex(20, std::string("\3\0\0\0", 4));
    EXPECT_EQ(CheckRecordStart(), 0);
}

TEST_F(RecordCheck, AFileHeadThatCannotBeReadIsNotAnEmptyFile) {
    const Card card(Store{.files = 5, .current_file = 2, .current_length = 777});
    for (const int error : {EIO, 0}) {  // 0: half of it comes
        g_control.heads_loaded = false;
        const support::Refused file_head{.access = support::Refused::kReads, .offset = kFileHead2, .error = error};
        {
            const support::CardFault fault(file_head);
            EXPECT_EQ(CheckRecordStart(), -1) << error;
        }
        EXPECT_EQ(CheckRecordStart(), 0);
        EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth, 777u);
        const support::CardFault fault(file_head);
        EXPECT_EQ(CheckRecordStart(), -1) << "nor when the card is compared with what is known of it";
    }
    truncate(kIndexFile.c_str(), kFileHead2 + 20);
    EXPECT_EQ(CheckRecordStart(), 0) << "an index that ends there has no head";
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadFlag, 0u);
}

TEST_F(RecordCheck, ACardThatWasExchangedOrFormattedUnseenIsReadAnew) {
    Card card(Store{.files = 5, .current_file = 2, .current_length = 777});
    ASSERT_EQ(CheckRecordStart(), 0);
    card.Prepare({.files = 5, .current_file = 2});
    PutIndex(kFileHead2, std::string(48, '\0'));
    EXPECT_EQ(CheckRecordStart(), 0);
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadFlag, 0u) << "formatted";
    for (const uint32_t files : {3u, 4u}) {
        card.Pull();
        if (files == 4) {
            EXPECT_EQ(CheckRecordStart(), -1) << "this time it is seen";
        }
        card.Plug();
        card.Prepare({.files = files, .current_file = 1, .current_length = 555 + files});
        EXPECT_EQ(CheckRecordStart(), 0);
        EXPECT_EQ(AV_RecordSystemInfoHeadGet()->m_u32RecordFileSum, files) << "exchanged";
        EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth, 555 + files);
    }
}

TEST_F(RecordCheck, OnlyADeviceThatIsNotThereIsAPulledCard) {
    Card card(Store{});
    for (int time = 0; time < 3; ++time) {
        EXPECT_FALSE(CardWasPulled());
        card.Pull();
        EXPECT_TRUE(CardWasPulled()) << "in the same second";
        card.Plug();
    }
    unlink(support::kCardDevice);
    EXPECT_TRUE(CardWasPulled());
    ASSERT_EQ(symlink(support::kCardDevice, support::kCardDevice), 0);  // leads to itself: ELOOP
    EXPECT_FALSE(CardWasPulled());
    EXPECT_EQ(CheckRecordStart(), -1);
    EXPECT_TRUE(Logged("errno = 40 "));
}

TEST_F(RecordCheck, ADamagedFileHeadLeadsNoRunIntoAnotherFile) {
    const Card card(Store{.files = 5, .current_file = 2, .current_length = 777});
    PutIndex(kFileHead2 + 4, std::string("\4\0\0\0", 4));
    PutIndex(kFileHead2 + 24, "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(CheckRecordStart(), 0);
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadNo, 2u);
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordSectionSum, 251u) << "the last slot that a section head has";
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth, 777u);
}

TEST_F(RecordCheck, AFullCardStopsOrBeginsItsOldestFileAnew) {
    Card card(Store{.files = 3, .used_files = 3, .current_file = 1, .current_length = kFull});
    Config().Record_config.ucLackSpaceModel = 0;
    EXPECT_EQ(CheckRecordStart(), -1);
    EXPECT_EQ(g_flags.file_begun_anew, -1);
    Config().Record_config.ucLackSpaceModel = 1;
    EXPECT_EQ(CheckRecordStart(), 0);
    EXPECT_EQ(g_flags.file_begun_anew, 1);
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadFlag, 0u);

    Config().Record_config.ucLackSpaceModel = 0;
    card.Prepare({.files = 3, .used_files = 2, .current_file = 1, .current_length = kFull});
    EXPECT_EQ(CheckRecordStart(), 0) << "there is room";
    EXPECT_EQ(AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadFlag, 0u);
}

TEST_F(RecordCheck, ARunJoinsTheOneBeforeWithinThreeSeconds) {
    RecordSystemInfoHead_S system{};
    RecordInfoHead_S section{};
    RecordFileInfoHead_S file{};
    AV_SystemInfoHeadParamInit(&system, 2048, 3);
    const struct {
        int64_t now, last_end, start, kept;
    } cases[] = {
        {kNoon, 0, kNoon, 0},
        {kNoon, kNoon - 2, kNoon - 2, 0},
        {kNoon, kNoon - 3, kNoon, 0},
        {kNoon, kNoon + 9, kNoon, kNoon + 9},      // the clock was set back
        {kMidnight, kMidnight - 1, kMidnight, 0},  // no section spans two days
    };
    uint16_t number = 0;
    for (const auto& c : cases) {
        wall = c.now;
        g_control.last_end = static_cast<uint32_t>(c.last_end);
        ASSERT_EQ(AV_RecordFileConfigParamGet(&system, &file, &section, 1), 0);
        EXPECT_EQ(section.m_u32RecordStartTime, c.start);
        EXPECT_EQ(section.m_u16RecordUseNo, ++number);
        EXPECT_EQ(section.m_u8SmartEnable, 1);
        EXPECT_EQ(file.m_u32FileInfoHeadFlag, RECORD_FILE_FLAG);
        EXPECT_EQ(file.m_u32RecordStartTime, c.now == kMidnight ? kMidnight : number == 1 ? kNoon : kNoon - 2);
        EXPECT_EQ(g_control.last_end, c.kept);
    }
    EXPECT_EQ(AV_RecordFileConfigParamGet(nullptr, &file, &section, 0), -1);
}

TEST_F(RecordCheck, MotionJpegIsNeverRecorded) {
    const Card card(Store{});
    Config().lan_config.nEncodingType1 = 4;
    ASSERT_EQ(CheckRecordStart(), 0);
    const RecordFileInfoHead_S before = *AV_RecordFileInfoHeadGet();
    EXPECT_EQ(StartRecord(0, 600), 0);
    EXPECT_TRUE(Logged("This is Mjpeg Stream, not support\n"));
    EXPECT_EQ(std::memcmp(AV_RecordFileInfoHeadGet(), &before, sizeof before), 0);
    EXPECT_EQ(StartRecord(3, 600), -1);

    char picture[] = "\xFF\xD8\xFF\xE0";
    AVDataInfo info{};
    info.AVDataLen = 4;
    ASSERT_EQ(KQ_RecordInit(AV_RecordFileInfoHeadGet(), 0), 0);
    EXPECT_EQ(Mp4RecordVideoCallbackFunc(AV_FRAME_TYPE_VIDEO, 0, picture, &info), 0);
    info.AVDataLen = 1;
    EXPECT_EQ(Mp4RecordVideoCallbackFunc(AV_FRAME_TYPE_VIDEO, 0, picture, &info), -1) << "looked at, not dropped";
    EXPECT_EQ(Mp4RecordVideoCallbackFunc(AV_FRAME_TYPE_AUDIO, 0, picture, &info), -1) << "of this stream: no key frame";
    EXPECT_EQ(Mp4RecordVideoCallbackFunc(AV_FRAME_TYPE_VIDEO, 1, picture, &info), 0) << "of another stream";
    KQ_RecordUninit();
}

}  // namespace
