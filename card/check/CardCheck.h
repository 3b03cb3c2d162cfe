// A whole card: its file system and its store.
#pragma once

#include "check/StoreCheck.h"

namespace card {

// Both checks; a card whose index cannot be read at all is one finding.  Throws CardError when the card cannot be read.
Findings CheckAll(const Volume& volume, const CheckProgress& progress = {});

}  // namespace card
