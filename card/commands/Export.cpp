// recordcard export: a stretch of the card as a file that plays anywhere.
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

#include "clip/Clip.h"
#include "commands/Asked.h"
#include "commands/Commands.h"
#include "commands/Losses.h"
#include "commands/Options.h"
#include "commands/Progress.h"
#include "commands/StopSignals.h"
#include "export/Exporter.h"
#include "export/Ffmpeg.h"
#include "export/OutputFiles.h"
#include "index/CardIndex.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Apart.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct ExportArguments {
    std::string path;
    std::string out;
    AskedTimes asked;
    std::string event;  // a number or "all"
    std::string section;
    bool all = false;
    bool force = false;
    bool to_stdout = false;
    TimeStyle times;
};

// "F:U" as "list" prints it.
std::pair<uint32_t, uint32_t> ParseSection(const std::string& text) {
    std::pair<uint32_t, uint32_t> section;
    const char* const end = text.data() + text.size();
    const auto file = std::from_chars(text.data(), end, section.first);
    if (file.ec == std::errc() && file.ptr != end && *file.ptr == ':') {
        const auto number = std::from_chars(file.ptr + 1, end, section.second);
        if (number.ec == std::errc() && number.ptr == end) return section;
    }
    throw CardError("--section takes FILE:SECTION as \"recordcard list\" prints it, not \"" + text + "\"", kUsage);
}

Selection Select(const CardIndex& index, const ExportArguments& arguments) {
    const int ways = int{arguments.asked.Any()} + int{!arguments.event.empty()} + int{!arguments.section.empty()} +
                     int{arguments.all};
    if (ways != 1) {
        throw CardError("Say what to export: --from and/or --to, or --event, or --section, or --all (one of these)",
                        kUsage);
    }
    if (arguments.asked.Any()) return arguments.asked.Select(index, arguments.times);
    if (!arguments.event.empty()) return SelectEvent(index, ParseEvent(arguments.event));
    if (arguments.all) return SelectAll(index);
    const auto [file, number] = ParseSection(arguments.section);
    return SelectSection(index, file, number);
}

void PrintPart(std::FILE* to, const ExportPart& part, const TimeStyle& times) {
    const auto seconds = static_cast<double>(part.length) / kTicksPerSecond;
    std::fprintf(to, "%s: from %s, %.2f s, %" PRIu64 " pictures, %s%s", part.path.c_str(),
                 times.DateTime(part.start).c_str(), seconds, part.pictures,
                 part.parameters.video_type == record_file::kStreamH265 ? "H.265" : "H.264",
                 part.has_sound ? " with sound" : "");
    if (part.gaps != 0) std::fprintf(to, ", %u gap%s left out", part.gaps, part.gaps == 1 ? "" : "s");
    std::fprintf(to, "\n");
}

ExportReport RunExport(const Volume& volume, const CardIndex& index, const ExportArguments& arguments,
                       const Selection& selection) {
    using Mode = OutputFiles::Mode;
    const Mode mode = arguments.to_stdout ? Mode::ToStdout : arguments.force ? Mode::Overwrite : Mode::New;
    Exporter exporter(index, arguments.out, mode, arguments.times);
    const StopSignals signals;
    av_log_set_level(AV_LOG_FATAL);  // what fails is told by us
    Progress progress("Exporting");
    const uint64_t total = 2 * selection.StreamBytes();
    uint64_t done = 0;
    const auto show = [&](uint64_t bytes) {
        signals.ThrowIfStopped();
        progress.Show(done += bytes, total);
    };
    return exporter.Run(selection, show, [&] { return AllRead(volume, index, &selection); });
}

