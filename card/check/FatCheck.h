// The file system under a store: boot sectors, both allocation tables, the root directory, and where the
// store's files lie.  Reads only.
#pragma once

#include "check/Findings.h"
#include "volume/Volume.h"

namespace card {

// Nothing for a folder.  Throws CardError when the card cannot be read.
Findings CheckFat(const Volume& volume);

}  // namespace card
