// Options that several commands have.
#pragma once

#include "text/TimeText.h"

namespace CLI {
class App;
}

namespace card {

void AddTimeStyle(CLI::App& command, TimeStyle& style);  // "--utc"

}  // namespace card
