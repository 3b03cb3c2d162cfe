// A record file's two areas: stream data from its start, key-frame records near its end.
#include <unistd.h>

#include <cerrno>

#include "Positioned.h"
#include "libLog.h"
#include "libRecordFile.h"

using record_file::ReadAt;
using record_file::WriteAt;

namespace {

constexpr uint64_t kSlotSize = 524288;         // a slot of the key-frame data operations
constexpr int64_t kSlotWriteEnd = 0x20000000;  // a write may end here, not beyond

}  // namespace

int AV_RecordStreamFileOpen(const char* path, int mode) {
    return AVFileOpen(path, mode);
}

int AV_RecordStreamFileClose(int fd) {
    const int result = AVFileClose(fd);
    LOG_TRACE("%s %d : AVFileClose ret= %d fd = %d \n", result, fd);
    return result;
}

int AV_RecordStreamInfoWrite(int fd, uint32_t offset, const void* buffer, int length) {
    return WriteAt(fd, offset, buffer, length) == 0 ? length : -1;
}

int AV_RecordStreamInfoRead(int fd, uint32_t offset, void* buffer, int length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    const bool reachable = offset <= INT32_MAX;
    if (reachable && ReadAt(fd, offset, buffer, length) == 0) {
        return static_cast<int>(offset);
    }
    if (!reachable || lseek64(fd, 0, SEEK_CUR) < 0) {
        LOG_TRACE("%s %d AVFileSeek fail fd = %d  dataOffset = %d offset = %d errno = %d \n", fd,
                  static_cast<int>(offset), -1, reachable ? errno : EOVERFLOW);
    } else {
        LOG_TRACE("%s %d Read data error  Offset = %d offset = %d \n", static_cast<int>(offset),
                  static_cast<int>(offset));
    }
    return -1;
}

int AV_RecordKeyFrameWrite(int fd, uint32_t offset, const void* buffer, int length) {
    return WriteAt(fd, uint64_t{RECORD_KEY_FRAME_BASE} + offset, buffer, length) == 0 ? length : -1;
}

int AV_RecordKeyFrameRead(int fd, uint32_t offset, void* buffer, int length) {
    return ReadAt(fd, uint64_t{RECORD_KEY_FRAME_BASE} + offset, buffer, length) == 0 ? length : -1;
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
    return WriteAt(fd, static_cast<uint64_t>(index) * kSlotSize + offset, buffer, length) == 0 ? length : -1;
}

int AV_RecordKeyFrameDataRead(int fd, int index, uint32_t offset, void* buffer, int length) {
    if (index < 0) {
        return -1;
    }
    return ReadAt(fd, static_cast<uint64_t>(index) * kSlotSize + offset, buffer, length) == 0 ? length : -1;
}
