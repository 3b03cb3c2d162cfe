#include <sys/mman.h>
#include <sys/shm.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "ShareMem.h"
#include "libOthers.h"

namespace {

struct Attachment {
    int id = -1;
    void* address = nullptr;
    void* reserved = nullptr;  // pages around a segment that is shorter than the record
};

constexpr size_t kReserved = 2 * SYS_SEGMENT_SIZE;  // room to align the segment as shmat wants it

std::atomic<SysInfo*> pSysConfig{nullptr};
Attachment attachment;  // start and stop only

void* OrNull(void* address) {
    return reinterpret_cast<intptr_t>(address) == -1 ? nullptr : address;
}

// Puts a segment that is shorter than the record over reserved zero pages, so that no member of the
// record lies outside of what may be read.
Attachment AttachShort(int id) {
    void* reserved = mmap(nullptr, kReserved, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (OrNull(reserved) == nullptr) {
        return {};
    }
    const auto boundary = static_cast<uintptr_t>(SHMLBA);
    const uintptr_t aligned = (reinterpret_cast<uintptr_t>(reserved) + boundary - 1) / boundary * boundary;
    void* address = OrNull(shmat(id, reinterpret_cast<void*>(aligned), SHM_REMAP));
    if (address == nullptr) {
        munmap(reserved, kReserved);
        return {};
    }
    return {id, address, reserved};
}

Attachment Attach(int id) {
    if (SegmentSize(id) < sizeof(SysInfo)) {
        return AttachShort(id);
    }
    return {id, OrNull(shmat(id, nullptr, 0)), nullptr};
}

void Detach() {
    pSysConfig.store(nullptr);
    if (attachment.reserved != nullptr) {
        munmap(attachment.reserved, kReserved);  // takes the segment in the middle along
    } else if (attachment.address != nullptr) {
        shmdt(attachment.address);
    }
    attachment = {};
}

}  // namespace

int SysConfigInit(void) {
    const int id = OpenSegment(SYS_CONFIG_KEY);
    std::fprintf(stderr, "shared memory id:%d\n", id);
    if (id < 0) {
        return -1;
    }
    if (attachment.address == nullptr || attachment.id != id) {
        Detach();
        attachment = Attach(id);
        pSysConfig.store(static_cast<SysInfo*>(attachment.address));
    }
    std::fprintf(stderr, "pSysConfig:%p\n", attachment.address);
    return attachment.address == nullptr ? -1 : 0;
}

SysInfo* GetSysconfigData(void) {
    return pSysConfig.load();
}

int SysconfigExit(void) {
    Detach();
    return 0;
}
