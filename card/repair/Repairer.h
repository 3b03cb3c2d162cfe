// Mends a store where it lies: first the file system, then heads and key-frame records from the stream, the
// system head and the events.
//
// Works on what it is given, a copy or the card itself; the caller has decided that.  Leaves alone what a
// check finds right, and never touches stream data, but for putting back a stream head that was lost.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "check/CardCheck.h"
#include "repair/IndexBuilder.h"
#include "volume/Volume.h"

namespace card {

using RepairLog = std::vector<std::string>;  // what was done, a line a thing

// Makes the FAT32 volume on an image or device readable again when it is not.  Throws CardError when nothing
// on the card tells how it was laid out.
void RepairVolume(const std::string& path, RepairLog& log, WriteJournal& journal);
void RepairVolume(const std::string& path, RepairLog& log);
// Whether findings name something that it can mend.
bool NeedsVolume(const Findings& findings);

// Gives a folder's files their sizes and makes those that are missing.
void RepairFolder(const std::string& path, RepairLog& log);

// What is to be done to a store's index and events, and what was found on the way.
struct StorePlan {
    Findings findings;
    bool index_lost = false;  // the index could not be read at all
    bool system = false;      // the system head is to be written
    RecordSystemInfoHead_S system_head{};
    std::vector<RebuiltFile> files;             // by number, as they are going to be
    std::vector<uint32_t> write;                // of these
    std::vector<uint32_t> left_alone;           // new heads would reach fewer pictures than the present ones
    std::set<uint32_t> events;                  // files whose events are to be mended
    size_t pictures_before = 0;                 // that can be exported from the whole card
    std::map<uint32_t, size_t> rebuilt_before;  // and from files that need mending

    bool Needed() const;
    size_t PicturesBefore(uint32_t file) const;
};

struct RepairResult {
    Findings findings;  // that are left
    size_t pictures_before = 0;
    size_t pictures_after = 0;
    bool taken_back = false;  // fewer pictures could be exported: everything stands as it stood
};

// Reads every stream once.  Writes nothing.
StorePlan PlanStore(const Volume& volume, const CheckProgress& progress = {});
// Carries the plan out on that store or a copy of it, open for writing, and reads again what was rebuilt.
RepairResult CarryOut(const StorePlan& plan, const Volume& volume, RepairLog& log, const CheckProgress& progress = {});
// Both, again while there is something left to mend.
RepairResult RepairStore(const Volume& volume, RepairLog& log, const CheckProgress& progress = {});

}  // namespace card
