// A record file's two areas: stream data from its start, key-frame records near its end.
#include <unistd.h>

#include <cerrno>

#include "CardFile.h"
#include "libLog.h"
#include "libRecordFile.h"

using card::Kind;
using card::Result;

namespace {

constexpr uint64_t kSlotSize = 524288;         // a slot of the key-frame data operations
constexpr int64_t kSlotWriteEnd = 0x20000000;  // a write may end here, not beyond

int LengthOf(Result result, int length) {
    return result == Result::kDone ? length : -1;
}

}  // namespace

int AV_RecordStreamInfoWrite(int fd, uint32_t offset, const void* buffer, int length) {
    return LengthOf(card::WriteAt(Kind::kRecord, fd, offset, buffer, length), length);
}

int AV_RecordStreamInfoRead(int fd, uint32_t offset, void* buffer, int length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    const bool reachable = offset <= INT32_MAX;
    if (reachable && card::ReadAt(Kind::kRecord, fd, offset, buffer, length) == Result::kDone) {
        return static_cast<int>(offset);
    }
    if (!reachable || lseek64(fd, 0, SEEK_CUR) < 0) {
        LOG_TRACE(" AVFileSeek fail fd = %d  dataOffset = %d offset = %d errno = %d \n", fd, static_cast<int>(offset),
                  -1, reachable ? errno : EOVERFLOW);
    } else {
        LOG_TRACE(" Read data error  Offset = %d offset = %d \n", static_cast<int>(offset), static_cast<int>(offset));
    }
    return -1;
}

int AV_RecordKeyFrameWrite(int fd, uint32_t offset, const void* buffer, int length) {
    return LengthOf(card::WriteAt(Kind::kRecord, fd, uint64_t{RECORD_KEY_FRAME_BASE} + offset, buffer, length), length);
}

int AV_RecordKeyFrameRead(int fd, uint32_t offset, void* buffer, int length) {
    return LengthOf(card::ReadAt(Kind::kRecord, fd, uint64_t{RECORD_KEY_FRAME_BASE} + offset, buffer, length), length);
}

int AV_RecordKeyFrameInfoUpdate(KeyFrameInfoHead_S* record, uint32_t time, uint32_t length, uint32_t position,
                                uint8_t type) {
    if (record == nullptr) {
        return -1;
    }
    *record = {RECORD_KEY_FRAME_FLAG, time, length, position, type, {}};
    return 0;
}

int AV_RecordKeyFrameDataWrite(int fd, int index, uint32_t offset, const void* buffer, int length) {
    if (index < 0 || int64_t{offset} + length > kSlotWriteEnd) {
        return -1;
    }
    return LengthOf(card::WriteAt(Kind::kRecord, fd, static_cast<uint64_t>(index) * kSlotSize + offset, buffer, length),
                    length);
}

int AV_RecordKeyFrameDataRead(int fd, int index, uint32_t offset, void* buffer, int length) {
    if (index < 0) {
        return -1;
    }
    return LengthOf(card::ReadAt(Kind::kRecord, fd, static_cast<uint64_t>(index) * kSlotSize + offset, buffer, length),
                    length);
}
