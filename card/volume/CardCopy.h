// Copies of cards that keep their holes: what reads as zero takes no space in the copy.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "volume/Device.h"
#include "volume/Fat32.h"

namespace card {

using CopyProgress = std::function<void(uint64_t bytes)>;  // copied or skipped since the last call

// Creates `path` (it must not exist) with these stretches of `from`, one after the other, `size` bytes long in
// all; what no stretch holds is a hole.  On disk when it returns.  Throws CardError.
void CopySparse(const Device& from, const std::vector<Extent>& extents, const std::string& path, uint64_t size,
                const CopyProgress& progress = {});

}  // namespace card
