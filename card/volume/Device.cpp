#include "volume/Device.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <mntent.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "text/Error.h"

namespace card {

namespace {

uint64_t SizeOf(const std::string& path, int fd) {
    struct stat64 status {};
    if (fstat64(fd, &status) != 0) throw SystemError(path, errno);
    if (S_ISREG(status.st_mode)) return static_cast<uint64_t>(status.st_size);
    if (!S_ISBLK(status.st_mode)) throw CardError(path + " is neither a file nor a block device");
    uint64_t size = 0;
    if (ioctl(fd, BLKGETSIZE64, &size) != 0) throw SystemError(path + ": cannot tell the size of the device", errno);
    return size;
}

bool IsBlockDevice(const std::string& path) {
    struct stat64 status {};
    return stat64(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : path;
}

CardError CannotOpen(const std::string& path, int error) {
    switch (error) {
        case EACCES:
        case EPERM:
            return CardError(path + ": no permission; try again with sudo, or as a member of the group \"disk\"");
        case EBUSY:
            return CardError(path + " is in use; unmount it first (umount " + path + ")");
        case EROFS:
            return CardError(path + " is write-protected; look at the switch on the card's adapter");
        case ENOMEDIUM:
            return CardError(path + ": no card in the reader");
        default:
            return SystemError(path, error);
    }
}

// A mount that has just ended lets go of the card a moment later; others keep it.
bool Hold(int fd) {
    constexpr int kTries = 50;
    constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 20'000'000};
    for (int i = 0; i < kTries; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK) return false;
        nanosleep(&kPause, nullptr);
    }
    return false;
}

int OpenDescriptor(const std::string& path, int flags) {
    const int fd = open64(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) throw CannotOpen(path, errno);
    return fd;
}

}  // namespace

std::string MountedAt(const std::string& device) {
    const std::string wanted = RealPath(device);
    const std::unique_ptr<FILE, decltype(&endmntent)> table(setmntent("/proc/self/mounts", "r"), &endmntent);
    if (!table) return "";
    mntent entry{};
    char text[2 * PATH_MAX];
    while (getmntent_r(table.get(), &entry, text, sizeof text) != nullptr) {
        if (entry.mnt_fsname[0] == '/' && RealPath(entry.mnt_fsname) == wanted) return entry.mnt_dir;
    }
    return "";
}

Device::Device(std::string path, int fd, uint64_t size, Access access)
    : path_(std::move(path)), fd_(fd), size_(size), access_(access) {}

Device::Device(Device&& other) noexcept
    : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)), size_(other.size_), access_(other.access_) {}

Device& Device::operator=(Device&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(fd_, other.fd_);
    std::swap(size_, other.size_);
    std::swap(access_, other.access_);
    return *this;
}

Device::~Device() {
    if (fd_ >= 0) close(fd_);
}

Device Device::Open(const std::string& path, Access access) {
    const int fd = OpenDescriptor(path, access == Access::ReadWrite ? O_RDWR : O_RDONLY);
    Device device(path, fd, 0, access);
    device.size_ = SizeOf(path, fd);
    return device;
}

Device Device::OpenCard(const std::string& path, Access access) {
    if (access == Access::ReadOnly) return Open(path, access);
    const std::string mounted = MountedAt(path);
    if (!mounted.empty()) {
        throw CardError(path + " is mounted at " + mounted + "; unmount it first (umount " + mounted + ")");
    }
    // The kernel grants O_EXCL on a block device only while it is not mounted anywhere, in any namespace.
    const int fd = OpenDescriptor(path, O_RDWR | (IsBlockDevice(path) ? O_EXCL : 0));
    Device device(path, fd, 0, access);
    device.size_ = SizeOf(path, fd);
    if (!Hold(fd)) throw CardError(path + " is being written by another program");
    return device;
}

size_t Device::ReadAt(uint64_t offset, void* buffer, size_t length) const {
    size_t done = 0;
    while (done < length) {
        const ssize_t got =
            pread64(fd_, static_cast<char*>(buffer) + done, length - done, static_cast<off64_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw SystemError(path_ + ": cannot read at byte " + std::to_string(offset + done), errno);
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    // A card that was pulled has no bytes: its end is at 0.
    if (done < length && offset + done < size_)
        throw SystemError(path_ + ": it ends at byte " + std::to_string(offset + done) + " now", EIO);
    return done;
}

bool Device::ReadSector(uint64_t offset, uint8_t* sector) const {
    constexpr size_t kSector = 512;
    const std::string self = std::string("/proc/self/fd/").append(std::to_string(fd_));
    const int direct = open64(self.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
    if (direct < 0) return false;
    alignas(4096) uint8_t bytes[kSector];
    const ssize_t got = pread64(direct, bytes, kSector, static_cast<off64_t>(offset));
    close(direct);
    if (got != static_cast<ssize_t>(kSector)) return false;
    std::memcpy(sector, bytes, kSector);
    return true;
}

bool Device::ReadsAgain(uint64_t offset) const {
    constexpr uint64_t kKept = 1u << 20;  // what a system keeps in memory is let go in pieces of up to this
    if (const int error =
            posix_fadvise64(fd_, static_cast<off64_t>(offset / kKept * kKept), kKept, POSIX_FADV_DONTNEED);
        error != 0) {
        return false;
    }
    char byte = 0;
    ssize_t got = -1;
    do {
        got = pread64(fd_, &byte, 1, static_cast<off64_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got == 1;
}

void Device::WriteAt(uint64_t offset, const void* buffer, size_t length) const {
    if (!Writable()) throw CardError(path_ + " was opened for reading only");
    if (offset > size_ || length > size_ - offset) {
        throw CardError(path_ + ": a write at byte " + std::to_string(offset) + " would reach past its end");
    }
    size_t done = 0;
    while (done < length) {
        const ssize_t put =
            pwrite64(fd_, static_cast<const char*>(buffer) + done, length - done, static_cast<off64_t>(offset + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) throw SystemError(path_ + ": cannot write at byte " + std::to_string(offset + done), errno);
        done += static_cast<size_t>(put);
    }
}

void Device::Sync() const {
    if (fdatasync(fd_) != 0) throw SystemError(path_ + ": cannot bring the data onto the card", errno);
}

}  // namespace card
