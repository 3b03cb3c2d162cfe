// When a section's first and last picture were recorded.
//
// Heads say when recording was asked for and when anything last came; the pictures themselves say what can be
// seen.  Several witnesses speak (pictures, section head, key-frame records, what follows), so that one damaged
// number moves nothing far.  Reads a few kilobytes a section.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "index/CardIndex.h"

namespace card {

// `next`: start of the following section as its head says; `file_end`: the file head's, when nothing follows.
void ReadPictureTimes(const StoreFile& record, Section& section, std::optional<uint32_t> next, uint32_t file_end);

// Where it found them in the record file: a copy that has these bytes, and zeros elsewhere, tells the same times.
std::vector<Extent> PictureTimePlaces(const StoreFile& record, const Section& section);

}  // namespace card
