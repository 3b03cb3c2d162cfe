#include "volume/VolumeRescue.h"

#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <span>

#include "RecordFormat.h"
#include "VolumeImage.h"
#include "volume/Fat32.h"

namespace card {

namespace {

constexpr size_t kSector = 512;
constexpr size_t kPiece = 1u << 20;
constexpr uint32_t kEntryMask = 0x0FFFFFFF;
constexpr uint32_t kBadMark = 0x0FFFFFF7;
constexpr size_t kStampBegin = 45;  // of a file's two directory entries: time stamps ...
constexpr size_t kStampEnd = 52;
constexpr size_t kWriteBegin = 54;  // ... and these
constexpr size_t kWriteEnd = 58;

// A volume's place on the device: all of it, or a partition.
struct Place {
    uint64_t base;
    uint64_t bytes;
};

std::vector<Place> Places(const Searched& card) {
    std::vector<Place> places = {{0, card.size}};
    uint8_t table[kSector];
    if (card.read(0, table, sizeof table) != sizeof table || table[510] != 0x55 || table[511] != 0xAA) return places;
    for (const uint8_t* part = table + 446; part != table + 510; part += 16) {
        uint32_t first = 0;
        uint32_t sectors = 0;
        std::memcpy(&first, part + 8, 4);
        std::memcpy(&sectors, part + 12, 4);
        const Place place{uint64_t{first} * kSector, uint64_t{sectors} * kSector};
        const bool fat32 = part[4] == 0x0B || part[4] == 0x0C;
        if (fat32 && first != 0 && place.base + place.bytes <= card.size) places.push_back(place);
    }
    return places;
}

bool IsStreamStart(const uint8_t* at, size_t length) {
    return length >= record_file::kStreamHeadSize + 4 &&
           std::memcmp(at, record_file::kStreamHead, record_file::kStreamHeadSize) == 0 &&
           std::memcmp(at + record_file::kStreamHeadSize, "\0\0\1\xBA", 4) == 0;
}

bool IsIndex(const uint8_t* at) {
    RecordSystemInfoHead_S head;
    std::memcpy(&head, at, sizeof head);
    return AV_SystemInfoHeadCheck(&head) == 0 && head.m_u32SystemInfoCrc == RECORD_SYSTEM_CHECK_WORD &&
           head.m_u32RecordFileSum <= RECORD_FILE_MAX;
}

// How much of the card agrees with one layout.
class Witness {
  public:
    Witness(const Searched& card, const Place& place) : card_(card), base_(place.base) {}

    int Weigh(const prestore::VolumePlan& plan) {
        int evidence = WeighIndex(plan) + WeighTables(plan) + WeighDirectory(plan);
        for (uint32_t i = 0; i + prestore::kFixedFiles < plan.Files(); ++i) {
            const uint64_t offset = base_ + plan.ClusterOffset(plan.File(i).first_cluster);
            if (StreamAt(offset)) evidence += i < plan.store.picture_num ? -20 : 20;
        }
        return evidence;
    }

  private:
    int WeighIndex(const prestore::VolumePlan& plan) const {
        uint8_t head[kSector];
        const uint64_t offset = base_ + plan.IndexHeads().offset;
        if (card_.read(offset, head, sizeof head) != sizeof head || !IsIndex(head)) return 0;
        RecordSystemInfoHead_S system;
        std::memcpy(&system, head, sizeof system);
        return system.m_u32RecordFileSum == plan.store.vedio_num ? 1000 : 10;
    }

    int WeighTables(const prestore::VolumePlan& plan) const {
        int agreeing = 0;
        for (uint32_t copy = 0; copy < prestore::kFats; ++copy) {
            for (uint32_t i = 0; i < std::min(plan.Files(), 64u); ++i) {
                const uint32_t last =
                    plan.File(i).first_cluster +
                    (i + prestore::kFixedFiles < plan.Files() ? plan.clusters_per_file : plan.clusters_per_fixed_file) -
                    1;
                uint32_t entry = 0;
                card_.read(base_ + plan.FatOffset() + copy * plan.FatBytes() + uint64_t{last} * 4, &entry,
                           sizeof entry);
                agreeing += (entry & kEntryMask) == prestore::kChainEnd ? 1 : 0;
            }
        }
        return agreeing;
    }

