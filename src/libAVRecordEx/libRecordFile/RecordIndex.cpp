// Heads of the index file: the system head, a head per record file, a head per section.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "CardFile.h"
#include "RecordFormat.h"

using card::AsInt;
using card::Kind;
using card::Result;
using record_file::FileHeadOffset;
using record_file::SectionHeadOffset;

namespace {

bool IsFull(const RecordFileInfoHead_S& file) {
    return file.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT;
}

}  // namespace

// ---- system head

int AV_SystemInfoHeadWrite(int fd, const RecordSystemInfoHead_S* system) {
    return card::WriteRecord(Kind::kIndex, fd, 0, system) == Result::kDone ? static_cast<int>(sizeof *system) : -1;
}

int AV_SystemInfoHeadRead(int fd, RecordSystemInfoHead_S* system) {
    return AVRecordSystemHeadLoad(fd, system) == AV_HEAD_LOADED ? static_cast<int>(sizeof *system) : -1;
}

AVHeadLoad AVRecordSystemHeadLoad(int fd, RecordSystemInfoHead_S* system) {
    return card::AsHeadLoad(card::ReadRecord(Kind::kIndex, fd, 0, system));
}

int AV_SystemInfoHeadCheck(const RecordSystemInfoHead_S* system) {
    const bool holds =
        system != nullptr && system->m_u32SystemInfoHeadFlag == RECORD_SYSTEM_FLAG && system->m_u32SDCardFormat == 1;
    return holds ? 0 : -1;
}

int AV_SystemInfoHeadParamInit(RecordSystemInfoHead_S* system, uint32_t card_mib, uint32_t file_count) {
    if (system == nullptr) {
        return -1;
    }
    *system = {};
    system->m_u32SystemInfoHeadFlag = RECORD_SYSTEM_FLAG;
    system->m_u32SDCardFormat = 1;
    system->m_u32SDCardSpaceSize = card_mib;
    system->m_u32RecordSpaceSize = file_count << RECORD_FILE_SIZE_SHIFT;
    system->m_u32RecordFileSum = file_count;
    system->m_u32SystemInfoCrc = RECORD_SYSTEM_CHECK_WORD;
    return 0;
}

int AV_SystemInfoHeadUsedFileSumFresh(RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file) {
    if (system == nullptr || file == nullptr) {
        return -1;
    }
    if (IsFull(*file) && system->m_u32RecordUsedFileSum < system->m_u32RecordFileSum) {
        ++system->m_u32RecordUsedFileSum;
    }
    return 0;
}

int AV_SystemInfoHeadFileNoFresh(RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file) {
    if (system == nullptr || file == nullptr) {
        return -1;
    }
    if (IsFull(*file)) {
        const uint64_t next = uint64_t{system->m_u32RecordFileNo} + 1;
        // Also brings a number that lies outside the ring (a damaged head) back into it.
        system->m_u32RecordFileNo = next < system->m_u32RecordFileSum ? static_cast<uint32_t>(next) : 0;
    }
    return 0;
}

// ---- file heads

int AV_RecordFileInfoHeadWrite(int fd, const RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file) {
    return system == nullptr ? -1 : AV_RecordFileInfoHeadAccecsFileNoWrite(fd, system->m_u32RecordFileNo, file);
}

int AV_RecordFileInfoHeadRead(int fd, const RecordSystemInfoHead_S* system, RecordFileInfoHead_S* file) {
    return system == nullptr ? -1 : AV_RecordFileInfoHeadAccecsFileNoRead(fd, system->m_u32RecordFileNo, file);
}

int AV_RecordFileInfoHeadAccecsFileNoWrite(int fd, uint32_t file_no, const RecordFileInfoHead_S* file) {
    return file_no < RECORD_FILE_MAX ? AsInt(card::WriteRecord(Kind::kIndex, fd, FileHeadOffset(file_no), file)) : -1;
}

int AV_RecordFileInfoHeadAccecsFileNoRead(int fd, uint32_t file_no, RecordFileInfoHead_S* file) {
    return AVRecordFileHeadLoad(fd, file_no, file) == AV_HEAD_LOADED ? 0 : -1;
}

AVHeadLoad AVRecordFileHeadLoad(int fd, uint32_t file_no, RecordFileInfoHead_S* file) {
    if (file_no >= RECORD_FILE_MAX) {
        errno = EINVAL;
        return AV_HEAD_FAILED;
    }
    return card::AsHeadLoad(card::ReadRecord(Kind::kIndex, fd, FileHeadOffset(file_no), file));
}

int AV_RecordFileInfoHeadAdd(const RecordSystemInfoHead_S* system, RecordFileInfoHead_S* file, uint32_t start_time,
                             uint32_t type_bits) {
    if (system == nullptr || file == nullptr) {
        return -1;
    }
    *file = {};
    file->m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
    file->m_u32FileInfoHeadNo = system->m_u32RecordFileNo;
    file->m_u32RecordStartTime = start_time;
    file->m_u32RecordFileSumType = type_bits;
    file->m_u32RecordSectionSum = 1;
    return 0;
}

int AV_RecordFileInfoHeadStartTimeFresh(RecordFileInfoHead_S* file, uint32_t time) {
    if (file == nullptr) {
        return -1;
    }
    file->m_u32RecordStartTime = time;
    return 0;
}

