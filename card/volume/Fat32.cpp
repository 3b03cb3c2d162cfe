#include "volume/Fat32.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "text/Error.h"

namespace card {

namespace {

constexpr uint32_t kFirstCluster = 2;
constexpr uint32_t kEndMark = 0x0FFFFFF8;  // and everything above
constexpr uint32_t kBadMark = 0x0FFFFFF7;
constexpr uint32_t kEntryMask = 0x0FFFFFFF;
constexpr uint32_t kRootBytesMax = 4u << 20;  // twice what a directory may have
constexpr size_t kSector = 512;
constexpr size_t kPage = 4096;  // what is given up where reading fails
constexpr uint8_t kDeleted = 0xE5;
constexpr size_t kDirectoryEntry = 32;
constexpr uint8_t kLongName = 0x0F;

uint32_t Get16(const uint8_t* at) {
    return at[0] | at[1] << 8;
}
uint32_t Get32(const uint8_t* at) {
    return Get16(at) | Get16(at + 2) << 16;
}

bool PowerOfTwo(uint32_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

std::string CutBlanks(const uint8_t* at, size_t length) {
    std::string text(reinterpret_cast<const char*>(at), length);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

uint8_t ShortNameChecksum(const uint8_t* name) {
    uint8_t sum = 0;
    for (int i = 0; i < 11; ++i) sum = static_cast<uint8_t>((sum << 7 | sum >> 1) + name[i]);
    return sum;
}

std::string ReadableShortName(const uint8_t* entry) {
    const std::string base = CutBlanks(entry, 8);
    const std::string extension = CutBlanks(entry + 8, 3);
    return extension.empty() ? base : base + "." + extension;
}

// Gathers the parts of one long name; they stand in front of their short entry, last part first.
class LongName {
  public:
    void Add(const uint8_t* entry) {
        const uint8_t part = entry[0] & 0x3F;
        const bool last = (entry[0] & 0x40) != 0;
        if (part == 0 || part > 20) return Clear();
        if (last) {
            text_.clear();
            checksum_ = entry[13];
        } else if (part + 1 != expected_ || checksum_ != entry[13]) {
            return Clear();
        }
        expected_ = part;
        text_.insert(0, PartText(entry));
    }
    void Clear() {
        expected_ = 0;
        text_.clear();
    }
    bool BelongsTo(const uint8_t* entry) const {
        return expected_ == 1 && !text_.empty() && checksum_ == ShortNameChecksum(entry);
    }
    const std::string& Text() const { return text_; }

  private:
    static std::string PartText(const uint8_t* entry) {
        static constexpr uint8_t kPlaces[13] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
        std::string text;
        for (const uint8_t place : kPlaces) {
            const uint32_t character = Get16(entry + place);
            if (character == 0 || character == 0xFFFF) break;
            text += character < 0x80 ? static_cast<char>(character) : '?';
        }
        return text;
    }

    int expected_ = 0;  // number of the latest part; 1: complete
    uint8_t checksum_ = 0;
    std::string text_;
};

DirectoryEntry EntryFrom(const uint8_t* bytes, const LongName& long_name, uint64_t offset) {
    DirectoryEntry entry;
    entry.long_name_ok = long_name.BelongsTo(bytes);
    entry.name = entry.long_name_ok ? long_name.Text() : ReadableShortName(bytes);
    entry.short_name.assign(reinterpret_cast<const char*>(bytes), 11);
    entry.attributes = bytes[11];
    entry.first_cluster = (Get16(bytes + 20) << 16 | Get16(bytes + 26)) & kEntryMask;
    entry.size = Get32(bytes + 28);
    entry.offset = offset;
    return entry;
}

// What `bytes`, the beginning of a volume, are instead of FAT32; empty: nothing known.
std::string FormatOf(const std::vector<uint8_t>& bytes) {
    const auto stands = [&bytes](size_t at, const char* text) {
        return std::memcmp(bytes.data() + at, text, std::strlen(text)) == 0;
    };
    if (stands(3, "EXFAT   ")) return "is formatted with exFAT";
    if (stands(3, "NTFS    ")) return "is formatted with NTFS";
    if (stands(54, "FAT16   ") || stands(54, "FAT12   ")) return "is formatted with FAT16";
    if (Get16(bytes.data() + 1080) == 0xEF53) return "is formatted with ext4 or a relative of it";
    return "";
}

// Nothing but zeros or ones at many places: a card whose beginning is lost has footage further on.
bool IsBlank(const Device& device) {
    constexpr uint64_t kPlaces = 512;
    std::vector<uint8_t> bytes(4096);
    const uint64_t step = std::max<uint64_t>(device.Size() / kPlaces / bytes.size(), 1) * bytes.size();
    for (uint64_t at = 0; at < device.Size(); at += step) {
        const size_t got = device.ReadAt(at, bytes.data(), bytes.size());
        const auto same = [&bytes](uint8_t byte) { return byte == bytes[0]; };
        if ((bytes[0] != 0 && bytes[0] != 0xFF) ||
            !std::all_of(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(got), same))
            return false;
    }
    return true;
}

std::string OtherFormat(const Device& device) {
    constexpr size_t kLength = 4096;
    std::vector<uint8_t> bytes(std::min<uint64_t>(device.Size(), 1u << 20));
    bytes.resize(std::max(device.ReadAt(0, bytes.data(), bytes.size()), kLength));
    std::string whole = FormatOf(bytes);
    if (!whole.empty()) return whole;
    if (IsBlank(device)) return "was never formatted";
    if (Get16(bytes.data() + 510) != 0xAA55) return "";
    for (const uint8_t* part = bytes.data() + 446; part != bytes.data() + 510; part += 16) {
        std::vector<uint8_t> first(kLength);
        if (part[4] == 0 || device.ReadAt(uint64_t{Get32(part + 8)} * kSector, first.data(), kLength) != kLength)
            continue;
        std::string format = FormatOf(first);
        if (!format.empty()) return format;
    }
    return "";
}

}  // namespace

uint64_t FatGeometry::FatOffset(uint32_t copy) const {
    return base + (reserved_sectors + uint64_t{copy} * sectors_per_fat) * bytes_per_sector;
}

uint64_t FatGeometry::ClusterOffset(uint32_t cluster) const {
    return FatOffset(fats) + uint64_t{cluster - kFirstCluster} * ClusterBytes();
}

Fat32::Fat32(const Device& device) : device_(&device) {
    if (!FindVolume()) {
        const std::string other = OtherFormat(device);
        if (!other.empty()) {
            throw CardError(device.Path() + " " + other +
                            ", and cameras of this kind record on FAT32 alone. \"recordcard format " + device.Path() +
                            "\" makes it a recording card and erases what is on it; recordings of before can be taken "
                            "out first: \"recordcard repair " +
                            device.Path() + " --out FOLDER/\".");
        }
        throw CardError(device.Path() +
                        " holds no FAT32 volume that could be read. Is it a card that a camera has formatted? "
                        "\"recordcard repair\" finds recordings on a damaged card.");
    }
    ReadRoot();
}

bool Fat32::FindVolume() {
    if (TakeBootSector(0, 0)) return true;
    std::vector<uint64_t> bases = {0};
    uint8_t table[kSector];
    if (ReadSector(0, table) && Get16(table + 510) == 0xAA55) {
        for (const uint8_t* part = table + 446; part != table + 510; part += 16) {
            const bool fat32 = part[4] == 0x0B || part[4] == 0x0C;
            if (fat32) bases.push_back(uint64_t{Get32(part + 8)} * kSector);
        }
    }
    for (const uint64_t base : bases) {
        if (base != 0 && TakeBootSector(base, base)) return true;
    }
    from_backup_ = true;
    for (const uint64_t base : bases) {
        for (const uint32_t sector_bytes : {512u, 1024u, 2048u, 4096u}) {
            for (const uint32_t backup : {3u, 6u}) {
                if (TakeBootSector(base, base + uint64_t{backup} * sector_bytes)) return true;
            }
        }
    }
    return false;
}

// False also when it cannot be read: then another copy may serve.
bool Fat32::ReadSector(uint64_t offset, uint8_t* sector) const {
    try {
        return device_->ReadAt(offset, sector, kSector) == kSector;
    } catch (const CardError& error) {
        // The system reads pages: a backup may lie in that of the bad sector.
        if (device_->ReadSector(offset, sector)) return true;
        unread_.emplace(offset, error.what());
        return false;
    }
}

// Takes the boot sector at `offset` when it describes a volume that begins at `base`.
bool Fat32::TakeBootSector(uint64_t base, uint64_t offset) {
    uint8_t boot[kSector];
    if (!ReadSector(offset, boot)) return false;
    FatGeometry g{};
    g.base = base;
    g.bytes_per_sector = Get16(boot + 11);
    g.sectors_per_cluster = boot[13];
    g.reserved_sectors = Get16(boot + 14);
    g.fats = boot[16];
    g.total_sectors = Get32(boot + 32);
    g.sectors_per_fat = Get32(boot + 36);
    g.root_cluster = Get32(boot + 44) & kEntryMask;
    g.info_sector = Get16(boot + 48);
    g.backup_sector = Get16(boot + 50);
    g.volume_id = Get32(boot + 67);
    g.label = CutBlanks(boot + 71, 11);
    const bool fat32 = Get16(boot + 510) == 0xAA55 && std::memcmp(boot + 82, "FAT32   ", 8) == 0 &&
                       Get16(boot + 17) == 0 && Get16(boot + 22) == 0;
    if (!fat32 || !PowerOfTwo(g.bytes_per_sector) || g.bytes_per_sector < 512 || g.bytes_per_sector > 4096 ||
        !PowerOfTwo(g.sectors_per_cluster) || g.reserved_sectors == 0 || g.fats == 0 || g.fats > 2) {
        return false;
    }
    const uint64_t data_sector = g.reserved_sectors + uint64_t{g.fats} * g.sectors_per_fat;
    const uint64_t entries = uint64_t{g.sectors_per_fat} * g.bytes_per_sector / 4;
    if (data_sector >= g.total_sectors || entries <= kFirstCluster) return false;
    const uint64_t by_space = (g.total_sectors - data_sector) / g.sectors_per_cluster;
    g.clusters =
        static_cast<uint32_t>(std::min({by_space, entries - kFirstCluster, uint64_t{kBadMark - kFirstCluster}}));
    if (g.root_cluster < kFirstCluster || g.root_cluster - kFirstCluster >= g.clusters) return false;
    if (g.ClusterOffset(g.root_cluster) >= device_->Size()) return false;
    geometry_ = g;
    return true;
}

template <typename Note>
size_t Fat32::ReadByPages(uint64_t offset, uint8_t* into, size_t length, Note note) const {
    const auto known = unread_.lower_bound(offset);
    const bool whole = known == unread_.end() || known->first >= offset + length;
    size_t done = 0;
    for (size_t piece = whole ? length : kPage; done < length;) {
        const size_t part = std::min(piece, length - done);
        if (unread_.count(offset + done) == 0) {
            try {
                const size_t got = device_->ReadAt(offset + done, into + done, part);
                done += got;
                if (got != part) break;
                continue;
            } catch (const CardError& error) {
                if (part > kPage) {
                    piece = kPage;
                    continue;
                }
                unread_.emplace(offset + done, error.what());
            }
        }
        note(done, part);
        done += part;
    }
    return done;
}

const Fat32::TableWindow& Fat32::Window(uint32_t copy, uint32_t cluster) const {
    TableWindow& window = windows_[copy];
    const uint32_t first = cluster / kWindowEntries * kWindowEntries;
    if (window.first != first) {
        const uint64_t offset = geometry_.FatOffset(copy) + uint64_t{first} * 4;
        const uint64_t table_end = geometry_.FatOffset(copy + 1);
        const size_t length = std::min<uint64_t>(kWindowEntries * 4, table_end - offset);
        window.entries.resize(length / 4);
        window.unread = 0;
        const size_t got = ReadByPages(offset, reinterpret_cast<uint8_t*>(window.entries.data()), length,
                                       [&window](size_t at, size_t) { window.unread |= 1u << (at / kPage); });
        window.count = static_cast<uint32_t>(got / 4);
        window.first = first;
    }
    return window;
}

std::optional<uint32_t> Fat32::Entry(uint32_t copy, uint32_t cluster) const {
    if (copy >= geometry_.fats || cluster >= geometry_.clusters + kFirstCluster) return std::nullopt;
    const TableWindow& window = Window(copy, cluster);
    const uint32_t at = cluster - window.first;
    if (at >= window.count || (window.unread >> (at * 4 / kPage) & 1) != 0) return std::nullopt;
    return window.entries[at] & kEntryMask;
}

bool Fat32::IsUnread(uint32_t copy, uint32_t cluster) const {
    if (copy >= geometry_.fats || cluster >= geometry_.clusters + kFirstCluster) return false;
    const TableWindow& window = Window(copy, cluster);
    return (window.unread >> ((cluster - window.first) * 4 / kPage) & 1) != 0;
}

Chain Fat32::Follow(uint32_t first_cluster, uint32_t max_clusters, uint32_t copy) const {
    Chain chain;
    const uint32_t limit = std::min(max_clusters, geometry_.clusters);
    const uint32_t cluster_bytes = geometry_.ClusterBytes();
    chain.last_cluster = first_cluster;
    for (uint32_t cluster = first_cluster;;) {
        if (cluster >= kEndMark && chain.clusters != 0) return chain;
        if (cluster == 0 || cluster == kBadMark || cluster < kFirstCluster ||
            cluster - kFirstCluster >= geometry_.clusters) {
            chain.end = cluster == 0 ? ChainEnd::Free : cluster == kBadMark ? ChainEnd::Bad : ChainEnd::OutOfRange;
            return chain;
        }
        if (chain.clusters == limit) {
            chain.end = ChainEnd::TooLong;
            return chain;
        }
        const uint64_t offset = geometry_.ClusterOffset(cluster);
        if (!chain.extents.empty() && chain.extents.back().offset + chain.extents.back().length == offset) {
            chain.extents.back().length += cluster_bytes;
        } else {
            chain.extents.push_back({offset, cluster_bytes});
        }
        ++chain.clusters;
        chain.bytes += cluster_bytes;
        chain.last_cluster = cluster;
        std::optional<uint32_t> next = Entry(copy, cluster);
        if (!next && IsUnread(copy, cluster)) {
            next = Entry(1 - copy, cluster);
            if (!next) {
                chain.end = ChainEnd::Unread;
                return chain;
            }
        }
        cluster = next ? *next : 1;  // past the end of a cut table: no cluster
    }
}

Chain Fat32::FileChain(const DirectoryEntry& entry) const {
    if (entry.size == 0) return Chain{};
    const uint32_t cluster_bytes = geometry_.ClusterBytes();
    const uint32_t needed = static_cast<uint32_t>((uint64_t{entry.size} + cluster_bytes - 1) / cluster_bytes);
    Chain first = Follow(entry.first_cluster, needed, 0);
    if (first.bytes >= entry.size || geometry_.fats < 2) return first;
    Chain second = Follow(entry.first_cluster, needed, 1);
    return second.bytes > first.bytes ? second : first;
}

Chain Fat32::RootChain() const {
    Chain first = Follow(geometry_.root_cluster, kRootBytesMax / geometry_.ClusterBytes() + 1, 0);
    if (first.end == ChainEnd::EndMark || geometry_.fats < 2) return first;
    Chain second = Follow(geometry_.root_cluster, kRootBytesMax / geometry_.ClusterBytes() + 1, 1);
    return second.end == ChainEnd::EndMark || second.bytes > first.bytes ? second : first;
}

void Fat32::ReadRoot() {
    LongName long_name;
    const Chain chain = RootChain();
    root_whole_ = chain.end != ChainEnd::Unread;
    for (const Extent& extent : chain.extents) {
        const std::vector<uint8_t> bytes = ReadDirectory(extent);
        for (size_t at = 0; at + kDirectoryEntry <= bytes.size(); at += kDirectoryEntry) {
            const uint8_t* entry = bytes.data() + at;
            if (entry[0] == 0) return;
            if (entry[0] == kDeleted) {
                long_name.Clear();
            } else if ((entry[11] & 0x3F) == kLongName) {
                long_name.Add(entry);
            } else {
                DirectoryEntry found = EntryFrom(entry, long_name, extent.offset + at);
                if (!found.IsLabel()) root_.push_back(std::move(found));
                long_name.Clear();
            }
        }
    }
}

// What cannot be read is left out.
std::vector<uint8_t> Fat32::ReadDirectory(const Extent& extent) {
    std::vector<uint8_t> bytes(extent.length);
    bytes.resize(ReadByPages(extent.offset, bytes.data(), bytes.size(), [&](size_t at, size_t length) {
        root_whole_ = false;
        std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(at), length, kDeleted);
    }));
    return bytes;
}

std::vector<UnreadPlace> Fat32::Unread() const {
    using Of = UnreadPlace::Of;
    std::vector<UnreadPlace> places;
    for (const auto& [offset, why] : unread_) {
        const bool boot = offset < geometry_.FatOffset(0);
        if (boot && offset != geometry_.base) continue;  // a place where a backup might have been
        const Of of = boot                                           ? Of::BootSector
                      : offset < geometry_.FatOffset(1)              ? Of::FirstTable
                      : offset < geometry_.FatOffset(geometry_.fats) ? Of::SecondTable
                                                                     : Of::Directory;
        places.push_back({of, offset, why});
    }
    return places;
}

const DirectoryEntry* Fat32::Find(const std::string& name) const {
    for (const DirectoryEntry& entry : root_) {
        if (strcasecmp(entry.name.c_str(), name.c_str()) == 0) return &entry;
    }
    return nullptr;
}

}  // namespace card
