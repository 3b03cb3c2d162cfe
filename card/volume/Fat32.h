// A reader of a FAT32 volume: boot sector (or its backup), cluster chains, root directory.
//
// Takes nothing from the volume on trust: every number is bounded before it places or sizes an access,
// every chain ends.  Reports what it found rather than hiding it, so that a checker can speak of it.  Where a copy of
// something cannot be read its spare copy serves.
// Not safe for several threads at a time (it keeps a window of the tables).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "volume/Device.h"

namespace card {

struct Extent {
    uint64_t offset;  // bytes from the start of the device
    uint64_t length;  // bytes
};

struct FatGeometry {
    uint64_t base;  // where the volume begins, bytes from the start of the device
    uint32_t bytes_per_sector;
    uint32_t sectors_per_cluster;
    uint32_t reserved_sectors;
    uint32_t fats;
    uint32_t sectors_per_fat;
    uint32_t total_sectors;
    uint32_t root_cluster;
    uint32_t info_sector;
    uint32_t backup_sector;
    uint32_t clusters;  // usable clusters are 2 to clusters + 1
    uint32_t volume_id;
    std::string label;  // 11 bytes, blanks cut

    uint32_t ClusterBytes() const { return bytes_per_sector * sectors_per_cluster; }
    uint64_t FatOffset(uint32_t copy) const;
    uint64_t ClusterOffset(uint32_t cluster) const;  // bytes from the start of the device
};

// How a chain of clusters ended.
enum class ChainEnd {
    EndMark,     // properly
    Free,        // at an entry that is 0
    Bad,         // at the mark of a bad cluster
    OutOfRange,  // at a number that is no cluster of this volume
    TooLong,     // not within the limit given: a loop, or more than the file needs
    Unread,      // where no table can be read
};

struct Chain {
    std::vector<Extent> extents;  // neighbouring clusters joined
    uint64_t bytes = 0;           // sum of them
    uint32_t clusters = 0;
    ChainEnd end = ChainEnd::EndMark;
    uint32_t last_cluster = 0;  // the one whose entry ended the walk
};

struct DirectoryEntry {
    std::string name;        // long name (non-ASCII as '?'), or the short one as "NAME.EXT"
    std::string short_name;  // 11 raw bytes
    uint8_t attributes = 0;
    uint32_t first_cluster = 0;
    uint32_t size = 0;          // bytes
    uint64_t offset = 0;        // of the short entry, bytes from the start of the device
    bool long_name_ok = false;  // there is a long name and it belongs to this entry (checksum, order)

    bool IsDirectory() const { return (attributes & 0x10) != 0; }
    bool IsLabel() const { return (attributes & 0x08) != 0; }
};

// A page or sector of the file system that cannot be read.
struct UnreadPlace {
    enum class Of { BootSector, FirstTable, SecondTable, Directory };
    Of of;
    uint64_t offset;  // bytes from the start of the device
    std::string why;
};

class Fat32 {
  public:
    // The volume fills the device or is its first FAT32 partition.  Throws CardError when neither a boot
    // sector nor a backup of one describes a FAT32 volume.  `device` must outlive it.
    explicit Fat32(const Device& device);

    const FatGeometry& Geometry() const { return geometry_; }
    bool FromBackup() const { return from_backup_; }  // the boot sector itself is not usable

    // The entry of `cluster` (28 bits) in table `copy` (0 is the first); nothing outside either, or where it cannot be
    // read.
    std::optional<uint32_t> Entry(uint32_t copy, uint32_t cluster) const;
    bool IsUnread(uint32_t copy, uint32_t cluster) const;
    // Follows a chain in table `copy`, at most `max_clusters` long; in the other one where that cannot be read.
    Chain Follow(uint32_t first_cluster, uint32_t max_clusters, uint32_t copy = 0) const;
    // A file's clusters: by the first table, or by the second when the first breaks off early.
    Chain FileChain(const DirectoryEntry& entry) const;

    // The root directory in order, deleted entries and label left out.
    const std::vector<DirectoryEntry>& Root() const { return root_; }
    const DirectoryEntry* Find(const std::string& name) const;  // ASCII case does not matter; null: none
    Chain RootChain() const;
    bool RootIsWhole() const { return root_whole_; }  // all of it could be read

    std::vector<UnreadPlace> Unread() const;  // so far

  private:
    static constexpr uint32_t kWindowEntries = 16384;
    struct TableWindow {
        uint32_t first = UINT32_MAX;  // cluster of its first entry
        uint32_t count = 0;
        uint32_t unread = 0;  // a bit a page
        std::vector<uint32_t> entries;
    };

    bool TakeBootSector(uint64_t base, uint64_t offset);
    bool FindVolume();
    bool ReadSector(uint64_t offset, uint8_t* sector) const;
    void ReadRoot();
    std::vector<uint8_t> ReadDirectory(const Extent& extent);
    // As Device::ReadAt, but in pages where that fails: note(at, length) for each that cannot be read.  It is noted,
    // and not tried again.
    template <typename Note>
    size_t ReadByPages(uint64_t offset, uint8_t* into, size_t length, Note note) const;
    const TableWindow& Window(uint32_t copy, uint32_t cluster) const;

    const Device* device_;
    FatGeometry geometry_{};
    bool from_backup_ = false;
    bool root_whole_ = true;
    std::vector<DirectoryEntry> root_;

    mutable std::array<TableWindow, 2> windows_;
    mutable std::map<uint64_t, std::string> unread_;  // why, by offset on the device
};

}  // namespace card
