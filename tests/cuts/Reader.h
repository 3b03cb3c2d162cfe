// A third reader of the card, written from docs/card-format.md alone: what a player finds by the index, over the bytes
// of the store's files.  Shares no code with the product.
#pragma once

#include <compare>
#include <cstdint>
#include <vector>

#include "Medium.h"

namespace cuts {

struct Listed {  // a frame
    uint32_t file;
    uint32_t offset;
    uint32_t length;  // headers included, a stream head in front not
    auto operator<=>(const Listed&) const = default;
};

struct Listing {
    bool is_card = false;
    uint32_t current = 0;
    std::vector<Listed> frames;  // in the order of file and place
    // Bytes of a file that its file head or a section that counts claims, from its begin.
    std::vector<uint32_t> claimed;

    uint32_t LengthAt(uint32_t file, uint32_t offset) const;  // of the frame there; 0: none
};

Listing ReadCard(const Medium& medium);

// Length of the frame that begins at `at`, without a stream head; 0: none does, or it passes `end`.
uint32_t FrameLength(const uint8_t* bytes, uint32_t at, uint32_t end);

inline constexpr uint32_t kStreamHeadBytes = 40;
bool IsStreamHead(const uint8_t* at);

}  // namespace cuts
