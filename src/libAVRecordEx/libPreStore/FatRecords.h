// FAT32 records as they lie on the volume (Microsoft, "FAT: General Overview of On-Disk Format", 1.03; "BPB" below
// is its BIOS parameter block).  Little-endian, packed: the format aligns nothing.
#pragma once

#include <cstdint>

#include "RecordLayout.h"

namespace prestore {

// clang-format off
struct [[gnu::packed]] BootSector {
    uint8_t  jump[3];             //   0  to `code`
    char     oem_name[8];         //   3
    uint16_t bytes_per_sector;    //  11
    uint8_t  sectors_per_cluster; //  13  power of two
    uint16_t reserved_sectors;    //  14  before the first FAT
    uint8_t  fats;                //  16
    uint16_t root_entries;        //  17  zero on FAT32
    uint16_t sectors_16;          //  19  zero on FAT32
    uint8_t  media;               //  21
    uint16_t fat_sectors_16;      //  22  zero on FAT32
    uint16_t sectors_per_track;   //  24
    uint16_t heads;               //  26
    uint32_t hidden_sectors;      //  28  before the partition
    uint32_t sectors;             //  32  of the volume
    uint32_t fat_sectors;         //  36  of one FAT
    uint16_t flags;               //  40  zero: both FATs are kept
    uint16_t version;             //  42  zero
    uint32_t root_cluster;        //  44
    uint16_t info_sector;         //  48
    uint16_t backup_sector;       //  50
    uint8_t  reserved[12];        //  52  zero
    uint8_t  drive;               //  64  BIOS number
    uint8_t  dirty;               //  65  zero: clean
    uint8_t  extended_signature;  //  66  0x29: the next three are present
    uint32_t volume_id;           //  67
    char     label[11];           //  71  padded with blanks
    char     type[8];             //  82
    uint8_t  code[420];           //  90
    uint8_t  signature[2];        // 510  55 AA
};
RECORD_SIZE(BootSector, 512);
RECORD_MEMBER(BootSector, sectors, 32);
RECORD_MEMBER(BootSector, volume_id, 67);
RECORD_MEMBER(BootSector, code, 90);

struct [[gnu::packed]] InformationSector {
    uint32_t lead_signature;   //   0  0x41615252
    uint8_t  reserved[480];    //   4  zero
    uint32_t signature;        // 484  0x61417272
    uint32_t free_clusters;    // 488  hint
    uint32_t next_free;        // 492  hint: where to look for a free cluster
    uint8_t  reserved2[14];    // 496  zero
    uint8_t  end_signature[2]; // 510  55 AA
};
RECORD_SIZE(InformationSector, 512);
RECORD_MEMBER(InformationSector, signature, 484);

struct [[gnu::packed]] LongNameEntry {
    uint8_t  sequence;       //  0  0x41: the last and only part
    uint8_t  name1[10];      //  1  characters 0 to 4, UTF-16
    uint8_t  attributes;     // 11  0x0F
    uint8_t  type;           // 12  zero
    uint8_t  checksum;       // 13  of the short name
    uint8_t  name2[12];      // 14  characters 5 to 10
    uint16_t first_cluster;  // 26  zero
    uint8_t  name3[4];       // 28  characters 11 and 12
};
RECORD_SIZE(LongNameEntry, 32);

struct [[gnu::packed]] ShortNameEntry {
    char     name[11];           //  0  8 + 3, padded with blanks
    uint8_t  attributes;         // 11  0x20: archive
    uint8_t  case_flags;         // 12  zero
    uint8_t  create_hundredths;  // 13  0 to 199, 10 ms
    uint16_t create_time;        // 14  hour << 11 | minute << 5 | second / 2
    uint16_t create_date;        // 16  (year - 1980) << 9 | month << 5 | day
    uint16_t access_date;        // 18
    uint16_t first_cluster_high; // 20
    uint16_t write_time;         // 22
    uint16_t write_date;         // 24
    uint16_t first_cluster_low;  // 26
    uint32_t size;               // 28  bytes
};
RECORD_SIZE(ShortNameEntry, 32);

struct DirectoryEntry {  // one file: its two entries, in this order
    LongNameEntry  long_name;
    ShortNameEntry short_name;
};
RECORD_SIZE(DirectoryEntry, 64);
// clang-format on

}  // namespace prestore
