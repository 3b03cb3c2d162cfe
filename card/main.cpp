// recordcard: makes, looks into, exports, checks and repairs recording cards.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "commands/Commands.h"
#include "commands/Manual.h"
#include "text/Error.h"

namespace {

constexpr card::Command kCommands[] = {
    {"format", "Make a blank card or image file a recording card (erases it)", card::PrepareFormat},
    {"info", "Space, files used, oldest and newest moment, hours kept", card::PrepareInfo},
    {"list", "What was recorded, by day, with the gaps", card::PrepareList},
    {"events", "The alarm events", card::PrepareEvents},
    {"export", "A moment, an event, a section or everything as a file that plays anywhere", card::PrepareExport},
    {"check", "Does everything on the card agree? Tells what does not, and what it costs", card::PrepareCheck},
    {"view", "The card in this computer's browser: play, scrub, save clips", card::PrepareView},
    {"timeline", "The card as one HTML page: days, gaps, events, pictures; with --clips the footage",
     card::PrepareTimeline},
    {"repair", "Rebuild lost heads, index or file system from what is on the card (into a copy)", card::PrepareRepair},
    {"mount", "Mount an image's files for a recorder to write (FUSE, needs no privileges)", card::PrepareMount},
};

constexpr char kDescription[] =
    "Makes, looks into and saves what is on a camera's recording card.\n"
    "CARD is a mounted card, a folder with its files, a block device or an image file; it is only read\n"
    "unless a command says otherwise. \"recordcard COMMAND --help\" tells the options of a command.";

constexpr char kFooter[] =
    "Exit status: 0 done; 1 done, but with findings; 2 wrong usage; 3 the card could not be read or written;\n"
    "4 nothing was recorded in the time asked for.";

int RunTool(int argc, char** argv) {
    CLI::App app(kDescription, "recordcard");
    app.footer(kFooter);
    app.set_version_flag("--version", "recordcard " RECORDCARD_VERSION);
    app.require_subcommand(1);
    std::vector<std::pair<CLI::App*, card::Run>> commands;
    for (const card::Command& command : kCommands) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        commands.emplace_back(sub, command.prepare(*sub));
    }
    CLI::App* const manual = app.add_subcommand("manual", "The manual page, made from this help")->group("");
    CLI::App* const completion = app.add_subcommand("completion", "The completions for bash")->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? card::kDone : card::kUsage;
    }
    if (manual->parsed()) return card::PrintManual(app);
    if (completion->parsed()) return card::PrintCompletion(app);
    for (const auto& [sub, run] : commands) {
        if (sub->parsed()) return run();
    }
    return card::kUsage;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return RunTool(argc, argv);
    } catch (const card::CardError& error) {
        std::fprintf(stderr, "recordcard: %s\n", error.what());
        return error.Code();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "recordcard: %s\n", error.what());
        return card::kFailed;
    }
}
