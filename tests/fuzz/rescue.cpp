// A volume whose structures are damaged, put back by its layout: afterwards every file of the layout is found, in its
// place and whole, the data of no file has changed, and what is carved out lies on the device.
#include "volume/VolumeRescue.h"

#include "SmallCard.h"
#include "text/Error.h"
#include "volume/Volume.h"

namespace {

// Where the restorer may write: reserved sectors, tables, directory.
uint64_t DataBegin(const prestore::VolumePlan& plan) {
    return plan.ClusterOffset(prestore::kRootCluster + plan.directory_clusters);
}

void ReadAll(const fuzz::MemoryFile& file, std::vector<uint8_t>& bytes) {
    bytes.resize(file.Size());
    MUST(file.Read(0, bytes.data(), bytes.size()) == bytes.size());
}

void MustBeWhole(const card::Fat32& fat, const prestore::VolumePlan& plan) {
    MUST(!fat.FromBackup());
    for (uint32_t copy = 0; copy < prestore::kFats; ++copy) {
        for (uint32_t i = 0; i < plan.Files(); ++i) {
            const prestore::StoredFile planned = plan.File(i);
            const card::DirectoryEntry* const entry = fat.Find(planned.name);
            MUST(entry != nullptr && entry->long_name_ok && entry->first_cluster == planned.first_cluster);
            MUST(entry->size == planned.size);
            const bool fixed = i + prestore::kFixedFiles >= plan.Files();
            const uint32_t clusters = fixed ? plan.clusters_per_fixed_file : plan.clusters_per_file;
            const card::Chain chain = fat.Follow(entry->first_cluster, clusters, copy);
            MUST(chain.end == card::ChainEnd::EndMark && chain.clusters == clusters && chain.extents.size() == 1);
        }
        MUST(fat.RootChain().end == card::ChainEnd::EndMark);
    }
}

void Restore(const fuzz::SmallCard& small, const fuzz::MemoryFile& file) {
    const card::FoundLayout layout{.base = 0, .plan = small.Plan(), .evidence = 1};
    const card::Device device = card::Device::Open(file.Path(), card::Access::ReadWrite);
    static std::vector<uint8_t> before, after;
    ReadAll(file, before);
    try {
        card::WriteJournal journal;
        card::RestoreVolume(device, layout, journal);
        MUST(device.Size() >= DataBegin(layout.plan));
        const card::Fat32 fat(device);
        MustBeWhole(fat, layout.plan);
        MUST(card::RestoreVolume(device, layout, journal).empty());  // nothing is left to do
    } catch (const card::CardError&) {
        MUST(device.Size() < small.Whole().size());  // only an image that was cut is refused
    }
    ReadAll(file, after);
    const size_t data = std::min<size_t>(DataBegin(layout.plan), before.size());
    MUST(after.size() == before.size() && std::equal(before.begin() + data, before.end(), after.begin() + data));
}

void Carve(const fuzz::MemoryFile& file) {
    const card::Device device = card::Device::Open(file.Path());
    uint64_t record_end = 0;
    for (const card::CarvedFile& carved : card::CarveFiles(device)) {
        MUST(carved.offset < device.Size() && carved.length <= device.Size() - carved.offset);
        if (carved.name.starts_with("hi")) {
            MUST(carved.offset >= record_end);
            record_end = carved.offset + carved.length;
        }
    }
}

}  // namespace

void fuzz::Feed(Input& in) {
    static const SmallCard small;
    static MemoryFile file;
    const bool restore = in.Byte() % 4 != 0;
    small.Lay(in, file);
    if (restore) return Restore(small, file);
    Carve(file);
}
