// A lock for std::lock_guard.  std::mutex does the same and may throw: the recorder would have to hold 90 KiB of the
// C++ library for that.
#pragma once

#include <pthread.h>

#include <mutex>

class Mutex {
  public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Neither fails on a mutex of this kind.
    void lock() { pthread_mutex_lock(&mutex_); }
    void unlock() { pthread_mutex_unlock(&mutex_); }
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};
