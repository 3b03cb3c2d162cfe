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
#include <fstream>

namespace support {

namespace {

constexpr uint32_t kSystemFlag = 0x46484953;  // "SIHF"
constexpr uint32_t kFileFlag = 0x46484652;    // "RFHF"

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
    Require(std::ofstream(kCardDevice).is_open(), kCardDevice);
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
    const std::string files = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(pulled_) + "/.";
    Require(std::system(("cp -r --sparse=always " + files + " " + kCardDirectory).c_str()) == 0, "cp");
    close(pulled_);
    pulled_ = -1;
    MakeDeviceNode();
}

void Card::Prepare(const Store& store) {
    // Independent of the recorder's own records: the test's second opinion of the layout.
    const std::string index = std::string(kCardDirectory) + "index000.bin";
    const uint32_t system[59] = {kSystemFlag, 1,           store.files * 256 + 1024, store.files << 28,
                                 0,           store.files, store.used_files,         store.current_file,
                                 0x55AABB55};
    Put(index, 64u << 20, 0, system, sizeof system);
    if (store.current_length != 0) {
        const uint32_t head[12] = {
            kFileFlag, store.current_file, store.start_time, store.start_time + 60, store.current_length, 1, 1};
        Put(index, 64u << 20, 1024 + 48ull * store.current_file, head, sizeof head);
    }
    Put(std::string(kCardDirectory) + "event000.bin", 64u << 20);
    for (uint32_t n = 0; n < store.files; ++n) Put(RecordFile(n), 256u << 20);
}

std::string Card::RecordFile(uint32_t number) {
    char name[64];
    std::snprintf(name, sizeof name, "%shi%06u.mp4", kCardDirectory, number);
    return name;
}

std::string Card::Read(const std::string& path, uint64_t offset, uint64_t length) {
    std::string bytes(length, '\0');
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.seekg(static_cast<std::streamoff>(offset))) << path;
    file.read(bytes.data(), static_cast<std::streamsize>(length));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

}  // namespace support