int AV_RecordFileInfoHeadEndTimeFresh(RecordFileInfoHead_S* file, uint32_t time) {
    if (file == nullptr) {
        return -1;
    }
    file->m_u32RecordEndTime = time;
    return 0;
}

int AV_RecordFileInfoHeadFileLenthFresh(RecordFileInfoHead_S* file, uint32_t bytes) {
    if (file == nullptr) {
        return -1;
    }
    if (file->m_u32RecordFileSumLenth <= RECORD_STREAM_LIMIT) {
        file->m_u32RecordFileSumLenth += bytes;
    }
    return 0;
}

int AV_RecordFileInfoHeadFileFileFresh(RecordFileInfoHead_S* file, uint32_t type_bits) {
    if (file == nullptr) {
        return -1;
    }
    file->m_u32RecordFileSumType |= type_bits;
    return 0;
}

int AV_RecordFileInfoHeadSectionSumFresh(RecordFileInfoHead_S* file) {
    if (file == nullptr || file->m_u32RecordSectionSum >= RECORD_SECTION_MAX) {
        return -1;
    }
    ++file->m_u32RecordSectionSum;
    return 0;
}

int AV_RecodrFileInfoHeadKeyFrameFresh(RecordFileInfoHead_S* file, int is_key) {
    if (file == nullptr) {
        return -1;
    }
    if (is_key != 0) {
        ++file->m_u32RecordKeyFrameSum;
    }
    return 0;
}

// ---- section heads

int AV_RecordSectionInfoHeadAdd(const RecordFileInfoHead_S* file, RecordInfoHead_S* section, uint32_t start_time,
                                uint8_t record_type, uint8_t smart_enable) {
    if (file == nullptr || section == nullptr) {
        return -1;
    }
    RecordInfoHead_S made{};
    made.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
    made.m_u32RecordStartTime = start_time;
    made.m_u16RecordFileNo = static_cast<uint16_t>(file->m_u32FileInfoHeadNo);
    made.m_u16RecordUseNo = static_cast<uint16_t>(file->m_u32RecordSectionSum);
    made.m_u32RecordStartPos = file->m_u32RecordFileSumLenth;
    made.m_u32StartKeyFramePos = file->m_u32RecordKeyFrameSum * uint32_t{sizeof(KeyFrameInfoHead_S)};
    made.m_u8RecordType = record_type;
    made.m_u8SmartEnable = smart_enable;
    std::memcpy(section, &made, offsetof(RecordInfoHead_S, m_u8Res));  // the reserved bytes stay
    return 0;
}

int AV_RecordSectionInfoHeadVedioParamFresh(RecordInfoHead_S* section, const RecordVedioInfo_S* video) {
    if (section == nullptr || video == nullptr) {
        return -1;
    }
    section->m_u16Width = video->m_u16Width;
    section->m_u16Height = video->m_u16Height;
    section->m_u8Frame = video->m_u8Frame;
    section->m_u8VideoType = video->m_u8VideoType;
    section->m_u8AudioType = video->m_u8AudioType;
    return 0;
}

int AV_RecordSectionInfoHeadFileSizeFresh(RecordInfoHead_S* section, uint32_t bytes) {
    if (section == nullptr) {
        return -1;
    }
    if (uint64_t{section->m_u32RecordSize} + section->m_u32RecordStartPos <= RECORD_STREAM_LIMIT) {
        section->m_u32RecordSize += bytes;
    }
    return 0;
}

int AV_RecordSectionInfoHeadStartTimeFresh(RecordInfoHead_S* section, uint32_t time) {
    if (section == nullptr) {
        return -1;
    }
    section->m_u32RecordStartTime = time;
    return 0;
}

int AV_RecordSectionInfoHeadEndTimeFresh(RecordInfoHead_S* section, uint32_t time) {
    if (section == nullptr) {
        return -1;
    }
    section->m_u32RecordEndTime = time;
    return 0;
}

int AV_RecordSecitonInfoHeadKeyFrameFresh(RecordInfoHead_S* section, int is_key, int kind) {
    if (section == nullptr) {
        return -1;
    }
    if (is_key != 0) {
        ++section->m_u32KeyFrameSum;
    }
    if (kind == AV_FRAME_TYPE_VIDEO) {
        ++section->m_u32FrameSum;
    }
    return 0;
}

int AV_RecordSectionInfoHeadWrite(int fd, const RecordFileInfoHead_S* file, const RecordInfoHead_S* section) {
    if (file == nullptr || section == nullptr || file->m_u32FileInfoHeadNo >= RECORD_FILE_MAX ||
        section->m_u16RecordUseNo < 1 || section->m_u16RecordUseNo > RECORD_SECTION_MAX) {
        return -1;
    }
    const uint64_t offset = SectionHeadOffset(file->m_u32FileInfoHeadNo, section->m_u16RecordUseNo);
    return AsInt(card::WriteRecord(Kind::kIndex, fd, offset, section));
}

int AV_RecordSectionInfoHeadRead(int fd, const RecordFileInfoHead_S* file, RecordInfoHead_S* sections) {
    if (file == nullptr || file->m_u32FileInfoHeadNo >= RECORD_FILE_MAX) {
        return -1;
    }
    const uint32_t count = std::min(file->m_u32RecordSectionSum, RECORD_SECTION_MAX);
    const uint64_t offset = SectionHeadOffset(file->m_u32FileInfoHeadNo, 1);
    return AsInt(card::ReadAt(Kind::kIndex, fd, offset, sections, int64_t{sizeof *sections} * count));
}
