// A card of a few kibibytes with the formatter's layout: the same structures in the same places, in clusters of one
// sector, and files of a few clusters.
#pragma once

#include <sys/time.h>

#include <vector>

#include "Fuzz.h"
#include "VolumeImage.h"
#include "VolumePlan.h"

namespace fuzz {

class SmallCard {
  public:
    static constexpr uint32_t kClusters = 126;  // as many as one sector of a FAT has room for

    SmallCard() {
        plan_.device = {.bytes = 0, .sector_bytes = 512};
        plan_.store.vedio_num = 2;
        plan_.store.picture_num = 1;
        plan_.sectors_per_cluster = 1;
        plan_.fat_sectors = plan_.smallest_fat_sectors = 1;
        plan_.sectors = prestore::kReservedSectors + prestore::kFats + kClusters;
        plan_.device.bytes = uint64_t{plan_.sectors} * 512;
        plan_.clusters = kClusters;
        plan_.directory_clusters = 1;
        plan_.clusters_per_file = 24;
        plan_.clusters_per_fixed_file = 8;
        plan_.first_file_cluster = prestore::kRootCluster + 1;
        Fill();
    }

    const prestore::VolumePlan& Plan() const { return plan_; }
    Bytes Whole() const { return bytes_; }
    uint64_t Directory() const { return plan_.ClusterOffset(prestore::kRootCluster); }
    // Bytes that the clusters of a file hold; what its directory entry says, too.
    uint32_t FileBytes(uint32_t number) const {
        const bool fixed = number + prestore::kFixedFiles >= plan_.Files();
        return (fixed ? plan_.clusters_per_fixed_file : plan_.clusters_per_file) * plan_.ClusterBytes();
    }

    // The card with what the input changes of it.
    void Lay(Input& in, MemoryFile& file) const {
        constexpr int kChangesMax = 32;
        static std::vector<uint8_t> card;
        card = bytes_;
        if (in.Byte() % 8 == 0) card.resize(in.Half() % card.size() + 1);  // an image that was cut
        for (int i = 0; i < kChangesMax && !in.Empty(); ++i) {
            const uint8_t place = in.Byte();
            const size_t at = Place(place, in) % card.size();
            const Bytes change = in.Take(place / 8 == 31 ? SIZE_MAX : static_cast<size_t>(place / 8) + 1);
            std::memcpy(card.data() + at, change.data(), std::min(change.size(), card.size() - at));
        }
        file.Replace(card);
    }

  private:
    void Fill() {
        bytes_.resize(plan_.device.bytes);
        Copy(0, prestore::ReservedSectors(plan_, 0x12345678));
        Copy(Directory(), prestore::RootDirectory(plan_, {kTime, 0}));
        for (uint32_t copy = 0; copy < prestore::kFats; ++copy) {
            std::vector<std::byte> table(plan_.FatBytes());
            prestore::FillFat(plan_, 0, table);
            Copy(plan_.FatOffset() + copy * plan_.FatBytes(), table);
        }
        for (uint32_t i = 0; i < plan_.Files(); ++i) {
            constexpr uint64_t kEntry = 64;  // long name and short entry
            constexpr uint64_t kSize = 32 + 28;
            const uint32_t size = FileBytes(i);
            std::memcpy(bytes_.data() + Directory() + i * kEntry + kSize, &size, sizeof size);
        }
    }
    void Copy(uint64_t at, const std::vector<std::byte>& from) {
        std::memcpy(bytes_.data() + at, from.data(), from.size());
    }
    size_t Place(uint8_t kind, Input& in) const {
        kind %= 8;
        if (kind == 7) return in.Word();             // anywhere
        if (kind == 6) return 446 + in.Byte() % 66;  // partitions
        if (kind >= 4) return Directory() + in.Half() % 512;
        if (kind >= 2) return plan_.FatOffset() + in.Half() % 1024;
        return (kind == 1 ? size_t{prestore::kBackupSector} * 512 : 0) + in.Byte();  // boot sector, its backup
    }

    prestore::VolumePlan plan_;
    std::vector<uint8_t> bytes_;
};

}  // namespace fuzz
