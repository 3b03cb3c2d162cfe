// The card's format in numbers: the places of heads and records, their limits, the stream's constants.
//
// libRecordFile.h holds the records and the base addresses, docs/card-format.md draws both.  The recorder, the
// card tool and the desk camera take them from here; only tests keep a copy of their own.
#pragma once

#include <cstdint>

#include "libRecordFile.h"

namespace record_file {

// ---- places; n: record file from 0, u: section from 1, k: key-frame record from 0, event from 1

// In "index000.bin"; the system head lies at 0.
constexpr uint64_t FileHeadOffset(uint32_t n) {
    return RECORD_FILE_HEAD_BASE + uint64_t{sizeof(RecordFileInfoHead_S)} * n;
}
constexpr uint64_t SectionHeadOffset(uint32_t n, uint32_t u) {
    return RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * n + uint64_t{sizeof(RecordInfoHead_S)} * u;
}

// In a record file.
constexpr uint64_t KeyFrameRecordOffset(uint32_t k) {
    return RECORD_KEY_FRAME_BASE + uint64_t{sizeof(KeyFrameInfoHead_S)} * k;
}

// In "event000.bin".
constexpr uint64_t EventHeadOffset(uint32_t n) {
    return uint64_t{sizeof(AlarmEventHead_S)} * n;
}
constexpr uint64_t EventOffset(uint32_t n, uint32_t k) {
    return (uint64_t{n} + 8) * ALARM_EVENT_BLOCK + uint64_t{sizeof(AlarmFileInfoHead_S)} * (k - 1);
}

// ---- limits

inline constexpr uint64_t kFixedFileSize = 64u << 20;  // bytes of index and event file as formatted
inline constexpr uint32_t kKeyFramesMax = (RECORD_FILE_SIZE - RECORD_KEY_FRAME_BASE) / sizeof(KeyFrameInfoHead_S);
inline constexpr uint32_t kPackedFrameMax = 614400;  // bytes of a packed frame, headers included
// A section head may be ahead of its file head by what was recorded between two hand-overs to the card: the system
// writes the two back when it likes.
inline constexpr uint32_t kAheadMax = 16u << 20;  // bytes
inline constexpr uint32_t kAheadFramesMax = 1024;
inline constexpr uint32_t kAheadSecondsMax = 60;
inline constexpr uint32_t kAheadKeyFramesMax = 64;

// Heads end before the blocks that follow them begin; a block holds all records of its file.
static_assert(FileHeadOffset(RECORD_FILE_MAX) <= RECORD_SECTION_BASE);
static_assert(SectionHeadOffset(0, RECORD_SECTION_MAX + 1) <= SectionHeadOffset(1, 0));
static_assert(EventHeadOffset(ALARM_EVENT_FILE_MAX) == EventOffset(0, 1));
static_assert(EventOffset(0, ALARM_EVENT_MAX + 1) <= EventOffset(1, 1));

// ---- the stream

inline constexpr uint32_t kClockPerFrame = 3600;  // ticks of 90 kHz from one frame to the next, whatever the real rate
inline constexpr uint32_t kClockBits = 33;        // of the stream's clock, which then begins again

// In front of the first frame of every run.
inline constexpr uint32_t kStreamHeadSize = 40;
inline constexpr uint8_t kStreamHead[kStreamHeadSize] = {'I',  'M',  'K',  'H',  0x01, 0x02, 0x00, 0x00,
                                                         0x02, 0x00, 0x00, 0x01, 0x01, 0x20, 0x01, 0x10,
                                                         0x80, 0xBB, 0x00, 0x00, 0x00, 0xFA, 0x00, 0x00};

// Stream types of the program stream map (ISO/IEC 13818-1, table 2-34, and its private range).
enum StreamType : uint8_t {
    kStreamNone = 0x00,
    kStreamAac = 0x0F,
    kStreamH264 = 0x1B,
    kStreamH265 = 0x24,
    kStreamG711A = 0x90,
    kStreamG711U = 0x91,
};

}  // namespace record_file
