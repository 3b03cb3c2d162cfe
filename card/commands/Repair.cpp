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
#include "commands/RescueCopy.h"
#include "repair/Repairer.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Apart.h"
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

// What is going to be mended.  A copy that is not kept goes again: half a copy helps nobody.
class Target {
  public:
    explicit Target(std::string card) : path_(std::move(card)), kept_(true) {}
    Target(std::string copy, const std::function<Unsaved(const std::string&)>& make)
        : path_(std::move(copy)), folder_(fs::exists(path_)) {
        try {
            unsaved_ = make(path_);
        } catch (const CardGone& gone) {
            throw CardGone(std::string(gone.what()) + PutAside());
        } catch (...) {
            Remove();
            throw;
        }
    }
    ~Target() {
        if (!kept_) Remove();
    }
    Target(Target&& other) noexcept
        : path_(std::move(other.path_)),
          unsaved_(std::move(other.unsaved_)),
          folder_(other.folder_),
          kept_(std::exchange(other.kept_, true)) {}

    void Keep() { kept_ = true; }
    const std::string& Path() const { return path_; }
    const Unsaved& Lacks() const { return unsaved_; }

  private:
    // A card that died may never answer again: what it gave stays, under a name that does not claim to be all of it.
    std::string PutAside() const {
        const std::string aside = path_ + ".incomplete";
        std::error_code error;
        if (!fs::exists(aside, error)) fs::rename(path_, aside, error);
        return "; what was copied until then is kept, not mended: " + (fs::exists(path_, error) ? path_ : aside);
    }

    void Remove() const {
        std::error_code error;  // what cannot be removed was told by what failed
        if (!folder_) {
            fs::remove_all(path_, error);
            return;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(path_, error)) fs::remove_all(entry, error);
    }

    std::string path_;
    Unsaved unsaved_;
    bool folder_ = false;  // was there, empty
    bool kept_ = false;
};

// What a card itself tells before anything is changed.
struct Look {
    bool unread = false;                  // not all of it can be read: nothing else is known
    bool volume = false;                  // the file system needs mending
    bool lost = false;                    // there is none, nor a layout to make it from
    size_t pictures = 0;                  // that can be exported now, counted when files move by that
    std::optional<StorePlan> store = {};  // without damage to the file system

    bool Needed() const { return volume || store->Needed(); }
};

bool IsUnread(const Volume& volume, const Findings& findings) {
    const bool files = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.kind == "file-unreadable" || finding.kind == "places-unread";
    });
    return files || !volume.Unread().empty() || (volume.Fat() != nullptr && !volume.Fat()->Unread().empty());
}

// Ends a look: a dying card is read as little as can be.
struct UnreadPlaceMet {};

void LookAtStore(const Volume& volume, Look& look) {
    Progress progress("Checking");
    StorePlan plan = PlanStore(volume, [&](uint64_t done, uint64_t total) {
        if (!volume.Unread().empty()) throw UnreadPlaceMet();
        progress.Show(done, total);
    });
    look.unread = IsUnread(volume, plan.findings);
    look.pictures = plan.pictures_before;
    if (!look.volume) look.store = std::move(plan);
}

Look LookWithoutVolume(const std::string& path) {
    Look look{.volume = true};
    if (fs::is_directory(path)) return look;
    const auto device = std::make_shared<const Device>(Device::OpenCard(path));
    Salvage salvage;
    look.lost = !FindLayout(Searched(device, salvage));
    look.unread = !salvage.Unread().empty();
    return look;
}

Look LookAt(const std::string& path) {
    Look look;
    std::optional<Volume> volume;
    try {
        volume = Volume::OpenToSalvage(path);
    } catch (const CardError&) {
        if (!fs::exists(path)) throw;
        return LookWithoutVolume(path);
    }
    const Findings findings = CheckVolume(*volume);
    look.volume = NeedsVolume(findings);
    look.unread = IsUnread(*volume, findings);
    const bool moves = std::any_of(findings.begin(), findings.end(), [](const Finding& f) {
        return f.mend == Finding::Mend::Volume && f.kind != "fat-copies" && f.kind != "boot-backup" &&
               f.kind != "boot-sector";
    });
    if (look.unread || (look.volume && (!moves || !volume->Has(RECORD_INDEX_NAME)))) return look;
    try {
        LookAtStore(*volume, look);
    } catch (const UnreadPlaceMet&) {
        look.unread = true;
    }
    return look;
}

