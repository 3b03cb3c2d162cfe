// The commands of the card tool.  To add one: a file under commands/ that defines its Prepare function,
// a line here and a line in the table of main.cpp.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace card {

// Carries out a command whose options have been read; returns an ExitCode or throws CardError.
using Run = std::function<int()>;

struct Command {
    const char* name;
    const char* summary;                // one line of `recordcard --help`
    Run (*prepare)(CLI::App& command);  // adds the command's options; what it returns is called when it is chosen
};

Run PrepareFormat(CLI::App& command);
Run PrepareInfo(CLI::App& command);
Run PrepareList(CLI::App& command);
Run PrepareEvents(CLI::App& command);
Run PrepareExport(CLI::App& command);
Run PrepareCheck(CLI::App& command);
Run PrepareTimeline(CLI::App& command);
Run PrepareView(CLI::App& command);
Run PrepareMount(CLI::App& command);
Run PrepareRepair(CLI::App& command);

}  // namespace card
