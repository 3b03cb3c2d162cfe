// What passed the recorder's door to the card, in order, and which cards a power cut can make of it.
//
// The system's cache holds pages: a later write to a page replaces the earlier one, and until a hand-over that covers
// it is complete the card may have any state of the page since the one before; a write-back that the cut interrupts
// leaves some of its sectors new.  Pages go to the card in any order.
#pragma once

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Medium.h"

namespace cuts {

struct Operation {
    bool is_write;
    int file;
    uint64_t offset;
    uint64_t end;       // first byte behind it
    std::string bytes;  // of a write
    size_t began;       // of a completed hand-over: operations in front of its begin
};

// One page, as the operations left it one after the other.
struct PageHistory {
    int file;
    uint32_t number;
    struct Version {
        size_t since;  // operations that have happened
        std::string bytes;
    };
    std::vector<Version> versions;                // the first one was there before
    std::vector<std::pair<size_t, size_t>> sure;  // since so many operations the card has at least this version

    size_t Oldest(size_t cut) const;  // version that the card has at least
    size_t Newest(size_t cut) const;  // version in the cache
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

    // Called as the recorder does it; a page's state is taken from the card's files.
    void BeforeWrite(int file, uint64_t offset, uint64_t length);
    void Written(int file, uint64_t offset, const void* bytes, uint64_t length);
    void HandedOver(int file, uint64_t offset, uint64_t end, size_t began);

    const std::vector<Operation>& Operations() const { return operations_; }
    const std::vector<PageHistory>& Pages() const { return pages_; }

    // The cards of a cut that are gone through one by one: each page old or new, and each torn in every place while the
    // rest is old, and new.
    size_t CountOf(size_t cut) const;
    Cut Listed(size_t cut, size_t number) const;
    Cut Random(std::mt19937_64& draw) const;

    // Makes the card's files that card.
    void Show(const Cut& cut);
    uint64_t Fingerprint(const Cut& cut) const;

  private:
    PageHistory& HistoryOf(int file, uint32_t number);
    std::vector<size_t> Open(size_t cut) const;
    Cut AllOf(size_t cut, bool newest) const;

    const Medium& medium_;
    std::vector<Operation> operations_;
    std::vector<PageHistory> pages_;
    std::vector<uint64_t> shown_;
};

}  // namespace cuts
