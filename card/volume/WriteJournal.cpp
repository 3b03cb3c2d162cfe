#include "volume/WriteJournal.h"

#include <cstring>

namespace card {

namespace {

// What stands at `offset`, when it is not `bytes`.
template <typename File>
std::optional<std::vector<uint8_t>> Before(const File& file, uint64_t offset, const void* bytes, size_t length) {
    std::vector<uint8_t> present(length);
    present.resize(file.ReadAt(offset, present.data(), length));
    if (present.size() == length && std::memcmp(present.data(), bytes, length) == 0) return std::nullopt;
    return present;
}

}  // namespace

bool WriteJournal::Write(const StoreFile& file, uint64_t offset, const void* bytes, size_t length) {
    auto before = Before(file, offset, bytes, length);
    if (!before) return false;
    entries_.push_back([file, offset, before = std::move(*before)] {
        file.WriteAt(offset, before.data(), before.size());
        file.Sync();
    });
    file.WriteAt(offset, bytes, length);
    return true;
}

bool WriteJournal::Write(const Device& device, uint64_t offset, const void* bytes, size_t length) {
    auto before = Before(device, offset, bytes, length);
    if (!before) return false;
    entries_.push_back([path = device.Path(), offset, before = std::move(*before)] {
        const Device again = Device::OpenCard(path, Access::ReadWrite);
        again.WriteAt(offset, before.data(), before.size());
        again.Sync();
    });
    device.WriteAt(offset, bytes, length);
    return true;
}

void WriteJournal::TakeBack() {
    for (; !entries_.empty(); entries_.pop_back()) entries_.back()();
}

}  // namespace card
