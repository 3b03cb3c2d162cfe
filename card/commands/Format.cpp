// recordcard format: makes a device or an image file a recording card.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Descriptor.h"
#include "commands/Commands.h"
#include "commands/Progress.h"
#include "libPreStore.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Device.h"

namespace card {

namespace {

struct FormatArguments {
    std::string path;
    uint64_t size = 0;  // bytes of the image file; 0: as it is
    int video_percent = 100;
    bool yes = false;
};

uint64_t ReadSize(const std::string& text) {
    size_t digits = 0;
    uint64_t value = 0;
    for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9' && digits < 12; ++digits) {
        value = value * 10 + static_cast<uint64_t>(text[digits] - '0');
    }
    const std::string unit = text.substr(digits);
    if (digits == 0 || value == 0 || (unit != "M" && unit != "G" && !unit.empty()) || value > (1ull << 42)) {
        throw CardError("--size takes a number of bytes, or with M or G of MiB or GiB: --size 32G", kUsage);
    }
    return value << (unit == "M" ? 20 : unit == "G" ? 30 : 0);
}

CardError Refusal(const prestore::FormatResult& result) {
    return CardError(result.message);
}

// What a format would make of the card, before anything is touched.
prestore::FormatResult Plan(const FormatArguments& arguments, const prestore::FormatOptions& options) {
    if (arguments.size == 0) return prestore::CheckFormat(arguments.path.c_str(), options);
    // The file may not exist yet, or have another size: an unnamed one stands for it.
    const Descriptor model(memfd_create("card", MFD_CLOEXEC));
    if (model.Get() < 0 || ftruncate64(model.Get(), static_cast<off64_t>(arguments.size)) != 0) {
        throw SystemError("cannot plan an image of " + Bytes(arguments.size), errno);
    }
    prestore::FormatResult plan =
        prestore::CheckFormat(("/proc/self/fd/" + std::to_string(model.Get())).c_str(), options);
    const size_t colon = plan.message.find(": ");
    if (colon != std::string::npos) plan.message = arguments.path + plan.message.substr(colon);
    return plan;
}

void Ask(const FormatArguments& arguments, const prestore::FormatResult& plan) {
    std::printf(
        "This erases everything on %s and makes it a recording card of %s with %u record files.\n"
        "Type \"yes\" to go on: ",
        arguments.path.c_str(), Bytes(plan.volume_bytes).c_str(), plan.store.vedio_num);
    std::fflush(stdout);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "yes") throw CardError("nothing was done (--yes formats without asking)", kUsage);
}

// Creates the image file, or gives an existing one its new size.
void Resize(const FormatArguments& arguments) {
    struct stat64 status {};
    const bool exists = stat64(arguments.path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        throw CardError("--size is for image files; " + arguments.path + " is a device and has its own size", kUsage);
    }
    const std::optional<Device> held =
        exists ? std::optional(Device::OpenCard(arguments.path, Access::ReadWrite)) : std::nullopt;
    const Descriptor created(exists ? -1 : open64(arguments.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    const int fd = held ? held->Descriptor() : created.Get();
    if (fd < 0) throw SystemError(arguments.path + ": cannot create it", errno);
    if (ftruncate64(fd, static_cast<off64_t>(arguments.size)) != 0) {
        throw SystemError(arguments.path + ": cannot make it " + Bytes(arguments.size) + " large", errno);
    }
}

int Format(const FormatArguments& arguments) {
    Progress progress("Formatting");
    prestore::FormatOptions options;
    options.video_percent = arguments.video_percent;
    options.system_head = true;
    options.progress = [&progress](uint64_t done, uint64_t total) { progress.Show(done, total); };
    const prestore::FormatResult plan = Plan(arguments, options);
    struct stat64 status {};
    const bool found = stat64(arguments.path.c_str(), &status) == 0;
    if (!found && errno == ENOENT && arguments.size == 0) {
        throw CardError(arguments.path + " does not exist; --size creates an image file, for example --size 32G");
    }
    if (!plan.Ok()) throw Refusal(plan);
    const bool present = found && (S_ISBLK(status.st_mode) || status.st_size != 0);
    if (present && !arguments.yes) Ask(arguments, plan);
    if (arguments.size != 0) Resize(arguments);
    const prestore::FormatResult result = prestore::Format(arguments.path.c_str(), options);
    progress.Clear();
    if (!result.Ok()) throw Refusal(result);
    std::printf("%s is a recording card now: %s, %u record files", arguments.path.c_str(),
                Bytes(result.volume_bytes).c_str(), result.store.vedio_num);
    if (result.store.picture_num != 0) std::printf(", %u picture files", result.store.picture_num);
    std::printf(" of 256 MiB each.\nWrote %s (the least possible: %s) in %.2f s.\n",
                Bytes(result.bytes_written).c_str(), Bytes(result.bytes_smallest).c_str(), result.seconds);
    return kDone;
}

}  // namespace

Run PrepareFormat(CLI::App& command) {
    const auto arguments = std::make_shared<FormatArguments>();
    command.add_option("CARD", arguments->path, "Block device or image file")->required();
    command.add_option("--video-percent", arguments->video_percent, "Part of the space beyond 1 GiB that is for video")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    command.add_option_function<std::string>(
        "--size", [arguments](const std::string& text) { arguments->size = ReadSize(text); },
        "Create the image file, or make it so large: bytes, or 2304M, 32G");
    command.add_flag("--yes", arguments->yes, "Do not ask before everything on it is erased");
    return [arguments] { return Format(*arguments); };
}

}  // namespace card
