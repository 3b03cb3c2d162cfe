#include "StoreWriter.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace fixture {

namespace {

constexpr uint32_t kStreamHeadSize = 40;
constexpr uint8_t kStreamHead[kStreamHeadSize] = {'I',  'M',  'K',  'H',  0x01, 0x02, 0x00, 0x00,
                                                  0x02, 0x00, 0x00, 0x01, 0x01, 0x20, 0x01, 0x10,
                                                  0x80, 0xBB, 0x00, 0x00, 0x00, 0xFA, 0x00, 0x00};
constexpr uint32_t kVirtualKeyPixels = 345600;  // smaller pictures get no record for a virtual key frame

void Check(bool held, const std::string& what) {
    if (!held) throw std::runtime_error("fixture: " + what);
}

}  // namespace

StoreWriter::StoreWriter(std::string folder) : folder_(std::move(folder)) {
    index_ = AV_RecordOpen((folder_ + "/" RECORD_INDEX_NAME).c_str(), AVFILE_READ_WRITE);
    events_ = AV_AlarmEvnetOpen((folder_ + "/" RECORD_EVENT_NAME).c_str(), AVFILE_READ_WRITE);
    Check(index_ >= 0 && events_ >= 0, "no index or event file");
    Check(AV_SystemInfoHeadRead(index_, &system_) > 0 && AV_SystemInfoHeadCheck(&system_) == 0, "no prepared store");
}

StoreWriter::~StoreWriter() {
    if (stream_ >= 0) AV_RecordStreamFileClose(stream_);
    if (index_ >= 0) AV_RecordClose(index_);
    if (events_ >= 0) AV_AlarmEvnetClose(events_);
}

void StoreWriter::BeginSection(uint32_t time, const AVStreamParam& stream) {
    Check(AV_RecordFileInfoHeadRead(index_, &system_, &file_) == 0, "cannot read a file head");
    reused_ = file_.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG && FileFull();
    if (reused_) {
        file_ = {};
        const AlarmEventHead_S no_events{};
        AV_AlarmEventInfoWrite(events_, system_.m_u32RecordFileNo, &no_events);
    }
    if (file_.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG) {
        if (time < file_.m_u32RecordStartTime) AV_RecordFileInfoHeadStartTimeFresh(&file_, time);
        AV_RecordFileInfoHeadFileFileFresh(&file_, RECORD_TYPE_SCHEDULE);
        AV_RecordFileInfoHeadSectionSumFresh(&file_);
    } else {
        AV_RecordFileInfoHeadAdd(&system_, &file_, time, RECORD_TYPE_SCHEDULE);
    }
    section_ = {};
    AV_RecordSectionInfoHeadAdd(&file_, &section_, time, RECORD_TYPE_SCHEDULE, 0);
    parameters_ = stream;
    frames_ = 0;
    char name[32];
    std::snprintf(name, sizeof name, "/" RECORD_FILE_NAME, static_cast<int>(system_.m_u32RecordFileNo));
    stream_ = AV_RecordStreamFileOpen((folder_ + name).c_str(), AVFILE_READ_WRITE);
    Check(stream_ >= 0, std::string("cannot open") + name);
}

void StoreWriter::EndSection() {
    AV_RecordStreamFileClose(stream_);
    stream_ = -1;
    AV_SystemInfoHeadUsedFileSumFresh(&system_, &file_);
    AV_SystemInfoHeadFileNoFresh(&system_, &file_);
    Check(AV_SystemInfoHeadWrite(index_, &system_) > 0, "cannot write the system head");
}

StoreWriter::Written StoreWriter::Video(const std::string& unit, bool key, bool virtual_key, uint32_t time) {
    const int length = static_cast<int>(unit.size());
    head_size_ = frames_ == 0 ? kStreamHeadSize : 0;
    if (frames_ == 0) {
        RecordVedioInfo_S video{};
        video.m_u16Width = parameters_.m_u16VedioWidth;
        video.m_u16Height = parameters_.m_u16VedioHeight;
        video.m_u8Frame = static_cast<uint8_t>(parameters_.m_u16VedioFrame);
        video.m_u8VideoType = static_cast<uint8_t>(parameters_.m_u8VedioCodeType);
        video.m_u8AudioType = static_cast<uint8_t>(parameters_.m_u8AudioCodeType);
        AV_RecordSectionInfoHeadVedioParamFresh(&section_, &video);
    }
    ++frames_;
    std::vector<uint8_t> bytes(head_size_ + static_cast<size_t>(PackedVideoSize(key, unit.data(), length)));
    std::memcpy(bytes.data(), kStreamHead, head_size_);
    const int packed = libAVRecordVideoPsStreamWrite(key ? 1 : 0, unit.data(), length, bytes.data() + head_size_,
                                                     frames_, &parameters_, time);
    Check(packed > 0, "a frame was not packed");
    const uint32_t pixels = uint32_t{parameters_.m_u16VedioWidth} * parameters_.m_u16VedioHeight;
    const bool indexed = key || (virtual_key && pixels >= kVirtualKeyPixels);
    return Append(bytes, true, indexed, virtual_key ? RECORD_KEY_FRAME_VIRTUAL : RECORD_KEY_FRAME_REAL,
                  head_size_ != 0 ? section_.m_u32RecordStartTime : time);
}

