// What a system's manual and shell know of the tool, made from its own help, so that they cannot drift apart.
#pragma once

namespace CLI {
class App;
}

namespace card {

int PrintManual(const CLI::App& app);      // roff, section 1
int PrintCompletion(const CLI::App& app);  // for bash

}  // namespace card
