// The card tool's FAT reader on a damaged volume: whatever it lists lies on the device, chains end, and what it reads
// has the size it told.
#include "SmallCard.h"
#include "text/Error.h"
#include "volume/Volume.h"

namespace {

void CheckFile(const card::StoreFile& file, uint64_t device_size) {
    uint64_t sum = 0;
    for (const card::Extent& extent : file.Extents()) {
        MUST(extent.length != 0 && extent.offset < device_size && extent.length <= device_size - extent.offset);
        sum += extent.length;
    }
    MUST(sum == file.Reachable() && file.Reachable() <= file.Size());
    std::vector<uint8_t> bytes(600);
    for (const uint64_t at : {uint64_t{0}, uint64_t{500}, file.Reachable() / 2, file.Reachable()}) {
        const uint64_t there = at < file.Reachable() ? file.Reachable() - at : 0;
        MUST(file.ReadAt(at, bytes.data(), bytes.size()) == std::min<uint64_t>(there, bytes.size()));
    }
}

void CheckChain(const card::Chain& chain, const card::FatGeometry& geometry, uint32_t limit) {
    uint64_t sum = 0;
    for (const card::Extent& extent : chain.extents) {
        MUST(extent.length % geometry.ClusterBytes() == 0 && extent.offset >= geometry.ClusterOffset(2));
        MUST(extent.offset + extent.length <= geometry.ClusterOffset(geometry.clusters + 2));
        sum += extent.length;
    }
    MUST(sum == chain.bytes && chain.bytes == uint64_t{chain.clusters} * geometry.ClusterBytes());
    MUST(chain.clusters <= limit);
}

}  // namespace

void fuzz::Feed(Input& in) {
    static const SmallCard card;
    static MemoryFile file;
    card.Lay(in, file);
    try {
        const card::Volume volume = card::Volume::Open(file.Path());
        const card::Fat32& fat = *volume.Fat();
        for (uint32_t copy = 0; copy < 3; ++copy) {
            for (const card::DirectoryEntry& entry : fat.Root()) {
                CheckChain(fat.Follow(entry.first_cluster, 50, copy), fat.Geometry(), 50);
            }
        }
        for (const std::string& name : volume.Names()) CheckFile(volume.OpenFile(name), file.Size());
        MUST(volume.TotalBytes() <= uint64_t{UINT32_MAX} * 4096);
    } catch (const card::CardError&) {
        // no volume that could be read
    }
}
