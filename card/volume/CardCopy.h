// Copies of cards that keep their holes: what reads as zero takes no space in the copy.  What cannot be read is zero in
// it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "volume/Device.h"
#include "volume/Fat32.h"
#include "volume/Salvage.h"

namespace card {

using CopyProgress = std::function<void(uint64_t bytes)>;  // copied or skipped since the last call

// What is copied: these stretches of a device, one after the other.
struct CopySource {
    std::shared_ptr<const Device> device;
    std::vector<Extent> extents;
    std::string name;  // under which `salvage` notes places that cannot be read, as they lie in the copy
};

// Creates `path` (it must not exist), `size` bytes long; what no stretch holds is a hole.  What can be read at once is
// copied first, then the rest page by page.  On disk when it returns.  Throws CardError, CardGone.
void CopySparse(const CopySource& source, const std::string& path, uint64_t size, Salvage& salvage,
                const CopyProgress& progress = {});

// In the copy of a card's image, where `unread` could not be read of what says which files there are: sectors of the
// boot area are tried one by one, of a table the other one serves, and no unread page of the directory ends it.
void FillFromSpares(const Device& card, const std::string& copy, const std::vector<Extent>& unread);

}  // namespace card
