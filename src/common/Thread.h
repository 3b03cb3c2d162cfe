// The threads of the recorder, with stacks of the size they need: the C library's 8 MiB each are much of the address
// space that a small camera has.
#pragma once

#include <pthread.h>

#include <cstddef>

// What the deepest of them uses, with a log line of 4 KiB and a handler's frames on top, is a third of it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr size_t kThreadStack = 1024 * 1024;
#else
inline constexpr size_t kThreadStack = 128 * 1024;
#endif

enum class ThreadEnd { kJoined, kDetached };

// Starts `run(argument)`.  Returns 0 or the error.
inline int StartThread(pthread_t& thread, ThreadEnd end, void* (*run)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kThreadStack);
    pthread_attr_setdetachstate(&attributes,
                                end == ThreadEnd::kDetached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
    const int error = pthread_create(&thread, &attributes, run, argument);
    pthread_attr_destroy(&attributes);
    return error;
}
