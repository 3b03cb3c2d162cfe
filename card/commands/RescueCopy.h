// Copies of a card for a repair, as complete as they can be had: what cannot be read is zero in them, and told.
#pragma once

#include <string>
#include <vector>

#include "commands/Progress.h"
#include "repair/Repairer.h"
#include "volume/Salvage.h"

namespace card {

CheckProgress Shown(Progress& progress);

// What a copy lacks.
struct Unsaved {
    std::vector<UnreadPart> parts;      // by file of the copy; of an image all of it under ""
    std::vector<std::string> unopened;  // files of which nothing is in the copy, each with what the system says

    bool Empty() const { return parts.empty() && unopened.empty(); }
};

// Each makes `copy`, of which nothing exists but perhaps an empty folder, and shows how far it is.  Throws CardError,
// CardGone.
Unsaved CopyImage(const std::string& card, const std::string& copy);
Unsaved CopyFolder(const std::string& card, const std::string& copy);
// A store's files out of an image or device, by the layout or by their content alone.
Unsaved TakeOut(const std::string& card, const std::string& folder);

// Prints what the mended copy lacks, a line a place, with what that costs.
void PrintUnsaved(const Unsaved& unsaved, const std::string& card, const std::string& copy);

}  // namespace card
