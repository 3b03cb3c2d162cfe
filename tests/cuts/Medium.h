// The card's files in memory, as recorder, checker and repair find them below "/var/etc/sdcard/".
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "support/Card.h"

namespace cuts {

inline constexpr size_t kPage = 4096;   // what the system's cache holds and writes back
inline constexpr size_t kSector = 512;  // what a card takes whole or not at all

enum FileId : int { kIndex, kEvents, kRecord };  // record file n: kRecord + n

class Medium {
  public:
    explicit Medium(uint32_t record_files);  // an empty store
    ~Medium();
    Medium(const Medium&) = delete;
    Medium& operator=(const Medium&) = delete;

    uint32_t RecordFiles() const { return static_cast<uint32_t>(files_.size()) - kRecord; }
    // Of a file as much as anything can stand in.
    std::span<uint8_t> File(int id) const { return files_[static_cast<size_t>(id)].bytes; }
    uint8_t* Page(int id, uint32_t number) const { return File(id).data() + number * kPage; }
    std::string_view Bytes(int id, uint64_t offset, size_t length) const {
        return {reinterpret_cast<const char*>(File(id).data()) + offset, length};
    }
    template <class Record>
    Record At(int id, uint64_t offset) const {
        Record record;
        std::memcpy(&record, File(id).data() + offset, sizeof record);
        return record;
    }
    int IdOf(int fd) const;  // -1: none of the store's

  private:
    friend class Kept;
    struct Mapped {
        std::span<uint8_t> bytes;
        uint64_t inode;
    };
    void Map(const std::string& path, size_t length);

    support::Card card_;
    std::vector<Mapped> files_;
};

// All that recording and repair may change; put back when it is destroyed.
class Kept {
  public:
    explicit Kept(const Medium& medium);
    ~Kept();
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;

  private:
    std::vector<std::pair<std::span<uint8_t>, std::vector<uint8_t>>> files_;  // and their bytes
};

}  // namespace cuts
