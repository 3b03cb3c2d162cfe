#define _FILE_OFFSET_BITS 64  // a 32-bit stat fails on inode numbers of 64 bits
#include "Clock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "Mutex.h"

namespace {

timeval RealWall() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

// As sysinfo has it, which counts a second that has begun.  It is asked many times a pass, and this asks no kernel.
long RealUptime() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<long>(now.tv_sec) + (now.tv_nsec > 0 ? 1 : 0);
}

void RealSleepMs(unsigned int milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

constexpr ClockSource kRealClock{RealWall, RealUptime, RealSleepMs, SystemSteadyUs};
std::atomic<const ClockSource*> g_clock{&kRealClock};

// What tells a changed file from the one before; zeros where there is none.
struct FileIdentity {
    constexpr FileIdentity() = default;
    explicit FileIdentity(const char* path) {
        struct stat status {};
        if (stat(path, &status) == 0) {
            device = status.st_dev;
            inode = status.st_ino;
            size = status.st_size;
            modified = status.st_mtim;
            changed = status.st_ctim;
        }
    }
    friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
        const auto same = [](const timespec& x, const timespec& y) {
            return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
        };
        return a.device == b.device && a.inode == b.inode && a.size == b.size && same(a.modified, b.modified) &&
               same(a.changed, b.changed);
    }

    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
};

// Local time by the zone as it is now.  The C library reads the zone's file once; here it is looked at once a second.
// The same few moments are asked for many times in that second, and a conversion divides more than anything else here.
class LocalZone {
  public:
    tm Time(time_t seconds) {
        const std::lock_guard alone(lock_);
        if (const long now = KQ_COMMON_GetUptime(); now != last_look_) {
            FollowZone(now);
        }
        for (size_t i = 0; i < kept_; ++i) {
            if (answers_[i].seconds == seconds) {
                return answers_[i].local;
            }
        }
        Answer& answer = answers_[kept_ < std::size(answers_) ? kept_++ : 0];
        answer.seconds = seconds;
        localtime_r(&seconds, &answer.local);
        return answer.local;
    }

  private:
    struct Answer {
        time_t seconds;
        tm local;
    };

    void FollowZone(long now) {
        const bool is_first = last_look_ < 0;
        last_look_ = now;
        kept_ = 0;
        const Files files = Look();
        if (is_first || (!(files.zone == files_.zone && files.rule == files_.rule) && ReadAgain())) {
            files_ = files;
        }
    }

    struct Files {
        FileIdentity zone;
        FileIdentity rule;
    };

    static Files Look() {
        return {FileIdentity(ZonePath()), FileIdentity("/etc/TZ")};  // the latter is where small C libraries keep it
    }

    // The file that TZ names, ":/path", or the system's.  A TZ that is a rule or a name does not change.
    static const char* ZonePath() {
        const char* const tz = getenv("TZ");
        if (tz == nullptr) {
            return "/etc/localtime";
        }
        return *tz == ':' ? tz + 1 : tz;
    }

    // The C library takes a file for the same by its name, inode and time of writing, and a copy that keeps the time
    // of writing has all three.  So it is given another zone for a moment, in which nobody asks: all do it through
    // here.
    static bool ReadAgain() {
        const char* const tz = getenv("TZ");
        char* const kept = tz != nullptr ? strdup(tz) : nullptr;
        if (tz != nullptr && kept == nullptr) {
            return false;
        }
        setenv("TZ", "UTC0", 1);
        tzset();
        if (kept != nullptr) {
            setenv("TZ", kept, 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
        free(kept);
        return true;
    }

    Mutex lock_;
    long last_look_ = -1;  // s since boot; -1: the zone was not asked for yet
    Files files_;
    Answer answers_[4]{};  // given since the last look
    size_t kept_ = 0;
};

constinit LocalZone g_zone;

}  // namespace

long KQ_COMMON_GetUptime(void) {
    return g_clock.load()->Uptime();
}

int64_t SystemSteadyUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

timeval WallTime() {
    return g_clock.load()->Wall();
}
time_t WallSeconds() {
    return WallTime().tv_sec;
}
int64_t SteadyUs() {
    return g_clock.load()->SteadyUs();
}
int64_t SteadyMs() {
    return SteadyUs() / 1000;
}
void SleepMs(unsigned int milliseconds) {
    g_clock.load()->SleepMs(milliseconds);
}

tm LocalTime(time_t seconds) {
    return g_zone.Time(seconds);
}

tm UtcTime(time_t seconds) {
    tm utc{};
    gmtime_r(&seconds, &utc);
    return utc;
}

void ReplaceClock(const ClockSource* source) {
    g_clock.store(source != nullptr ? source : &kRealClock);
}
