// A whole card: its file system and its store.
#pragma once

#include "check/StoreCheck.h"

namespace card {

// Both checks; a card whose index cannot be read at all is one finding.  Throws CardError when the card cannot be read.
Findings CheckAll(const Volume& volume, const CheckProgress& progress = {});

// The file system, and the store as far as no stream has to be read for it: in moments, however large the card.
Findings CheckVolume(const Volume& volume);

}  // namespace card
