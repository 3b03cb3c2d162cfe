#include "RunIndex.h"

#include <cassert>

#include "CardFile.h"
#include "Clock.h"
#include "RecordFormat.h"
#include "libAVRecord.h"
#include "libLog.h"

namespace {

constexpr uint32_t kVirtualKeyPixels = 345600;  // 720 x 480; below, a virtual key frame is not indexed

bool GetsARecord(const Frame& frame, const AVStreamParam& parameters) {
    const uint32_t pixels = uint32_t{parameters.m_u16VedioWidth} * parameters.m_u16VedioHeight;
    return frame.found.is_key || (frame.IsVirtualKey() && pixels >= kVirtualKeyPixels);
}

// Before any head says that its file is full, the card names the next one: after a power cut in between, the newest
// file would count as the oldest, the one to begin anew.
void NameNextFile(int index, const RecordSystemInfoHead_S& system) {
    AV_SystemInfoHeadWrite(index, &system);
    card::SyncRange(card::Kind::kIndex, index, 0, sizeof system);
}

}  // namespace

HeadsGuard::HeadsGuard() {
    AVRecordHeadsLock();
}
HeadsGuard::~HeadsGuard() {
    AVRecordHeadsUnlock();
}

void TellSectionItsStream(const AVStreamParam& parameters) {
    RecordVedioInfo_S info{};
    info.m_u16Width = parameters.m_u16VedioWidth;
    info.m_u16Height = parameters.m_u16VedioHeight;
    info.m_u8Frame = static_cast<uint8_t>(parameters.m_u16VedioFrame);
    info.m_u8VideoType = static_cast<uint8_t>(parameters.m_u8VedioCodeType);
    info.m_u8AudioType = static_cast<uint8_t>(parameters.m_u8AudioCodeType);
    const HeadsGuard heads;
    AV_RecordSectionInfoHeadVedioParamFresh(AV_RecordInfoHeadGet(), &info);
}

bool IndexKeyFrame(int fd, const WrittenFrame& written, const AVStreamParam& parameters) {
    if (!GetsARecord(written.frame, parameters)) {
        return false;
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const uint32_t number = heads.file.m_u32RecordKeyFrameSum;
    if (number >= record_file::kKeyFramesMax) {
        return false;
    }
    const uint8_t type = written.frame.IsVirtualKey() ? RECORD_KEY_FRAME_VIRTUAL : RECORD_KEY_FRAME_REAL;
    KeyFrameInfoHead_S record;
    AV_RecordKeyFrameInfoUpdate(&record, written.time, written.length, heads.section.m_u32RecordSize, type);
    const tm when = LocalTime(static_cast<time_t>(written.time));
    LOG_TRACE("%s %d: ##keyType = %d  KeyFrameTime. %04d-%02d-%02d %02d:%02d:%02d ##\n", type, when.tm_year + 1900,
              when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    const uint32_t offset = number * static_cast<uint32_t>(sizeof record);
    return AV_RecordKeyFrameWrite(fd, offset, &record, sizeof record) == static_cast<int>(sizeof record);
}

uint32_t UpdateHeads(int index, const WrittenFrame& written, bool is_indexed) {
    AVRecordHeads heads;
    bool is_switch = false;
    {
        const HeadsGuard guard;
        RecordFileInfoHead_S* const file = AV_RecordFileInfoHeadGet();
        RecordInfoHead_S* const section = AV_RecordInfoHeadGet();
        AV_RecordSectionInfoHeadEndTimeFresh(section, written.time);
        AV_RecordSectionInfoHeadFileSizeFresh(section, written.length);
        AV_RecordSecitonInfoHeadKeyFrameFresh(section, is_indexed ? 1 : 0, written.frame.kind);
        AV_RecordFileInfoHeadFileLenthFresh(file, written.length);
        if (written.time >= file->m_u32RecordEndTime) {
            AV_RecordFileInfoHeadEndTimeFresh(file, written.time);
        }
        AV_RecodrFileInfoHeadKeyFrameFresh(file, is_indexed ? 1 : 0);
        is_switch = AVRecordNameNextFile() == 1;
        heads = {*AV_RecordSystemInfoHeadGet(), *file, *section};
    }
    assert(uint64_t{heads.section.m_u32RecordStartPos} + heads.section.m_u32RecordSize <=
               heads.file.m_u32RecordFileSumLenth &&
           "a section lies inside its file");
    if (is_switch) {
        NameNextFile(index, heads.system);
    }
    AV_RecordSectionInfoHeadWrite(index, &heads.file, &heads.section);
    AV_RecordFileInfoHeadAccecsFileNoWrite(index, heads.file.m_u32FileInfoHeadNo, &heads.file);
    AV_SystemInfoHeadWrite(index, &heads.system);
    return heads.file.m_u32RecordKeyFrameSum;
}
