#include "volume/CardCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "text/Error.h"

namespace card {

namespace {

constexpr size_t kPiece = 1u << 20;
constexpr size_t kSector = 512;
constexpr size_t kDirectoryEntry = 32;
constexpr char kDeleted = '\xE5';

// Where data begins at or after `offset`; `offset` itself on a device that knows no holes.
uint64_t NextData(const Device& from, uint64_t offset, uint64_t end) {
    const off64_t data = lseek64(from.Descriptor(), static_cast<off64_t>(offset), SEEK_DATA);
    if (data < 0) return errno == ENXIO ? end : offset;
    return std::min(static_cast<uint64_t>(data), end);
}

bool AllZero(const std::vector<char>& bytes, size_t length) {
    return std::all_of(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length), [](char c) { return c == 0; });
}

class SparseCopy {
  public:
    SparseCopy(const CopySource& source, const Device& to, Salvage& salvage, const CopyProgress& progress)
        : source_(source), to_(to), salvage_(salvage), progress_(progress) {}

    void Run(uint64_t size) {
        uint64_t begin = 0;  // of the extent, in the copy
        for (const Extent& extent : source_.extents) {
            const uint64_t length = std::min(extent.length, size - begin);
            CopyExtent({extent.offset, length}, begin);
            begin += length;
        }
        for (const Piece& piece : failed_) {
            const size_t got =
                salvage_.ReadAt(source_.device, piece.from, bytes_.data(), piece.length, source_.name, piece.to);
            Put(piece.to, got);
            Tell(piece.length);
        }
    }

  private:
    struct Piece {
        uint64_t from;  // on the device
        uint64_t to;    // in the copy
        size_t length;
    };

    void CopyExtent(const Extent& extent, uint64_t begin) {
        const uint64_t end = extent.offset + extent.length;
        for (uint64_t at = extent.offset; at < end;) {
            const uint64_t data = NextData(*source_.device, at, end);
            Tell(data - at);
            const Piece piece{data, begin + (data - extent.offset),
                              static_cast<size_t>(std::min<uint64_t>(kPiece, end - data))};
            at = data + piece.length;
            const std::optional<size_t> got = salvage_.TryAt(source_.device, piece.from, bytes_.data(), piece.length);
            if (!got) {  // a dying card first gives what it can
                failed_.push_back(piece);
                continue;
            }
            Put(piece.to, *got);
            Tell(*got);
            if (*got == 0) break;  // the end of a cut image, or of its data
        }
    }

    void Put(uint64_t to, size_t length) const {
        if (length != 0 && !AllZero(bytes_, length)) to_.WriteAt(to, bytes_.data(), length);
    }

    void Tell(uint64_t bytes) const {
        if (progress_) progress_(bytes);
    }

    const CopySource& source_;
    const Device& to_;
    Salvage& salvage_;
    const CopyProgress& progress_;
    std::vector<char> bytes_ = std::vector<char>(kPiece);
    std::vector<Piece> failed_;
};

// One sector of an image that could not be read, by what else the card tells of it.
void FillSector(const Device& card, const Fat32& fat, const Device& to, uint64_t at) {
    const FatGeometry& g = fat.Geometry();
    const uint64_t table = g.FatOffset(1) - g.FatOffset(0);
    uint8_t sector[kSector];
    if (at < g.FatOffset(0)) {
        if (card.ReadSector(at, sector)) to.WriteAt(at, sector, kSector);
    } else if (at < g.FatOffset(g.fats)) {
        if (g.fats < 2) return;
        to.ReadAt(at < g.FatOffset(1) ? at + table : at - table, sector, kSector);
        to.WriteAt(at, sector, kSector);
    }
}

}  // namespace

void CopySparse(const CopySource& source, const std::string& path, uint64_t size, Salvage& salvage,
                const CopyProgress& progress) {
    const int created = open64(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (created < 0) throw SystemError(path + ": cannot create it", errno);
    const bool sized = ftruncate64(created, static_cast<off64_t>(size)) == 0;
    close(created);
    if (!sized) throw SystemError(path + ": cannot make it large enough", errno);
    const Device to = Device::Open(path, Access::ReadWrite);
    SparseCopy(source, to, salvage, progress).Run(size);
    to.Sync();
}

void FillFromSpares(const Device& card, const std::string& copy, const std::vector<Extent>& unread) {
    std::optional<Fat32> fat;
    try {
        fat.emplace(card);
    } catch (const CardError&) {
        return;  // nothing on the card says what has a spare; the layout may
    }
    const Device to = Device::Open(copy, Access::ReadWrite);
    const uint64_t limit = std::min(fat->Geometry().FatOffset(fat->Geometry().fats), to.Size());
    for (const Extent& place : unread) {
        for (uint64_t at = place.offset / kSector * kSector;
             at + kSector <= std::min(place.offset + place.length, limit); at += kSector)
            FillSector(card, *fat, to, at);
        for (const Extent& part : fat->RootChain().extents) {
            const uint64_t end = std::min({part.offset + part.length, place.offset + place.length, to.Size()});
            for (uint64_t at = std::max(part.offset, place.offset); at < end; at += kDirectoryEntry)
                to.WriteAt(at, &kDeleted, 1);
        }
    }
    to.Sync();
}

}  // namespace card
