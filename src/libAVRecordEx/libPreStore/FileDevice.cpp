#include "FileDevice.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <mntent.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace prestore {

namespace {

using Status = struct stat64;

bool SameDevice(const Status& a, const Status& b) {
    if (S_ISBLK(a.st_mode) && S_ISBLK(b.st_mode)) {
        return a.st_rdev == b.st_rdev;
    }
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The directory `device` is mounted at, or empty.
std::string MountPoint(const Status& device) {
    const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/self/mounts", "re"),
                                                      [](FILE* file) { return file != nullptr ? endmntent(file) : 0; });
    if (table == nullptr) {
        return {};
    }
    mntent entry{};
    char text[4096];
    while (getmntent_r(table.get(), &entry, text, sizeof text) != nullptr) {
        Status source{};
        if (entry.mnt_fsname[0] == '/' && stat64(entry.mnt_fsname, &source) == 0 && SameDevice(source, device)) {
            return entry.mnt_dir;
        }
    }
    return {};
}

// The loop device whose backing file is `file`, or empty.
std::string LoopDevice(const Status& file) {
    const std::unique_ptr<DIR, int (*)(DIR*)> blocks(
        opendir("/sys/block"), [](DIR* directory) { return directory != nullptr ? closedir(directory) : 0; });
    while (const dirent64* entry = blocks != nullptr ? readdir64(blocks.get()) : nullptr) {
        if (strncmp(entry->d_name, "loop", 4) != 0) {
            continue;
        }
        const std::string setting = std::string("/sys/block/") + entry->d_name + "/loop/backing_file";
        char path[4096] = {};
        const int fd = open(setting.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            continue;  // not attached
        }
        const ssize_t length = read(fd, path, sizeof path - 1);
        close(fd);
        Status backing{};
        if (length > 0 && path[length - 1] == '\n') {
            path[length - 1] = '\0';
        }
        if (stat64(path, &backing) == 0 && SameDevice(backing, file)) {
            return std::string("/dev/") + entry->d_name;
        }
    }
    return {};
}

FileDevice::Refusal Failed(const char* what) {
    return {FormatError::kDevice, std::string(what) + ": " + strerror(errno)};
}

FileDevice::Refusal Refused(std::string reason) {
    return {FormatError::kRefused, std::move(reason)};
}

FileDevice::Refusal OpenFailed() {
    switch (errno) {
        case EBUSY:
            return Refused("in use: mounted, or held by another program");
        case EROFS:
        case EACCES:
        case EPERM:
            return Refused(std::string("cannot be written to: ") + strerror(errno));
        default:
            return Failed("cannot open for writing");
    }
}

// Whatever can be known before the device is opened.
FileDevice::Refusal CheckUnused(const Status& status) {
    if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)) {
        return Refused("neither a block device nor an image file");
    }
    if (const std::string place = MountPoint(status); !place.empty()) {
        return Refused("mounted at " + place + "; unmount it first");
    }
    if (const std::string loop = S_ISREG(status.st_mode) ? LoopDevice(status) : ""; !loop.empty()) {
        return Refused("in use as " + loop + "; detach it first");
    }
    return {};
}

}  // namespace

FileDevice::~FileDevice() {
    if (fd_ >= 0) {
        close(fd_);  // drops the lock too
    }
}

FileDevice::Refusal FileDevice::Open(const char* path) {
    Status status{};
    if (stat64(path, &status) != 0) {
        return Failed("cannot open");
    }
    if (Refusal refusal = CheckUnused(status); refusal.error != FormatError::kNone) {
        return refusal;
    }
    // On a block device O_EXCL fails when the device, or a partition of it, is claimed by anyone in the kernel.
    fd_ = open64(path, O_RDWR | O_CLOEXEC | (S_ISBLK(status.st_mode) ? O_EXCL : 0));
    if (fd_ < 0) {
        return OpenFailed();
    }
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        return Refused("in use: another program holds its lock");
    }
    if (fstat64(fd_, &status) != 0) {
        return Failed("cannot read its size");
    }
    return ReadShape(S_ISBLK(status.st_mode), static_cast<uint64_t>(status.st_size));
}

FileDevice::Refusal FileDevice::ReadShape(bool block_device, uint64_t file_bytes) {
    shape_ = {.bytes = file_bytes};
    if (!block_device) {
        return {};
    }
    int read_only = 0;
    if (ioctl(fd_, BLKROGET, &read_only) == 0 && read_only != 0) {
        return Refused("read-only (is the card's lock switch on?)");
    }
    int sector_bytes = 0;
    if (ioctl(fd_, BLKGETSIZE64, &shape_.bytes) != 0 || ioctl(fd_, BLKSSZGET, &sector_bytes) != 0) {
        return Failed("cannot read its size");
    }
    if (sector_bytes != 512 && sector_bytes != 1024 && sector_bytes != 2048 && sector_bytes != 4096) {
        return Refused("sectors of " + std::to_string(sector_bytes) + " bytes, FAT knows 512 to 4096");
    }
    shape_.sector_bytes = static_cast<uint32_t>(sector_bytes);
    hd_geometry geometry{};
    if (ioctl(fd_, HDIO_GETGEO, &geometry) == 0) {
        shape_.hidden_sectors = static_cast<uint32_t>(uint64_t{geometry.start} * 512 / shape_.sector_bytes);
        if (geometry.heads != 0 && geometry.sectors != 0) {
            shape_.heads = geometry.heads;
            shape_.sectors_per_track = geometry.sectors;
        }
    }
    return {};
}

bool FileDevice::Write(uint64_t offset, std::span<const std::byte> bytes) {
    const uint64_t begin = offset;
    for (std::span<const std::byte> rest = bytes; !rest.empty();) {
        const ssize_t written = pwrite64(fd_, rest.data(), rest.size(), static_cast<off64_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        offset += static_cast<uint64_t>(written);
        rest = rest.subspan(static_cast<size_t>(written));
    }
    // Starts the medium at once, so that the card works while the next bytes are made; Flush sees failures.
    sync_file_range(fd_, static_cast<off64_t>(begin), static_cast<off64_t>(bytes.size()), SYNC_FILE_RANGE_WRITE);
    return true;
}

bool FileDevice::Flush() {
    return fsync(fd_) == 0;
}

}  // namespace prestore