int ExportOne(const Volume& volume, const CardIndex& index, const ExportArguments& arguments) {
    const Selection selection = Select(index, arguments);
    if (selection.stretches.empty()) throw NothingThere(volume, index, selection);
    if (!arguments.to_stdout) RequireSpace(arguments.out, selection.StreamBytes());
    const ExportReport report = RunExport(volume, index, arguments, selection);
    if (report.aside) TellKept(arguments.out, report.parts.front().path);
    for (const ExportPart& part : report.parts) PrintPart(arguments.to_stdout ? stderr : stdout, part, arguments.times);
    if (report.damaged_bytes != 0 || report.foreign_frames != 0) {
        std::fprintf(stderr,
                     "recordcard: left out as damaged or of an earlier lap: %s, and %" PRIu64
                     " frames; \"recordcard check\" tells more\n",
                     Bytes(report.damaged_bytes).c_str(), report.foreign_frames);
    }
    if (report.found == 0 && report.damaged_bytes == 0 && report.foreign_frames == 0)
        throw NothingThere(volume, index, selection);
    const ExitCode losses = TellLosses(volume, index, arguments.times, &selection);
    if (!report.parts.empty()) return losses;
    throw CardError("There is no key frame that a file can begin with in what is left of that time.", kFindings);
}

// One file each: OUT with the event's number in front of its ending.
int ExportEvents(const Volume& volume, const CardIndex& index, const ExportArguments& arguments) {
    if (arguments.to_stdout) throw CardError("--event all makes a file for each event", kUsage);
    if (index.Events().empty()) throw CardError("There is no event on the card.", kNothing);
    ContainerOf(arguments.out);
    int worst = kDone;
    for (const Event& event : index.Events()) {
        ExportArguments one = arguments;
        one.event = std::to_string(event.number);
        one.out.insert(one.out.rfind('.'), "-event" + one.event);
        try {
            worst = std::max(worst, ExportOne(volume, index, one));
        } catch (const CardError& error) {
            if (error.Code() != kNothing && error.Code() != kFindings) throw;
            std::fprintf(stderr, "recordcard: event %u: %s\n", event.number, error.what());
            worst = std::max<int>(worst, error.Code());
        }
    }
    return worst;
}

int Export(ExportArguments arguments) {
    if (arguments.to_stdout) {
        if (arguments.out.empty()) arguments.out = "stream.mkv";
        if (isatty(STDOUT_FILENO) != 0) throw CardError("--to-stdout wants a pipe or a file behind it", kUsage);
    } else {
        if (arguments.out.empty()) throw CardError("Say which file to make, or --to-stdout", kUsage);
        RequireApart(arguments.path, arguments.out);
    }
    const Volume volume = Volume::OpenToSalvage(arguments.path);
    const CardIndex index(volume);
    return arguments.event == "all" ? ExportEvents(volume, index, arguments) : ExportOne(volume, index, arguments);
}

}  // namespace

Run PrepareExport(CLI::App& command) {
    const auto arguments = std::make_shared<ExportArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_option("OUT", arguments->out, "File to make: .mp4, .mkv, .h264, .h265 or .ps");
    command.add_flag("--to-stdout", arguments->to_stdout, "Into a pipe, as .mkv or of the kind that OUT names");
    command.add_option("--from", arguments->asked.from, "From the key frame at or before this time")->type_name("TIME");
    command.add_option("--to", arguments->asked.to, "To this time, the whole second included")->type_name("TIME");
    command
        .add_option(
            "--event", arguments->event,
            "The event of this number, see \"recordcard events\"; \"all\": each in a file OUT-eventN of its own")
        ->type_name("N|all");
    command.add_option("--section", arguments->section, "One section, see \"recordcard list\"")
        ->type_name("FILE:SECTION");
    command.add_flag("--all", arguments->all, "Everything on the card");
    command.add_flag("--force", arguments->force,
                     "Overwrite OUT when it is there; kept, when not all could be read now");
    AddTimeStyle(command, arguments->times);
    command.footer(
        std::string(kTimeText) +
        "Pictures are taken over as they are, cut at key frames; sound becomes AAC in an .mp4 and stays as it is in\n"
        "an .mkv. Time in the file is real time; gaps of more than 2 s are left out and marked with a chapter.\n"
        "Where codec or picture size change, a further file OUT-2, OUT-3, ... begins. The raw files: .h264 and .h265\n"
        "hold pictures alone; .ps the program stream as it lies on the card, with its own clock of 25 frames a\n"
        "second. To look at once: recordcard export CARD --event 1 --to-stdout | ffplay -\n"
        "Exit status: 1 not all of it could be read; 4 nothing was recorded in the time asked for.");
    return [arguments] { return Export(*arguments); };
}

}  // namespace card
