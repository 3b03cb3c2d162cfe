#include "volume/Volume.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>

#include "libRecordFile.h"
#include "text/Error.h"

namespace card {

namespace fs = std::filesystem;

namespace {

// One that is there and cannot be looked at is told when it is opened.
bool MayBeFile(const fs::path& path) {
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    return type == fs::file_type::regular || type == fs::file_type::none || type == fs::file_type::unknown;
}

}  // namespace

// Calls transfer(offset on the device, bytes done before, bytes) for each part of [offset, offset + length)
// of the file; stops early when a transfer comes short.
template <typename Transfer>
size_t StoreFile::ForEachExtent(uint64_t offset, size_t length, Transfer transfer) const {
    size_t done = 0;
    uint64_t begin = 0;  // of the extent, in the file
    for (const Extent& extent : extents_) {
        const uint64_t at = offset + done;
        if (done < length && at < begin + extent.length) {
            const uint64_t inside = at - begin;
            const size_t part = static_cast<size_t>(std::min<uint64_t>(length - done, extent.length - inside));
            const size_t moved = transfer(extent.offset + inside, done, part);
            done += moved;
            if (moved != part) break;
        }
        begin += extent.length;
    }
    return done;
}

size_t StoreFile::ReadAt(uint64_t offset, void* buffer, size_t length) const {
    if (offset >= reachable_) return 0;
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(length, reachable_ - offset));
    return ForEachExtent(offset, wanted, [&](uint64_t place, size_t done, size_t part) {
        char* const into = static_cast<char*>(buffer) + done;
        return salvage_ ? salvage_->ReadAt(device_, place, into, part, name_, offset + done)
                        : device_->ReadAt(place, into, part);
    });
}

void StoreFile::WriteAt(uint64_t offset, const void* buffer, size_t length) const {
    if (offset > reachable_ || length > reachable_ - offset) {
        throw CardError(name_ + ": a write at byte " + std::to_string(offset) + " would reach past its end");
    }
    ForEachExtent(offset, length, [&](uint64_t place, size_t done, size_t part) {
        device_->WriteAt(place, static_cast<const char*>(buffer) + done, part);
        return part;
    });
}

void StoreFile::Sync() const {
    device_->Sync();
}

bool StoreFile::ReadsAgain(uint64_t offset) const {
    const size_t again = ForEachExtent(
        offset, 1, [&](uint64_t place, size_t, size_t part) { return device_->ReadsAgain(place) ? part : 0; });
    return again == 1;
}

Volume Volume::Open(const std::string& path, Access access) {
    struct stat64 status {};
    if (stat64(path.c_str(), &status) != 0) {
        throw SystemError(path, errno);
    }
    Volume volume;
    volume.path_ = path;
    volume.access_ = access;
    if (S_ISDIR(status.st_mode)) return volume;
    volume.device_ = std::make_shared<Device>(Device::OpenCard(path, access));
    volume.fat_ = std::make_shared<Fat32>(*volume.device_);
    if (access == Access::ReadWrite && !volume.fat_->RootIsWhole()) {
        throw CardError(path + ": not all of its directory can be read, so it is not written to (" +
                        volume.fat_->Unread().back().why + ")");
    }
    return volume;
}

Volume Volume::OpenToSalvage(const std::string& path, std::chrono::minutes patience) {
    Volume volume = Open(path);
    volume.salvage_ = std::make_shared<Salvage>(patience);
    return volume;
}

std::vector<UnreadPart> Volume::Unread() const {
    return salvage_ ? salvage_->Unread() : std::vector<UnreadPart>();
}

bool Volume::DirectoryIsWhole() const {
    return !fat_ || fat_->RootIsWhole();
}

bool Volume::Gone() const {
    return salvage_ && salvage_->Gone();
}

std::vector<std::string> Volume::Names() const {
    std::vector<std::string> names;
    if (IsFolder()) {
        for (const fs::directory_entry& entry : fs::directory_iterator(path_)) {
            if (MayBeFile(entry.path())) names.push_back(entry.path().filename().string());
        }
    } else {
        for (const DirectoryEntry& entry : fat_->Root()) {
            if (!entry.IsDirectory()) names.push_back(entry.name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool Volume::Has(const std::string& name) const {
    if (IsFolder()) return MayBeFile(fs::path(path_) / name);
    const DirectoryEntry* entry = fat_->Find(name);
    return entry != nullptr && !entry->IsDirectory();
}

StoreFile Volume::OpenFile(const std::string& name) const {
    if (!Has(name)) throw CardError(path_ + " has no file " + name);
    StoreFile file;
    file.name_ = name;
    file.salvage_ = salvage_;
    if (IsFolder()) {
        file.device_ = std::make_shared<Device>(Device::Open((fs::path(path_) / name).string(), access_));
        file.size_ = file.reachable_ = file.device_->Size();
        file.extents_ = {{0, file.size_}};
        return file;
    }
    const DirectoryEntry& entry = *fat_->Find(name);
    file.device_ = device_;
    file.size_ = entry.size;
    uint64_t left = entry.size;
    const Chain chain = fat_->FileChain(entry);
    if (chain.end == ChainEnd::Unread && chain.bytes < entry.size)
        throw CardError("neither allocation table can be read where it leads to " + name);
    for (Extent extent : chain.extents) {
        const uint64_t on_device = extent.offset < device_->Size() ? device_->Size() - extent.offset : 0;
        const uint64_t present = std::min(extent.length, on_device);  // a cut image ends inside the volume
        extent.length = std::min(present, left);
        if (extent.length == 0) break;
        file.extents_.push_back(extent);
        file.reachable_ += extent.length;
        left -= extent.length;
    }
    return file;
}

std::string Volume::RecordFileName(uint32_t number) {
    char name[32];
    std::snprintf(name, sizeof name, RECORD_FILE_NAME, static_cast<int>(number));
    return name;
}

std::optional<uint32_t> Volume::RecordFileNumber(const std::string& name) {
    uint32_t number = 0;
    const size_t digits = std::min(name.find_first_of("0123456789"), name.size());
    std::from_chars(name.data() + digits, name.data() + name.size(), number);
    if (name != RecordFileName(number)) return std::nullopt;
    return number;
}

uint64_t Volume::TotalBytes() const {
    if (!IsFolder()) return uint64_t{fat_->Geometry().total_sectors} * fat_->Geometry().bytes_per_sector;
    struct statvfs64 status {};
    if (statvfs64(path_.c_str(), &status) != 0) throw SystemError(path_, errno);
    return uint64_t{status.f_blocks} * status.f_frsize;
}

}  // namespace card
