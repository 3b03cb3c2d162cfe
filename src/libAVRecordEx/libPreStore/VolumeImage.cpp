#include "VolumeImage.h"

#include <algorithm>
#include <cstring>

#include "Clock.h"
#include "libPreStore.h"

namespace prestore {

namespace {

constexpr uint8_t kSignature[2] = {0x55, 0xAA};
constexpr char kBootMessage[] = "This is not a bootable disk\r\n";

// What a BIOS runs when told to boot from the card: prints the message that follows it and halts.
constexpr uint8_t kBootCode[] = {
    0xFC,              //       cld
    0x31, 0xC0,        //       xor ax, ax
    0x8E, 0xD8,        //       mov ds, ax
    0xBE, 0x73, 0x7C,  //       mov si, message   (0x7C00 + 90 + 25)
    0xAC,              // next: lodsb
    0x84, 0xC0,        //       test al, al
    0x74, 0x09,        //       jz halt
    0xB4, 0x0E,        //       mov ah, 0x0E      (teletype output)
    0xBB, 0x07, 0x00,  //       mov bx, 7
    0xCD, 0x10,        //       int 0x10
    0xEB, 0xF2,        //       jmp next
    0xF4,              // halt: hlt
    0xEB, 0xFD,        //       jmp halt
};
static_assert(sizeof kBootCode == 25);

template <size_t N>
void Set(char (&member)[N], const char* text) {
    std::memcpy(member, text, N);
}

BootSector MakeBootSector(const VolumePlan& plan, uint32_t volume_id) {
    BootSector boot{};
    boot.jump[0] = 0xEB;
    boot.jump[1] = 0x58;
    boot.jump[2] = 0x90;
    Set(boot.oem_name, "mkdosfs");
    boot.bytes_per_sector = static_cast<uint16_t>(plan.device.sector_bytes);
    boot.sectors_per_cluster = static_cast<uint8_t>(plan.sectors_per_cluster);
    boot.reserved_sectors = kReservedSectors;
    boot.fats = kFats;
    boot.media = 0xF8;
    boot.sectors_per_track = plan.device.sectors_per_track;
    boot.heads = plan.device.heads;
    boot.hidden_sectors = plan.device.hidden_sectors;
    boot.sectors = plan.sectors;
    boot.fat_sectors = plan.fat_sectors;
    boot.root_cluster = kRootCluster;
    boot.info_sector = kInformationSector;
    boot.backup_sector = kBackupSector;
    boot.drive = 0x80;
    boot.extended_signature = 0x29;
    boot.volume_id = volume_id;
    Set(boot.label, kVolumeLabel);
    Set(boot.type, "FAT32   ");
    std::memcpy(boot.code, kBootCode, sizeof kBootCode);
    std::memcpy(boot.code + sizeof kBootCode, kBootMessage, sizeof kBootMessage);
    std::memcpy(boot.signature, kSignature, sizeof kSignature);
    return boot;
}

InformationSector MakeInformationSector(const VolumePlan& plan) {
    InformationSector info{};
    info.lead_signature = 0x41615252;
    info.signature = 0x61417272;
    info.free_clusters = plan.clusters - 1;  // a hint: all but the root directory's first
    info.next_free = 2;
    std::memcpy(info.end_signature, kSignature, sizeof kSignature);
    return info;
}

uint8_t ShortNameChecksum(const char (&name)[11]) {
    uint8_t sum = 0;
    for (const char c : name) {
        sum = static_cast<uint8_t>((sum >> 1 | sum << 7) + static_cast<uint8_t>(c));
    }
    return sum;
}

struct Stamp {
    uint16_t date;
    uint16_t time;
};

Stamp LocalStamp(timeval now) {
    const tm local = LocalTime(now.tv_sec);
    const int year = std::clamp(local.tm_year - 80, 0, 127);  // 1980 to 2107
    return {static_cast<uint16_t>(year << 9 | (local.tm_mon + 1) << 5 | local.tm_mday),
            static_cast<uint16_t>(local.tm_hour << 11 | local.tm_min << 5 | std::min(local.tm_sec, 59) / 2)};
}

DirectoryEntry MakeDirectoryEntry(const StoredFile& file, Stamp stamp) {
    DirectoryEntry entry{};
    ShortNameEntry& short_name = entry.short_name;
    Set(short_name.name, ShortName(file.name).c_str());
    short_name.attributes = 0x20;
    short_name.create_time = short_name.write_time = stamp.time;
    short_name.create_date = short_name.write_date = short_name.access_date = stamp.date;
    short_name.first_cluster_high = static_cast<uint16_t>(file.first_cluster >> 16);
    short_name.first_cluster_low = static_cast<uint16_t>(file.first_cluster);
    short_name.size = file.size;

    // Twelve characters and their ending zero fill the thirteen places of one long-name entry.
    uint8_t wide[26] = {};
    AssciToUnicode(file.name.c_str(), wide);
    LongNameEntry& long_name = entry.long_name;
    long_name.sequence = 0x41;
    long_name.attributes = 0x0F;
    long_name.checksum = ShortNameChecksum(short_name.name);
    std::memcpy(long_name.name1, wide, sizeof long_name.name1);
    std::memcpy(long_name.name2, wide + 10, sizeof long_name.name2);
    std::memcpy(long_name.name3, wide + 22, sizeof long_name.name3);
    return entry;
}

}  // namespace

uint32_t VolumeId(timeval now) {
    return static_cast<uint32_t>(now.tv_sec) ^ static_cast<uint32_t>(now.tv_usec) << 12;
}

std::string ShortName(const std::string& name) {
    std::string result;
    for (const char c : name) {
        if (c != '.') {
            result += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
        }
    }
    return result;
}

std::vector<std::byte> ReservedSectors(const VolumePlan& plan, uint32_t volume_id) {
    const size_t sector = plan.device.sector_bytes;
    std::vector<std::byte> sectors(kReservedSectors * sector);
    const BootSector boot = MakeBootSector(plan, volume_id);
    const InformationSector info = MakeInformationSector(plan);
    for (const uint32_t first : {0u, kBackupSector}) {
        std::memcpy(&sectors[first * sector], &boot, sizeof boot);
        std::memcpy(&sectors[(first + kInformationSector) * sector], &info, sizeof info);
    }
    return sectors;
}

std::vector<std::byte> RootDirectory(const VolumePlan& plan, timeval now) {
    std::vector<std::byte> directory(size_t{plan.directory_clusters} * plan.ClusterBytes());
    const Stamp stamp = LocalStamp(now);
    for (uint32_t i = 0; i < plan.Files(); ++i) {
        const DirectoryEntry entry = MakeDirectoryEntry(plan.File(i), stamp);
        std::memcpy(&directory[i * sizeof entry], &entry, sizeof entry);
    }
    return directory;
}

void FillFat(const VolumePlan& plan, uint64_t offset, std::span<std::byte> out) {
    uint32_t cluster = static_cast<uint32_t>(offset / 4);
    for (size_t at = 0; at < out.size(); at += 4, ++cluster) {
        const uint32_t entry = plan.FatEntry(cluster);
        std::memcpy(&out[at], &entry, sizeof entry);
    }
}

}  // namespace prestore