    int WeighDirectory(const prestore::VolumePlan& plan) const {
        int agreeing = 0;
        for (uint32_t i = 0; i < std::min(plan.Files(), 64u); ++i) {
            char entry[64];
            if (card_.read(base_ + plan.ClusterOffset(prestore::kRootCluster) + uint64_t{i} * 64, entry,
                           sizeof entry) != sizeof entry)
                break;
            agreeing += prestore::ShortName(plan.File(i).name) == std::string(entry + 32, 11) ? 2 : 0;
        }
        return agreeing;
    }

    bool StreamAt(uint64_t offset) {
        const auto [known, is_new] = streams_.try_emplace(offset, false);
        if (is_new) {
            uint8_t bytes[kSector];
            known->second = IsStreamStart(bytes, card_.read(offset, bytes, sizeof bytes));
        }
        return known->second;
    }

    const Searched& card_;
    uint64_t base_;
    std::map<uint64_t, bool> streams_;  // by place
};

// Writes what a volume's own structures lack.
class Restorer {
  public:
    Restorer(const Device& device, const FoundLayout& layout, WriteJournal& journal)
        : device_(device), plan_(layout.plan), base_(layout.base), journal_(journal) {
        gettimeofday(&now_, nullptr);
    }

    std::vector<std::string> Run() {
        RestoreTables();
        RestoreDirectory();
        device_.Sync();
        RestoreBoot();
        device_.Sync();
        return std::move(done_);
    }

  private:
    template <typename Item>
    bool WriteWhereDifferent(uint64_t offset, const std::vector<Item>& items) {
        return journal_.Write(device_, offset, items.data(), items.size() * sizeof(Item));
    }

    // A sector of one and the same mark over and over is no table, nor is one that names clusters which are not there.
    void ClearNoTable(std::vector<uint32_t>& entries) const {
        constexpr size_t kPerSector = kSector / 4;
        const auto impossible = [this](uint32_t entry) {
            return (entry & kEntryMask) >= plan_.clusters + 2 && (entry & kEntryMask) < kBadMark;
        };
        for (size_t first = 0; first + kPerSector <= entries.size(); first += kPerSector) {
            const auto begin = entries.begin() + static_cast<ptrdiff_t>(first);
            const auto end = begin + kPerSector;
            if (std::all_of(begin, end, [begin](uint32_t entry) { return entry == *begin; }) ||
                std::any_of(begin, end, impossible)) {
                std::fill(begin, end, 0);
            }
        }
    }

    void RestoreTables() {
        bool changed = false;
        std::vector<uint32_t> planned(static_cast<size_t>(std::min<uint64_t>(kPiece, plan_.FatBytes()) / 4));
        std::vector<uint32_t> copies[2] = {planned, planned};
        for (uint64_t at = 0; at < plan_.FatBytes(); at += kPiece) {
            const size_t entries = static_cast<size_t>(std::min<uint64_t>(kPiece, plan_.FatBytes() - at) / 4);
            planned.resize(entries);
            prestore::FillFat(plan_, at, std::as_writable_bytes(std::span(planned)));
            for (uint32_t copy = 0; copy < 2; ++copy) {
                copies[copy].assign(entries, 0);
                device_.ReadAt(base_ + plan_.FatOffset() + copy * plan_.FatBytes() + at, copies[copy].data(),
                               entries * 4);
                ClearNoTable(copies[copy]);
            }
            for (size_t i = 0; i < entries; ++i) {
                const uint64_t cluster = at / 4 + i;
                const bool marks = cluster < prestore::kRootCluster;  // volume state: may differ
                const bool kept = marks && (copies[0][i] & 0x03FFFFFF) == (planned[i] & 0x03FFFFFF);
                if (kept) planned[i] = copies[0][i];
                const bool free = planned[i] == 0 && cluster < uint64_t{plan_.clusters} + 2;  // for files of others
                if (free) planned[i] = copies[0][i] != 0 ? copies[0][i] : copies[1][i];
            }
            for (uint32_t copy = 0; copy < 2; ++copy) {
                changed =
                    WriteWhereDifferent(base_ + plan_.FatOffset() + copy * plan_.FatBytes() + at, planned) || changed;
            }
        }
        if (changed) done_.push_back("allocation tables rebuilt");
    }

