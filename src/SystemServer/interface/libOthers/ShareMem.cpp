#include "ShareMem.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "libIpcUtils.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

std::atomic<int> g_shm_id{-1};  // the segment that ShareMemInit keeps

bool LiesInside(int id, int offset, int length) {
    return offset >= 0 && length >= 0 &&
           static_cast<uint64_t>(offset) + static_cast<uint64_t>(length) <= SegmentSize(id);
}

}  // namespace

int OpenSegment(int key) {
    PrintToStandardError("shared memory size %d\n", SYS_SEGMENT_SIZE);
    return GetSegment(key);
}

int GetSegment(int key) {
    const int id = shmget(key, SYS_SEGMENT_SIZE, IPC_CREAT | 0660);
    return id >= 0 ? id : shmget(key, 0, 0);
}

size_t SegmentSize(int id) {
    struct shmid_ds status {};
    return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_segsz : 0;
}

int ShareMemInit(int key) {
    const int id = pShareMemInit(key);
    g_shm_id.store(id);
    return id;
}

int pShareMemInit(int key) {
    const int id = OpenSegment(key);
    return id < 0 ? -1 : id;
}

bool KeptSegmentIsOf(int key) {
    const int id = shmget(key, 0, 0);
    return id >= 0 && id == g_shm_id.load();
}

int ShareMemRead(int offset, void* buf, int len) {
    const int id = g_shm_id.load();
    if (buf == nullptr || !LiesInside(id, offset, len)) {
        return -1;
    }
    IpcShareMemRead(id, offset, buf, len);
    return 0;
}

int ShareMemWrite(int offset, void* buf, int len) {
    const int id = g_shm_id.load();
    if (buf == nullptr || !LiesInside(id, offset, len)) {
        return -1;
    }
    IpcShareMemWrite(id, offset, buf, len);
    return 0;
}
