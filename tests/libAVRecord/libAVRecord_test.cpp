#include "libAVRecord.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "OpenRun.h"
#include "RecorderStatus.h"
#include "libRecordFile/Packed.h"
#include "support/CardFault.h"
#include "support/SteppedClock.h"

namespace {

using support::Card;
using support::CardFault;
using support::Refused;
using testing::ElementsAre;

const std::string kH265Key = "\0\0\0\1\x40\1vps\0\0\0\1\x26\1 a key frame"s;
const std::string kSound(320, '\x7F');

class Writer : public OpenRun {
  protected:
    static int WriteSound() { return Write(kSound, AV_FRAME_TYPE_AUDIO); }

    // What lies on the card.
    static std::string Stream(uint64_t offset, uint64_t length) {
        return Card::Read(Card::RecordFile(0), offset, length);
    }
    static RecordFileInfoHead_S FileHead() { return Card::At<RecordFileInfoHead_S>(support::kIndexFile, 1024); }
    static RecordInfoHead_S Section() { return Card::At<RecordInfoHead_S>(support::kIndexFile, 131072 + 64); }
    static KeyFrameInfoHead_S KeyFrame(unsigned number) {
        return Card::At<KeyFrameInfoHead_S>(Card::RecordFile(0), 0x0FC00000 + 20 * number);
    }
    // Frames and key frames of the section, key frames of the file.
    static std::array<uint32_t, 3> Counts() {
        return {Section().m_u32FrameSum, Section().m_u32KeyFrameSum, FileHead().m_u32RecordKeyFrameSum};
    }
    static bool SectionIs(const RecordInfoHead_S& before) {
        return std::memcmp(AV_RecordInfoHeadGet(), &before, sizeof before) == 0;
    }
    static std::string Packed(const std::string& frame, uint32_t number, bool is_key, uint32_t time) {
        return test::Pack({is_key ? test::Frame::kKey : test::Frame::kOther,
                           frame,
                           time,
                           number,
                           {4096, CODE_AUDIO_G711U, 1280, 720, 2048, 25, 8000, 33000}});
    }
};

TEST_F(Writer, BeginsWithAKeyFrameAfterTheStreamHead) {
    EXPECT_EQ(Write(kH264Key), 0) << "closed: ignored";
    Open();
    EXPECT_EQ(Write(kH264Delta), -1);
    EXPECT_EQ(Write("\0\0\0\1\x65 idr without parameter sets"s), -1);
    EXPECT_EQ(WriteSound(), -1);
    EXPECT_EQ(Write(kH264Key, AV_FRAME_TYPE_AUDIO), -1) << "sound never opens a run, whatever its bytes";
    EXPECT_EQ(Write(kH264Key, AV_FRAME_TYPE_VIDEO, false, 1), 0) << "another stream: ignored";
    EXPECT_EQ(FileHead().m_u32RecordFileSumLenth, 0u);

    EXPECT_EQ(Write(kH264Key), 0);
    ++uptime, ++wall;
    EXPECT_EQ(WriteSound(), 0);
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_EQ(Write(kH264Key), 0);

    const std::string head = "IMKH\1\2\0\0\2\0\0\1\1\x20\1\x10\x80\xBB\0\0\0\xFA\0\0"s + std::string(16, '\0');
    const std::string first = head + Packed(kH264Key, 1, true, 1700000000);
    const std::string upto_key =
        first + test::Pack({test::Frame::kSound, kSound, 0, 3}) + Packed(kH264Delta, 2, false, 1700000001);
    const std::string all = upto_key + Packed(kH264Key, 3, true, 1700000001);
    EXPECT_EQ(Stream(0, all.size() + 1), all + '\0');

    const RecordInfoHead_S section = Section();
    EXPECT_EQ(section.m_u32RecordSize, all.size());
    EXPECT_THAT(Counts(), ElementsAre(3, 2, 2));
    EXPECT_EQ(section.m_u32RecordEndTime, 1700000001u);
    EXPECT_EQ(section.m_u16Width, 1280);
    EXPECT_EQ(section.m_u16Height, 720);
    EXPECT_EQ(section.m_u8Frame, 25);
    EXPECT_EQ(FileHead().m_u32RecordFileSumLenth, all.size());

    EXPECT_EQ(KeyFrame(0).m_u32KeyFrameTime, kStart) << "the first one counts from the section's start";
    EXPECT_EQ(KeyFrame(0).m_u32KeyFilePos, 0u);
    EXPECT_EQ(KeyFrame(0).m_u32KeyFrameLenth, first.size());
    EXPECT_EQ(KeyFrame(1).m_u32KeyFrameTime, 1700000001u);
    EXPECT_EQ(KeyFrame(1).m_u32KeyFilePos, upto_key.size());
    EXPECT_EQ(KeyFrame(1).m_u8KeyFrameType, RECORD_KEY_FRAME_REAL);
}

TEST_F(Writer, TellsCodecsAndTurnsThePicture) {
    Config().lan_config.nRotateAngle = 3;
    Config().audio_config.codectype = 1;
    Open();
    EXPECT_EQ(Write(kH265Key), 0);
    EXPECT_EQ(WriteSound(), 0);
    EXPECT_EQ(Section().m_u8VideoType, CODE_VIDEO_H265 & 0xFF);
    EXPECT_EQ(Section().m_u8AudioType, CODE_AUDIO_G711A & 0xFF);
    EXPECT_EQ(Section().m_u16Width, 720);
    EXPECT_EQ(Section().m_u16Height, 1280);
}

TEST_F(Writer, RefusesSoundOfACodecThatCannotBePacked) {
    Config().audio_config.codectype = CODE_AUDIO_PCM;
    BeginRun();
    EXPECT_EQ(WriteSound(), -1);
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_EQ(Section().m_u32FrameSum, 2u);
}

TEST_F(Writer, IndexesVirtualKeyFramesOfLargePicturesOnly) {
    struct Case {
        uint16_t width, height;
        uint32_t records;
    };
    for (const Case& size : {Case{640, 480, 1}, Case{720, 480, 2}}) {
        Config().stream_config[0].width = size.width;
        Config().stream_config[0].height = size.height;
        BeginFile(0);
        BeginRun();
        EXPECT_EQ(Write(kH264Delta, AV_FRAME_TYPE_VIDEO, true), 0);
        EXPECT_THAT(Counts(), ElementsAre(2, size.records, size.records));
    }
    EXPECT_EQ(KeyFrame(1).m_u8KeyFrameType, RECORD_KEY_FRAME_VIRTUAL);
}

TEST_F(Writer, WhatItDropsLeavesNoTrace) {
    const std::string long_tail(614400, 'x');
    const struct {
        const char* what;
        std::string frame;
        int kind = AV_FRAME_TYPE_VIDEO;
        Refused fault = {.times = 0};
    } cases[] = {
        {"no frame", ""},
        {"nothing to play", "\0\0\0\1"s},
        {"no sound", "", AV_FRAME_TYPE_AUDIO},
        {"more sound than a packet holds", std::string(70000, 's'), AV_FRAME_TYPE_AUDIO},
        {"too long", kH264Delta + long_tail},
        {"its length decides, not bytes that may change while they are read", "\0\0\0\2\x67"s + long_tail + kH264Key},
        {"refused", kH264Delta, AV_FRAME_TYPE_VIDEO, {}},
        {"half of it comes", kH264Delta, AV_FRAME_TYPE_VIDEO, {.error = 0}},
    };
    Open();
    EXPECT_EQ(Write(kH264Key + long_tail), -1);
    EXPECT_EQ(FileHead().m_u32RecordFileSumLenth, 0u);
    EXPECT_EQ(Write(kH264Key), 0) << "the run begins with the next key frame";
    const RecordInfoHead_S before = Section();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const uint32_t dropped = RecorderStatusGet().dropped_frames;
        const CardFault fault(c.fault);
        EXPECT_EQ(Write(c.frame, c.kind), -1);
        EXPECT_EQ(RecorderStatusGet().dropped_frames, dropped + 1);
        EXPECT_TRUE(SectionIs(before));
        EXPECT_TRUE(c.fault.error == 0 || Stream(before.m_u32RecordSize, 4) == std::string(4, '\0'));
    }
    EXPECT_EQ(Write("\0\0\0\1\x41"s), 0);
    EXPECT_EQ(Write(kH264Delta + std::string(600000, 'x')), 0);
    EXPECT_EQ(Write("s", AV_FRAME_TYPE_AUDIO), 0);
    EXPECT_EQ(Section().m_u32FrameSum, 3u);
    EXPECT_EQ(Stream(before.m_u32RecordSize, 4), "\0\0\1\xBA"s) << "the next frame follows without a hole";
    EXPECT_EQ(libAVRecordWriteFrame(0, AV_FRAME_TYPE_VIDEO, nullptr, nullptr), -1);
}

