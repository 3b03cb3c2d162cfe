#include <pthread.h>

#include "AVRecordAccess.h"
#include "Clock.h"
#include "libDebugOutput.h"
#include "libWatchDog.h"

namespace {
constexpr unsigned short kDebugPort = 409;
constexpr unsigned int kBeatMs = 2000;
}  // namespace

int WatchDogStart(void) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, WatchDogThread, nullptr) == 0) {
        pthread_detach(thread);
    }
    return 0;
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
