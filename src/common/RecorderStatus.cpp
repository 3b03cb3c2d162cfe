#include "RecorderStatus.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Clock.h"
#include "Descriptor.h"
#include "libLog.h"

namespace {

constexpr char kNewStateFile[] = RECORDER_STATE_FILE ".new";

struct Figures {
    std::atomic<const char*> activity{RecorderStatus{}.activity};
    std::atomic<uint32_t> file{0};
    std::atomic<uint32_t> section{0};
    std::atomic<uint32_t> last_frame{0};
    std::atomic<uint32_t> failed_writes{0};
    std::atomic<uint32_t> longest_write_ms{0};
    std::atomic<uint32_t> dropped_frames{0};
    std::atomic<uint32_t> torn_frames{0};
    std::atomic<uint32_t> resynchronisations{0};
};
constinit Figures g_figures;

struct Published {  // the main thread's
    RecorderStatus status;
    bool is_written = false;  // the file says what `status` says
    bool has_failed = false;  // and that was logged
    long tried = -1;          // s since boot
};
constinit Published g_published;

// The figures stand for themselves; nothing else is ordered by them.
template <class Value>
void Set(std::atomic<Value>& figure, Value value) {
    figure.store(value, std::memory_order_relaxed);
}
void CountOne(std::atomic<uint32_t>& figure) {
    figure.fetch_add(1, std::memory_order_relaxed);
}

int Format(const RecorderStatus& status, char* text, size_t room) {
    char file[16] = "none";
    char section[16] = "none";
    if (status.section != 0) {
        std::snprintf(file, sizeof file, "%u", status.file);
        std::snprintf(section, sizeof section, "%u", status.section);
    }
    return std::snprintf(text, room,
                         "activity %.100s\nprocess %d\nfile %s\nsection %s\nlast_frame %u\nfailed_writes %u\n"
                         "longest_write_ms %u\ndropped_frames %u\ntorn_frames %u\nresynchronisations %u\n",
                         status.activity, static_cast<int>(getpid()), file, section, status.last_frame,
                         status.failed_writes, status.longest_write_ms, status.dropped_frames, status.torn_frames,
                         status.resynchronisations);
}

// Anybody may write in "/tmp", so no name there is trusted: the new file is ours or is not made at all, and renaming
// replaces whatever has the name, a link itself instead of what it points to.  Returns 0, or -1 with errno.
int WriteFile(const char* text, size_t length) {
    unlink(kNewStateFile);  // a predecessor was killed here; should it stay for another reason, opening tells
    Descriptor file(open(kNewStateFile, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (file.Get() < 0) {
        return -1;
    }
    errno = ENOSPC;  // what a short write means
    const bool is_whole = write(file.Get(), text, length) == static_cast<ssize_t>(length);
    if (is_whole && rename(kNewStateFile, RECORDER_STATE_FILE) == 0) {
        return 0;
    }
    const int error = errno;
    unlink(kNewStateFile);
    errno = error;
    return -1;
}

}  // namespace

void RecorderStatusActivity(const char* activity) {
    Set(g_figures.activity, activity);
}
void RecorderStatusPlace(uint32_t file, uint32_t section) {
    Set(g_figures.file, file);
    Set(g_figures.section, section);
}
void RecorderStatusFrame(uint32_t time) {
    Set(g_figures.last_frame, time);
}
void RecorderStatusWriteTook(uint32_t milliseconds) {
    uint32_t longest = g_figures.longest_write_ms.load(std::memory_order_relaxed);
    while (milliseconds > longest &&
           !g_figures.longest_write_ms.compare_exchange_weak(longest, milliseconds, std::memory_order_relaxed)) {
    }
}
void RecorderStatusWriteFailed() {
    CountOne(g_figures.failed_writes);
}
void RecorderStatusFrameDropped() {
    CountOne(g_figures.dropped_frames);
}
void RecorderStatusFrameTorn() {
    CountOne(g_figures.torn_frames);
}
void RecorderStatusResynchronised() {
    CountOne(g_figures.resynchronisations);
}

RecorderStatus RecorderStatusGet() {
    constexpr auto relaxed = std::memory_order_relaxed;
    return {g_figures.activity.load(relaxed),          g_figures.file.load(relaxed),
            g_figures.section.load(relaxed),           g_figures.last_frame.load(relaxed),
            g_figures.failed_writes.load(relaxed),     g_figures.longest_write_ms.load(relaxed),
            g_figures.dropped_frames.load(relaxed),    g_figures.torn_frames.load(relaxed),
            g_figures.resynchronisations.load(relaxed)};
}

void RecorderStatusPublish() {
    Published& last = g_published;
    const RecorderStatus status = RecorderStatusGet();
    if (last.is_written && status == last.status) {
        return;
    }
    const long now = KQ_COMMON_GetUptime();
    if (now == last.tried) {
        return;
    }
    last.tried = now;
    char text[512];
    const int length = Format(status, text, sizeof text);
    last.is_written = WriteFile(text, static_cast<size_t>(length)) == 0;
    last.status = status;
    if (!last.is_written && !last.has_failed) {
        LOG_ERROR(" : %s cannot be written: %s\n", RECORDER_STATE_FILE, std::strerror(errno));
    }
    last.has_failed = !last.is_written;
}

void RecorderStatusEnd() {
    RecorderStatusActivity("stopped");
    g_published.tried = -1;
    RecorderStatusPublish();
}
