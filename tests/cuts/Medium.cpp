#include "Medium.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "Descriptor.h"
#include "libRecordFile.h"

namespace cuts {

Medium::Medium(uint32_t record_files) : card_(support::Store{.files = record_files}) {
    Map(support::kIndexFile, RECORD_SECTION_BASE + RECORD_SECTION_BLOCK * record_files);
    Map(support::kEventFile, ALARM_EVENT_BLOCK * (8 + record_files));
    for (uint32_t n = 0; n < record_files; ++n) {
        const std::string path = support::Card::RecordFile(n);
        std::filesystem::resize_file(path, RECORD_FILE_SIZE);
        Map(path, RECORD_FILE_SIZE);
    }
}

Medium::~Medium() {
    for (const Mapped& file : files_) munmap(file.bytes.data(), file.bytes.size());
}

void Medium::Map(const std::string& path, size_t length) {
    const Descriptor file(open64(path.c_str(), O_RDWR | O_CLOEXEC));
    struct stat64 status {};
    void* const bytes = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (bytes == MAP_FAILED || fstat64(file.Get(), &status) != 0) std::abort();
    files_.push_back({{static_cast<uint8_t*>(bytes), length}, status.st_ino});
}

int Medium::IdOf(int fd) const {
    struct stat64 status {};
    if (fstat64(fd, &status) != 0) return -1;
    for (size_t id = 0; id < files_.size(); ++id) {
        if (files_[id].inode == status.st_ino) return static_cast<int>(id);
    }
    return -1;
}

Kept::Kept(const Medium& medium) {
    for (const Medium::Mapped& file : medium.files_)
        files_.push_back({file.bytes, {file.bytes.begin(), file.bytes.end()}});
}

Kept::~Kept() {
    for (const auto& [file, bytes] : files_) std::copy(bytes.begin(), bytes.end(), file.begin());
}

}  // namespace cuts
