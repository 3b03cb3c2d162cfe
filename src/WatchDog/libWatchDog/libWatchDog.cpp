#include "libWatchDog.h"

#include <cstdio>

#include "Clock.h"
#include "Mutex.h"
#include "PeerSegment.h"
#include "libIpcUtils.h"
#include "libLog.h"

namespace {

Mutex g_lock;  // guards everything below
PeerSegment g_segment{WATCH_DOG_KEY, WATCH_DOG_SIZE};
WatchDogData g_table{};

// Publishes one slot and nothing else: its neighbours are other daemons' heartbeats.
int Beat(const char* operation, int source, const int* status) {
    if (source < 0 || source >= WATCH_DOG_SOURCE_DEF_NUMS) {
        LOG_TRACE_AS(operation, ": source  %d is wrong!\n", source);
        return -1;
    }
    const std::lock_guard guard(g_lock);
    const int id = g_segment.Id();
    if (id < 0) {
        LOG_TRACE_AS(operation, ": gShmId %d has something wrong!\n", id);
        return -1;
    }
    WatchDogInfo& slot = g_table.WatchDog[source];
    slot.time = static_cast<int32_t>(WallSeconds());
    if (status != nullptr) {
        slot.status = *status;
    }
    IpcShareMemWrite(id, source * static_cast<int>(sizeof slot), &slot, sizeof slot);
    return 0;
}

}  // namespace

int libWatchDogInit(void) {
    const std::lock_guard guard(g_lock);
    if (g_segment.Attached()) {
        LOG_TRACE(": %s has already init!\n", __func__);
        return 0;
    }
    g_table = WatchDogData{};
    return g_segment.Open() ? 0 : -1;
}

int libWatchDogCleanup(void) {
    const std::lock_guard guard(g_lock);
    g_segment.Forget();
    g_table = WatchDogData{};
    return 0;
}

int WatchDogDataWrite(int source) {
    return Beat(__func__, source, nullptr);
}

int WatchDogStatusWrite(int source, int status) {
    return Beat(__func__, source, &status);
}

int WatchDogDataRead(WatchDogData* Data) {
    if (Data == nullptr) {
        return -1;
    }
    {
        const std::lock_guard guard(g_lock);
        const int id = g_segment.Id();
        if (id < 0) {
            return -1;
        }
        *Data = WatchDogData{};  // what a segment too small for the table reads as
        IpcShareMemRead(id, 0, Data, sizeof *Data);
    }
    std::printf("\n WatchDog time = ");
    for (const WatchDogInfo& slot : Data->WatchDog) {
        std::printf("%lu ", static_cast<unsigned long>(static_cast<uint32_t>(slot.time)));
    }
    std::printf("\n");
    std::fflush(stdout);
    return 0;
}
