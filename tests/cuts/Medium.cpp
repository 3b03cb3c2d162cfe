#include "Medium.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "libRecordFile.h"

namespace cuts {
namespace {

struct Stretch {
    uint64_t begin;
    uint64_t length;
};

// Where anything can stand in a file of this kind.
std::vector<Stretch> Used(int id, uint32_t record_files) {
    if (id == kIndex) return {{0, RECORD_SECTION_BASE + uint64_t{RECORD_SECTION_BLOCK} * record_files}};
    if (id != kEvents) return {{0, 2 * RECORD_STREAM_LIMIT}, {RECORD_KEY_FRAME_BASE, 2 * kPage}};
    std::vector<Stretch> used{{0, kPage}};
    for (uint32_t n = 0; n < record_files; ++n) used.push_back({(n + 8) * uint64_t{ALARM_EVENT_BLOCK}, kPage});
    return used;
}

}  // namespace

Medium::Medium(uint32_t record_files) : card_(support::Store{.files = record_files}) {
    const std::string folder = support::kCardDirectory;
    Map(folder + "index000.bin");
    Map(folder + "event000.bin");
    for (uint32_t n = 0; n < record_files; ++n) {
        const std::string path = support::Card::RecordFile(n);
        if (truncate64(path.c_str(), RECORD_FILE_SIZE) != 0) std::abort();
        Map(path);
    }
}

Medium::~Medium() {
    for (const Mapped& file : files_) munmap(file.bytes.data(), file.bytes.size());
}

void Medium::Map(const std::string& path) {
    const int fd = open64(path.c_str(), O_RDWR | O_CLOEXEC);
    struct stat64 status {};
    if (fd < 0 || fstat64(fd, &status) != 0) std::abort();
    const auto size = static_cast<size_t>(status.st_size);
    void* const bytes = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (bytes == MAP_FAILED) std::abort();
    close(fd);
    files_.push_back({{static_cast<uint8_t*>(bytes), size}, status.st_ino});
}

int Medium::IdOf(int fd) const {
    struct stat64 status {};
    if (fstat64(fd, &status) != 0) return -1;
    for (size_t id = 0; id < files_.size(); ++id) {
        if (files_[id].inode == status.st_ino) return static_cast<int>(id);
    }
    return -1;
}

Medium::Copy Medium::Take() const {
    Copy copy;
    for (int id = 0; id < static_cast<int>(files_.size()); ++id) {
        for (const Stretch& used : Used(id, RecordFiles())) {
            copy.emplace_back(reinterpret_cast<const char*>(File(id).data()) + used.begin, used.length);
        }
    }
    return copy;
}

void Medium::PutBack(const Copy& copy) const {
    auto from = copy.begin();
    for (int id = 0; id < static_cast<int>(files_.size()); ++id) {
        for (const Stretch& used : Used(id, RecordFiles())) {
            std::memcpy(File(id).data() + used.begin, from->data(), used.length);
            ++from;
        }
    }
}

}  // namespace cuts
