#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

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

namespace {

// A segment attached for one copy.
class Attached {
  public:
    Attached(int mid, int flags) : address_(shmat(mid, nullptr, flags)) {
        __tsan_acquire(address_);
        struct shmid_ds status {};
        if (Valid() && shmctl(mid, IPC_STAT, &status) == 0) {
            size_ = status.shm_segsz;
        }
    }
    ~Attached() {
        if (Valid()) {
            __tsan_release(address_);
            shmdt(address_);
        }
    }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

    // Where `length` bytes from `offset` on lie, or null when they do not all lie inside.
    std::byte* Stretch(int offset, int length) const {
        const bool inside = Valid() && offset >= 0 && length >= 0 &&
                            static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) <= size_;
        return inside ? static_cast<std::byte*>(address_) + offset : nullptr;
    }

  private:
    bool Valid() const { return reinterpret_cast<intptr_t>(address_) != -1; }

    void* address_;
    size_t size_ = 0;
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
