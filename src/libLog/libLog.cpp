#include "libLog.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace {

constexpr int kMessageMax = 4095;  // characters of a message; the rest is cut

std::atomic<int> bConsoleOut{0};

int Print(std::string_view tag, const char* format, va_list arguments) {
    if (bConsoleOut.load(std::memory_order_relaxed) == 0) {
        return 0;
    }
    const int saved_errno = errno;  // a message between a failure and its report must not hide the cause
    char line[16 + kMessageMax + 1];
    const size_t head = tag.copy(line, tag.size());
    const int wanted = vsnprintf(line + head, kMessageMax + 1, format, arguments);
    const int length = wanted < 0 ? 0 : wanted < kMessageMax ? wanted : kMessageMax;
    // One write, so that lines of several threads do not mix; a full or vanished reader loses the line.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, head + static_cast<size_t>(length));
    errno = saved_errno;
    return 0;
}

}  // namespace

int LogInit(char*, LogMode) {
    bConsoleOut.store(1);
    return 0;
}

int LogCleanup(void) {
    bConsoleOut.store(0);
    return 0;
}

// One entry point a level; they differ in the tag alone.
#define LOG_LEVEL(function, tag)                    \
    int function(const char* format, ...) {         \
        va_list arguments;                          \
        va_start(arguments, format);                \
        const int result = Print(tag, format, arguments); \
        va_end(arguments);                          \
        return result;                              \
    }

LOG_LEVEL(LogTrace, "[Trace]: ")
LOG_LEVEL(LogDebug, "[Debug]: ")
LOG_LEVEL(LogError, "[Error]: ")
LOG_LEVEL(LogWarn, "[Warn]: ")
LOG_LEVEL(LogInfo, "[Info]: ")