TEST_F(Writer, NeverReachesTheKeyFrameArea) {
    BeginFile(0x0FC00000 - 500);
    Open();
    EXPECT_EQ(Write(kH264Key + std::string(1000, 'x')), -1);
    EXPECT_EQ(Stream(0x0FC00000, 20), std::string(20, '\0'));
    EXPECT_EQ(Write(kH264Key), 0);
}

TEST_F(Writer, AtTheLimitTheLengthsStopAndNothingElse) {
    BeginFile(0x0F900000 - 10);
    Open();
    EXPECT_EQ(Write(kH264Key), 0) << "the one that passes the limit";
    const uint32_t size = Section().m_u32RecordSize;
    ++uptime, ++wall;
    EXPECT_EQ(Write(kH264Key), 0);
    EXPECT_EQ(WriteSound(), 0);
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_EQ(Section().m_u32RecordSize, size);
    EXPECT_EQ(FileHead().m_u32RecordFileSumLenth, 0x0F900000 - 10 + size);
    EXPECT_THAT(Counts(), ElementsAre(3, 2, 2));
    EXPECT_EQ(Section().m_u32RecordEndTime, 1700000001u);
    EXPECT_EQ(FileHead().m_u32RecordEndTime, 1700000001u);
    EXPECT_EQ(KeyFrame(1).m_u32KeyFilePos, size);
    const std::string second = Packed(kH264Key, 2, true, 1700000001);
    EXPECT_EQ(KeyFrame(1).m_u32KeyFrameLenth, second.size());
    EXPECT_EQ(Stream(0x0F900000 - 10 + size, second.size()), second) << "it follows the frames that count";
}

