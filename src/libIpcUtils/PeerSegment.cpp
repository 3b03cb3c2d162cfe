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
    wanted_ = false;
    id_ = -1;
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
