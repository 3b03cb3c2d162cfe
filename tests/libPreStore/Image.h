// A card image as a test meets it, and what programs that know nothing of the formatter say about it.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <vector>

#include "support/MemoryFile.h"

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

class Image : public support::MemoryFile {
  public:
    explicit Image(uint64_t bytes) { Resize(bytes); }

    uint64_t BytesOnDisk() const {
        struct stat64 status {};
        EXPECT_EQ(fstat64(fd(), &status), 0);
        return static_cast<uint64_t>(status.st_blocks) * 512;
    }
    // The content of a file on it, read by The Sleuth Kit.
    std::string File(const std::string& name) const {
        const std::string number = "$(fls -F " + Path() + " | sed -n 's,^r/r \\([0-9]*\\):\t" + name + "$,\\1,p')";
        return Ask("icat " + Path() + " " + number).text;
    }
};

}  // namespace test
