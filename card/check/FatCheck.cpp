#include "check/FatCheck.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "libRecordFile.h"
#include "text/Error.h"

namespace card {

namespace {

using Level = Finding::Level;
using Mend = Finding::Mend;

const char* ChainText(ChainEnd end) {
    switch (end) {
        case ChainEnd::EndMark:
            return "ends early";
        case ChainEnd::Free:
            return "runs into a free cluster";
        case ChainEnd::Bad:
            return "runs into a bad cluster";
        case ChainEnd::OutOfRange:
            return "leaves the volume";
        case ChainEnd::TooLong:
            return "is longer than the file";
        case ChainEnd::Unread:
            return "cannot be read in either table";
    }
    return "";
}

class FatCheck {
  public:
    explicit FatCheck(const Volume& volume)
        : volume_(volume), fat_(*volume.Fat()), owner_(fat_.Geometry().clusters + 2, kNobody) {}

    Findings Run() {
        CheckBoot();
        CheckTables();
        Own(0, fat_.RootChain(), 0, "the root directory");
        bool folders = false;
        for (uint32_t i = 0; i < fat_.Root().size(); ++i) {
            folders = folders || fat_.Root()[i].IsDirectory();
            CheckFile(i);
        }
        if (!folders) CheckLost();
        TellUnread();
        return std::move(findings_);
    }

  private:
    static constexpr uint32_t kNobody = UINT32_MAX;

    void Add(Level level, const char* kind, const std::string& place, uint64_t offset, std::string what,
             const char* consequence, Mend mend = Mend::Volume) {
        findings_.push_back({level, kind, place, offset, std::move(what), consequence, mend, 0});
    }

    void TellUnread() {
        using Of = UnreadPlace::Of;
        for (const UnreadPlace& unread : fat_.Unread()) {
            const bool directory = unread.of == Of::Directory;
            if (unread.of == Of::BootSector) continue;  // told with its backup
            Add(Level::Error, directory ? "directory-unread" : "fat-unread", directory ? "directory" : "FAT",
                unread.offset,
                (directory                     ? "a page of the directory cannot be read: "
                 : unread.of == Of::FirstTable ? "a page of the first allocation table cannot be read: "
                                               : "a page of the second allocation table cannot be read: ") +
                    unread.why,
                directory ? "files that it names are not found"
                          : "none as long as the other table can be read there; other programs may not use that");
        }
    }

    bool ReadSector(uint64_t offset, uint8_t (&sector)[512]) const {
        try {
            return volume_.Raw()->ReadAt(offset, sector, sizeof sector) == sizeof sector;
        } catch (const CardError&) {
            return false;  // told as a backup that is no copy
        }
    }

    void CheckBoot() {
        const FatGeometry& g = fat_.Geometry();
        if (fat_.FromBackup()) {
            Add(Level::Error, "boot-sector", "boot sector", g.base,
                "the boot sector is damaged or cannot be read; its backup is in use",
                "cameras and computers take the card for empty");
            return;
        }
        if (g.backup_sector == 0 || g.backup_sector >= g.reserved_sectors) return;
        uint8_t boot[512];
        uint8_t backup[512];
        const uint64_t offset = g.base + uint64_t{g.backup_sector} * g.bytes_per_sector;
        const bool read = ReadSector(g.base, boot) && ReadSector(offset, backup);
        boot[65] = backup[65] = 0;  // in use: set and cleared in the first only
        if (read && std::memcmp(boot, backup, sizeof boot) == 0) return;
        Add(Level::Error, "boot-backup", "boot sector", offset,
            read ? "the backup of the boot sector differs from it" : "the backup of the boot sector cannot be read",
            "none until the boot sector itself is damaged");
    }

    // Both tables, entry by entry.
    void CheckTables() {
        const FatGeometry& g = fat_.Geometry();
        if (g.fats < 2) return;
        uint32_t differing = 0;
        uint32_t first = 0;
        for (uint32_t cluster = 2; cluster < g.clusters + 2; ++cluster) {
            if (fat_.Entry(0, cluster) == fat_.Entry(1, cluster)) continue;
            if (fat_.IsUnread(0, cluster) || fat_.IsUnread(1, cluster)) continue;
            if (differing++ == 0) first = cluster;
        }
        if (differing == 0) return;
        Add(Level::Error, "fat-copies", "FAT", g.FatOffset(0) + uint64_t{first} * 4,
            std::to_string(differing) + " entries of the two allocation tables differ, the first of cluster " +
                std::to_string(first),
            "a file may end early for programs that read the damaged table");
    }

