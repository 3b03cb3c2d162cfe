// Mends a store where it lies: first the file system, then heads and key-frame records from the stream, the
// system head and the events.
//
// Works on what it is given, a copy or the card itself; the caller has decided that.  Leaves alone what a
// check finds right, and never touches stream data, but for putting back a stream head that was lost.
#pragma once

#include <string>
#include <vector>

#include "check/CardCheck.h"
#include "volume/Volume.h"

namespace card {

using RepairLog = std::vector<std::string>;  // what was done, a line a thing

// Makes the FAT32 volume on an image or device readable again when it is not.  Throws CardError when nothing
// on the card tells how it was laid out.
void RepairVolume(const std::string& path, RepairLog& log);

// Gives a folder's files their sizes and makes those that are missing.
void RepairFolder(const std::string& path, RepairLog& log);

// Mends index and events; the volume is open for writing.
void RepairStore(const Volume& volume, RepairLog& log, const CheckProgress& progress = {});

}  // namespace card