StoreWriter::Written StoreWriter::Audio(const std::string& sound, uint32_t time) {
    head_size_ = 0;
    std::vector<uint8_t> bytes(static_cast<size_t>(PackedAudioSize(static_cast<int>(sound.size()))));
    const int packed =
        libAVRecordAudioPsStreamWrite(sound.data(), static_cast<int>(sound.size()), bytes.data(), frames_ + 1);
    Check(packed > 0, "a sound was not packed");
    return Append(bytes, false, false, 0, time);
}

StoreWriter::Written StoreWriter::Append(const std::vector<uint8_t>& bytes, bool video, bool indexed, uint8_t key_type,
                                         uint32_t time) {
    const uint32_t length = static_cast<uint32_t>(bytes.size());
    const uint32_t offset = file_.m_u32RecordFileSumLenth;
    Check(AV_RecordStreamInfoWrite(stream_, offset, bytes.data(), static_cast<int>(length)) > 0,
          "a frame was not written");
    if (indexed) {
        KeyFrameInfoHead_S record{};
        AV_RecordKeyFrameInfoUpdate(&record, time, length, section_.m_u32RecordSize, key_type);
        AV_RecordKeyFrameWrite(stream_, file_.m_u32RecordKeyFrameSum * static_cast<uint32_t>(sizeof record), &record,
                               sizeof record);
    }
    AV_RecordSectionInfoHeadEndTimeFresh(&section_, time);
    AV_RecordSectionInfoHeadFileSizeFresh(&section_, length);
    AV_RecordSecitonInfoHeadKeyFrameFresh(&section_, indexed ? 1 : 0,
                                          video ? AV_FRAME_TYPE_VIDEO : AV_FRAME_TYPE_AUDIO);
    AV_RecordFileInfoHeadFileLenthFresh(&file_, length);
    if (time >= file_.m_u32RecordEndTime) AV_RecordFileInfoHeadEndTimeFresh(&file_, time);
    AV_RecodrFileInfoHeadKeyFrameFresh(&file_, indexed ? 1 : 0);
    AV_RecordSectionInfoHeadWrite(index_, &file_, &section_);
    AV_RecordFileInfoHeadWrite(index_, &system_, &file_);
    AV_SystemInfoHeadWrite(index_, &system_);
    // Sound carries the clock of the frame after the next.
    return {offset + head_size_, length - head_size_, 3600 * (video ? frames_ : frames_ + 2)};
}

void StoreWriter::AddEvent(uint32_t file, uint32_t start, uint32_t end, uint8_t type, uint8_t rate) {
    AlarmEventHead_S head{};
    Check(AV_AlarmEventInfoRead(events_, file, &head) == 0, "cannot read an event head");
    if (head.m_u32AlarmEventFlag != ALARM_EVENT_FLAG) AV_AlarmEventInfoHeadAdd(&head, file, start, type);
    AV_AlarmEventInfoEventSumFresh(&head);
    AV_AlarmEventInfoEventTypeFresh(&head, type);
    AlarmFileInfoHead_S record{};
    AV_AlarmEventFileInfoAdd(&head, &record, start, type);
    if (end != 0) {
        AV_AlarmEventFileInfoEndTimeFresh(&record, end);
        AV_AlarmEventFileInfoFrameRateFresh(&record, rate);
        AV_AlarmEventInfoEndTimeFresh(&head, end);
    }
    Check(AV_AlarmEventInfoWrite(events_, file, &head) == 0 && AV_AlarmEventFileInfoWrite(events_, &head, &record) == 0,
          "cannot write an event");
}

}  // namespace fixture
