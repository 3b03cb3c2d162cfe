// The bytes of a planned volume's own structures: boot sectors, FATs, root directory, index head.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "FatRecords.h"
#include "VolumePlan.h"

namespace prestore {

inline constexpr char kVolumeLabel[] = "NO NAME    ";  // FAT's own text for none

// Differs between two formats even within one second.
uint32_t VolumeId(timeval now);

// The reserved sectors, 0 to 5, complete.
std::vector<std::byte> ReservedSectors(const VolumePlan& plan, uint32_t volume_id);

// The root directory's clusters, complete; time stamps are local time.
std::vector<std::byte> RootDirectory(const VolumePlan& plan, timeval now);

// Fills `out` with FAT entries from byte `offset` of a FAT on (both multiples of 4).
void FillFat(const VolumePlan& plan, uint64_t offset, std::span<std::byte> out);

// "HI000000MP4" of "hi000000.mp4".
std::string ShortName(const std::string& name);

}  // namespace prestore