TEST_F(Writer, AFrameThatIsOverwrittenWhileItIsPackedLeavesOnlyItsNumberOut) {
    static std::string ring;  // as the media server has it when the frame is packed
    static const auto is_intact = [](const char* data, const AVDataInfoOpt* info) {
        return static_cast<int>(std::string(data, static_cast<size_t>(info->AVDataLen)) == ring);
    };
    AVRecordFrameCheckSet(is_intact);
    Open();
    const uint32_t torn = RecorderStatusGet().torn_frames;
    for (const std::string& first : {std::string("overwritten"), kH264Key}) {
        ring = first;
        EXPECT_EQ(Write(kH264Key), first == kH264Key ? 0 : -1) << "a run begins with a whole key frame";
    }
    const RecordInfoHead_S before = Section();
    EXPECT_EQ(before.m_u32FrameSum, 1u);
    EXPECT_EQ(before.m_u32RecordStartPos, 0u);
    EXPECT_EQ(Write(kH264Delta), -1);
    EXPECT_EQ(WriteSound(), -1);
    EXPECT_EQ(RecorderStatusGet().torn_frames, torn + 3);
    EXPECT_TRUE(SectionIs(before));
    EXPECT_EQ(Stream(before.m_u32RecordSize, 4), std::string(4, '\0'));
    ring = kH264Delta;
    EXPECT_EQ(Write(kH264Delta), 0);
    const std::string packed = Packed(kH264Delta, 4, false, 1700000000);
    EXPECT_EQ(Stream(before.m_u32RecordSize, packed.size()), packed);
    AVRecordFrameCheckSet(nullptr);
}

TEST_F(Writer, FollowsSmallStepsOfTheClockAndNoLargeOnes) {
    BeginRun();
    uptime += 10;
    wall += 10 + 59;
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_EQ(Section().m_u32RecordEndTime, 1700000069u);
    wall += 1;
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_EQ(Section().m_u32RecordEndTime, 1700000010u);
    EXPECT_EQ(FileHead().m_u32RecordEndTime, 1700000069u) << "the file's end never goes back";
}

// A record that the card refused once is there with the next frame, in the order of the frames.
TEST_F(Writer, AKeyFrameRecordThatTheCardRefusedFollows) {
    std::optional<CardFault> fault(Refused{.length = sizeof(KeyFrameInfoHead_S)});
    BeginRun();
    const uint32_t second_key = Section().m_u32RecordSize;
    EXPECT_EQ(Write(kH264Key), 0);
    EXPECT_THAT(Counts(), ElementsAre(2, 0, 0)) << "they rise with the record";
    fault.reset();
    EXPECT_EQ(Write(kH264Delta), 0);
    EXPECT_THAT(Counts(), ElementsAre(3, 2, 2));
    EXPECT_EQ(KeyFrame(0).m_u32KeyFilePos, 0u);
    EXPECT_EQ(KeyFrame(1).m_u32KeyFilePos, second_key);
    fault.emplace(Refused{.length = sizeof(KeyFrameInfoHead_S)});
    EXPECT_EQ(Write(kH264Key), 0);
    EXPECT_THAT(Counts(), ElementsAre(4, 2, 2));
    fault.reset();
    KQ_RecordUninit();
    EXPECT_THAT(Counts(), ElementsAre(4, 3, 3)) << "the end of the run is its last chance";
}

