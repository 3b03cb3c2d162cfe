// A System V shared segment, attached while the object lives and removed with it.
#pragma once

#include <sys/shm.h>

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "libIpcUtils.h"

namespace desk {

class SharedSegment {
  public:
    SharedSegment(int key, int size, const std::string& what) : id_(IpcShareMemInit(key, size)) {
        shmid_ds status{};
        if (id_ < 0 || shmctl(id_, IPC_STAT, &status) != 0 || status.shm_segsz < static_cast<size_t>(size)) {
            throw std::runtime_error(what +
                                     ": cannot have its shared segment (is a smaller one left over? see ipcs -m)");
        }
        address_ = static_cast<uint8_t*>(shmat(id_, nullptr, 0));
        if (reinterpret_cast<intptr_t>(address_) == -1)
            throw std::runtime_error(what + ": cannot attach its shared segment");
        size_ = status.shm_segsz;
    }
    ~SharedSegment() {
        shmdt(address_);
        IpcShareMemDestroy(id_);
    }
    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;

    int Id() const { return id_; }
    std::span<uint8_t> Data() const { return {address_, size_}; }

  private:
    int id_;
    uint8_t* address_ = nullptr;
    size_t size_ = 0;
};

}  // namespace desk
