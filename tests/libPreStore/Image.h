// A card image as a test meets it, and what programs that know nothing of the formatter say about it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace test {

inline constexpr uint64_t kMiB = 1ull << 20;
inline constexpr uint64_t kGiB = 1ull << 30;

struct Answer {
    int status = -1;   // exit status
    std::string text;  // standard output and error

    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }
};

inline Answer Ask(const std::string& command) {
    Answer answer;
    FILE* pipe = popen(("ulimit -t 30; " + command + " 2>&1").c_str(), "re");
    char piece[65536];
    while (const size_t got = pipe != nullptr ? fread(piece, 1, sizeof piece, pipe) : 0) {
        answer.text.append(piece, got);
    }
    const int status = pipe != nullptr ? pclose(pipe) : -1;
    answer.status = status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return answer;
}

// A sparse image file; gone with the object.
class Image {
  public:
    explicit Image(uint64_t bytes) : fd_(open64(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
        EXPECT_EQ(ftruncate64(fd_, static_cast<off64_t>(bytes)), 0) << path_;
    }
    ~Image() {
        close(fd_);
        unlink(path_.c_str());
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    const std::string& Path() const { return path_; }
    int fd() const { return fd_; }

    std::string Get(uint64_t offset, size_t length) const {
        std::string bytes(length, '\0');
        const ssize_t got = pread64(fd_, bytes.data(), length, static_cast<off64_t>(offset));
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }
    void Fill(uint64_t offset, uint64_t mebibytes, char with) const {
        const std::string piece(kMiB, with);
        for (uint64_t at = offset; at < offset + mebibytes * kMiB; at += kMiB) {
            ASSERT_EQ(pwrite64(fd_, piece.data(), kMiB, static_cast<off64_t>(at)), static_cast<ssize_t>(kMiB));
        }
    }
    uint64_t BytesOnDisk() const {
        struct stat64 status {};
        EXPECT_EQ(fstat64(fd_, &status), 0);
        return static_cast<uint64_t>(status.st_blocks) * 512;
    }
    // The content of a file on it, read by The Sleuth Kit.
    std::string File(const std::string& name) const {
        return Ask("icat " + path_ + " $(fls -F " + path_ + " | sed -n 's,^r/r \\([0-9]*\\):\t" + name + "$,\\1,p')")
            .text;
    }

  private:
    const std::string path_ = "/tmp/card.img";
    const int fd_;
};

}  // namespace test
