// Every invariant of a store against what is on the card: heads, counts, places, lengths, key-frame records
// and times against the stream's bytes, events against sections, files against the index.
//
// Reads only.  What is part of normal life (an earlier lap after the present one, what a power cut left
// after the heads, slots that were used up without a recording) is a remark or nothing at all.
#pragma once

#include <functional>
#include <optional>
#include <set>

#include "check/FileCheck.h"
#include "check/Findings.h"
#include "volume/Volume.h"

namespace card {

using CheckProgress = std::function<void(uint64_t done, uint64_t total)>;

struct CheckScope {
    std::optional<std::set<uint32_t>> files;  // whose streams are read; nothing: all
    SurveyVisitor visit;                      // gets what was read
};

// Findings in the order of the card.  Throws CardError when the card cannot be read.
Findings CheckStore(const Volume& volume, const CheckProgress& progress = {}, const CheckScope& scope = {});

}  // namespace card
