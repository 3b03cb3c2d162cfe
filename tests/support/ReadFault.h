// Makes reads at one place of any file fail, beneath the code under test.  For one source file of a test program.
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace support {

class ReadFault {
  public:
    // `error` 0: only half of what was asked for comes.
    ReadFault(off64_t offset, int error) {
        error_ = error;
        offset_ = offset;
    }
    ~ReadFault() { offset_ = -1; }
    ReadFault(const ReadFault&) = delete;
    ReadFault& operator=(const ReadFault&) = delete;

    static inline std::atomic<off64_t> offset_{-1};
    static inline std::atomic<int> error_{0};
};

}  // namespace support

extern "C" ssize_t pread64(int fd, void* buffer, size_t length, off64_t offset) {
    using Read = ssize_t (*)(int, void*, size_t, off64_t);
    static const auto real = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "pread64"));
    if (offset != support::ReadFault::offset_) {
        return real(fd, buffer, length, offset);
    }
    if (support::ReadFault::error_ == 0) {
        return real(fd, buffer, length / 2, offset);
    }
    errno = support::ReadFault::error_;
    return -1;
}
