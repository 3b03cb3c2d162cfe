// recordcard timeline: the card as one page to look at, with footage in it if asked for.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/Asked.h"
#include "commands/Commands.h"
#include "commands/Losses.h"
#include "commands/Options.h"
#include "commands/Progress.h"
#include "commands/StopSignals.h"
#include "export/Ffmpeg.h"
#include "export/OutputFiles.h"
#include "index/CardIndex.h"
#include "page/Footage.h"
#include "page/Overview.h"
#include "page/ViewerPage.h"
#include "text/Error.h"
#include "volume/Apart.h"
#include "volume/Volume.h"

namespace card {

namespace {

constexpr uint64_t kMiB = 1u << 20;

struct TimelineArguments {
    std::string out;
    bool force = false;
    OverviewOptions options;
    bool clips = false;
    AskedTimes asked;
    std::string event;         // a number or "all"
    uint32_t clips_max = 256;  // MiB; a browser takes seconds to open a page of that size
};

class PageFile {
  public:
    explicit PageFile(std::string path) : path_(std::move(path)), file_(std::fopen(path_.c_str(), "wbe")) {
        if (file_ == nullptr) throw SystemError(path_, errno);
    }
    ~PageFile() {
        if (file_ != nullptr) std::fclose(file_);  // it goes with what was written: Close was not reached
    }
    PageFile(const PageFile&) = delete;
    PageFile& operator=(const PageFile&) = delete;

    void Write(std::string_view text) {
        if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) throw SystemError(path_, errno);
        bytes_ += text.size();
    }
    uint64_t Close() {  // returns the page's bytes
        if (std::fclose(std::exchange(file_, nullptr)) != 0) throw SystemError(path_, errno);
        return bytes_;
    }

  private:
    std::string path_;
    std::FILE* file_;
    uint64_t bytes_ = 0;
};

std::vector<Selection> AskedFootage(const CardIndex& index, const TimelineArguments& arguments) {
    if (arguments.asked.Any()) return {arguments.asked.Select(index, arguments.options.times)};
    if (arguments.event.empty()) return {SelectAll(index)};
    if (arguments.event != "all") return {SelectEvent(index, ParseEvent(arguments.event))};
    std::vector<Selection> events;
    for (const Event& event : index.Events()) events.push_back(SelectEvent(index, event.number));
    return events;
}

Footage FootageOf(const Volume& volume, const CardIndex& index, const TimelineArguments& arguments) {
    const std::vector<Selection> asked = AskedFootage(index, arguments);
    Footage footage = ChooseFootage(volume, index, asked);
    if (asked.empty()) throw CardError("There is no event on the card.", kNothing);
    if (footage.held.empty()) {
        throw NothingThere(volume, index, {.stretches = {}, .from = asked.front().from, .to = asked.back().to});
    }
    if (footage.bytes > arguments.clips_max * kMiB) {
        throw CardError("There are " + Bytes(footage.bytes) + " of footage then, and the page is to hold " +
                            Bytes(arguments.clips_max * kMiB) +
                            " at most. Choose less with --from and --to or --event, allow more with --clips-max, or "
                            "save clips with \"recordcard export\".",
                        kUsage);
    }
    return footage;
}

int Timeline(const TimelineArguments& arguments) {
    RequireApart(arguments.options.path, arguments.out);
    const Volume volume = Volume::OpenToSalvage(arguments.options.path);
    const CardIndex index(volume);
    std::optional<Footage> footage;
    if (arguments.clips) footage = FootageOf(volume, index, arguments);
    OutputFiles files(arguments.out, arguments.force ? OutputFiles::Mode::Overwrite : OutputFiles::Mode::New);
    const StopSignals signals;
    av_log_set_level(AV_LOG_FATAL);  // a damaged picture is left out in silence
    Progress pictures("Pictures");
    const auto picture_done = [&](size_t done, size_t total) {
        signals.ThrowIfStopped();
        pictures.Show(done, total);
    };
    const std::string page =
        ViewerPage(OverviewJson(index, arguments.options, footage ? &*footage : nullptr, picture_done), "");
    pictures.Clear();
    const size_t place = PlaceOfFootage(page);
    if (footage) RequireSpace(arguments.out, page.size() + footage->bytes * 4 / 3);
    PageFile file(files.Next());
    file.Write(std::string_view(page).substr(0, place));
    if (footage) {
        Progress progress("Footage");
        WriteFootage(
            *footage, [&](std::string_view text) { file.Write(text); },
            [&](uint64_t done) {
                signals.ThrowIfStopped();
                progress.Show(done, footage->bytes);
            });
    }
    file.Write(std::string_view(page).substr(place));
    const uint64_t bytes = file.Close();
    // A list alone can be made again at any time.
    if (files.Commit(!footage || AllRead(volume, index))) TellKept(arguments.out, files.Final().front());
    std::printf("%s: %s, %s, %s%s; open it in any browser\n", files.Final().front().c_str(),
                Counted(index.Sections().size(), "section").c_str(), Counted(index.Events().size(), "event").c_str(),
                Bytes(bytes).c_str(), footage ? ", plays without the card" : "");
    return TellLosses(volume, index, arguments.options.times);
}

}  // namespace

Run PrepareTimeline(CLI::App& command) {
    const auto arguments = std::make_shared<TimelineArguments>();
    command.add_option("CARD", arguments->options.path, "Mounted card, folder, device or image file")->required();
    command.add_option("OUT", arguments->out, "HTML file to make")->required();
    command.add_option("--thumbnails", arguments->options.thumbnails_max, "At most so many pictures")
        ->check(CLI::Range(0, 5000))
        ->capture_default_str();
    CLI::Option* const clips =
        command.add_flag("--clips", arguments->clips, "The footage itself, too: the page plays without the card");
    CLI::Option* const event =
        command
            .add_option("--event", arguments->event, "With --clips: only that of the event of this number, or of all")
            ->type_name("N|all");
    command.add_option("--from", arguments->asked.from, "With --clips: only what was recorded from this time on")
        ->type_name("TIME");
    command.add_option("--to", arguments->asked.to, "With --clips: to this time, the whole second included")
        ->type_name("TIME");
    for (const char* name : {"--from", "--to"}) command.get_option(name)->needs(clips)->excludes(event);
    event->needs(clips);
    command.add_option("--clips-max", arguments->clips_max, "With --clips: refuse more footage than so many MiB")
        ->needs(clips)
        ->check(CLI::Range(1, 2048))
        ->capture_default_str();
    command.add_flag("--force", arguments->force, "Overwrite OUT when it is there");
    AddTimeStyle(command, arguments->options.times);
    command.footer(
        std::string(kTimeText) +
        "The page is complete in itself: it opens without a network and can be sent as it is. With --clips it plays,\n"
        "scrubs and saves clips of the footage it holds, and says of all else that it holds none; footage takes a\n"
        "third more room in it than on the card. To send an event: recordcard timeline CARD OUT --clips --event 3");
    return [arguments] { return Timeline(*arguments); };
}

}  // namespace card