    // Marks the clusters of a chain; tells when somebody else has one of them.
    void Own(uint32_t number, const Chain& chain, uint64_t entry, const std::string& name) {
        const FatGeometry& g = fat_.Geometry();
        bool told = false;
        for (const Extent& extent : chain.extents) {
            const uint32_t first = static_cast<uint32_t>((extent.offset - g.ClusterOffset(2)) / g.ClusterBytes()) + 2;
            for (uint64_t i = 0; i < extent.length / g.ClusterBytes(); ++i) {
                uint32_t& owner = owner_[first + i];
                if (owner != kNobody && owner != number && !told) {
                    told = true;
                    Add(Level::Error, "cross-link", name, entry, name + " shares clusters with another file",
                        "what is recorded into one appears in the other");
                }
                owner = number;
            }
        }
    }

    static bool OfStore(const std::string& name) {
        if (name == RECORD_INDEX_NAME || name == RECORD_EVENT_NAME || name == "index001.bin" || name == "keyframe.bin")
            return true;
        return name.size() == 12 && name.compare(0, 2, "hi") == 0 &&
               (name.compare(8, 4, ".mp4") == 0 || name.compare(8, 4, ".pic") == 0);
    }

    void CheckFile(uint32_t number) {
        const DirectoryEntry& entry = fat_.Root()[number];
        const uint32_t cluster_bytes = fat_.Geometry().ClusterBytes();
        const uint32_t needed = static_cast<uint32_t>((uint64_t{entry.size} + cluster_bytes - 1) / cluster_bytes);
        const bool of_store = OfStore(entry.name);
        const uint32_t limit = of_store ? needed : fat_.Geometry().clusters;
        const Chain chain = fat_.FileChain(entry);
        Own(number + 1, of_store || entry.size != 0 ? chain : fat_.Follow(entry.first_cluster, limit), entry.offset,
            entry.name);
        if (!of_store) return;
        if (!entry.long_name_ok) {
            Add(Level::Error, "long-name", "directory", entry.offset, entry.name + " has lost its long name",
                "the camera may not find it");
        }
        for (uint32_t copy = 0; copy < fat_.Geometry().fats; ++copy) {
            const Chain one = fat_.Follow(entry.first_cluster, needed, copy);
            if (one.end == ChainEnd::EndMark && one.clusters == needed) continue;
            Add(Level::Error, "fat-chain", entry.name, entry.offset,
                entry.name + ": the chain in table " + std::to_string(copy + 1) + " " + ChainText(one.end) + " after " +
                    std::to_string(one.clusters) + " of " + std::to_string(needed) + " clusters",
                "the rest of the file cannot be read or recorded into");
        }
        if (chain.extents.size() > 1) {
            Add(Level::Error, "file-in-pieces", entry.name, entry.offset, entry.name + " does not lie in one piece",
                "recording is slower, and a rescue without tables cannot follow it");
        }
    }

    void CheckLost() {
        uint32_t lost = 0;
        uint32_t first = 0;
        for (uint32_t cluster = 2; cluster < fat_.Geometry().clusters + 2; ++cluster) {
            const uint32_t entry = fat_.Entry(0, cluster).value_or(0);
            if (entry == 0 || entry == 0x0FFFFFF7 || owner_[cluster] != kNobody) continue;
            if (lost++ == 0) first = cluster;
        }
        if (lost == 0) return;
        Add(Level::Remark, "lost-clusters", "FAT", fat_.Geometry().FatOffset(0) + uint64_t{first} * 4,
            std::to_string(lost) + " clusters are in use by no file, the first is " + std::to_string(first),
            "that much space is lost", Mend::Nothing);
    }

    const Volume& volume_;
    const Fat32& fat_;
    std::vector<uint32_t> owner_;  // by cluster
    Findings findings_;
};

}  // namespace

Findings CheckFat(const Volume& volume) {
    return volume.Fat() == nullptr ? Findings{} : FatCheck(volume).Run();
}

}  // namespace card
