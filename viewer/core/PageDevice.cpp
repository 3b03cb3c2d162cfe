// card::Device in a page: the bytes of a picked file come from the page's own functions, the offset as a double,
// which is exact up to 2^53.  (The compiler's own pread loses the upper half of an offset.)  Read-only.
#include <string>
#include <utility>

#include "text/Error.h"
#include "volume/Device.h"

extern "C" {
int PageOpen(const char* path);                                           // a handle; -1: there is no such file
double PageSize(int handle);                                              // bytes
double PageRead(int handle, double offset, void* buffer, double length);  // bytes read; -1: reading failed
int PageReadsAgain(int handle, double offset);                            // past everything that is kept; 0: no
}

namespace card {

Device::Device(std::string path, int fd, uint64_t size, Access access)
    : path_(std::move(path)), fd_(fd), size_(size), access_(access) {}
Device::Device(Device&& other) noexcept
    : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)), size_(other.size_), access_(other.access_) {}
Device::~Device() {}  // handles live as long as the page's card

Device Device::Open(const std::string& path, Access) {
    const int handle = PageOpen(path.c_str());
    if (handle < 0) throw CardError(path + " cannot be opened");
    return Device(path, handle, static_cast<uint64_t>(PageSize(handle)), Access::ReadOnly);
}

Device Device::OpenCard(const std::string& path, Access access) {
    return Open(path, access);
}

size_t Device::ReadAt(uint64_t offset, void* buffer, size_t length) const {
    const double got = PageRead(fd_, static_cast<double>(offset), buffer, static_cast<double>(length));
    if (got < 0) throw CardError(path_ + ": cannot read at byte " + std::to_string(offset));
    return static_cast<size_t>(got);
}

bool Device::ReadSector(uint64_t offset, uint8_t* sector) const {
    return PageRead(fd_, static_cast<double>(offset), sector, 512) == 512;
}

bool Device::ReadsAgain(uint64_t offset) const {
    return PageReadsAgain(fd_, static_cast<double>(offset)) != 0;
}

void Device::WriteAt(uint64_t, const void*, size_t) const {
    throw CardError("A page writes nothing");
}
void Device::Sync() const {}

}  // namespace card
