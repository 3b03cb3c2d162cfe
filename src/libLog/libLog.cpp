#include "libLog.h"

#include <linux/magic.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr int kMessageMax = 4095;  // characters of a message; the rest is cut

std::atomic<bool> g_is_on{false};

// What standard error leads to.  Looked up when it changes and not with every line: a line costs little but its calls.
enum class Output { kNobody, kMemory, kFile, kSocket, kMayBlock };
std::atomic<Output> g_output{Output::kSocket};  // as which a line finds out for itself

bool IsNullDevice(const struct stat64& status) {
    constexpr unsigned kMajor = 1;
    constexpr unsigned kMinor = 3;
    return S_ISCHR(status.st_mode) && major(status.st_rdev) == kMajor && minor(status.st_rdev) == kMinor;
}

bool IsInMemory(int fd) {
    struct statfs64 volume {};
    if (fstatfs64(fd, &volume) != 0) {
        return false;
    }
    const auto type = static_cast<uint32_t>(volume.f_type);
    return type == TMPFS_MAGIC || type == RAMFS_MAGIC;
}

Output LookAtOutput() {
    struct stat64 status {};
    if (fstat64(STDERR_FILENO, &status) != 0) {
        return Output::kSocket;
    }
    return IsNullDevice(status)       ? Output::kNobody
           : S_ISREG(status.st_mode)  ? (IsInMemory(STDERR_FILENO) ? Output::kMemory : Output::kFile)
           : S_ISSOCK(status.st_mode) ? Output::kSocket
                                      : Output::kMayBlock;
}

// Pipes and terminals are not made non-blocking: others that have them open would find them so too.
bool HasRoom() {
    pollfd reader{STDERR_FILENO, POLLOUT, 0};
    return poll(&reader, 1, 0) == 1 && (reader.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

// One write, so that lines of several threads do not mix.  It neither waits nor raises SIGPIPE: a reader that hangs
// or has gone must not stop the recorder.  The line is lost then.
void Write(Output output, const char* line, size_t length) {
    if (output == Output::kSocket) {
        if (send(STDERR_FILENO, line, length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno != ENOTSOCK) {
            return;
        }
        output = LookAtOutput();  // the console's client has just left
    }
    if (output == Output::kMemory || output == Output::kFile || HasRoom()) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, length);
    }
}

void Print(std::string_view tag, const char* format, va_list arguments) {
    const int saved_errno = errno;  // a message between a failure and its report must not hide the cause
    if (const Output output = g_output.load(std::memory_order_relaxed); output != Output::kNobody) {
        char line[16 + kMessageMax + 1];
        const size_t head = tag.size();
        std::memcpy(line, tag.data(), head);
        const int wanted = vsnprintf(line + head, kMessageMax + 1, format, arguments);
        const int length = wanted < 0 ? 0 : wanted < kMessageMax ? wanted : kMessageMax;
        Write(output, line, head + static_cast<size_t>(length));
    }
    errno = saved_errno;
}

bool IsOn() {
    return g_is_on.load(std::memory_order_relaxed);
}

}  // namespace

void LogOutputChanged() {
    g_output = LookAtOutput();
}

int LogMayWait() {
    const Output output = g_output.load(std::memory_order_relaxed);
    return output == Output::kFile || output == Output::kMayBlock ? 1 : 0;
}

int LogInit(char*, LogMode) {
    LogOutputChanged();
    g_is_on = true;
    return 0;
}

int LogCleanup(void) {
    g_is_on = false;
    return 0;
}

// One entry point a level; they differ in the tag alone.
#define LOG_LEVEL(function, tag)            \
    int function(const char* format, ...) { \
        if (IsOn()) {                       \
            va_list arguments;              \
            va_start(arguments, format);    \
            Print(tag, format, arguments);  \
            va_end(arguments);              \
        }                                   \
        return 0;                           \
    }

LOG_LEVEL(LogTrace, "[Trace]: ")
LOG_LEVEL(LogDebug, "[Debug]: ")
LOG_LEVEL(LogError, "[Error]: ")
LOG_LEVEL(LogWarn, "[Warn]: ")
LOG_LEVEL(LogInfo, "[Info]: ")

void PrintToStandardError(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print("", format, arguments);
    va_end(arguments);
}