Target PrepareTarget(const RepairArguments& arguments, const Look& look) {
    if (arguments.in_place) {
        if (!arguments.out.empty()) throw CardError("--in-place and --out exclude each other", kUsage);
        if (look.unread) {
            throw CardError(arguments.path +
                            ": not all of it can be read, so nothing is written to it: a failing card may lose more by "
                            "that. Mend a copy: \"recordcard repair " +
                            arguments.path + " --out COPY\"");
        }
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
    if (fs::is_directory(card)) return Target(copy, [&](const std::string& path) { return CopyFolder(card, path); });
    if (to_folder) return Target(copy, [&](const std::string& path) { return TakeOut(card, path); });
    if (look.lost) {
        throw CardError(card +
                        " has no file system left, and is not laid out as a camera does it; \"--out FOLDER/\" "
                        "takes out what it finds");
    }
    return Target(copy, [&](const std::string& path) { return CopyImage(card, path); });
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

int TellNothingToMend(const std::string& path, const Findings& findings) {
    const size_t errors = Errors(findings);
    if (errors == 0) {
        std::printf("%s is in order; there is nothing to mend.\n", path.c_str());
        return kDone;
    }
    std::printf("%s: %s, and none that can be mended; \"recordcard check\" tells more.\n", path.c_str(),
                Counted(errors, "error").c_str());
    return kFindings;
}

int MendAndReport(const Look& look, const std::string& target) {
    if (!look.Needed()) return TellNothingToMend(target, look.store->findings);
    RepairLog log;
    const RepairResult result = Mend(look, target, log);
    return Report(target, log, result);
}

// A copy that lacks something is kept whatever becomes of it: the card may not give as much again.
int MendIncomplete(const std::string& card, Target& target, bool taken_out) {
    target.Keep();
    int status = kFindings;
    try {
        status = MendAndReport(taken_out ? Look{.volume = true} : LookAt(target.Path()), target.Path());
    } catch (const CardError& error) {
        std::fprintf(stderr, "recordcard: the copy could not be mended: %s\n", error.what());
        status = error.Code();
    }
    if (target.Lacks().Empty()) return status;  // what failed once could be read in the end
    PrintUnsaved(target.Lacks(), card, target.Path());
    return std::max<int>(status, kFindings);
}

int Repair(const RepairArguments& arguments) {
    if (!arguments.out.empty()) RequireApart(arguments.path, arguments.out);
    const bool take_out = !arguments.out.empty() && !fs::is_directory(arguments.path) &&
                          (arguments.out.back() == '/' || fs::is_directory(arguments.out));
    const Look look =
        take_out ? Look{.volume = true} : LookAt(arguments.path);  // a new folder's files want their sizes
    if (!look.unread && !look.Needed()) return TellNothingToMend(arguments.path, look.store->findings);
    Target target = PrepareTarget(arguments, look);
    if (look.unread || !target.Lacks().Empty()) return MendIncomplete(arguments.path, target, take_out);
    const int status = MendAndReport(look, target.Path());
    target.Keep();
    return status;
}

}  // namespace

Run PrepareRepair(CLI::App& command) {
    const auto arguments = std::make_shared<RepairArguments>();
    command.add_option("CARD", arguments->path, "Folder, device or image file")->required();
    command.add_option("--out", arguments->out,
                       "Where the mended copy goes (default: CARD.repaired); of an image, FOLDER/ takes the files out");
    command.add_flag("--in-place", arguments->in_place, "Mend the card itself, no copy");
    command.add_flag("--yes", arguments->yes, "Do not ask before the card itself is changed");
    command.footer(
        "Of a failing card the copy holds all that can be read, zeros for the rest, and each such place is named.\n"
        "Exit status: 0 in order now, 1 errors are left or not all could be read, 2 wrong usage, 3 unreadable.");
    return [arguments] { return Repair(*arguments); };
}

}  // namespace card
