#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Attachment.h"
#include "libIpcUtils.h"

#if defined(__SANITIZE_THREAD__)
// Another thread's segment may have lain at the same address before.  The kernel orders its detachment before this
// attachment; the thread sanitizer does not see that by itself.
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#else
#define __tsan_acquire(address) static_cast<void>(address)
#define __tsan_release(address) static_cast<void>(address)
#endif

Attachment AttachSegment(int id, int flags) {
    void* const address = shmat(id, nullptr, flags);
    if (reinterpret_cast<intptr_t>(address) == -1) {
        return {};
    }
    __tsan_acquire(address);
    struct shmid_ds status {};
    const bool has_size = shmctl(id, IPC_STAT, &status) == 0;
    return {static_cast<std::byte*>(address), has_size ? status.shm_segsz : 0};
}

void DetachSegment(Attachment& segment) {
    if (segment.address != nullptr) {
        __tsan_release(segment.address);
        shmdt(segment.address);
    }
    segment = {};
}

namespace {

// A segment attached for one copy.
class Attached {
  public:
    Attached(int mid, int flags) : segment_(AttachSegment(mid, flags)) {}
    ~Attached() { DetachSegment(segment_); }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

    // Where `length` bytes from `offset` on lie, or null when they do not all lie inside.
    std::byte* Stretch(int offset, int length) const {
        const bool inside = segment_.address != nullptr && offset >= 0 && length >= 0 &&
                            static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) <= segment_.size;
        return inside ? segment_.address + offset : nullptr;
    }

  private:
    Attachment segment_;
};

}  // namespace

int IpcShareMemInit(int key, int size) {
    int mid = size < 0 ? -1 : shmget(key, static_cast<size_t>(size), IPC_CREAT | 0777);
    if (mid < 0) {
        mid = shmget(key, 0, 0);
    }
    return mid < 0 ? -1 : mid;
}

int IpcShareMemUnInit(int key) {
    // An id of 0 is left alone: peers take it for "no segment".
    if (const int mid = shmget(key, 0, 0); mid > 0) {
        shmctl(mid, IPC_RMID, nullptr);
    }
    return 0;
}

int IpcShareMemDestroy(int mid) {
    shmctl(mid, IPC_RMID, nullptr);
    return 0;
}

void IpcShareMemRead(int mid, int offset, void* buf, int length) {
    const Attached segment(mid, SHM_RDONLY);
    if (const std::byte* from = segment.Stretch(offset, length); from != nullptr && buf != nullptr) {
        std::memcpy(buf, from, static_cast<size_t>(length));
    }
}

void IpcShareMemWrite(int mid, int offset, void* buf, int length) {
    const Attached segment(mid, 0);
    if (std::byte* to = segment.Stretch(offset, length); to != nullptr && buf != nullptr) {
        std::memcpy(to, buf, static_cast<size_t>(length));
    }
}
