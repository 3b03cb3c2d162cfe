#include "commands/RescueCopy.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include "text/Error.h"
#include "volume/CardCopy.h"
#include "volume/Volume.h"
#include "volume/VolumeRescue.h"

namespace card {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::hours kPatience{2};  // of failing reads: all that reads well is in the copy before

// The files of a card without its file system's help.
std::vector<CarvedFile> FilesByContent(const Searched& card) {
    std::vector<CarvedFile> files;
    if (const std::optional<FoundLayout> layout = FindLayout(card)) {
        const uint32_t pictures = layout->plan.store.picture_num;
        for (uint32_t i = pictures; i < layout->plan.Files(); ++i) {
            const prestore::StoredFile file = layout->plan.File(i);
            files.push_back({file.name, layout->base + layout->plan.ClusterOffset(file.first_cluster), file.size});
        }
        return files;
    }
    Progress progress("Searching");
    return CarveFiles(card, Shown(progress));
}

}  // namespace

CheckProgress Shown(Progress& progress) {
    return [&progress](uint64_t done, uint64_t total) { progress.Show(done, total); };
}

Unsaved TakeOut(const std::string& card, const std::string& folder) {
    const auto device = std::make_shared<const Device>(Device::OpenCard(card));
    Salvage search(kPatience);
    const std::vector<CarvedFile> files = FilesByContent(Searched(device, search));
    if (files.empty()) throw CardError(card + ": no recording was found on it");
    fs::create_directories(folder);
    uint64_t total = 0;
    for (const CarvedFile& file : files) total += file.length;
    Progress progress("Copying");
    uint64_t done = 0;
    Salvage salvage(kPatience);
    for (const CarvedFile& file : files) {
        CopySparse({device, {{file.offset, file.length}}, file.name}, (fs::path(folder) / file.name).string(),
                   file.length, salvage, [&](uint64_t bytes) { progress.Show(done += bytes, total); });
    }
    return {salvage.Unread(), {}};
}

Unsaved CopyImage(const std::string& card, const std::string& copy) {
    const auto device = std::make_shared<const Device>(Device::OpenCard(card));
    Progress progress("Copying");
    uint64_t done = 0;
    Salvage salvage(kPatience);
    CopySparse({device, {{0, device->Size()}}, ""}, copy, device->Size(), salvage,
               [&](uint64_t bytes) { progress.Show(done += bytes, device->Size()); });
    Unsaved unsaved{salvage.Unread(), {}};
    if (!unsaved.Empty()) FillFromSpares(*device, copy, unsaved.parts.front().places);
    return unsaved;
}

Unsaved CopyFolder(const std::string& card, const std::string& copy) {
    fs::create_directories(copy);
    Progress progress("Copying");
    uint64_t total = 0;
    uint64_t done = 0;
    Unsaved unsaved;
    Salvage salvage(kPatience);
    const std::vector<std::string> names = Volume::Open(card).Names();
    const auto size_of = [&](const std::string& name) {
        std::error_code error;  // told when it is opened
        const uintmax_t size = fs::file_size(fs::path(card) / name, error);
        return error ? 0 : static_cast<uint64_t>(size);
    };
    for (const std::string& name : names) total += size_of(name);
    for (const std::string& name : names) {
        std::shared_ptr<const Device> file;
        try {
            file = std::make_shared<const Device>(Device::Open((fs::path(card) / name).string()));
        } catch (const CardError& error) {
            unsaved.unopened.push_back(error.what());
            continue;
        }
        CopySparse({file, {{0, file->Size()}}, name}, (fs::path(copy) / name).string(), file->Size(), salvage,
                   [&](uint64_t bytes) { progress.Show(done += bytes, total); });
    }
    unsaved.parts = salvage.Unread();
    return unsaved;
}

}  // namespace card
