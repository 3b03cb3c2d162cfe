// An unnamed file in memory, sparse like the card's own: bytes at offsets, independent of the code under test.
#pragma once

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Descriptor.h"

namespace support {

class MemoryFile {
  public:
    MemoryFile() : MemoryFile(memfd_create("test", MFD_CLOEXEC)) {}

    int fd() const { return fd_.Get(); }
    // Other programs can open it, too.
    std::string Path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd()); }

    void Put(uint64_t offset, std::string_view bytes) {
        Require(pwrite64(fd(), bytes.data(), bytes.size(), static_cast<off64_t>(offset)) ==
                static_cast<ssize_t>(bytes.size()));
    }
    void Resize(uint64_t size) { Require(ftruncate64(fd(), static_cast<off64_t>(size)) == 0); }
    uint64_t Size() const {
        struct stat64 status {};
        Require(fstat64(fd(), &status) == 0);
        return static_cast<uint64_t>(status.st_size);
    }
    std::string Get(uint64_t offset, size_t length) const {
        std::string bytes(length, '\0');
        const ssize_t got = pread64(fd(), bytes.data(), length, static_cast<off64_t>(offset));
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }

  protected:
    explicit MemoryFile(int fd) : fd_(fd) { Require(fd >= 0); }
    // No test goes on without its file.
    static void Require(bool done) {
        if (done) return;
        std::perror("a file in memory");
        std::abort();
    }

  private:
    const Descriptor fd_;
};

}  // namespace support
