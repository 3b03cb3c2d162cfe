// What a repair's copy lacks because the card could not give it, told by file, place and cost.
#pragma once

#include <string>
#include <vector>

#include "volume/Salvage.h"

namespace card {

struct Unsaved {
    std::vector<UnreadPart> parts;      // by file of the copy; of an image all of it under ""
    std::vector<std::string> unopened;  // files of which nothing is in the copy, each with what the system says

    bool Empty() const { return parts.empty() && unopened.empty(); }
};

// Prints it of the mended copy, a line a place.
void PrintUnsaved(const Unsaved& unsaved, const std::string& card, const std::string& copy);

}  // namespace card
