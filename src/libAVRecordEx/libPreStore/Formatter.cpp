#include "Formatter.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "VolumeImage.h"

namespace prestore {

namespace {

class Pass {
  public:
    Pass(BlockDevice& device, const VolumePlan& plan, timeval now, const FormatOptions& options, uint64_t& written)
        : device_(device),
          plan_(plan),
          now_(now),
          options_(options),
          written_(written),
          buffer_(static_cast<std::byte*>(std::aligned_alloc(4096, kBufferBytes)), &std::free) {}

    std::string Run() {
        if (buffer_ == nullptr) {
            return "out of memory";
        }
        const uint32_t sector = plan_.device.sector_bytes;
        const std::vector<std::byte> boot = ReservedSectors(plan_, VolumeId(now_));
        const std::span<const std::byte> reserved(boot);
        const bool ok = WriteZeros({0, sector}) && Flush() && WriteTables() && WriteZeros(plan_.EventHeads()) &&
                        WriteIndexHeads() && Flush() && Write(sector, reserved.subspan(sector)) && Flush() &&
                        Write(0, reserved.first(sector)) && Flush();
        return ok ? std::string() : failure_;
    }

  private:
    // Calls `fill(offset, piece)` for buffer-sized pieces of `extent` and writes each.
    template <typename Fill>
    bool WritePieces(Extent extent, Fill fill) {
        const uint64_t end = extent.offset + extent.length;
        for (uint64_t at = extent.offset; at < end;) {
            const uint64_t next = std::min(end, (at / kBufferBytes + 1) * kBufferBytes);
            const std::span<std::byte> piece(buffer_.get(), static_cast<size_t>(next - at));
            fill(at, piece);
            if (!Write(at, piece)) {
                return false;
            }
            at = next;
        }
        return true;
    }

    bool WriteZeros(Extent extent) {
        return WritePieces(extent,
                           [](uint64_t, std::span<std::byte> piece) { std::memset(piece.data(), 0, piece.size()); });
    }

    // Everything from sector 0 (still zero) to the directory's end is one run of whole buffers.
    bool WriteTables() {
        const std::vector<std::byte> directory = RootDirectory(plan_, now_);
        const uint64_t fats = plan_.FatOffset();
        const uint64_t root = fats + kFats * plan_.FatBytes();
        return WritePieces({0, root + directory.size()}, [&](uint64_t at, std::span<std::byte> piece) {
            while (!piece.empty()) {
                const uint64_t border = at < fats                      ? fats
                                        : at < fats + plan_.FatBytes() ? fats + plan_.FatBytes()
                                        : at < root                    ? root
                                                                       : root + directory.size();
                const std::span<std::byte> part =
                    piece.first(static_cast<size_t>(std::min<uint64_t>(piece.size(), border - at)));
                if (at < fats) {
                    std::memset(part.data(), 0, part.size());
                } else if (at < root) {
                    FillFat(plan_, (at - fats) % plan_.FatBytes(), part);
                } else {
                    std::memcpy(part.data(), &directory[static_cast<size_t>(at - root)], part.size());
                }
                at += part.size();
                piece = piece.subspan(part.size());
            }
        });
    }

    bool WriteIndexHeads() {
        const Extent heads = plan_.IndexHeads();
        RecordSystemInfoHead_S system{};
        if (options_.system_head) {
            AV_SystemInfoHeadParamInit(&system, static_cast<uint32_t>(plan_.store.total_size_byte),
                                       plan_.store.vedio_num);
        }
        return WritePieces(heads, [&](uint64_t at, std::span<std::byte> piece) {
            std::memset(piece.data(), 0, piece.size());
            if (at == heads.offset) {
                std::memcpy(piece.data(), &system, sizeof system);
            }
        });
    }

    bool Write(uint64_t offset, std::span<const std::byte> bytes) {
        if (!device_.Write(offset, bytes)) {
            return Fail("write of " + std::to_string(bytes.size()) + " bytes at byte " + std::to_string(offset));
        }
        written_ += bytes.size();
        if (options_.progress) {
            options_.progress(written_, total_);
        }
        return true;
    }

    bool Flush() { return device_.Flush() || Fail("flush after " + std::to_string(written_) + " bytes"); }

    bool Fail(const std::string& what) {
        failure_ = what + ": " + std::strerror(errno);
        return false;
    }

    BlockDevice& device_;
    const VolumePlan& plan_;
    const timeval now_;
    const FormatOptions& options_;
    uint64_t& written_;
    const uint64_t total_ = CountBytes(plan_).total;
    std::unique_ptr<std::byte, decltype(&std::free)> buffer_;
    std::string failure_;
};

}  // namespace

WrittenBytes CountBytes(const VolumePlan& plan) {
    const uint64_t sector = plan.device.sector_bytes;
    const uint64_t reserved = kReservedSectors * sector;
    const uint64_t directory = uint64_t{plan.directory_clusters} * plan.ClusterBytes();
    const uint64_t heads = plan.EventHeads().length + plan.IndexHeads().length;
    // Without: sector 0 zeroed beforehand and again in the pass, the FATs' alignment, the directory's empty
    // sectors, and the unused stretch between the index's file heads and section heads.
    const uint64_t entries = plan.WholeSectors(uint64_t{plan.Files()} * sizeof(DirectoryEntry));
    const uint64_t file_heads =
        plan.WholeSectors(RECORD_FILE_HEAD_BASE + uint64_t{sizeof(RecordFileInfoHead_S)} * plan.store.vedio_num);
    return {.total = sector + reserved + kFats * plan.FatBytes() + directory + heads + reserved,
            .smallest = reserved + kFats * uint64_t{plan.smallest_fat_sectors} * sector + entries + heads -
                        (RECORD_SECTION_BASE - file_heads)};
}

std::string WriteVolume(BlockDevice& device, const VolumePlan& plan, timeval now, const FormatOptions& options,
                        uint64_t& written) {
    return Pass(device, plan, now, options, written).Run();
}

}  // namespace prestore
