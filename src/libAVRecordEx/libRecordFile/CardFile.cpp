#include "CardFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "CardHealth.h"
#include "Clock.h"
#include "RecorderStatus.h"

namespace card {
namespace {

int RealOpen(const char* path, int flags, mode_t mode) {
    return open64(path, flags, mode);
}

// A file's own range where the system knows that: its size and place never change, so nothing else need reach the card.
int RealSyncRange(int fd, off64_t offset, off64_t length) {
#ifdef SYNC_FILE_RANGE_WRITE
    constexpr unsigned kWriteAndWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    if (sync_file_range(fd, offset, length, kWriteAndWait) == 0) {
        return 0;
    }
    if (errno != ENOSYS) {
        return -1;
    }
#endif
    return fdatasync(fd);
}

constexpr Calls kRealCalls{RealOpen, close, pread64, pwrite64, read, write, fstat64, RealSyncRange};
constinit std::atomic<const Calls*> g_calls{&kRealCalls};

// Repeats `call` while a signal interrupts it before anything was done.
template <class Call>
auto Uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

int Fail(Operation operation, Kind kind, const Place& place, int error) {
    TellFailure(operation, kind, place, error);
    errno = error;
    return -1;
}

template <Kind kind>
int Closer(int fd) {
    return CloseAs(kind, fd);
}

constexpr Descriptor::Closer kClosers[] = {Closer<Kind::kIndex>, Closer<Kind::kRecord>, Closer<Kind::kEvents>,
                                           Closer<Kind::kOther>};

// 0 for a regular file, else the errno that refuses it.
int WhyNotRegular(int fd) {
    struct stat64 status {};
    if (CardCalls().Status(fd, &status) != 0) {
        return errno;
    }
    return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

// Whether a read that came short is the file's end and not a failure in disguise.  -1 with errno: not known.
int EndsBefore(int fd, uint64_t end) {
    struct stat64 status {};
    if (CardCalls().Status(fd, &status) != 0) {
        return -1;
    }
    return static_cast<uint64_t>(status.st_size) < end ? 1 : 0;
}

}  // namespace

const Calls& CardCalls() {
    return *g_calls.load(std::memory_order_relaxed);
}

void ReplaceCardCalls(const Calls* calls) {
    g_calls = calls != nullptr ? calls : &kRealCalls;
    ForgetFailures();
}

int OpenAs(Kind kind, const char* path, int flags) {
    const Place place{path, -1, 0, 0};
    const bool is_ours = kind != Kind::kOther;
    // Close-on-exec from the start: a child that another thread forks meanwhile must not keep the card busy.
    // Not blocking: what stands in the place of a file must not hold the recorder; a regular file knows no difference.
    const int all_flags = flags | O_CLOEXEC | (is_ours ? O_NONBLOCK : 0);
    const int fd = Uninterrupted([&] { return CardCalls().Open(path, all_flags, 0666); });
    if (fd < 0) {
        return Fail(Operation::kOpen, kind, place, errno);
    }
    if (const int error = is_ours ? WhyNotRegular(fd) : 0; error != 0) {
        CardCalls().Close(fd);  // nothing was written through it
        return Fail(Operation::kOpen, kind, place, error);
    }
    TellSuccess(Operation::kOpen, kind);
    return fd;
}

Descriptor OpenExisting(Kind kind, const char* path, int mode) {
    return Descriptor(OpenAs(kind, path, mode == AVFILE_READ_WRITE ? O_RDWR : O_RDONLY),
                      kClosers[static_cast<int>(kind)]);
}

Descriptor OpenIndex(int mode) {
    return OpenExisting(Kind::kIndex, kIndexPath, mode);
}
Descriptor OpenEvents(int mode) {
    return OpenExisting(Kind::kEvents, kEventsPath, mode);
}
Descriptor OpenRecordFile(uint32_t file_no, int mode) {
    char path[64];
    std::snprintf(path, sizeof path, RECORD_STORE_DIRECTORY RECORD_FILE_NAME, static_cast<int>(file_no));
    return OpenExisting(Kind::kRecord, path, mode);
}

int CloseAs(Kind kind, int fd) {
    if (fd < 0) {
        return -1;
    }
    // Not repeated when interrupted: the descriptor is gone then, and its number may be another thread's already.
    if (CardCalls().Close(fd) != 0 && errno != EINTR) {
        return Fail(Operation::kClose, kind, {nullptr, fd, 0, 0}, errno);
    }
    TellSuccess(Operation::kClose, kind);
    return 0;
}

Result ReadAt(Kind kind, int fd, uint64_t offset, void* buffer, int64_t length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        errno = EINVAL;
        return Result::kFailed;
    }
    const ssize_t got = Uninterrupted(
        [&] { return CardCalls().ReadAt(fd, buffer, static_cast<size_t>(length), static_cast<off64_t>(offset)); });
    if (got == length) {
        TellSuccess(Operation::kRead, kind);
        return Result::kDone;
    }
    int error = errno;
    if (got >= 0) {
        const int ends = EndsBefore(fd, offset + static_cast<uint64_t>(length));
        if (ends == 1) {
            TellSuccess(Operation::kRead, kind);
            return Result::kEndOfFile;
        }
        error = ends < 0 ? errno : EIO;
    }
    Fail(Operation::kRead, kind, {nullptr, fd, offset, length}, error);
    return Result::kFailed;
}

Result WriteAt(Kind kind, int fd, uint64_t offset, const void* buffer, int64_t length) {
    if (fd < 0 || buffer == nullptr || length < 0) {
        errno = EINVAL;
        return Result::kFailed;
    }
    const int64_t begin = SteadyMs();
    const ssize_t put = Uninterrupted(
        [&] { return CardCalls().WriteAt(fd, buffer, static_cast<size_t>(length), static_cast<off64_t>(offset)); });
    const int error = put < 0 ? errno : ENOSPC;  // a write that stops half-way has met the end of some space
    if (kind != Kind::kOther) {
        RecorderStatusWriteTook(static_cast<uint32_t>(SteadyMs() - begin));
    }
    if (put == length) {
        TellSuccess(Operation::kWrite, kind);
        return Result::kDone;
    }
    Fail(Operation::kWrite, kind, {nullptr, fd, offset, length}, error);
    return Result::kFailed;
}

Result SyncRange(Kind kind, int fd, uint64_t offset, uint64_t length) {
    const int done = Uninterrupted(
        [&] { return CardCalls().SyncRange(fd, static_cast<off64_t>(offset), static_cast<off64_t>(length)); });
    if (done == 0) {
        TellSuccess(Operation::kSync, kind);
        return Result::kDone;
    }
    Fail(Operation::kSync, kind, {nullptr, fd, offset, static_cast<int64_t>(length)}, errno);
    return Result::kFailed;
}

}  // namespace card
