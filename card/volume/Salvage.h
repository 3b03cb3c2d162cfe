// Reads around what a card cannot give any more: zeros stand in its place, and it is noted.
//
// For showing and saving alone: who writes to the card must not take a failed read for zeros.  A place that failed is
// not tried again.  A card that was pulled is no card of bad places: after each failed read, one that went well is done
// again. Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "volume/Device.h"
#include "volume/Fat32.h"

namespace card {

// Of one file of the store.
struct UnreadPart {
    std::string file;            // "hi000001.mp4"
    std::vector<Extent> places;  // in it, rising; never empty
    std::string why;             // what the system said of the first one found
    uint64_t unsearched = 0;     // bytes of them that were given up as a whole: parts of these may be readable

    uint64_t Bytes() const;
};

class Salvage {
  public:
    // A failed read may take a card seconds, or no time at all.  After so much of it whole pieces are given up.
    explicit Salvage(std::chrono::minutes patience = std::chrono::minutes(10)) : patience_(patience) {}

    // As Device::ReadAt, but for what fails; `at`: where `offset` lies in `file`.  Throws CardGone when nothing can be
    // read any more.
    size_t ReadAt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer, size_t length,
                  const std::string& file, uint64_t at);
    // The same at once: nothing when it fails, which is noted nowhere.
    std::optional<size_t> TryAt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer,
                                size_t length);
    std::vector<UnreadPart> Unread() const;  // by name
    bool Gone() const;                       // what was read before can be read no more

  private:
    struct Notes {
        std::map<uint64_t, uint64_t> bad;         // begins and ends in the file, apart from each other
        std::map<uint64_t, uint64_t> unsearched;  // the same; tried again when asked for again
        std::string why;
    };
    struct Piece {
        uint64_t offset;  // on the device
        uint64_t at;      // in the file
        uint8_t* into;
        size_t length;
    };
    // A place that was read.
    struct Witness {
        std::shared_ptr<const Device> device;
        uint64_t offset;
    };
    bool WitnessesFail() const;
    size_t ReadPiece(const std::shared_ptr<const Device>& device, const Piece& piece, Notes& notes);
    std::optional<size_t> Attempt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer,
                                  size_t length, std::string& why);

    mutable std::mutex mutex_;
    std::chrono::minutes patience_;
    std::map<std::string, Notes> notes_;   // by file
    std::chrono::nanoseconds failing_{0};  // spent in reads that failed, so far
    std::optional<Witness> first_;         // nothing was read before
    std::optional<Witness> latest_;
};

}  // namespace card
