// Where a volume is written to: the one narrow place through which every byte of a format leaves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace prestore {

class BlockDevice {
  public:
    virtual ~BlockDevice() = default;

    // Writes all of `bytes` at byte `offset`; both are whole sectors.  False: errno says why, and any
    // part may have been written.
    virtual bool Write(uint64_t offset, std::span<const std::byte> bytes) = 0;

    // Returns when everything written before lies on the medium; false: errno says why.
    virtual bool Flush() = 0;
};

}  // namespace prestore
