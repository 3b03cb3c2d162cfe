// recordcard repair: brings back what is still on the card, in a copy unless told otherwise.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "commands/Commands.h"
#include "commands/Progress.h"
#include "repair/Repairer.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Apart.h"
#include "volume/CardCopy.h"
#include "volume/Volume.h"
#include "volume/VolumeRescue.h"

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

// What is going to be mended.  A copy that is not kept goes again: half a copy helps nobody.
class Target {
  public:
    explicit Target(std::string card) : path_(std::move(card)), kept_(true) {}
    Target(std::string copy, const std::function<void(const std::string&)>& make)
        : path_(std::move(copy)), folder_(fs::exists(path_)) {
        try {
            make(path_);
        } catch (...) {
            Remove();
            throw;
        }
    }
    ~Target() {
        if (!kept_) Remove();
    }
    Target(Target&& other) noexcept
        : path_(std::move(other.path_)), folder_(other.folder_), kept_(std::exchange(other.kept_, true)) {}

    void Keep() { kept_ = true; }
    const std::string& Path() const { return path_; }

  private:
    void Remove() const {
        std::error_code error;  // what cannot be removed was told by what failed
        if (!folder_) {
            fs::remove_all(path_, error);
            return;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(path_, error)) fs::remove_all(entry, error);
    }

    std::string path_;
    bool folder_ = false;  // was there, empty
    bool kept_ = false;
};

Target PrepareTarget(const RepairArguments& arguments) {
    if (arguments.in_place) {
        if (!arguments.out.empty()) throw CardError("--in-place and --out exclude each other", kUsage);
        Ask(arguments);
        return Target(arguments.path);
    }
    if (arguments.out.empty() && fs::is_block_file(arguments.path)) {
        throw CardError("say where the mended copy is to go: --out IMAGE or --out FOLDER/ (or --in-place)", kUsage);
    }
    const std::string asked = arguments.out.empty() ? WithoutSlash(arguments.path) + ".repaired" : arguments.out;
    const std::string& card = arguments.path;
    RequireApart(card, asked);
    const bool to_folder = asked.back() == '/' || fs::is_directory(asked);
    const std::string copy = WithoutSlash(asked);
    if (fs::exists(copy) && (!fs::is_directory(copy) || !fs::is_empty(copy)))
        throw CardError(copy + " is there already", kUsage);
    if (fs::is_directory(card)) return Target(copy, [&](const std::string& path) { CopyFolder(card, path); });
    if (to_folder) return Target(copy, [&](const std::string& path) { TakeOut(card, path); });
    if (!CanBeMended(card)) {
        throw CardError(card +
                        " has no file system left, and is not laid out as a camera does it; \"--out FOLDER/\" "
                        "takes out what it finds");
    }
    return Target(copy, [&](const std::string& path) { CopyImage(card, path); });
}

// What the card itself tells before anything is changed.
struct Look {
    bool volume = false;             // the file system needs mending
    size_t pictures = 0;             // that can be exported now, counted when files move by that
    std::optional<StorePlan> store;  // without damage to the file system
};

Look LookAt(const std::string& path) {
    Look look;
    std::optional<Volume> volume;
    try {
        volume = Volume::Open(path);
    } catch (const CardError&) {
        if (!fs::exists(path)) throw;
        look.volume = true;
        return look;
    }
    const Findings findings = CheckVolume(*volume);
    look.volume = NeedsVolume(findings);
    const bool moves = std::any_of(findings.begin(), findings.end(), [](const Finding& f) {
        return f.mend == Finding::Mend::Volume && f.kind != "fat-copies" && f.kind != "boot-backup" &&
               f.kind != "boot-sector";
    });
    if (look.volume && (!moves || !volume->Has(RECORD_INDEX_NAME))) return look;
    Progress progress("Checking");
    StorePlan plan = PlanStore(*volume, Shown(progress));
    look.pictures = plan.pictures_before;
    if (!look.volume) look.store = std::move(plan);
    return look;
}

RepairResult Mend(const Look& look, const std::string& target, RepairLog& log) {
    WriteJournal journal;
    if (look.volume) fs::is_directory(target) ? RepairFolder(target, log) : RepairVolume(target, log, journal);
    RepairResult result;
    {
        const Volume volume = Volume::Open(target, Access::ReadWrite);
        Progress progress("Checking again");
        if (look.store) result = CarryOut(*look.store, volume, log, Shown(progress));
        const bool more = std::any_of(result.findings.begin(), result.findings.end(), [](const Finding& f) {
            return f.mend != Finding::Mend::Nothing && f.mend != Finding::Mend::Volume;
        });
        if (!look.store || (more && !result.taken_back)) result = RepairStore(volume, log, Shown(progress));
    }
    if (result.pictures_after < look.pictures) {
        journal.TakeBack();
        result.taken_back = true;
    }
    result.pictures_before = std::max(result.pictures_before, look.pictures);
    return result;
}

int Report(const std::string& target, const RepairLog& log, const RepairResult& result) {
    if (result.taken_back) {
        std::printf(
            "%s: mending it would leave %zu of the %zu pictures that can be exported now; it was left as it is.\n",
            target.c_str(), result.pictures_after, result.pictures_before);
        return kFindings;
    }
    for (const std::string& line : log) std::printf("  %s\n", line.c_str());
    std::printf("Pictures that can be exported: %zu before, %zu now.\n", result.pictures_before, result.pictures_after);
    const Findings file_system = CheckVolume(Volume::Open(target));
    const size_t errors = Errors(result.findings) + (NeedsVolume(file_system) ? 1 : 0);
    if (errors == 0) {
        std::printf("%s is in order now.\n", target.c_str());
        return kDone;
    }
    std::printf("%s: %s left; \"recordcard check\" tells more.\n", target.c_str(), Counted(errors, "error").c_str());
    return kFindings;
}

int Repair(const RepairArguments& arguments) {
    if (!arguments.out.empty()) RequireApart(arguments.path, arguments.out);
    const bool take_out = !arguments.out.empty() && !fs::is_directory(arguments.path) &&
                          (arguments.out.back() == '/' || fs::is_directory(arguments.out));
    Look look;
    if (!take_out) {
        look = LookAt(arguments.path);
        if (!look.volume && !look.store->Needed()) {
            const size_t errors = Errors(look.store->findings);
            if (errors == 0) {
                std::printf("%s is in order; there is nothing to mend.\n", arguments.path.c_str());
                return kDone;
            }
            std::printf("%s: %s, and none that can be mended; \"recordcard check\" tells more.\n",
                        arguments.path.c_str(), Counted(errors, "error").c_str());
            return kFindings;
        }
    } else {
        look.volume = true;  // the new folder's files want their sizes
    }
    Target target = PrepareTarget(arguments);
    RepairLog log;
    const RepairResult result = Mend(look, target.Path(), log);
    target.Keep();
    return Report(target.Path(), log, result);
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
