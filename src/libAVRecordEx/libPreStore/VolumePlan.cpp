#include "VolumePlan.h"

#include <cassert>

#include "FormatText.h"

namespace prestore {

namespace {

constexpr uint64_t kMiB = 1u << 20;
constexpr uint64_t kGiB = 1u << 30;
constexpr uint64_t kLeftOutside = kGiB;        // never given to record and picture files
constexpr uint32_t kClustersMin = 65525;       // a volume with fewer is no FAT32 to some readers
constexpr uint32_t kClustersMax = 0x0FFFFFF5;  // numbers above are marks
constexpr uint32_t kSectorsPerClusterMax = 128;

// In directory order; on the volume they come first, in the same order.
constexpr const char* kFixedNames[kFixedFiles] = {RECORD_EVENT_NAME, "keyframe.bin", RECORD_INDEX_NAME, "index001.bin"};
constexpr uint32_t kEventFile = 0;
constexpr uint32_t kIndexFile = 2;

uint32_t CeilDivide(uint64_t value, uint64_t by) {
    return static_cast<uint32_t>((value + by - 1) / by);
}

uint32_t DefaultSectorsPerCluster(uint64_t bytes) {
    struct Step {
        uint64_t below;
        uint32_t sectors;
    };
    constexpr Step kSteps[] = {{0x10400000, 1}, {8 * kGiB, 8}, {16 * kGiB, 16}, {32 * kGiB, 32}, {64 * kGiB, 64}};
    for (const Step& step : kSteps) {
        if (bytes < step.below) {
            return step.sectors;
        }
    }
    return kSectorsPerClusterMax;
}

// Sizes FATs and data region for `plan.sectors_per_cluster`.
void SizeFats(VolumePlan& plan) {
    const uint64_t per_cluster = plan.sectors_per_cluster;
    // A FAT of f sectors has room for every cluster when 4 * ((sectors - reserved - 2f) / per_cluster + 2) <= f bytes.
    const uint64_t fat = CeilDivide(4 * (plan.sectors - kReservedSectors + 2 * per_cluster),
                                    per_cluster * plan.device.sector_bytes + 4 * kFats);
    uint64_t aligned = fat;
    while (per_cluster > 1 && (kReservedSectors + kFats * aligned) % per_cluster != 0) {
        ++aligned;
    }
    plan.smallest_fat_sectors = static_cast<uint32_t>(fat);
    plan.fat_sectors = static_cast<uint32_t>(aligned);
    plan.clusters = static_cast<uint32_t>((plan.sectors - kReservedSectors - kFats * aligned) / per_cluster);
}

std::string SizeClusters(VolumePlan& plan) {
    const uint64_t sectors = plan.device.bytes / plan.device.sector_bytes;
    uint32_t per_cluster = DefaultSectorsPerCluster(plan.device.bytes);
    while (per_cluster <= kSectorsPerClusterMax && sectors / per_cluster > kClustersMax) {
        per_cluster *= 2;
    }
    if (per_cluster > kSectorsPerClusterMax) {
        return "can't make FAT32 with >128 sectors/cluster";
    }
    if (sectors > UINT32_MAX) {
        return FormatText("too large: FAT32 counts at most 4294967295 sectors, this device has %llu",
                          static_cast<unsigned long long>(sectors));
    }
    plan.sectors = static_cast<uint32_t>(sectors);
    plan.sectors_per_cluster = per_cluster;
    SizeFats(plan);
    while (plan.clusters < kClustersMin && plan.sectors_per_cluster > 1) {  // large sectors on a small card
        plan.sectors_per_cluster /= 2;
        SizeFats(plan);
    }
    return {};
}

void SizeStore(uint64_t bytes, uint64_t video_percent, ConfigStoreInfo_S& store) {
    const uint64_t video = (bytes - kLeftOutside) * video_percent;
    const uint64_t picture = (bytes - kLeftOutside) * (100 - video_percent);
    store.total_size_byte = bytes / kMiB;
    store.vedio_size_byte = video / (100 * kMiB);
    store.vedio_num = static_cast<uint32_t>(video / (100ull * RECORD_FILE_SIZE));
    store.picture_size_byte = picture / (100 * kMiB);
    store.picture_num = static_cast<uint32_t>(picture / (100ull * RECORD_FILE_SIZE));
}

std::string CheckStore(uint64_t bytes, const ConfigStoreInfo_S& store) {
    if (store.vedio_num > RECORD_FILE_MAX) {
        // Largest percent whose rounded-down file count still fits the index.
        const uint64_t percent = (100ull * RECORD_FILE_SIZE * (RECORD_FILE_MAX + 1) - 1) / (bytes - kLeftOutside);
        return FormatText("the index has room for %u record files, not %u; use a video percent of at most %u",
                          RECORD_FILE_MAX, store.vedio_num, static_cast<unsigned>(percent));
    }
    return {};
}

void PlaceFiles(VolumePlan& plan) {
    const uint32_t cluster_bytes = plan.ClusterBytes();
    plan.directory_clusters = CeilDivide(uint64_t{plan.Files()} * 64, cluster_bytes);
    plan.clusters_per_file = CeilDivide(RECORD_FILE_SIZE, cluster_bytes);
    plan.clusters_per_fixed_file = CeilDivide(kFixedFileBytes, cluster_bytes);
    const uint32_t free_cluster = kRootCluster + plan.directory_clusters;
    const uint64_t begin = plan.ClusterOffset(free_cluster);
    const uint64_t aligned = (begin + kFileAlignment - 1) / kFileAlignment * kFileAlignment;
    plan.first_file_cluster = free_cluster + static_cast<uint32_t>((aligned - begin) / cluster_bytes);
}

uint64_t EndCluster(const VolumePlan& plan) {
    return plan.first_file_cluster + uint64_t{kFixedFiles} * plan.clusters_per_fixed_file +
           uint64_t{plan.Files() - kFixedFiles} * plan.clusters_per_file;
}

}  // namespace

StoredFile VolumePlan::File(uint32_t number) const {
    const uint32_t fixed_end = first_file_cluster + kFixedFiles * clusters_per_fixed_file;
    if (number >= Files() - kFixedFiles) {
        const uint32_t fixed = number - (Files() - kFixedFiles);
        return {kFixedNames[fixed], kFixedFileBytes, first_file_cluster + fixed * clusters_per_fixed_file};
    }
    const bool picture = number < store.picture_num;
    const uint32_t of_kind = picture ? number : number - store.picture_num;
    char name[32];
    snprintf(name, sizeof name, picture ? RECORD_PICTURE_NAME : RECORD_FILE_NAME, static_cast<int>(of_kind));
    return {name, RECORD_FILE_SIZE, fixed_end + number * clusters_per_file};
}

uint32_t VolumePlan::FatEntry(uint32_t cluster) const {
    if (cluster < kRootCluster) {
        return cluster == 0 ? 0x0FFFFFF8 : 0xFFFFFFFF;
    }
    const auto link = [cluster](uint32_t index, uint32_t chain) {
        return (index + 1) % chain == 0 ? kChainEnd : cluster + 1;
    };
    if (cluster < kRootCluster + directory_clusters) {
        return link(cluster - kRootCluster, directory_clusters);
    }
    if (cluster < first_file_cluster) {
        return 0;
    }
    const uint32_t index = cluster - first_file_cluster;
    const uint32_t fixed = kFixedFiles * clusters_per_fixed_file;
    if (index < fixed) {
        return link(index, clusters_per_fixed_file);
    }
    return cluster < EndCluster(*this) ? link(index - fixed, clusters_per_file) : 0;
}

Extent VolumePlan::EventHeads() const {
    return {ClusterOffset(first_file_cluster + kEventFile * clusters_per_fixed_file),
            WholeSectors(uint64_t{sizeof(AlarmEventHead_S)} * store.vedio_num)};
}

Extent VolumePlan::IndexHeads() const {
    return {ClusterOffset(first_file_cluster + kIndexFile * clusters_per_fixed_file),
            RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * store.vedio_num};
}

std::string PlanVolume(const DeviceShape& device, int video_percent, VolumePlan& plan) {
    plan = {};
    plan.device = device;
    if (video_percent < 0 || video_percent > 100) {
        return FormatText("a video percent of %d is not within 0 to 100", video_percent);
    }
    if (device.bytes / device.sector_bytes < 10) {
        return "the image is too small for FAT32";
    }
    if (device.bytes < kLeftOutside + RECORD_FILE_SIZE) {
        return FormatText("too small: %llu MiB, a recording card has at least 1280 MiB",
                          static_cast<unsigned long long>(device.bytes / kMiB));
    }
    SizeStore(device.bytes, static_cast<uint64_t>(video_percent), plan.store);
    if (std::string refusal = SizeClusters(plan); !refusal.empty()) {
        return refusal;
    }
    if (std::string refusal = CheckStore(device.bytes, plan.store); !refusal.empty()) {
        return refusal;
    }
    PlaceFiles(plan);
    assert(EndCluster(plan) <= uint64_t{kRootCluster} + plan.clusters);
    return {};
}

}  // namespace prestore
