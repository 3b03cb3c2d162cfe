// A card, a bound camera, and heads in memory in which the writer's run can begin.
#pragma once

#include <string>

#include "libAVRecord.h"
#include "support/BoundCamera.h"

using std::string_literals::operator""s;

class OpenRun : public support::BoundCamera {
  protected:
    static constexpr uint32_t kStart = 1699999999;  // of the section, a second before the clock
    static inline const std::string kH264Key = "\0\0\0\1\x67sps\0\0\0\1\x68pps\0\0\0\1\x65 a key frame"s;
    static inline const std::string kH264Delta = "\0\0\0\1\x41 a frame between key frames"s;

    OpenRun() {
        *AV_RecordSystemInfoHeadGet() = {};
        AV_SystemInfoHeadParamInit(AV_RecordSystemInfoHeadGet(), 2048, 3);
        BeginFile(0);
    }
    ~OpenRun() override {
        KQ_RecordUninit();
        AwaitNoOpenFile();  // the card goes with the test
    }

    // The heads of a section that begins at `length` bytes of its file.
    static void BeginFile(uint32_t length) {
        RecordFileInfoHead_S* const file = AV_RecordFileInfoHeadGet();
        *file = {};
        AV_RecordFileInfoHeadAdd(AV_RecordSystemInfoHeadGet(), file, kStart, RECORD_TYPE_SCHEDULE);
        file->m_u32RecordFileSumLenth = length;
        AV_RecordSectionInfoHeadAdd(file, AV_RecordInfoHeadGet(), kStart, RECORD_TYPE_SCHEDULE, 0);
    }
    static void Open(int channel = 0) { ASSERT_EQ(KQ_RecordInit(AV_RecordFileInfoHeadGet(), channel), 0); }
    static void BeginRun() {
        Open();
        ASSERT_EQ(Write(kH264Key), 0);
    }
    static int Write(const std::string& frame, int kind = AV_FRAME_TYPE_VIDEO, bool is_virtual_key = false,
                     int channel = 0) {
        AVDataInfoOpt info{};
        info.AVDataLen = static_cast<int32_t>(frame.size());
        info.iVirtualIFrame = is_virtual_key;
        return libAVRecordWriteFrame(channel, kind, frame.data(), &info);
    }

    support::Card card_{support::Store{}};
};
