#include "libPreStore.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Clock.h"
#include "FileDevice.h"
#include "Formatter.h"
#include "VolumeImage.h"
#include "libLog.h"

namespace prestore {

namespace {

constexpr char kCardDevice[] = "/dev/mmcblk0p1";

// Opens and plans; what can be refused is refused here, before a byte is written.
FormatResult Prepare(const char* path, int video_percent, FileDevice& device, VolumePlan& plan) {
    FormatResult result;
    FileDevice::Refusal refusal = device.Open(path);
    if (refusal.error == FormatError::kNone) {
        refusal.reason = PlanVolume(device.Shape(), video_percent, plan);
        refusal.error = refusal.reason.empty() ? FormatError::kNone : FormatError::kRefused;
    }
    result.error = refusal.error;
    if (!result.Ok()) {
        result.message = std::string(path) + ": " + refusal.reason;
        return result;
    }
    const WrittenBytes bytes = CountBytes(plan);
    result.store = plan.store;
    result.volume_bytes = plan.device.bytes;
    result.sector_bytes = plan.device.sector_bytes;
    result.cluster_bytes = plan.ClusterBytes();
    result.clusters = plan.clusters;
    result.bytes_to_write = bytes.total;
    result.bytes_smallest = bytes.smallest;
    return result;
}

// Prepare for those who want to record on the card.
FormatResult PrepareToRecord(const char* path, int video_percent, FileDevice& device, VolumePlan& plan) {
    FormatResult result = Prepare(path, video_percent, device, plan);
    if (result.Ok() && plan.store.vedio_num == 0) {
        result.error = FormatError::kRefused;
        result.message = std::string(path) + ": this share of video leaves no room for a record file of 256 MiB";
    }
    return result;
}

void WritePlanned(const char* path, FileDevice& device, const VolumePlan& plan, timeval now,
                  const FormatOptions& options, FormatResult& result) {
    const std::string failure = WriteVolume(device, plan, now, options, result.bytes_written);
    if (!failure.empty()) {
        result.error = FormatError::kDevice;
        result.message = std::string(path) + ": " + failure;
        if (result.bytes_written > 0) {
            result.message += "; the card holds no volume now, format it again";
        }
    }
}

void PrintGeometry(const char* device_name, const VolumePlan& plan, uint32_t volume_id) {
    fprintf(stderr,
            "Device '%s':\nheads:%u, sectors/track:%u, bytes/sector:%u\nmedia descriptor:%02x\n"
            "total sectors:%llu, clusters:%u, sectors/cluster:%u\nFATs:2, sectors/FAT:%u\n"
            "volumeID:%08x, label:'%s'\n",
            device_name, plan.device.heads, plan.device.sectors_per_track, plan.device.sector_bytes, 0xF8u,
            static_cast<unsigned long long>(plan.sectors), plan.clusters, plan.sectors_per_cluster, plan.fat_sectors,
            volume_id, kVolumeLabel);
    fprintf(stderr, "bufsize = %d \n", static_cast<int>(kBufferBytes));
    fprintf(stderr,
            "vdeio_file_num = %d picture_file_num = %d dir_clust = %d clust_per_file = %d  reserved_sect = %d \n",
            static_cast<int>(plan.store.vedio_num), static_cast<int>(plan.store.picture_num),
            static_cast<int>(plan.directory_clusters), static_cast<int>(plan.clusters_per_file),
            static_cast<int>(kReservedSectors));
}

// The C interface's way with failures: a line on standard error, and a failing device ends the process.
int Report(const FormatResult& result) {
    if (result.Ok()) {
        return 0;
    }
    fprintf(stderr, "%s\n", result.message.c_str());
    if (result.error == FormatError::kDevice) {
        exit(EXIT_FAILURE);
    }
    return -1;
}

}  // namespace

FormatResult CheckFormat(const char* path, const FormatOptions& options) {
    FileDevice device;
    VolumePlan plan;
    return PrepareToRecord(path, options.video_percent, device, plan);
}

FormatResult Format(const char* path, const FormatOptions& options) {
    const timeval begin = WallTime();
    FileDevice device;
    VolumePlan plan;
    FormatResult result = PrepareToRecord(path, options.video_percent, device, plan);
    if (result.Ok()) {
        WritePlanned(path, device, plan, begin, options, result);
    }
    timeval spent{};
    const timeval end = WallTime();
    timersub(&end, &begin, &spent);
    result.seconds = static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_usec) / 1e6;
    return result;
}

}  // namespace prestore

int AV_RecordSDCardFormat(ConfigStoreInfo_S* store, int video_percent) {
    LOG_TRACE(" \n");
    return mkfs_vfat(prestore::kCardDevice, store, video_percent);
}

int mkfs_vfat(const char* device_name, ConfigStoreInfo_S* store, int video_percent) {
    using namespace prestore;
    if (device_name == nullptr || store == nullptr) {
        return -1;
    }
    FileDevice device;
    VolumePlan plan;
    FormatResult result = Prepare(device_name, video_percent, device, plan);
    if (!result.Ok()) {
        return Report(result);
    }
    const timeval now = WallTime();
    PrintGeometry(device_name, plan, VolumeId(now));
    WritePlanned(device_name, device, plan, now, FormatOptions{}, result);
    *store = plan.store;
    return Report(result);
}

int AssciToUnicode(const char* input, unsigned char* output) {
    if (input == nullptr || output == nullptr) {
        return -1;
    }
    int size = 0;
    for (; *input != '\0'; ++input) {
        output[size++] = static_cast<unsigned char>(*input);
        output[size++] = 0;
    }
    return size;
}
