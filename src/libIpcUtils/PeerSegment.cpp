#include "PeerSegment.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include "libIpcUtils.h"

bool PeerSegment::Open() {
    wanted_ = true;
    id_ = IpcShareMemInit(key_, size_);
    return Attached();
}

void PeerSegment::Forget() {
    Detach();
    wanted_ = false;
    id_ = -1;
}

const void* PeerSegment::Look(size_t length) {
    struct shmid_ds status {};
    const bool stays =
        attachment_.address != nullptr && shmctl(id_, IPC_STAT, &status) == 0 && (status.shm_perm.mode & SHM_DEST) == 0;
    if (!stays) {
        Detach();
        if (const int id = Id(); id >= 0) {
            attachment_ = AttachSegment(id, SHM_RDONLY);
        }
    }
    return length <= attachment_.size ? attachment_.address : nullptr;
}

int PeerSegment::Id() {
    if (!wanted_) {
        return -1;
    }
    struct shmid_ds status {};
    if (const int current = shmget(key_, 0, 0); current >= 0) {
        id_ = current;
    } else if (!Attached() || shmctl(id_, IPC_STAT, &status) < 0) {
        id_ = IpcShareMemInit(key_, size_);
    }
    return id_;
}