TEST_F(Writer, OpensAnewWithoutLeavingADescriptorBehind) {
    BeginRun();
    Open();
    EXPECT_EQ(Write(kH264Delta), -1) << "it waits for a key frame again";
    EXPECT_EQ(Write(kH264Key), 0);
    KQ_RecordUninit();
    EXPECT_TRUE(AwaitNoOpenFile());
    EXPECT_EQ(KQ_RecordClose(), -1);
    EXPECT_EQ(KQ_RecordStreamFdGet(), -1);
}

TEST_F(Writer, OpensTheFilesThatAreThereAndCreatesNone) {
    EXPECT_EQ(KQ_RecordConfigGet(), 0);
    EXPECT_EQ(AVRecordStoreIsWritable(0), 0);
    card_.Pull();  // leaves an empty directory
    EXPECT_NE(KQ_RecordConfigGet(), 0);
    EXPECT_EQ(AVRecordStoreIsWritable(0), -1);
    EXPECT_EQ(KQ_RecordInit(AV_RecordFileInfoHeadGet(), 0), -1);
    EXPECT_TRUE(std::filesystem::is_empty(support::kCardDirectory));
    card_.Plug();
    EXPECT_EQ(KQ_RecordInit(nullptr, 0), -1);
    EXPECT_EQ(KQ_RecordInit(AV_RecordFileInfoHeadGet(), 3), -1);
    std::filesystem::create_directory(Card::RecordFile(7));
    for (const uint32_t number : {7u, 8u}) {
        AV_RecordFileInfoHeadGet()->m_u32FileInfoHeadNo = number;
        EXPECT_EQ(AVRecordStoreIsWritable(number), -1);
        EXPECT_EQ(KQ_RecordInit(AV_RecordFileInfoHeadGet(), 0), -1);
        EXPECT_TRUE(Logged(" :open " + Card::RecordFile(number) + " fail "));
        EXPECT_TRUE(Logged(" : open " + Card::RecordFile(number) + " file fail\n"));
        EXPECT_EQ(KQ_RecordStreamFdGet(), -1);
    }
    EXPECT_FALSE(std::filesystem::exists(Card::RecordFile(8)));
    EXPECT_EQ(AVRecordStoreIsWritable(RECORD_FILE_MAX), -1);
    EXPECT_EQ(errno, EINVAL) << "not even looked for";
    EXPECT_EQ(KQ_RecordOpen("/tmp/created.mp4"), 0) << "the C interface keeps its mode";
    EXPECT_EQ(KQ_RecordClose(), 0);
    EXPECT_TRUE(std::filesystem::remove("/tmp/created.mp4"));
}

TEST_F(Writer, MayBeClosedWhileFramesArrive) {
    const std::jthread frames([](const std::stop_token& over) {
        while (!over.stop_requested()) {
            Write(kH264Key);
            WriteSound();
        }
    });
    for (int i = 0; i < 100; ++i) {
        Open();
        AVRecordHeads heads;
        AVRecordHeadsCopy(&heads);
        KQ_RecordUninit();
    }
}

TEST(WriterHelpers, ComputeTheZoneAndTheAudioConfiguration) {
    support::SteppedClock clock;
    int hours = 0;
    for (const auto& [zone, expected] : {std::pair{"XYZ-5:30", 5}, {"XYZ+8", -8}, {"UTC", 0}}) {
        setenv("TZ", zone, 1);
        tzset();
        clock.uptime += 1;
        EXPECT_EQ(GetTimeZone(&hours), 0);
        EXPECT_EQ(hours, expected);
    }
    unsigned char dsi[2];
    EXPECT_EQ(get_sr_index(8000), 11);
    EXPECT_EQ(get_sr_index(96000), 0);
    EXPECT_EQ(make_dsi(11, 1, dsi), 0);
    EXPECT_EQ(dsi[0], 0x15);
    EXPECT_EQ(dsi[1], 0x88);
}

}  // namespace
