// Index, event and record files for the fuzzers: heads that the input gives, each in its place.
#pragma once

#include "Fuzz.h"
#include "RecordFormat.h"

namespace fuzz {

inline constexpr uint32_t kStoreFiles = 6;  // of these, heads are laid out
inline constexpr uint64_t kStoreHeads = RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * kStoreFiles;

// Lays an index, an event file and the key-frame records of record file 0 from the input; the latter two may be null.
// A record is what its place holds: it gets its flag and number, unless the input wants it otherwise.
inline void LayIndex(Input& in, MemoryFile& index, MemoryFile* events = nullptr, MemoryFile* record = nullptr) {
    constexpr int kRecordsMax = 96;
    constexpr uint64_t kIndexSize = RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * 32;
    static constexpr KeyFrameInfoHead_S kNone[64] = {};
    const bool cut = in.Byte() % 8 == 0;  // a file that ends early, inside of the heads
    const uint64_t end = cut ? in.Word() % kStoreHeads : kIndexSize;
    index.Clear();
    if (events != nullptr) events->Clear(ALARM_EVENT_BLOCK * (8 + kStoreFiles));
    if (record != nullptr) record->Write(RECORD_KEY_FRAME_BASE, kNone, sizeof kNone);
    auto system = in.Get<RecordSystemInfoHead_S>();
    if (in.Byte() % 16 != 0) {
        system.m_u32SystemInfoHeadFlag = RECORD_SYSTEM_FLAG;
        system.m_u32SDCardFormat = 1;
        system.m_u32RecordFileSum %= 8;
    }
    index.Write(0, &system, sizeof system);
    for (int left = in.Byte() % kRecordsMax; left > 0 && !in.Empty(); --left) {
        const uint8_t kind = in.Byte();
        const bool plain = kind < 224;
        const uint32_t file = in.Byte() % kStoreFiles;
        const uint32_t slot = in.Byte();
        const auto lay = [&](MemoryFile* to, uint64_t at, auto head, auto make_right) {
            head = in.Get<decltype(head)>();
            if (plain) make_right(head);
            if (to != nullptr) to->Write(at, &head, sizeof head);
        };
        if (kind % 8 < 2) {
            lay(&index, record_file::FileHeadOffset(file), RecordFileInfoHead_S{}, [&](auto& head) {
                head.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
                head.m_u32FileInfoHeadNo = file;
            });
        } else if (kind % 8 < 5) {
            lay(&index, record_file::SectionHeadOffset(file, slot), RecordInfoHead_S{}, [&](auto& head) {
                head.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
                head.m_u16RecordFileNo = static_cast<uint16_t>(file);
                head.m_u16RecordUseNo = static_cast<uint16_t>(slot);
            });
        } else if (kind % 8 == 5) {
            lay(record, record_file::KeyFrameRecordOffset(slot % 64), kNone[0],
                [](auto& head) { head.m_u32KeyFrameHeadFlag = RECORD_KEY_FRAME_FLAG; });
        } else if (kind % 8 == 6) {
            lay(events, record_file::EventHeadOffset(file), AlarmEventHead_S{}, [&](auto& head) {
                head.m_u32AlarmEventFlag = ALARM_EVENT_FLAG;
                head.m_u32AlarmFileNo = file;
                head.m_u32AlarmEventSum %= 16;
            });
        } else {
            lay(events, record_file::EventOffset(file, slot % 16 + 1), AlarmFileInfoHead_S{}, [&](auto& head) {
                head.m_u32AlarmEventFlag = ALARM_RECORD_FLAG;
                head.m_u16AlarmFileNo = static_cast<uint16_t>(file);
                head.m_u16AlarmFileUseNo = static_cast<uint16_t>(slot % 16 + 1);
            });
        }
    }
    index.Resize(end);
}

}  // namespace fuzz
