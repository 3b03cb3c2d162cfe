#include "RunIndex.h"

#include <algorithm>
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

void CountKeyFrames(uint32_t records, RecordInfoHead_S* section, RecordFileInfoHead_S* file) {
    for (uint32_t i = 0; i < records; ++i) {
        AV_RecordSecitonInfoHeadKeyFrameFresh(section, 1, AV_FRAME_TYPE_END);
        AV_RecodrFileInfoHeadKeyFrameFresh(file, 1);
    }
}

void WriteHeads(int index_fd, const AVRecordHeads& heads) {
    AV_RecordSectionInfoHeadWrite(index_fd, &heads.file, &heads.section);
    AV_RecordFileInfoHeadAccecsFileNoWrite(index_fd, heads.file.m_u32FileInfoHeadNo, &heads.file);
    AV_SystemInfoHeadWrite(index_fd, &heads.system);
}

}  // namespace

HeadsGuard::HeadsGuard() {
    AVRecordHeadsLock();
}
HeadsGuard::~HeadsGuard() {
    AVRecordHeadsUnlock();
}

void RunIndex::Begin(const AVStreamParam& parameters) {
    RecordVedioInfo_S info{};
    info.m_u16Width = parameters.m_u16VedioWidth;
    info.m_u16Height = parameters.m_u16VedioHeight;
    info.m_u8Frame = static_cast<uint8_t>(parameters.m_u16VedioFrame);
    info.m_u8VideoType = static_cast<uint8_t>(parameters.m_u8VedioCodeType);
    info.m_u8AudioType = static_cast<uint8_t>(parameters.m_u8AudioCodeType);
    const HeadsGuard heads;
    AV_RecordSectionInfoHeadVedioParamFresh(AV_RecordInfoHeadGet(), &info);
}

// Makes the frame's record and puts it after those that the card has not taken yet: the counts rise only with a record
// that is there, and records stand in the order of their frames.
void RunIndex::Wait(const WrittenFrame& written) {
    if (waiting_count_ == kWaitingMax) {
        return;  // a card that refuses for so long ends the run; this frame is found from the key frame before it
    }
    uint32_t position = 0;
    {
        const HeadsGuard guard;
        position = AV_RecordInfoHeadGet()->m_u32RecordSize;
    }
    const uint8_t type = written.frame.IsVirtualKey() ? RECORD_KEY_FRAME_VIRTUAL : RECORD_KEY_FRAME_REAL;
    AV_RecordKeyFrameInfoUpdate(&waiting_[waiting_count_++], written.time, written.length, position, type);
    const tm when = LocalTime(static_cast<time_t>(written.time));
    LOG_TRACE_AS("libAVRecordWriteFrame", ": ##keyType = %d  KeyFrameTime. %04d-%02d-%02d %02d:%02d:%02d ##\n", type,
                 when.tm_year + 1900, when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
}

// Returns how many the card took.
uint32_t RunIndex::WriteWaiting(int stream_fd) {
    if (waiting_count_ == 0) {
        return 0;
    }
    uint32_t number = 0;
    {
        const HeadsGuard guard;
        number = AV_RecordFileInfoHeadGet()->m_u32RecordKeyFrameSum;
    }
    constexpr int kSize = sizeof(KeyFrameInfoHead_S);
    uint32_t written = 0;
    while (written < waiting_count_ && number + written < record_file::kKeyFramesMax &&
           AV_RecordKeyFrameWrite(stream_fd, (number + written) * kSize, &waiting_[written], kSize) == kSize) {
        ++written;
    }
    std::copy(waiting_ + written, waiting_ + waiting_count_, waiting_);
    waiting_count_ -= written;
    return written;
}

uint32_t RunIndex::Add(int index_fd, int stream_fd, const WrittenFrame& written, const AVStreamParam& parameters) {
    if (GetsARecord(written.frame, parameters)) {
        Wait(written);
    }
    const uint32_t records = WriteWaiting(stream_fd);
    AVRecordHeads heads;
    bool is_switch = false;
    {
        const HeadsGuard guard;
        RecordFileInfoHead_S* const file = AV_RecordFileInfoHeadGet();
        RecordInfoHead_S* const section = AV_RecordInfoHeadGet();
        AV_RecordSectionInfoHeadEndTimeFresh(section, written.time);
        AV_RecordSectionInfoHeadFileSizeFresh(section, written.length);
        AV_RecordSecitonInfoHeadKeyFrameFresh(section, 0, written.frame.kind);
        AV_RecordFileInfoHeadFileLenthFresh(file, written.length);
        if (written.time >= file->m_u32RecordEndTime) {
            AV_RecordFileInfoHeadEndTimeFresh(file, written.time);
        }
        CountKeyFrames(records, section, file);
        is_switch = AVRecordNameNextFile() == 1;
        heads = {*AV_RecordSystemInfoHeadGet(), *file, *section};
    }
    assert(uint64_t{heads.section.m_u32RecordStartPos} + heads.section.m_u32RecordSize <=
               heads.file.m_u32RecordFileSumLenth &&
           "a section lies inside its file");
    if (is_switch) {
        NameNextFile(index_fd, heads.system);
    }
    WriteHeads(index_fd, heads);
    return heads.file.m_u32RecordKeyFrameSum;
}

uint32_t RunIndex::Finish(int index_fd, int stream_fd) {
    const uint32_t records = WriteWaiting(stream_fd);
    AVRecordHeads heads;
    {
        const HeadsGuard guard;
        CountKeyFrames(records, AV_RecordInfoHeadGet(), AV_RecordFileInfoHeadGet());
        heads = {*AV_RecordSystemInfoHeadGet(), *AV_RecordFileInfoHeadGet(), *AV_RecordInfoHeadGet()};
    }
    if (records != 0) {
        WriteHeads(index_fd, heads);
    }
    return heads.file.m_u32RecordKeyFrameSum;
}
