// A block device, an image file or any plain file, by byte offsets.
//
// Owns its descriptor.  Positioned 64-bit transfers only, so several threads may use one Device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace card {

enum class Access { ReadOnly, ReadWrite };

class Device {
  public:
    // Throws CardError: not there, no permission, a directory.
    static Device Open(const std::string& path, Access access = Access::ReadOnly);
    // The same for a whole card; for writing only when it is mounted nowhere and nobody else holds it, and
    // then it is held until closed: two programs never write one card at a time.
    static Device OpenCard(const std::string& path, Access access = Access::ReadOnly);
    Device(Device&& other) noexcept;
    Device& operator=(Device&& other) noexcept;
    ~Device();

    const std::string& Path() const { return path_; }
    uint64_t Size() const { return size_; }  // bytes
    int Descriptor() const { return fd_; }   // stays the Device's
    bool Writable() const { return access_ == Access::ReadWrite; }

    // Reads up to `length` bytes at `offset`; less only at the end.  Throws CardError when reading fails.
    size_t ReadAt(uint64_t offset, void* buffer, size_t length) const;
    // One sector of 512 bytes alone, as far as the system can: a page of which one sector is bad fails as a whole.
    bool ReadSector(uint64_t offset, uint8_t* sector) const;
    // Whether the byte at `offset`, read before, can still be had from the device rather than from memory.
    bool ReadsAgain(uint64_t offset) const;
    // Writes all of it, inside the present size; throws CardError otherwise.
    void WriteAt(uint64_t offset, const void* buffer, size_t length) const;
    void Sync() const;

  private:
    Device(std::string path, int fd, uint64_t size, Access access);

    std::string path_;
    int fd_ = -1;
    uint64_t size_ = 0;
    Access access_ = Access::ReadOnly;
};

// Where the mount table says `device` (a path or a symbolic link to one) is mounted; empty: nowhere.
std::string MountedAt(const std::string& device);

}  // namespace card
