// A file of the store as a test meets it: bytes at offsets, independent of the code under test.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "Descriptor.h"

namespace test {

// "49 4D 4b" -> the bytes.
inline std::string Hex(std::string text) {
    std::erase(text, ' ');
    std::string bytes;
    for (size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

template <class Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

// An unnamed file in memory, sparse like the card's own.
class StoreFile {
  public:
    int fd() const { return fd_.Get(); }
    std::string Path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd()); }

    void Put(uint64_t offset, std::string_view bytes) {
        ASSERT_EQ(pwrite64(fd(), bytes.data(), bytes.size(), static_cast<off64_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
    }
    void Resize(uint64_t size) { ASSERT_EQ(ftruncate64(fd(), static_cast<off64_t>(size)), 0); }
    uint64_t Size() const {
        struct stat64 status {};
        EXPECT_EQ(fstat64(fd(), &status), 0);
        return static_cast<uint64_t>(status.st_size);
    }
    std::string Get(uint64_t offset, size_t length) const {
        std::string bytes(length, '\0');
        const ssize_t got = pread64(fd(), bytes.data(), length, static_cast<off64_t>(offset));
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }

  private:
    const Descriptor fd_{memfd_create("store", MFD_CLOEXEC)};
};

}  // namespace test
