#include "Ring.h"

#include <sys/shm.h>

#include <atomic>
#include <cstring>

bool Ring::Attach(int segment_id) {
    struct shmid_ds status {};
    if (shmctl(segment_id, IPC_STAT, &status) < 0) {
        return false;
    }
    void* const address = shmat(segment_id, nullptr, 0);
    if (reinterpret_cast<intptr_t>(address) == -1) {
        return false;
    }
    Detach();
    id_ = segment_id;
    base_ = static_cast<uint8_t*>(address);
    size_ = static_cast<int64_t>(status.shm_segsz);
    return true;
}

void Ring::Detach() {
    if (base_ != nullptr) {
        shmdt(base_);
    }
    base_ = nullptr;
    size_ = 0;
}

bool Ring::Removed() const {
    struct shmid_ds status {};
    return Attached() && (shmctl(id_, IPC_STAT, &status) < 0 || (status.shm_perm.mode & SHM_DEST) != 0);
}

uint8_t* Ring::Bytes(int64_t position, int64_t length) const {
    const bool inside = position >= 0 && length >= 0 && position <= size_ && length <= size_ - position;
    return inside ? base_ + position : nullptr;
}

std::optional<AVDataInfo> Ring::Header(int64_t position) const {
    const uint8_t* const bytes = Bytes(position, sizeof(AVDataInfo));
    if (bytes == nullptr) {
        return std::nullopt;
    }
    AVDataInfo first, header;
    std::memcpy(&first, bytes, sizeof first);
    // What the media server wrote before it set EndFlag is visible only after this point.
    std::atomic_thread_fence(std::memory_order_acquire);
    std::memcpy(&header, bytes, sizeof header);
    if (std::memcmp(&first, &header, sizeof header) != 0) {
        header.EndFlag = 0;  // being written, or being written over
    }
    return header;
}

std::optional<AVDataInfo> Ring::Frame(int64_t position) const {
    std::optional<AVDataInfo> header = Header(position);
    const bool complete = header && header->AVDataCheck == AVDATA_CHECK_WORD && header->EndFlag == AVDATA_END_FRAME &&
                          Bytes(position + static_cast<int64_t>(sizeof *header), header->AVDataLen) != nullptr;
    return complete ? header : std::nullopt;
}

const uint8_t* Ring::NalStart(int64_t position) const {
    return Bytes(position + static_cast<int64_t>(sizeof(AVDataInfo)), 5);
}
