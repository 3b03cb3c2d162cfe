#include "volume/CardCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "text/Error.h"

namespace card {

namespace {

constexpr size_t kPiece = 1u << 20;

// Where data begins at or after `offset`; `offset` itself on a device that knows no holes.
uint64_t NextData(const Device& from, uint64_t offset, uint64_t end) {
    const off64_t data = lseek64(from.Descriptor(), static_cast<off64_t>(offset), SEEK_DATA);
    if (data < 0) return errno == ENXIO ? end : offset;
    return std::min(static_cast<uint64_t>(data), end);
}

bool AllZero(const std::vector<char>& bytes, size_t length) {
    return std::all_of(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length), [](char c) { return c == 0; });
}

}  // namespace

void CopySparse(const Device& from, const std::vector<Extent>& extents, const std::string& path, uint64_t size,
                const CopyProgress& progress) {
    const int created = open64(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (created < 0) throw SystemError(path + ": cannot create it", errno);
    const bool sized = ftruncate64(created, static_cast<off64_t>(size)) == 0;
    close(created);
    if (!sized) throw SystemError(path + ": cannot make it large enough", errno);
    const Device to = Device::Open(path, Access::ReadWrite);
    std::vector<char> bytes(kPiece);
    uint64_t begin = 0;  // of the extent, in the copy
    for (const Extent& extent : extents) {
        const uint64_t end = extent.offset + std::min(extent.length, size - begin);
        for (uint64_t at = extent.offset; at < end;) {
            const uint64_t data = NextData(from, at, end);
            const size_t got =
                from.ReadAt(data, bytes.data(), static_cast<size_t>(std::min<uint64_t>(kPiece, end - data)));
            if (got != 0 && !AllZero(bytes, got)) to.WriteAt(begin + (data - extent.offset), bytes.data(), got);
            if (progress) progress(data - at + got);
            if (got == 0) break;  // the end of a cut image, or of its data
            at = data + got;
        }
        begin += end - extent.offset;
    }
    to.Sync();
}

}  // namespace card
