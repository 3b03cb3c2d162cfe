// recordcard repair: brings back what is still on the card, in a copy unless told otherwise.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "commands/Commands.h"
#include "commands/Progress.h"
#include "repair/Repairer.h"
#include "repair/VolumeRescue.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/CardCopy.h"
#include "volume/Volume.h"

namespace card {

namespace {

namespace fs = std::filesystem;

struct RepairArguments {
    std::string path;
    std::string out;
    bool in_place = false;
    bool yes = false;
};

CheckProgress Shown(Progress& progress) {
    return [&progress](uint64_t done, uint64_t total) { progress.Show(done, total); };
}

// The files of a card without its file system's help: by the layout, or by their content alone.
std::vector<CarvedFile> FilesByContent(const Device& device) {
    std::vector<CarvedFile> files;
    if (const std::optional<FoundLayout> layout = FindLayout(device)) {
        const uint32_t pictures = layout->plan.store.picture_num;
        for (uint32_t i = pictures; i < layout->plan.Files(); ++i) {
            const prestore::StoredFile file = layout->plan.File(i);
            files.push_back({file.name, layout->base + layout->plan.ClusterOffset(file.first_cluster), file.size});
        }
        return files;
    }
    Progress progress("Searching");
    return CarveFiles(device, Shown(progress));
}

// Takes a store's files out of an image or device into a new folder.
void TakeOut(const std::string& path, const std::string& folder) {
    if (fs::exists(folder) && !fs::is_empty(folder)) throw CardError(folder + " is not empty", kUsage);
    const Device device = Device::OpenCard(path);
    const std::vector<CarvedFile> files = FilesByContent(device);
    if (files.empty()) throw CardError(path + ": no recording was found on it");
    fs::create_directories(folder);
    uint64_t total = 0;
    for (const CarvedFile& file : files) total += file.length;
    Progress progress("Copying");
    uint64_t done = 0;
    for (const CarvedFile& file : files) {
        CopySparse(device, {{file.offset, file.length}}, (fs::path(folder) / file.name).string(), file.length,
                   [&](uint64_t bytes) { progress.Show(done += bytes, total); });
    }
}

void CopyImage(const std::string& path, const std::string& copy) {
    const Device device = Device::OpenCard(path);
    Progress progress("Copying");
    uint64_t done = 0;
    CopySparse(device, {{0, device.Size()}}, copy, device.Size(),
               [&](uint64_t bytes) { progress.Show(done += bytes, device.Size()); });
}

void CopyFolder(const std::string& path, const std::string& copy) {
    if (fs::exists(copy) && (!fs::is_directory(copy) || !fs::is_empty(copy)))
        throw CardError(copy + " is there already", kUsage);
    fs::create_directories(copy);
    Progress progress("Copying");
    uint64_t total = 0;
    uint64_t done = 0;
    const Volume volume = Volume::Open(path);
    for (const std::string& name : volume.Names()) total += volume.OpenFile(name).Size();
    for (const std::string& name : volume.Names()) {
        const Device file = Device::Open((fs::path(path) / name).string());
        CopySparse(file, {{0, file.Size()}}, (fs::path(copy) / name).string(), file.Size(),
                   [&](uint64_t bytes) { progress.Show(done += bytes, total); });
    }
}

void Ask(const RepairArguments& arguments) {
    if (arguments.yes) return;
    std::printf("This changes %s itself; without --in-place a copy is mended.\nType \"yes\" to go on: ",
                arguments.path.c_str());
    std::fflush(stdout);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "yes") throw CardError("nothing was done (--yes repairs without asking)", kUsage);
}

std::string WithoutSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// Whether a copy of the image would be worth its space.
bool CanBeMended(const std::string& path) {
    try {
        return Volume::Open(path).Fat() != nullptr;
    } catch (const CardError&) {
        return FindLayout(Device::OpenCard(path)).has_value();
    }
}

// Makes what is going to be mended, and returns its path.
std::string PrepareTarget(const RepairArguments& arguments) {
    const bool folder = fs::is_directory(arguments.path);
    if (arguments.in_place) {
        if (!arguments.out.empty()) throw CardError("--in-place and --out exclude each other", kUsage);
        Ask(arguments);
        return arguments.path;
    }
    if (arguments.out.empty() && fs::is_block_file(arguments.path)) {
        throw CardError("say where the mended copy is to go: --out IMAGE or --out FOLDER/ (or --in-place)", kUsage);
    }
    const std::string target = arguments.out.empty() ? WithoutSlash(arguments.path) + ".repaired" : arguments.out;
    if (folder) {
        CopyFolder(arguments.path, target);
    } else if (target.back() == '/' || fs::is_directory(target)) {
        TakeOut(arguments.path, target);
    } else {
        if (fs::exists(target)) throw CardError(target + " is there already", kUsage);
        if (!CanBeMended(arguments.path)) {
            throw CardError(arguments.path +
                            " has no file system left, and is not laid out as a camera does it; \"--out FOLDER/\" "
                            "takes out what it finds");
        }
        CopyImage(arguments.path, target);
    }
    return WithoutSlash(target);
}

// Whether there is anything to do; what cannot be read needs a repair.
bool NeedsRepair(const std::string& path) {
    try {
        Progress progress("Checking");
        const Findings findings = CheckAll(Volume::Open(path), Shown(progress));
        for (const Finding& finding : findings) {
            if (finding.mend != Finding::Mend::Nothing) return true;
        }
        return false;
    } catch (const CardError&) {
        if (!fs::exists(path)) throw;
        return true;
    }
}

int Report(const std::string& target, const RepairLog& log) {
    for (const std::string& line : log) std::printf("  %s\n", line.c_str());
    const Findings left = CheckAll(Volume::Open(target));
    const size_t errors = Errors(left);
    if (errors == 0) {
        std::printf("%s is in order now.\n", target.c_str());
        return kDone;
    }
    std::printf("%s: %zu errors are left; \"recordcard check\" tells which.\n", target.c_str(), errors);
    return kFindings;
}

int Repair(const RepairArguments& arguments) {
    const bool take_out = !arguments.out.empty() && !fs::is_directory(arguments.path) &&
                          (arguments.out.back() == '/' || fs::is_directory(arguments.out));
    if (!take_out && !NeedsRepair(arguments.path)) {
        std::printf("%s is in order; there is nothing to mend.\n", arguments.path.c_str());
        return kDone;
    }
    const std::string target = PrepareTarget(arguments);
    RepairLog log;
    fs::is_directory(target) ? RepairFolder(target, log) : RepairVolume(target, log);
    {
        Progress progress("Repairing");
        RepairStore(Volume::Open(target, Access::ReadWrite), log, Shown(progress));
    }
    return Report(target, log);
}

}  // namespace

Run PrepareRepair(CLI::App& command) {
    const auto arguments = std::make_shared<RepairArguments>();
    command.add_option("CARD", arguments->path, "Folder, device or image file")->required();
    command.add_option("--out", arguments->out,
                       "Where the mended copy goes (default: CARD.repaired); of an image, FOLDER/ takes the files out");
    command.add_flag("--in-place", arguments->in_place, "Mend the card itself, no copy");
    command.add_flag("--yes", arguments->yes, "Do not ask before the card itself is changed");
    command.footer("Exit status: 0 in order now, 1 errors are left, 2 wrong usage, 3 unreadable.");
    return [arguments] { return Repair(*arguments); };
}

}  // namespace card