    static bool SameFile(const std::byte* entry, const std::byte* planned) {
        return std::memcmp(entry, planned, kStampBegin) == 0 &&
               std::memcmp(entry + kStampEnd, planned + kStampEnd, kWriteBegin - kStampEnd) == 0 &&
               std::memcmp(entry + kWriteEnd, planned + kWriteEnd, 64 - kWriteEnd) == 0;
    }

    void RestoreDirectory() {
        const std::vector<std::byte> planned = prestore::RootDirectory(plan_, now_);
        const uint64_t offset = base_ + plan_.ClusterOffset(prestore::kRootCluster);
        std::vector<std::byte> present(planned.size());
        device_.ReadAt(offset, present.data(), present.size());
        uint32_t mended = 0;
        for (uint32_t i = 0; i < plan_.Files(); ++i) {
            if (SameFile(&present[size_t{i} * 64], &planned[size_t{i} * 64])) continue;
            std::memcpy(&present[size_t{i} * 64], &planned[size_t{i} * 64], 64);
            ++mended;
        }
        if (mended == 0) return;
        ClearNonsense(present);
        WriteWhereDifferent(offset, present);
        done_.push_back(std::to_string(mended) + " directory entries rebuilt");
    }

    // After the store's entries: those of other files stay, bytes that cannot be entries go.
    void ClearNonsense(std::vector<std::byte>& directory) const {
        for (size_t at = size_t{plan_.Files()} * 64; at < directory.size(); at += 32) {
            const uint8_t* entry = reinterpret_cast<const uint8_t*>(&directory[at]);
            const bool long_name = entry[11] == 0x0F && entry[12] == 0 && entry[26] == 0 && entry[27] == 0;
            const uint32_t cluster = (entry[20] | entry[21] << 8) << 16 | entry[26] | entry[27] << 8;
            const bool plausible = entry[0] == 0 || entry[0] == 0xE5 || long_name ||
                                   ((entry[11] & 0xC0) == 0 && entry[0] > 0x20 && cluster < plan_.clusters + 2);
            if (!plausible) {
                std::fill(directory.begin() + static_cast<ptrdiff_t>(at), directory.end(), std::byte{0});
                return;
            }
        }
    }

    static bool Describes(const uint8_t* boot, const std::byte* planned) {
        const uint8_t* wanted = reinterpret_cast<const uint8_t*>(planned);
        return std::memcmp(boot + 11, wanted + 11, 13) == 0 && std::memcmp(boot + 32, wanted + 32, 20) == 0 &&
               std::memcmp(boot + 82, wanted + 82, 8) == 0 && std::memcmp(boot + 510, wanted + 510, 2) == 0;
    }

    void RestoreBoot() {
        const size_t sector = plan_.device.sector_bytes;
        const std::vector<std::byte> planned = prestore::ReservedSectors(plan_, prestore::VolumeId(now_));
        std::vector<uint8_t> present(planned.size());
        device_.ReadAt(base_, present.data(), present.size());
        uint8_t* const copies[2] = {present.data(), present.data() + prestore::kBackupSector * sector};
        const bool good[2] = {Describes(copies[0], planned.data()), Describes(copies[1], planned.data())};
        for (int copy = 0; copy < 2; ++copy) {
            if (!good[copy])
                std::memcpy(copies[copy],
                            good[1 - copy] ? copies[1 - copy] : reinterpret_cast<const uint8_t*>(planned.data()),
                            kSector);
            uint8_t* const info = copies[copy] + sector;
            const uint8_t* const wanted = reinterpret_cast<const uint8_t*>(planned.data()) + sector;
            const bool signed_right =
                std::memcmp(info, wanted, 4) == 0 && std::memcmp(info + 484, wanted + 484, 4) == 0;
            if (!signed_right) std::memcpy(info, wanted, kSector);
        }
        if (good[0]) std::memcpy(copies[1], copies[0], kSector);
        if (WriteWhereDifferent(base_, present)) done_.push_back("boot sectors rebuilt");
    }

