// recordcard timeline: the card as one page to look at.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "commands/Commands.h"
#include "commands/Options.h"
#include "commands/Progress.h"
#include "export/Ffmpeg.h"
#include "export/OutputFiles.h"
#include "index/CardIndex.h"
#include "page/Overview.h"
#include "page/ViewerPage.h"
#include "text/Error.h"
#include "volume/Apart.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct TimelineArguments {
    std::string out;
    bool force = false;
    OverviewOptions options;
};

void WriteFile(const std::string& path, const std::string& text) {
    std::FILE* const file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr) throw SystemError(path, errno);
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (std::fclose(file) != 0 || !written) throw SystemError(path, errno);
}

int Timeline(const TimelineArguments& arguments) {
    RequireApart(arguments.options.path, arguments.out);
    const Volume volume = Volume::Open(arguments.options.path);
    const CardIndex index(volume);
    OutputFiles files(arguments.out, arguments.force ? OutputFiles::Mode::Overwrite : OutputFiles::Mode::New);
    av_log_set_level(AV_LOG_FATAL);  // a damaged picture is left out in silence
    Progress progress("Pictures");
    const std::string page = ViewerPage(
        OverviewJson(index, arguments.options, [&](size_t done, size_t total) { progress.Show(done, total); }), "");
    WriteFile(files.Next(), page);
    files.Commit();
    progress.Clear();
    std::printf("%s: %s, %s, %s; open it in any browser\n", arguments.out.c_str(),
                Counted(index.Sections().size(), "section").c_str(), Counted(index.Events().size(), "event").c_str(),
                Bytes(page.size()).c_str());
    return kDone;
}

}  // namespace

Run PrepareTimeline(CLI::App& command) {
    const auto arguments = std::make_shared<TimelineArguments>();
    command.add_option("CARD", arguments->options.path, "Mounted card, folder, device or image file")->required();
    command.add_option("OUT", arguments->out, "HTML file to make")->required();
    command.add_option("--thumbnails", arguments->options.thumbnails_max, "At most so many pictures")
        ->check(CLI::Range(0, 5000))
        ->capture_default_str();
    command.add_flag("--force", arguments->force, "Overwrite OUT when it is there");
    AddTimeStyle(command, arguments->options.times);
    command.footer("The page is complete in itself: it opens without a network and can be sent as it is.");
    return [arguments] { return Timeline(*arguments); };
}

}  // namespace card
