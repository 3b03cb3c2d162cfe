// Copies of a card for a repair, as complete as they can be had: what cannot be read is zero in them.
#pragma once

#include <string>

#include "commands/Progress.h"
#include "commands/Unsaved.h"
#include "repair/Repairer.h"

namespace card {

CheckProgress Shown(Progress& progress);

// Each makes `copy`, of which nothing exists but perhaps an empty folder, and shows how far it is.  Throws CardError,
// CardGone.
Unsaved CopyImage(const std::string& card, const std::string& copy);
Unsaved CopyFolder(const std::string& card, const std::string& copy);
// A store's files out of an image or device, by the layout or by their content alone.
Unsaved TakeOut(const std::string& card, const std::string& folder);

}  // namespace card
