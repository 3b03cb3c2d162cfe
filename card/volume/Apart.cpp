#include "volume/Apart.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "text/Error.h"

namespace card {

namespace {

namespace fs = std::filesystem;
using Status = struct stat;

std::optional<Status> StatusOf(const std::string& path) {
    Status status{};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

bool SameFile(const Status& a, const Status& b) {
    if (S_ISBLK(a.st_mode) && S_ISBLK(b.st_mode)) return a.st_rdev == b.st_rdev;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string FirstLine(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// The kernel's folder of a block device; empty when `device` is none.
fs::path KernelFolder(dev_t device) {
    std::error_code error;
    const std::string numbers = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    return fs::canonical("/sys/dev/block/" + numbers, error);
}

// What the mount table names as the source of the file system with this number.
std::string MountSource(dev_t device) {
    std::ifstream table("/proc/self/mountinfo");
    const std::string wanted = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string field;
        std::string numbers;
        fields >> field >> field >> numbers;
        if (numbers != wanted) continue;
        while (fields >> field && field != "-") {
        }
        std::string source;
        fields >> field >> source;
        return source;
    }
    return {};
}

// Whether the file system with this number is mounted from the card, directly or through a loop device.
bool MountedFrom(dev_t system, const Status& card) {
    if (S_ISBLK(card.st_mode)) {
        const std::string of_system = KernelFolder(system).string();
        const std::string of_card = KernelFolder(card.st_rdev).string();
        return !of_system.empty() && !of_card.empty() &&  // one is the other's partition, or the same
               (of_system + "/").compare(0, of_card.size() + 1, of_card + "/") == 0;
    }
    const fs::path device = KernelFolder(system);
    for (const fs::path& folder : {device, device.parent_path()}) {
        const std::string backing = device.empty() ? "" : FirstLine(folder / "loop/backing_file");
        const auto file = backing.empty() ? std::nullopt : StatusOf(backing);
        if (file && SameFile(*file, card)) return true;
    }
    const auto source = StatusOf(MountSource(system));
    return source && S_ISREG(source->st_mode) && SameFile(*source, card);
}

// A folder that is the root of its file system stands for all of it, wherever else it is mounted.
bool IsMountPoint(const std::string& folder, const Status& status) {
    const auto parent = StatusOf(folder + "/..");
    return parent && parent->st_dev != status.st_dev;
}

}  // namespace

void RequireApart(const std::string& card, const std::string& out) {
    const auto of_card = StatusOf(card);
    if (!of_card) return;  // opening it will tell
    const auto of_out = StatusOf(out);
    if (of_out && SameFile(*of_out, *of_card)) {
        throw CardError(out + " is the card itself, which is only read; choose another place", kUsage);
    }
    const auto refuse = [&] {
        throw CardError(out + " would lie on the card itself, which is only read; choose another place", kUsage);
    };
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(fs::absolute(out, error), error);
    bool nearest = true;  // of the folders that exist
    for (fs::path folder = whole.parent_path();; folder = folder.parent_path()) {
        if (const auto status = StatusOf(folder.string())) {
            if (S_ISDIR(of_card->st_mode) && SameFile(*status, *of_card)) refuse();
            const bool same_system = S_ISDIR(of_card->st_mode) && status->st_dev == of_card->st_dev;
            if (nearest && same_system && IsMountPoint(card, *of_card)) refuse();
            if (nearest && MountedFrom(status->st_dev, *of_card)) refuse();
            nearest = false;
        }
        if (folder == folder.parent_path()) return;
    }
}

}  // namespace card
