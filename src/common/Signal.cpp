#include "Signal.h"

#include <cerrno>
#include <ctime>

namespace {

timespec After(int milliseconds) {
    constexpr long kSecond_ns = 1'000'000'000;
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * 1'000'000L;
    if (time.tv_nsec >= kSecond_ns) {
        time.tv_nsec -= kSecond_ns;
        ++time.tv_sec;
    }
    return time;
}

}  // namespace

void Signal::Clear() {
    if (!is_made_) {
        pthread_condattr_t steady;
        pthread_condattr_init(&steady);
        pthread_condattr_setclock(&steady, CLOCK_MONOTONIC);
        pthread_cond_init(&set_, &steady);
        pthread_condattr_destroy(&steady);
        is_made_ = true;
    }
    is_set_ = false;
}

void Signal::Set() {
    pthread_mutex_lock(&mutex_);
    is_set_ = true;
    pthread_cond_broadcast(&set_);
    pthread_mutex_unlock(&mutex_);
}

bool Signal::WaitFor(int milliseconds) {
    return Wait(milliseconds, false);
}
bool Signal::TakeWithin(int milliseconds) {
    return Wait(milliseconds, true);
}

bool Signal::Wait(int milliseconds, bool takes) {
    const timespec end = After(milliseconds);
    pthread_mutex_lock(&mutex_);
    while (!is_set_ && pthread_cond_timedwait(&set_, &mutex_, &end) != ETIMEDOUT) {
    }
    const bool is_set = is_set_;
    is_set_ = is_set && !takes;
    pthread_mutex_unlock(&mutex_);
    return is_set;
}
