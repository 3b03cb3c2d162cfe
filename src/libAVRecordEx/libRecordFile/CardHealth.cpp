#include "CardHealth.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Clock.h"
#include "Mutex.h"
#include "RecorderStatus.h"
#include "libLog.h"

namespace card {
namespace {

constexpr long kNever = -1;
constexpr long kRepeatSeconds = 60;
constexpr long kWritesFailSeconds = 10;
constexpr long kGoneSeconds = 3;  // nothing at all has worked for so long, or the card itself has refused
constexpr int kOperations = 5;
constexpr int kKinds = 3;  // kOther is not kept

constexpr const char* kOperationNames[kOperations] = {"opening", "closing", "reading", "writing", "handing over"};
constexpr const char* kKindNames[kKinds] = {"the index", "record files", "the event file"};

struct Trouble {  // of one operation on one kind of file; times are s since boot
    long began = kNever;
    long logged = kNever;       // the last line about it
    int error = 0;              // errno of the last line
    unsigned int failures = 0;  // since it began
    bool is_announced = false;  // and its end is to be told
};

struct RecordFileTrouble {  // what a record file refuses, as the card says (EIO)
    bool reading = false;
    bool writing = false;
    bool handing_over = false;
    bool IsAny() const { return reading || writing || handing_over; }
};

struct Health {
    Mutex mutex;
    Trouble troubles[kOperations][kKinds];
    long writes_fail_since = kNever;
    long syncs_fail_since = kNever;  // then a write that works only reached the system's cache
    long all_fails_since = kNever;
    RecordFileTrouble record_file;
    bool record_file_told = false;
    std::atomic<bool> has_trouble{false};  // anything above is not as it was at the start
    std::atomic<bool> is_failing{false};
};
constinit Health g_health;

Trouble& TroubleOf(Operation operation, Kind kind) {
    return g_health.troubles[static_cast<int>(operation)][static_cast<int>(kind)];
}

// The path of a descriptor, for a line of the log.
void NameOf(const Place& place, char* name, size_t room) {
    if (place.path != nullptr) {
        std::snprintf(name, room, "%s", place.path);
        return;
    }
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", place.fd);
    const ssize_t length = readlink(link, name, room - 1);
    if (length < 0) {
        std::snprintf(name, room, "descriptor %d", place.fd);
    } else {
        name[length] = '\0';
    }
}

void LogFailure(Operation operation, const Place& place, int error, const Trouble& trouble) {
    char name[128];
    NameOf(place, name, sizeof name);
    char where[64] = "";
    if (operation == Operation::kRead || operation == Operation::kWrite || operation == Operation::kSync) {
        std::snprintf(where, sizeof where, ", %lld bytes at %llu", static_cast<long long>(place.length),
                      static_cast<unsigned long long>(place.offset));
    }
    LOG_ERROR(" : %s %s%s failed: errno %d %s (failure %u in %ld s)\n", kOperationNames[static_cast<int>(operation)],
              name, where, error, std::strerror(error), trouble.failures, trouble.logged - trouble.began);
}

bool IsWriting(Operation operation) {
    return operation == Operation::kWrite || operation == Operation::kSync;
}

bool& RecordFileRefuses(Operation operation) {
    RecordFileTrouble& trouble = g_health.record_file;
    return operation == Operation::kSync    ? trouble.handing_over
           : operation == Operation::kWrite ? trouble.writing
                                            : trouble.reading;
}

// What one more failure says of the card as a whole.
void Judge(Operation operation, int error, long now) {
    Health& health = g_health;
    if (health.all_fails_since == kNever) {
        health.all_fails_since = now;
    }
    const bool is_away = error == ENODEV || error == ENXIO || error == EIO;
    bool is_failing = error == EROFS || (is_away && now - health.all_fails_since >= kGoneSeconds);
    if (IsWriting(operation)) {
        long& since = operation == Operation::kWrite ? health.writes_fail_since : health.syncs_fail_since;
        if (since == kNever) {
            since = now;
        }
        const bool is_told_by_card = operation == Operation::kSync && error == EIO;
        is_failing = is_failing || now - since >= (is_told_by_card ? kGoneSeconds : kWritesFailSeconds);
    }
    if (is_failing) {
        health.is_failing = true;
    }
}

// Counts it and says whether a line is due: the first, another errno (but no more than one a second), once a minute.
bool Count(Trouble& trouble, int error, long now) {
    if (trouble.failures++ == 0) {
        trouble.began = now;
    }
    const bool is_news = error != trouble.error && now != trouble.logged;
    if (trouble.logged != kNever && now - trouble.logged < kRepeatSeconds && !is_news) {
        return false;
    }
    trouble.logged = now;
    trouble.error = error;
    trouble.is_announced = true;
    return true;
}

}  // namespace

void TellFailure(Operation operation, Kind kind, const Place& place, int error) {
    if (kind == Kind::kOther) {
        return;
    }
    if (IsWriting(operation)) {
        RecorderStatusWriteFailed();
    }
    const long now = KQ_COMMON_GetUptime();
    Trouble line;
    {
        const std::lock_guard lock(g_health.mutex);
        g_health.has_trouble = true;
        Judge(operation, error, now);
        const bool is_transfer = IsWriting(operation) || operation == Operation::kRead;
        if (is_transfer && kind == Kind::kRecord && error == EIO) {
            RecordFileRefuses(operation) = true;
        }
        Trouble& trouble = TroubleOf(operation, kind);
        if (!Count(trouble, error, now)) {
            return;
        }
        line = trouble;
    }
    LogFailure(operation, place, error, line);
}

void TellSuccess(Operation operation, Kind kind) {
    if (kind == Kind::kOther || !g_health.has_trouble.load(std::memory_order_relaxed)) {
        return;
    }
    const long now = KQ_COMMON_GetUptime();
    Trouble ended;
    {
        const std::lock_guard lock(g_health.mutex);
        g_health.all_fails_since = kNever;
        if (IsWriting(operation) && kind == Kind::kRecord) {
            RecordFileRefuses(operation) = false;
            g_health.record_file.reading = false;
        }
        long& since = operation == Operation::kSync ? g_health.syncs_fail_since : g_health.writes_fail_since;
        if (operation == Operation::kWrite || (operation == Operation::kSync && since != kNever)) {
            since = kNever;
            const bool all_work = g_health.writes_fail_since == kNever && g_health.syncs_fail_since == kNever;
            g_health.is_failing = g_health.is_failing && !all_work;
        }
        Trouble& trouble = TroubleOf(operation, kind);
        ended = trouble;
        trouble.failures = 0;
        trouble.is_announced = false;
    }
    if (ended.is_announced) {
        LOG_WARN(" : %s %s works again, after %u failures in %ld s\n", kOperationNames[static_cast<int>(operation)],
                 kKindNames[static_cast<int>(kind)], ended.failures, now - ended.began);
    }
}

bool IsFailing() {
    return g_health.is_failing;
}

bool RecordFileFails() {
    const std::lock_guard lock(g_health.mutex);
    const bool is_news = g_health.record_file.IsAny() && !g_health.record_file_told;
    g_health.record_file_told = g_health.record_file_told || is_news;
    return is_news;
}

void RecordFileTook() {
    if (g_health.has_trouble.load(std::memory_order_relaxed)) {
        const std::lock_guard lock(g_health.mutex);
        g_health.record_file_told = false;
    }
}

void Pardon() {
    const std::lock_guard lock(g_health.mutex);
    g_health.record_file.writing = g_health.record_file.handing_over = false;
    g_health.writes_fail_since = kNever;
    g_health.syncs_fail_since = kNever;
    g_health.all_fails_since = kNever;
    g_health.is_failing = false;
}

void ForgetFailures() {
    Pardon();
    const std::lock_guard lock(g_health.mutex);
    g_health.record_file_told = false;
    for (auto& kinds : g_health.troubles) {
        for (Trouble& trouble : kinds) {
            trouble = {};
        }
    }
    g_health.has_trouble = false;
}

}  // namespace card
