#include "ShareMem.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "libOthers.h"

namespace {

std::atomic<int> shm_id{-1};  // the segment that ShareMemInit keeps

// The kept segment, attached for one copy.
class Attached {
  public:
    explicit Attached(int flags) : id_(shm_id.load()), address_(shmat(id_, nullptr, flags)) {}
    ~Attached() {
        if (Valid()) {
            shmdt(address_);
        }
    }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

    // Where `length` bytes from `offset` on lie, or null when they do not all lie inside.
    std::byte* Stretch(int offset, int length) const {
        if (!Valid() || offset < 0 || length < 0 ||
            static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) > SegmentSize(id_)) {
            return nullptr;
        }
        return static_cast<std::byte*>(address_) + offset;
    }

  private:
    bool Valid() const { return reinterpret_cast<intptr_t>(address_) != -1; }

    int id_;
    void* address_;
};

}  // namespace

int OpenSegment(int key) {
    std::fprintf(stderr, "shared memory size %d\n", SYS_SEGMENT_SIZE);
    const int id = shmget(key, SYS_SEGMENT_SIZE, IPC_CREAT | 0660);
    return id >= 0 ? id : shmget(key, 0, 0);
}

size_t SegmentSize(int id) {
    struct shmid_ds status {};
    return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_segsz : 0;
}

int ShareMemInit(int key) {
    const int id = pShareMemInit(key);
    shm_id.store(id);
    return id;
}

int pShareMemInit(int key) {
    const int id = OpenSegment(key);
    return id < 0 ? -1 : id;
}

int ShareMemRead(int offset, void* buf, int len) {
    const Attached segment(SHM_RDONLY);
    const std::byte* from = segment.Stretch(offset, len);
    if (from == nullptr || buf == nullptr) {
        return -1;
    }
    std::memcpy(buf, from, static_cast<size_t>(len));
    return 0;
}

int ShareMemWrite(int offset, void* buf, int len) {
    const Attached segment(0);
    std::byte* to = segment.Stretch(offset, len);
    if (to == nullptr || buf == nullptr) {
        return -1;
    }
    std::memcpy(to, buf, static_cast<size_t>(len));
    return 0;
}
