// A card inside a page: of its files those bytes that a reader needs to list the card and to play chosen footage.
//
// The page's reader sees the card's own files, with zeros where nothing was taken, so it lists what the card's list
// says and plays by the same rules.  One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "clip/Clip.h"
#include "index/CardIndex.h"
#include "text/Json.h"

namespace card {

struct Footage {
    struct File {
        StoreFile file;
        std::vector<Extent> parts;  // what is taken, rising, apart from each other
    };
    std::vector<File> files;
    std::vector<std::pair<uint32_t, uint32_t>> held;  // what can be played: s since 1970 UTC, both included; rising
    uint64_t bytes = 0;                               // of all parts
};

// Throws CardError when the card cannot be read.
Footage ChooseFootage(const Volume& volume, const CardIndex& index, const std::vector<Selection>& wanted);

// Into the open object: "files": [{"path": .., "size": .., "parts": [[offset, bytes], ...]}, ...],
// "held": [[from, to], ...].
void AddFootage(JsonText& json, const Footage& footage);

// Hands the bytes of all parts, one after the other, to `write` as script elements of class "footage" in Base64.
// `done`: bytes so far; may throw to stop.  Throws CardError when the card gives less than before.
void WriteFootage(const Footage& footage, const std::function<void(std::string_view)>& write,
                  const std::function<void(uint64_t)>& done);

}  // namespace card