    const Device& device_;
    const prestore::VolumePlan& plan_;
    uint64_t base_;
    WriteJournal& journal_;
    timeval now_{};
    std::vector<std::string> done_;
};

struct Beginnings {
    std::vector<uint64_t> streams;
    std::optional<uint64_t> index;
    std::optional<uint64_t> events;
};

Beginnings FindBeginnings(const Searched& card, const CarveProgress& progress) {
    Beginnings found;
    std::vector<uint8_t> bytes(static_cast<size_t>(std::min<uint64_t>(kPiece, card.size)));
    for (uint64_t at = 0; at < card.size; at += kPiece) {
        const size_t got = card.read(at, bytes.data(), bytes.size());
        for (size_t sector = 0; sector + kSector <= got; sector += kSector) {
            const uint8_t* here = bytes.data() + sector;
            uint32_t flag = 0;
            std::memcpy(&flag, here, sizeof flag);
            AlarmEventHead_S events;
            std::memcpy(&events, here, sizeof events);
            if (IsStreamStart(here, kSector)) found.streams.push_back(at + sector);
            if (!found.index && flag == RECORD_SYSTEM_FLAG && IsIndex(here)) found.index = at + sector;
            if (!found.events && flag == ALARM_EVENT_FLAG && events.m_u32AlarmFileNo == 0) found.events = at + sector;
        }
        if (progress) progress(at, card.size);
    }
    return found;
}

// A record file's beginning has the first key-frame record in its place after it.
bool HasKeyFrames(const Searched& card, uint64_t offset) {
    KeyFrameInfoHead_S record{};
    return card.read(offset + RECORD_KEY_FRAME_BASE, &record, sizeof record) == sizeof record &&
           record.m_u32KeyFrameHeadFlag == RECORD_KEY_FRAME_FLAG && record.m_u32KeyFilePos == 0;
}

// What the first bytes of a file say it is.
enum class Mark { None, Index, Events, Stream };

Mark MarkAt(const Device& device, uint64_t offset) {
    uint8_t bytes[kSector];
    const size_t got = device.ReadAt(offset, bytes, sizeof bytes);
    if (got == sizeof bytes && IsIndex(bytes)) return Mark::Index;
    if (IsStreamStart(bytes, got)) return Mark::Stream;
    return got == sizeof bytes && std::memcmp(bytes, "AEMF", 4) == 0 ? Mark::Events : Mark::None;
}

Mark MarkOf(const std::string& name) {
    if (name == RECORD_INDEX_NAME) return Mark::Index;
    if (name == RECORD_EVENT_NAME) return Mark::Events;
    return name.size() > 4 && name.compare(name.size() - 4, 4, ".mp4") == 0 ? Mark::Stream : Mark::None;
}

// Nothing for a file that the directory lacks or has in another size.
std::optional<bool> LiesAsPlanned(const Volume& volume, const FoundLayout& layout, uint32_t number) {
    const prestore::StoredFile planned = layout.plan.File(number);
    if (!volume.Has(planned.name)) return std::nullopt;
    const StoreFile file = volume.OpenFile(planned.name);
    if (file.Size() != planned.size || file.Reachable() != file.Size() || file.Extents().size() != 1)
        return std::nullopt;
    return file.Extents()[0].offset == layout.base + layout.plan.ClusterOffset(planned.first_cluster);
}

}  // namespace

Searched::Searched(const Device& device)
    : size(device.Size()),
      read([&device](uint64_t offset, void* buffer, size_t length) { return device.ReadAt(offset, buffer, length); }) {}

Searched::Searched(std::shared_ptr<const Device> device, Salvage& salvage)
    : size(device->Size()), read([device, &salvage](uint64_t offset, void* buffer, size_t length) {
          return salvage.ReadAt(device, offset, buffer, length, "", offset);
      }) {}

std::optional<FoundLayout> FindLayout(const Searched& card) {
    constexpr int kEvidenceMin = 20;  // a record file in its place, or a good part of tables or directory
    std::optional<FoundLayout> best;
    for (const Place& place : Places(card)) {
        Witness witness(card, place);
        std::set<std::pair<uint32_t, uint32_t>> tried;
        for (int percent = 100; percent >= 1; --percent) {
            FoundLayout layout{.base = place.base, .plan = {}, .evidence = 0};
            const prestore::DeviceShape shape{.bytes = place.bytes,
                                              .hidden_sectors = static_cast<uint32_t>(place.base / kSector)};
            if (!prestore::PlanVolume(shape, percent, layout.plan).empty()) continue;
            if (layout.plan.store.vedio_num == 0) continue;  // no recording card
            if (!tried.emplace(layout.plan.store.picture_num, layout.plan.store.vedio_num).second) continue;
            layout.evidence = witness.Weigh(layout.plan);
            if (layout.evidence >= kEvidenceMin && (!best || layout.evidence > best->evidence)) best = layout;
        }
    }
    return best;
}

std::vector<std::string> RestoreVolume(const Device& device, const FoundLayout& layout, WriteJournal& journal) {
    return Restorer(device, layout, journal).Run();
}

bool LiesSo(const Volume& volume, const FoundLayout& layout) {
    int where_planned = 0;
    int elsewhere = 0;
    for (uint32_t i = 0; i < layout.plan.Files(); ++i) {
        const std::optional<bool> there = LiesAsPlanned(volume, layout, i);
        if (there) (*there ? where_planned : elsewhere) += 1;
    }
    return where_planned >= elsewhere;
}

std::vector<std::string> Misplaced(const Volume& volume, const FoundLayout& layout) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < layout.plan.Files(); ++i) {
        if (LiesAsPlanned(volume, layout, i).value_or(true)) continue;
        const prestore::StoredFile planned = layout.plan.File(i);
        const uint64_t place = layout.base + layout.plan.ClusterOffset(planned.first_cluster);
        const uint64_t present = volume.OpenFile(planned.name).Extents()[0].offset;
        const Mark wanted = MarkOf(planned.name);
        const Mark here = MarkAt(*volume.Raw(), present);
        if (MarkAt(*volume.Raw(), place) == wanted || (here != Mark::None && here != wanted))
            names.push_back(planned.name);
    }
    return names;
}

