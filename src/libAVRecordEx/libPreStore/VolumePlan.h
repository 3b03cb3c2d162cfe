// The arithmetic of a card: from the device's size to the place of every file.  Pure; touches no device.
//
//   sector 0                 boot sector, information sector, spare; the same three again at sector 3
//   sector 6                 FAT, FAT; sized so that the data region begins on a cluster's multiple
//   cluster 2                root directory
//   next multiple of 4 MiB   event000.bin, keyframe.bin, index000.bin, index001.bin     64 MiB each
//                            hi%06d.pic, hi%06d.mp4                                    256 MiB each
//   rest                     free: never less than 1 GiB less the files of 64 MiB, FATs and directory
//
// Every file lies in one piece and begins on a multiple of 4 MiB of the volume: whole erase units for the
// card, and few places to look for record files when FAT or directory are lost.
#pragma once

#include <cstdint>
#include <string>

#include "libRecordFile.h"

namespace prestore {

inline constexpr uint32_t kReservedSectors = 6;
inline constexpr uint32_t kInformationSector = 1;
inline constexpr uint32_t kBackupSector = 3;
inline constexpr uint32_t kBootSectors = 3;  // boot, information, spare
inline constexpr uint32_t kFats = 2;
inline constexpr uint32_t kRootCluster = 2;
inline constexpr uint32_t kFixedFiles = 4;  // of 64 MiB
inline constexpr uint32_t kFixedFileBytes = 0x4000000;
inline constexpr uint32_t kFileAlignment = 4u << 20;
inline constexpr uint32_t kChainEnd = 0x0FFFFFFF;

// What the device tells of itself.
struct DeviceShape {
    uint64_t bytes = 0;
    uint32_t sector_bytes = 512;
    uint16_t heads = 255;
    uint16_t sectors_per_track = 63;
    uint32_t hidden_sectors = 0;  // before the partition
};

struct Extent {  // bytes of the volume
    uint64_t offset;
    uint64_t length;
};

struct StoredFile {
    std::string name;
    uint32_t size;  // bytes
    uint32_t first_cluster;
};

struct VolumePlan {
    DeviceShape device;
    ConfigStoreInfo_S store = {};
    uint32_t sectors = 0;
    uint32_t sectors_per_cluster = 0;
    uint32_t fat_sectors = 0;           // of one FAT
    uint32_t smallest_fat_sectors = 0;  // what it would be without the alignment
    uint32_t clusters = 0;              // data clusters, numbered from 2
    uint32_t directory_clusters = 0;
    uint32_t clusters_per_file = 0;        // 256 MiB
    uint32_t clusters_per_fixed_file = 0;  // 64 MiB
    uint32_t first_file_cluster = 0;

    uint32_t ClusterBytes() const { return sectors_per_cluster * device.sector_bytes; }
    uint32_t Files() const { return store.picture_num + store.vedio_num + kFixedFiles; }
    uint64_t FatOffset() const { return uint64_t{kReservedSectors} * device.sector_bytes; }
    uint64_t FatBytes() const { return uint64_t{fat_sectors} * device.sector_bytes; }
    uint64_t ClusterOffset(uint32_t cluster) const {
        return FatOffset() + kFats * FatBytes() + uint64_t{cluster - kRootCluster} * ClusterBytes();
    }
    uint64_t WholeSectors(uint64_t bytes) const {
        return (bytes + device.sector_bytes - 1) / device.sector_bytes * device.sector_bytes;
    }
    StoredFile File(uint32_t number) const;     // 0 to Files() - 1, in directory order
    uint32_t FatEntry(uint32_t cluster) const;  // 0 beyond the last cluster in use
    Extent EventHeads() const;                  // what is read as heads of "event000.bin": one a record file
    Extent IndexHeads() const;                  // and of "index000.bin": system, file and section heads
};

// Fills `plan` for `device`.  Returns why it cannot be formatted so, or an empty text.
std::string PlanVolume(const DeviceShape& device, int video_percent, VolumePlan& plan);

}  // namespace prestore
