// What passed the recorder's door to the card, in order, and which cards a power cut can make of it.
//
// The system's cache holds pages: a later write to a page replaces the earlier one, and until a hand-over that covers
// it is complete the card may have any state of the page since the one before; a write-back that the cut interrupts
// leaves some of its sectors new.  Pages go to the card in any order.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "Medium.h"

namespace cuts {

// Bytes in one place, as the operations left them one after the other.
struct History {
    struct Version {
        size_t since;  // operations that have happened
        std::string bytes;
    };
    std::vector<Version> versions;  // the first one was there before

    size_t Newest(size_t cut) const;  // version in the cache
};

struct PageHistory : History {
    int file = 0;
    uint32_t number = 0;
    std::vector<std::pair<size_t, size_t>> sure;  // since so many operations the card has at least this version

    size_t Oldest(size_t cut) const;  // version that the card has at least
};

// A card: for each page the version it has, and of which other version it has some sectors.
struct Choice {
    size_t version;
    size_t other;
    uint8_t other_sectors;  // a bit a sector
};
struct Cut {
    size_t at = 0;  // operations that have happened
    std::vector<Choice> pages;
};

class Tape {
  public:
    explicit Tape(const Medium& medium) : medium_(medium) {}

    // Write is called before the recorder does it: what was there is taken from the card's files.
    void Write(int file, uint64_t offset, const std::string& bytes);
    // Complete, `began` operations having happened when it began.
    void HandedOver(int file, uint64_t offset, uint64_t end, size_t began);

    size_t Operations() const { return operations_; }  // so far
    const std::vector<PageHistory>& Pages() const { return pages_; }
    // What was written beside the stream, by file and offset.
    const std::map<std::pair<int, uint64_t>, History>& Records() const { return records_; }

    // Once all is recorded, the cards that are gone through one by one: of each cut each page old or new, and each torn
    // in every place while the rest is old, and new.  After the last of these numbers, cards that are drawn.
    size_t Listed();
    Cut Card(size_t number, size_t seed);

    // Makes the card's files that card; false when it was shown before.
    bool Show(const Cut& cut);

  private:
    PageHistory& HistoryOf(int file, uint64_t offset);
    std::vector<size_t> Open(size_t cut) const;
    Cut AllOf(size_t cut, bool newest) const;
    size_t CountOf(size_t cut) const;
    Cut OneOf(size_t cut, size_t number) const;
    Cut Drawn(std::mt19937_64 draw) const;

    const Medium& medium_;
    size_t operations_ = 0;
    std::vector<PageHistory> pages_;
    std::map<std::pair<int, uint64_t>, History> records_;
    std::vector<size_t> listed_;   // by cut
    std::vector<uint64_t> shown_;  // by page
    std::unordered_set<uint64_t> seen_;
};

}  // namespace cuts