std::vector<CarvedFile> CarveFiles(const Searched& card, const CarveProgress& progress) {
    const Beginnings found = FindBeginnings(card, progress);
    std::vector<uint64_t> starts;
    const auto overlaps = [&starts](uint64_t offset) {
        return std::any_of(starts.begin(), starts.end(), [offset](uint64_t start) {
            return std::max(start, offset) - std::min(start, offset) < RECORD_FILE_SIZE;
        });
    };
    for (const bool sure : {true, false}) {
        for (const uint64_t offset : found.streams) {
            if (sure == HasKeyFrames(card, offset) && !overlaps(offset)) starts.push_back(offset);
        }
    }
    std::sort(starts.begin(), starts.end());
    std::vector<CarvedFile> files;
    const auto add = [&](std::string name, uint64_t offset, uint64_t length) {
        files.push_back({std::move(name), offset, std::min(length, card.size - offset)});
    };
    if (found.index) add(RECORD_INDEX_NAME, *found.index, record_file::kFixedFileSize);
    if (found.events) add(RECORD_EVENT_NAME, *found.events, record_file::kFixedFileSize);
    for (uint32_t i = 0; i < starts.size(); ++i) {
        char name[32];
        std::snprintf(name, sizeof name, RECORD_FILE_NAME, static_cast<int>(i));
        add(name, starts[i], RECORD_FILE_SIZE);
    }
    return files;
}

}  // namespace card
