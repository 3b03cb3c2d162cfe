// Index, event and record files for the fuzzers: heads that the input gives, each in its place.
#pragma once

#include "Fuzz.h"
#include "libRecordFile.h"

namespace fuzz {

inline constexpr uint32_t kStoreFiles = 6;  // of these, heads are laid out
inline constexpr uint64_t kStoreHeads = RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * kStoreFiles;

inline uint64_t FileHeadAt(uint32_t file) {
    return RECORD_FILE_HEAD_BASE + uint64_t{sizeof(RecordFileInfoHead_S)} * file;
}
inline uint64_t SectionHeadAt(uint32_t file, uint32_t section) {
    return RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * file + sizeof(RecordInfoHead_S) * section;
}

// Lays an index, an event file and the key-frame records of record file 0 from the input; descriptors below 0 are left
// out.  A record is what its place holds: it gets its flag and number, unless the input wants it otherwise.
inline void LayIndex(Input& in, int index, int events, int record) {
    constexpr int kRecordsMax = 96;
    constexpr auto kIndexSize = static_cast<off64_t>(RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * 32);
    const auto write = [](int fd, uint64_t at, const auto& head) {
        MUST(fd < 0 || pwrite64(fd, &head, sizeof head, static_cast<off64_t>(at)) == static_cast<ssize_t>(sizeof head));
    };
    const auto empty = [](int fd, off64_t size) {
        MUST(fd < 0 || (ftruncate64(fd, 0) == 0 && ftruncate64(fd, size) == 0));
    };
    const bool cut = in.Byte() % 8 == 0;  // a file that ends early, inside of the heads
    const auto end = static_cast<off64_t>(cut ? in.Word() % kStoreHeads : uint64_t{kIndexSize});
    empty(index, 0);
    empty(events, ALARM_EVENT_BLOCK * (8 + kStoreFiles));
    if (record >= 0) {
        static constexpr KeyFrameInfoHead_S kNone[64] = {};
        MUST(pwrite64(record, kNone, sizeof kNone, RECORD_KEY_FRAME_BASE) > 0);
    }
    auto system = in.Get<RecordSystemInfoHead_S>();
    if (in.Byte() % 16 != 0) {
        system.m_u32SystemInfoHeadFlag = RECORD_SYSTEM_FLAG;
        system.m_u32SDCardFormat = 1;
        system.m_u32RecordFileSum %= 8;
    }
    write(index, 0, system);
    for (int left = in.Byte() % kRecordsMax; left > 0 && !in.Empty(); --left) {
        const uint8_t kind = in.Byte();
        const bool plain = kind < 224;
        const uint32_t file = in.Byte() % kStoreFiles;
        const uint32_t slot = in.Byte();
        if (kind % 8 < 2) {
            auto head = in.Get<RecordFileInfoHead_S>();
            if (plain) {
                head.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
                head.m_u32FileInfoHeadNo = file;
            }
            write(index, FileHeadAt(file), head);
        } else if (kind % 8 < 5) {
            auto head = in.Get<RecordInfoHead_S>();
            if (plain) {
                head.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
                head.m_u16RecordFileNo = static_cast<uint16_t>(file);
                head.m_u16RecordUseNo = static_cast<uint16_t>(slot);
            }
            write(index, SectionHeadAt(file, slot), head);
        } else if (kind % 8 == 5) {
            auto head = in.Get<KeyFrameInfoHead_S>();
            if (plain) head.m_u32KeyFrameHeadFlag = RECORD_KEY_FRAME_FLAG;
            write(record, RECORD_KEY_FRAME_BASE + slot % 64 * sizeof head, head);
        } else if (kind % 8 == 6) {
            auto head = in.Get<AlarmEventHead_S>();
            if (plain) {
                head.m_u32AlarmEventFlag = ALARM_EVENT_FLAG;
                head.m_u32AlarmFileNo = file;
                head.m_u32AlarmEventSum %= 16;
            }
            write(events, file * sizeof head, head);
        } else {
            auto head = in.Get<AlarmFileInfoHead_S>();
            if (plain) {
                head.m_u32AlarmEventFlag = ALARM_RECORD_FLAG;
                head.m_u16AlarmFileNo = static_cast<uint16_t>(file);
                head.m_u16AlarmFileUseNo = static_cast<uint16_t>(slot % 16 + 1);
            }
            write(events, uint64_t{file + 8} * ALARM_EVENT_BLOCK + slot % 16 * sizeof head, head);
        }
    }
    MUST(index < 0 || ftruncate64(index, end) == 0);
}

}  // namespace fuzz
