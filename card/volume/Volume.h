// A record store wherever it lies: a mounted card or any folder, a block device, or an image file.
//
// Owns the open device or folder.  Never creates, grows, moves or removes a file; writes only when opened
// ReadWrite, and then in place.  A Volume belongs to one thread; its StoreFiles may be used by any.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "volume/Device.h"
#include "volume/Fat32.h"
#include "volume/Salvage.h"

namespace card {

// One file of the store, open for as long as it lives.  Cheap to copy; may outlive its Volume.
class StoreFile {
  public:
    const std::string& Name() const { return name_; }
    uint64_t Size() const { return size_; }            // bytes the directory gives it
    uint64_t Reachable() const { return reachable_; }  // bytes that it really leads to; less when damaged

    // Reads up to `length` bytes at `offset`; less only at Reachable().  Throws CardError when reading fails, unless
    // the volume was opened to salvage.
    size_t ReadAt(uint64_t offset, void* buffer, size_t length) const;
    // Writes all of it inside Reachable(); throws CardError otherwise, or when the volume is read-only.
    void WriteAt(uint64_t offset, const void* buffer, size_t length) const;
    void Sync() const;
    bool ReadsAgain(uint64_t offset) const;  // see Device

    // Where its bytes lie on the device, in order; for a folder one extent of the file itself.
    const std::vector<Extent>& Extents() const { return extents_; }
    int Descriptor() const { return device_->Descriptor(); }  // what the extents count in

    // One whole record at `offset`; nothing when the file ends before.
    template <typename Record>
    std::optional<Record> Get(uint64_t offset) const {
        Record record;
        if (ReadAt(offset, &record, sizeof record) != sizeof record) return std::nullopt;
        return record;
    }

  private:
    friend class Volume;
    template <typename Transfer>
    size_t ForEachExtent(uint64_t offset, size_t length, Transfer transfer) const;

    std::string name_;
    uint64_t size_ = 0;
    uint64_t reachable_ = 0;
    std::vector<Extent> extents_;
    std::shared_ptr<const Device> device_;
    std::shared_ptr<Salvage> salvage_;  // null: a read that fails throws
};

class Volume {
  public:
    // Throws CardError that says what to do when there is no store to be read at `path`.
    static Volume Open(const std::string& path, Access access = Access::ReadOnly);
    // For reading what can be read: zeros stand for the rest, which Unread() tells.
    static Volume OpenToSalvage(const std::string& path, std::chrono::minutes patience = std::chrono::minutes(10));

    const std::string& Path() const { return path_; }
    bool IsFolder() const { return device_ == nullptr; }
    bool Writable() const { return access_ == Access::ReadWrite; }

    // Files of the root directory or folder, sorted by name; no subfolders.
    std::vector<std::string> Names() const;
    bool Has(const std::string& name) const;
    // The file called `name` (ASCII case does not matter on FAT); throws CardError when there is none.
    StoreFile OpenFile(const std::string& name) const;
    static std::string RecordFileName(uint32_t number);                        // "hi000000.mp4"
    static std::optional<uint32_t> RecordFileNumber(const std::string& name);  // none: no record file has that name

    bool DirectoryIsWhole() const;           // files that are not found are not there
    std::vector<UnreadPart> Unread() const;  // so far
    bool Gone() const;                       // opened to salvage, and nothing can be read any more

    uint64_t TotalBytes() const;                         // of the card
    const Device* Raw() const { return device_.get(); }  // null for a folder
    const Fat32* Fat() const { return fat_.get(); }      // null for a folder

  private:
    std::string path_;
    Access access_ = Access::ReadOnly;
    std::shared_ptr<const Device> device_;
    std::shared_ptr<const Fat32> fat_;
    std::shared_ptr<Salvage> salvage_;
};

}  // namespace card
