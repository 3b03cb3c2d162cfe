// What every fuzzer is made of: its input, read from the front, the check of what must hold, and files in memory.
#pragma once

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include "Clock.h"
#include "support/MemoryFile.h"

namespace fuzz {

using Bytes = std::span<const uint8_t>;

constexpr uint32_t kTime = 1772352000;  // 2026-03-01 08:00:00 UTC

// What must hold, in every build.
#define MUST(condition) ((condition) ? void() : fuzz::Broken(#condition, __FILE__, __LINE__))

[[noreturn]] inline void Broken(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

// Values in the order in which they lie in the input; zeros once it is used up.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : left_(data, size) {}

    bool Empty() const { return left_.empty(); }
    Bytes Take(size_t count) {
        const Bytes taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }
    Bytes Rest() { return Take(left_.size()); }
    template <typename Value>
    Value Get() {
        Value value{};
        const Bytes bytes = Take(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    uint8_t Byte() { return Get<uint8_t>(); }
    uint16_t Half() { return Get<uint16_t>(); }
    uint32_t Word() { return Get<uint32_t>(); }

  private:
    Bytes left_;
};

// Makes `sleep` what happens while the process sleeps; the rest of the clock stands still.
inline void SleepCalls(void (*sleep)(unsigned)) {
    static ClockSource clock;
    clock = {[] { return timeval{kTime, 0}; }, [] { return 1000L; }, sleep};
    ReplaceClock(&clock);
}

// What each fuzzer is: feeds one input to what it is for.
void Feed(Input& in);

// An unnamed file, or one where the recorder looks for it: the camera's folders lie in memory, too.
class MemoryFile : public support::MemoryFile {
  public:
    MemoryFile() = default;
    explicit MemoryFile(const char* path, uint64_t size = 0)
        : support::MemoryFile(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
        Resize(size);
    }

    // It holds these bytes and `room` zeros after them.  Its pages stay: new ones cost more than all else.
    void Replace(Bytes bytes, uint64_t room = 0) {
        Write(0, bytes);
        Resize(bytes.size());
        Resize(bytes.size() + room);
    }
    // All of it becomes a hole of `size` bytes.
    void Clear(uint64_t size = 0) {
        Resize(0);
        Resize(size);
    }
    void Write(uint64_t offset, const void* bytes, size_t count) {
        Put(offset, {static_cast<const char*>(bytes), count});
    }
    void Write(uint64_t offset, Bytes bytes) { Write(offset, bytes.data(), bytes.size()); }
    size_t Read(uint64_t offset, void* bytes, size_t count) const {
        const ssize_t got = pread64(fd(), bytes, count, static_cast<off64_t>(offset));
        MUST(got >= 0);
        return static_cast<size_t>(got);
    }
};

}  // namespace fuzz
