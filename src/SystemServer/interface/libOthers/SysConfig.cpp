// The configuration record lies at one address for the life of the process.  A segment is laid over zero pages that
// are reserved there, and one that the system server makes anew is laid over the same place: the kernel exchanges a
// mapping in one step, so whoever reads meets the old record or the new one.

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Clock.h"
#include "Mutex.h"
#include "ShareMem.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr size_t kRoom = 1 << 20;  // for segments; seven times the usual one

struct Place {
    void* reserved = nullptr;  // zero pages; the record begins at the first address in them that shmat takes
    size_t reserved_size = 0;
    uint8_t* address = nullptr;
    size_t room = 0;      // from address on
    int id = -1;          // of the segment that lies there
    size_t occupied = 0;  // bytes of it, whole pages
};

std::atomic<SysInfo*> g_config{nullptr};
std::atomic<bool> g_is_wanted{false};  // between start and stop
std::atomic<long> g_last_look{0};      // s since boot
Mutex g_place_lock;                    // guards the following
Place g_place;
int g_filled_segment = -1;  // the one that the last look found in place of ours, with something in it

bool Failed(const void* address) {
    return reinterpret_cast<intptr_t>(address) == -1;
}

void* ZeroPages(void* at, size_t size, int flags) {
    return mmap(at, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | flags, -1, 0);
}

bool Reserve(size_t room) {
    const auto boundary = static_cast<uintptr_t>(SHMLBA);
    void* const reserved = ZeroPages(nullptr, room + boundary, 0);
    if (Failed(reserved)) {
        return false;
    }
    const uintptr_t past = reinterpret_cast<uintptr_t>(reserved) % boundary;
    g_place = {reserved, room + boundary, static_cast<uint8_t*>(reserved) + (boundary - past) % boundary, room};
    return true;
}

void Release() {
    g_config.store(nullptr);
    if (g_place.reserved != nullptr) {
        munmap(g_place.reserved, g_place.reserved_size);  // takes the segment along
    }
    g_place = {};
    g_filled_segment = -1;
}

// Puts the segment at the record's place, in one step; past the end of a short one the record reads as zeros.
bool Lay(int id) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t size = (SegmentSize(id) + page - 1) / page * page;
    if (g_place.address == nullptr && !Reserve(std::max(size, kRoom))) {
        return false;
    }
    if (size > g_place.room || Failed(shmat(id, g_place.address, SHM_REMAP))) {
        return false;
    }
    if (size < g_place.occupied) {
        ZeroPages(g_place.address + size, g_place.occupied - size, MAP_FIXED);
    }
    g_place.id = id;
    g_place.occupied = size;
    g_config.store(reinterpret_cast<SysInfo*>(g_place.address));
    return true;
}

bool IsFilled(int id) {
    const void* const address = shmat(id, nullptr, SHM_RDONLY);
    if (Failed(address)) {
        return false;
    }
    const auto* const bytes = static_cast<const uint8_t*>(address);
    const bool filled = std::any_of(bytes, bytes + SegmentSize(id), [](uint8_t byte) { return byte != 0; });
    shmdt(address);
    return filled;
}

// A segment that stands in for ours is taken at the second look that finds something in it: until the server has
// written its settings they are zeros, which would end the recording.
bool MayBeTaken(int id) {
    if (g_place.id < 0) {
        return true;
    }
    const bool again = id == g_filled_segment;
    g_filled_segment = IsFilled(id) ? id : -1;
    return again && g_filled_segment == id;
}

bool Take(int id) {
    PrintToStandardError("shared memory id:%d\n", id);
    if (id < 0) {
        return false;
    }
    const bool taken = id == g_place.id || Lay(id);
    PrintToStandardError("pSysConfig:%p\n", static_cast<void*>(g_config.load()));
    return taken;
}

// Once a second, for the one thread that comes first.
void LookForSegment() {
    const long now = KQ_COMMON_GetUptime();
    long last = g_last_look.load();
    if (now == last || !g_last_look.compare_exchange_strong(last, now)) {
        return;
    }
    if (!g_place_lock.try_lock()) {
        return;
    }
    const std::lock_guard alone(g_place_lock, std::adopt_lock);
    if (!g_is_wanted) {
        return;
    }
    // While the server is gone its last settings go on to hold; only a first segment is created.
    const int id = g_place.id >= 0 ? shmget(SYS_CONFIG_KEY, 0, 0) : GetSegment(SYS_CONFIG_KEY);
    if (id >= 0 && id != g_place.id && MayBeTaken(id)) {
        Take(id);
    }
}

}  // namespace

int SysConfigInit(void) {
    const std::lock_guard alone(g_place_lock);
    g_is_wanted = true;
    g_last_look = KQ_COMMON_GetUptime();
    return Take(OpenSegment(SYS_CONFIG_KEY)) ? 0 : -1;
}

SysInfo* GetSysconfigData(void) {
    if (g_is_wanted.load()) {
        LookForSegment();
    }
    return g_config.load();
}

int SysconfigExit(void) {
    const std::lock_guard alone(g_place_lock);
    g_is_wanted = false;
    Release();
    return 0;
}
