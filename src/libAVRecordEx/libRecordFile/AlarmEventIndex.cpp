// Alarm events of every record file: a head and up to 1024 records in the event file.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "CardFile.h"
#include "RecordFormat.h"

using card::AsInt;
using card::Kind;
using record_file::EventHeadOffset;
using record_file::EventOffset;

// ---- heads

int AV_AlarmEventInfoHeadAdd(AlarmEventHead_S* head, uint32_t file_no, uint32_t start_time, uint8_t type) {
    if (head == nullptr) {
        return -1;
    }
    constexpr size_t kCleared = 11;  // of the reserved bytes; the rest and the previous alarm's end stay
    head->m_u32AlarmEventFlag = ALARM_EVENT_FLAG;
    head->m_u32AlarmFileNo = file_no;
    head->m_u32AlarmStartTime = start_time;
    head->m_u32AlarmEndTime = 0;
    head->m_u32AlarmEventSum = 0;
    head->m_u8AlarmEventType = type;
    std::memset(head->m_u8Res, 0, kCleared);
    return 0;
}

int AV_AlarmEventInfoStartTimeFresh(AlarmEventHead_S* head, uint32_t time) {
    if (head == nullptr) {
        return -1;
    }
    head->m_u32AlarmStartTime = time;
    return 0;
}

int AV_AlarmEventInfoEndTimeFresh(AlarmEventHead_S* head, uint32_t time) {
    if (head == nullptr) {
        return -1;
    }
    head->m_u32AlarmEndTime = time;
    return 0;
}

int AV_AlarmEventInfoEventSumFresh(AlarmEventHead_S* head) {
    if (head == nullptr) {
        return -1;
    }
    if (head->m_u32AlarmEventSum < ALARM_EVENT_MAX) {
        ++head->m_u32AlarmEventSum;
    }
    return 0;
}

int AV_AlarmEventInfoEventTypeFresh(AlarmEventHead_S* head, uint8_t type_bits) {
    if (head == nullptr) {
        return -1;
    }
    head->m_u8AlarmEventType |= type_bits;
    return 0;
}

int AV_AlarmEventInfoWrite(int fd, uint32_t file_no, const AlarmEventHead_S* head) {
    return file_no < ALARM_EVENT_FILE_MAX ? AsInt(card::WriteRecord(Kind::kEvents, fd, EventHeadOffset(file_no), head))
                                          : -1;
}

int AV_AlarmEventInfoReset(int fd, uint32_t file_no, const AlarmEventHead_S* head) {
    return AV_AlarmEventInfoWrite(fd, file_no, head);
}

int AV_AlarmEventInfoRead(int fd, uint32_t file_no, AlarmEventHead_S* head) {
    return AVAlarmEventHeadLoad(fd, file_no, head) == AV_HEAD_LOADED ? 0 : -1;
}

AVHeadLoad AVAlarmEventHeadLoad(int fd, uint32_t file_no, AlarmEventHead_S* head) {
    if (file_no >= ALARM_EVENT_FILE_MAX) {
        errno = EINVAL;
        return AV_HEAD_FAILED;
    }
    return card::AsHeadLoad(card::ReadRecord(Kind::kEvents, fd, EventHeadOffset(file_no), head));
}

int AV_AlarmEventInfoClear(const char* path, uint32_t file_count) {
    Descriptor events(AV_AlarmEvnetOpen(path, AVFILE_READ_WRITE), AV_AlarmEvnetClose);
    if (!events.IsOpen()) {
        return -1;
    }
    int result = 0;
    const AlarmEventHead_S no_events{};
    const uint32_t heads = std::min(file_count, ALARM_EVENT_FILE_MAX);
    for (uint32_t n = 0; n < heads; ++n) {
        result |= AV_AlarmEventInfoWrite(events.Get(), n, &no_events);
    }
    return events.Close() == 0 ? result : -1;
}

// ---- records

int AV_AlarmEventFileInfoAdd(const AlarmEventHead_S* head, AlarmFileInfoHead_S* record, uint32_t start_time,
                             uint8_t type) {
    if (head == nullptr || record == nullptr) {
        return -1;
    }
    *record = {};
    record->m_u32AlarmEventFlag = ALARM_RECORD_FLAG;
    record->m_u32AlarmStartTime = start_time;
    record->m_u16AlarmFileNo = static_cast<uint16_t>(head->m_u32AlarmFileNo);
    record->m_u16AlarmFileUseNo = static_cast<uint16_t>(head->m_u32AlarmEventSum);
    record->m_u8AlarmFileType = type;
    return 0;
}

int AV_AlarmEventFileInfoEndTimeFresh(AlarmFileInfoHead_S* record, uint32_t time) {
    if (record == nullptr) {
        return -1;
    }
    record->m_u32AlarmEndTime = time;
    return 0;
}

int AV_AlarmEventFileInfoFileSizeFresh(AlarmFileInfoHead_S* record, uint32_t bytes) {
    if (record == nullptr) {
        return -1;
    }
    record->m_u32FileSize = bytes;
    return 0;
}

int AV_AlarmEventFileInfoFrameCountFresh(AlarmFileInfoHead_S* record, uint32_t frames) {
    if (record == nullptr) {
        return -1;
    }
    record->m_u32FrameCount = frames;
    return 0;
}

int AV_AlarmEventFileInfoFrameRateFresh(AlarmFileInfoHead_S* record, uint8_t rate) {
    if (record == nullptr) {
        return -1;
    }
    record->m_u8FrameRate = rate;
    return 0;
}

int AV_AlarmEventFileInfoWrite(int fd, const AlarmEventHead_S* head, const AlarmFileInfoHead_S* record) {
    if (head == nullptr || head->m_u32AlarmFileNo >= ALARM_EVENT_FILE_MAX || head->m_u32AlarmEventSum < 1 ||
        head->m_u32AlarmEventSum > ALARM_EVENT_MAX) {
        return -1;
    }
    const uint64_t offset = EventOffset(head->m_u32AlarmFileNo, head->m_u32AlarmEventSum);
    return AsInt(card::WriteRecord(Kind::kEvents, fd, offset, record));
}

int AV_AlarmEventFileInfoRead(int fd, AlarmEventHead_S* head, AlarmFileInfoHead_S* records) {
    if (fd < 0 || head == nullptr || records == nullptr || head->m_u32AlarmFileNo >= ALARM_EVENT_FILE_MAX ||
        head->m_u32AlarmEventSum < 1) {
        return -1;
    }
    head->m_u32AlarmEventSum = std::min(head->m_u32AlarmEventSum, ALARM_EVENT_READ_MAX);
    return AsInt(card::ReadAt(Kind::kEvents, fd, EventOffset(head->m_u32AlarmFileNo, 1), records,
                              int64_t{sizeof *records} * head->m_u32AlarmEventSum));
}
