// Writes that can be taken back: what stood there before is kept in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "volume/Volume.h"

namespace card {

class WriteJournal {
  public:
    // Writes `length` bytes unless they stand there already; whether it had to.  Throws CardError, as the files do.
    bool Write(const StoreFile& file, uint64_t offset, const void* bytes, size_t length);
    // To be taken back when `device` is no longer open.
    bool Write(const Device& device, uint64_t offset, const void* bytes, size_t length);
    void TakeBack();  // the last write first

  private:
    std::vector<std::function<void()>> entries_;
};

}  // namespace card
