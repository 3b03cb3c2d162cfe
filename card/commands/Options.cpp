#include "commands/Options.h"

#include <CLI/CLI.hpp>

namespace card {

void AddTimeStyle(CLI::App& command, TimeStyle& style) {
    command.add_flag("--utc", style.utc, "Times are UTC, not this computer's time zone");
}

}  // namespace card
