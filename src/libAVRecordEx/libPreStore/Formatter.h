// The pass itself: a planned volume onto a device, what makes it valid last.
//
//   1. zero sector 0, alone; flush                                     from here on there is no volume
//   2. FAT, FAT, root directory, heads of event and index file; flush  ascending, in large pieces
//   3. sectors 1 to 5: information sector, backup; flush
//   4. sector 0, alone; flush                                          from here on there is one
//
// A card takes a sector whole or not at all, and unflushed sectors in any order: hence the lone sector 0.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

#include "BlockDevice.h"
#include "VolumePlan.h"
#include "libPreStore.h"

namespace prestore {

inline constexpr uint32_t kBufferBytes = 1u << 20;  // one write; begins on a multiple of it where it can

struct WrittenBytes {
    uint64_t total = 0;     // what WriteVolume writes
    uint64_t smallest = 0;  // what no format of this store can do without
};

WrittenBytes CountBytes(const VolumePlan& plan);

// Writes the volume; `now` gives time stamps and volume id.  Returns what failed, or an empty text;
// `written` counts the bytes in either case.
std::string WriteVolume(BlockDevice& device, const VolumePlan& plan, timeval now, const FormatOptions& options,
                        uint64_t& written);

}  // namespace prestore
