// The C interface's files: open, close, seek, whole transfers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "CardFile.h"
#include "libLog.h"
#include "libRecordFile.h"

using card::CardCalls;
using card::Kind;

namespace {

// Flags of an open mode, or -1 for a mode that does not exist.
int OpenFlags(int mode) {
    switch (mode) {
        case 0:
        case AVFILE_READ:
            return O_RDONLY;
        case AVFILE_WRITE:
            return O_WRONLY | O_CREAT;
        case AVFILE_READ_WRITE:
            return O_RDWR | O_CREAT;
        default:
            return -1;
    }
}

int OpenKind(Kind kind, const char* path, int mode) {
    if (path == nullptr) {
        return -1;
    }
    const int flags = OpenFlags(mode);
    errno = EINVAL;
    const int fd = flags < 0 ? -1 : card::OpenAs(kind, path, flags);
    if (fd < 0) {
        LOG_TRACE_AS("AVFileOpen", " :open %s fail %d\n", path, errno);
        return -1;
    }
    return fd;
}

}  // namespace

int AVFileOpen(const char* path, int mode) {
    return OpenKind(Kind::kOther, path, mode);
}
int AVFileClose(int fd) {
    return card::CloseAs(Kind::kOther, fd);
}

int AV_RecordOpen(const char* path, int mode) {
    return OpenKind(Kind::kIndex, path, mode);
}
int AV_RecordClose(int fd) {
    return card::CloseAs(Kind::kIndex, fd);
}

int AV_RecordStreamFileOpen(const char* path, int mode) {
    return OpenKind(Kind::kRecord, path, mode);
}
int AV_RecordStreamFileClose(int fd) {
    const int result = card::CloseAs(Kind::kRecord, fd);
    LOG_TRACE(" : AVFileClose ret= %d fd = %d \n", result, fd);
    return result;
}

int AV_AlarmEvnetOpen(const char* path, int mode) {
    return OpenKind(Kind::kEvents, path, mode);
}
int AV_AlarmEvnetClose(int fd) {
    return card::CloseAs(Kind::kEvents, fd);
}

int AVFileSeek(int fd, int offset, int whence) {
    static_assert(SEEKMODE_BEGIN == SEEK_SET && SEEKMODE_CURRENT == SEEK_CUR && SEEKMODE_END == SEEK_END);
    if (fd < 0 || whence < SEEKMODE_BEGIN || whence > SEEKMODE_END) {
        return -1;
    }
    const off64_t before = lseek64(fd, 0, SEEK_CUR);
    const off64_t reached = lseek64(fd, offset, whence);
    if (reached > INT32_MAX) {
        lseek64(fd, before, SEEK_SET);
        errno = EOVERFLOW;
        return -1;
    }
    return static_cast<int>(reached);
}

int AVFileWrtie(int fd, const void* buffer, int length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    return CardCalls().Write(fd, buffer, static_cast<size_t>(length)) == length ? length : -1;
}

int AVFileRead(int fd, void* buffer, int length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    return CardCalls().Read(fd, buffer, static_cast<size_t>(length)) == length ? length : -1;
}
