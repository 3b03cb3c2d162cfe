#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "libIpcUtils.h"

namespace {

// A segment attached for one copy.
class Attached {
  public:
    Attached(int mid, int flags) : address_(shmat(mid, nullptr, flags)) {
        struct shmid_ds status {};
        if (Valid() && shmctl(mid, IPC_STAT, &status) == 0) {
            size_ = status.shm_segsz;
        }
    }
    ~Attached() {
        if (Valid()) {
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
