#include <pthread.h>

#include <atomic>

#include "AVRecordAccess.h"
#include "Clock.h"
#include "Thread.h"
#include "libDebugOutput.h"
#include "libWatchDog.h"

namespace {
constexpr unsigned short kDebugPort = 409;
constexpr unsigned int kBeatMs = 2000;
std::atomic<bool> g_is_running{false};
}  // namespace

int WatchDogStart(void) {
    if (g_is_running.exchange(true)) {
        return 0;
    }
    pthread_t thread;
    const int error = StartThread(thread, ThreadEnd::kDetached, WatchDogThread, nullptr);
    g_is_running = error == 0;
    return 0;
}

int WatchDogIsRunning(void) {
    return g_is_running ? 1 : 0;
}

void* WatchDogThread(void*) {
    SetThreaTskName("WatchDogThread");
    libWatchDogInit();
    while (true) {
        libDebugOutputStart(kDebugPort);
        WatchDogDataWrite(WATCH_DOG_SOURCE_AVRECORD);
        SleepMs(kBeatMs);
    }
}
