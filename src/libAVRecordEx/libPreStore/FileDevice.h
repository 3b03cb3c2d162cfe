// A block device or image file, opened for formatting: alone, writable, not mounted.
#pragma once

#include <string>

#include "BlockDevice.h"
#include "VolumePlan.h"
#include "libPreStore.h"

namespace prestore {

class FileDevice : public BlockDevice {
  public:
    struct Refusal {
        FormatError error = FormatError::kNone;
        std::string reason;  // without the path
    };

    FileDevice() = default;
    ~FileDevice() override;
    FileDevice(const FileDevice&) = delete;
    FileDevice& operator=(const FileDevice&) = delete;

    // Opens `path` and learns its shape.  Refuses what is in use.  Once per object.
    Refusal Open(const char* path);

    const DeviceShape& Shape() const { return shape_; }
    bool Write(uint64_t offset, std::span<const std::byte> bytes) override;
    bool Flush() override;

  private:
    Refusal ReadShape(bool block_device, uint64_t file_bytes);

    int fd_ = -1;
    DeviceShape shape_;
};

}  // namespace prestore
