#include "support/Card.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace support {

namespace {

void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "%s: %s (tests run through desk/in-camera)\n", what, std::strerror(errno));
        std::abort();
    }
}

void Put(const std::string& path, uint64_t size, uint64_t offset = 0, const void* bytes = nullptr, size_t length = 0) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    Require(fd >= 0, path.c_str());
    Require(ftruncate64(fd, static_cast<off64_t>(size)) == 0, "ftruncate");
    Require(pwrite64(fd, bytes, length, static_cast<off64_t>(offset)) == static_cast<ssize_t>(length), "pwrite");
    close(fd);
}

void CopySparse(const std::string& from, const std::string& to) {
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    Require(in >= 0, from.c_str());
    const off64_t size = lseek64(in, 0, SEEK_END);
    Put(to, static_cast<uint64_t>(size));
    const int out = open(to.c_str(), O_WRONLY | O_CLOEXEC);
    std::vector<char> block(1 << 16);
    for (off64_t at = lseek64(in, 0, SEEK_DATA); at >= 0; at = lseek64(in, at, SEEK_DATA)) {
        const ssize_t length = pread64(in, block.data(), block.size(), at);
        Require(length > 0 && pwrite64(out, block.data(), static_cast<size_t>(length), at) == length, "copy");
        at += length;
    }
    close(out);
    close(in);
}

// Independent of the recorder's own records: the test's second opinion of the layout.
void Set32(unsigned char* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

}  // namespace

Card::Card() {
    Require(std::getenv("IN_CAMERA") != nullptr, "IN_CAMERA");
    mkdir("/var/etc", 0755);
    mkdir(kCardDirectory, 0755);
    Mount();
    MakeDeviceNode();
}

Card::Card(const Store& store) : Card() {
    Prepare(store);
}

Card::~Card() {
    if (pulled_ >= 0) {
        close(pulled_);
        return;
    }
    unlink(kCardDevice);
    umount2(kCardDirectory, MNT_DETACH);
}

void Card::Mount() {
    Require(mount(kCardDevice, kCardDirectory, "tmpfs", 0, "size=4g") == 0, "mount");
}

void Card::MakeDeviceNode() {
    const int fd = open(kCardDevice, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    Require(fd >= 0, kCardDevice);
    close(fd);
}

void Card::Pull() {
    // An open directory keeps the files alive while the mount table names no card.
    pulled_ = open(kCardDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Require(pulled_ >= 0, kCardDirectory);
    unlink(kCardDevice);
    umount2(kCardDirectory, MNT_DETACH);
}

void Card::Plug() {
    Mount();
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd/" + std::to_string(pulled_))) {
        CopySparse(entry.path(), kCardDirectory + entry.path().filename().string());
    }
    close(pulled_);
    pulled_ = -1;
    MakeDeviceNode();
}

void Card::Prepare(const Store& store) {
    unsigned char system[236] = {};
    std::memcpy(system, "SIHF", 4);
    Set32(system + 4, 1);
    Set32(system + 8, store.files * 256 + 1024);
    Set32(system + 12, store.files << 28);
    Set32(system + 20, store.files);
    Set32(system + 24, store.used_files);
    Set32(system + 28, store.current_file);
    Set32(system + 32, 0x55AABB55);
    Put(std::string(kCardDirectory) + "index000.bin", 64u << 20, 0, system, sizeof system);
    if (store.current_length != 0) {
        unsigned char head[48] = {};
        std::memcpy(head, "RFHF", 4);
        Set32(head + 4, store.current_file);
        Set32(head + 8, store.start_time);
        Set32(head + 12, store.start_time + 60);
        Set32(head + 16, store.current_length);
        Set32(head + 20, 1);
        Set32(head + 24, 1);
        Put(std::string(kCardDirectory) + "index000.bin", 64u << 20, 1024 + 48ull * store.current_file, head,
            sizeof head);
    }
    Put(std::string(kCardDirectory) + "event000.bin", 64u << 20);
    for (uint32_t n = 0; n < store.files; ++n) {
        Put(RecordFile(n), 256u << 20);
    }
}

std::string Card::RecordFile(uint32_t number) {
    char name[64];
    std::snprintf(name, sizeof name, "%shi%06u.mp4", kCardDirectory, number);
    return name;
}

std::string Card::Read(const std::string& path, uint64_t offset, uint64_t length) {
    std::string bytes(length, '\0');
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0) << path;
    const ssize_t got = pread64(fd, bytes.data(), bytes.size(), static_cast<off64_t>(offset));
    close(fd);
    bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return bytes;
}

}  // namespace support
