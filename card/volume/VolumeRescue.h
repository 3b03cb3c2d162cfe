// Finds a store on a card whose boot sector, FAT or directory is gone: the formatter puts every file in one
// piece on a multiple of 4 MiB, so the layout follows from the card's size and what lies at its places.
//
// Finding only reads.  Restoring writes boot sectors, tables and directory where they differ from the layout,
// never the data of a file, and leaves the chains and entries of other files alone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VolumePlan.h"
#include "volume/Device.h"
#include "volume/Salvage.h"
#include "volume/Volume.h"
#include "volume/WriteJournal.h"

namespace card {

// What is searched for a store: a card, as its device reads, or around what it cannot give.
struct Searched {
    Searched(const Device& device);  // which must outlive it
    Searched(std::shared_ptr<const Device> device, Salvage& salvage);

    uint64_t size;
    std::function<size_t(uint64_t offset, void* buffer, size_t length)> read;  // as Device::ReadAt
};

struct FoundLayout {
    uint64_t base = 0;  // where the volume begins, bytes from the start of the device
    prestore::VolumePlan plan;
    int evidence = 0;  // grows with what agrees
};

// The formatter's layout that fits best what is on the card; nothing when nothing does.
std::optional<FoundLayout> FindLayout(const Searched& card);

// Makes boot sectors, FATs and directory those of the layout; returns what was done, a line a thing.
std::vector<std::string> RestoreVolume(const Device& device, const FoundLayout& layout, WriteJournal& journal);

// Whether the files that the directory knows lie where the layout puts them, most of them at least.
bool LiesSo(const Volume& volume, const FoundLayout& layout);
// Files whose own marks contradict their directory entries: theirs stands at the layout's place, or another's here.
std::vector<std::string> Misplaced(const Volume& volume, const FoundLayout& layout);

// One file found by its content alone.
struct CarvedFile {
    std::string name;
    uint64_t offset = 0;  // on the device
    uint64_t length = 0;
};

using CarveProgress = std::function<void(uint64_t done, uint64_t total)>;

// Looks through the whole device, sector by sector, for the beginnings of record files, index and events.
// Record files are numbered in the order of their place.
std::vector<CarvedFile> CarveFiles(const Searched& card, const CarveProgress& progress = {});

}  // namespace card
