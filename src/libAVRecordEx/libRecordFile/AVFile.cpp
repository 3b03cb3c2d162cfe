// Plain descriptors: open, close, seek, whole transfers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "Positioned.h"
#include "libLog.h"
#include "libRecordFile.h"

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

}  // namespace

int AVFileOpen(const char* path, int mode) {
    if (path == nullptr) {
        return -1;
    }
    const int flags = OpenFlags(mode);
    errno = EINVAL;
    // Close-on-exec from the start: a child that another thread forks meanwhile must not keep the card busy.
    const int fd = flags < 0 ? -1 : open64(path, flags | O_CLOEXEC, 0666);
    if (fd < 0) {
        LOG_TRACE("%s %d :open %s fail %d\n", path, errno);
        return -1;
    }
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0) {
        LogTrace("Failed to set close on exec\n");
    }
    return fd;
}

int AVFileClose(int fd) {
    return fd < 0 ? -1 : close(fd);
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
    return write(fd, buffer, static_cast<size_t>(length)) == length ? length : -1;
}

int AVFileRead(int fd, void* buffer, int length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    return read(fd, buffer, static_cast<size_t>(length)) == length ? length : -1;
}

namespace record_file {

int WriteAt(int fd, uint64_t offset, const void* buffer, int64_t length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    return pwrite64(fd, buffer, static_cast<size_t>(length), static_cast<off64_t>(offset)) == length ? 0 : -1;
}

int ReadAt(int fd, uint64_t offset, void* buffer, int64_t length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        return -1;
    }
    return pread64(fd, buffer, static_cast<size_t>(length), static_cast<off64_t>(offset)) == length ? 0 : -1;
}

}  // namespace record_file
