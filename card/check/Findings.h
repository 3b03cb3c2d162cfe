// What a check found, in words for the card's owner and for scripts.
//
// Plain values; printing and JSON live with the command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace card {

struct Finding {
    enum class Level {
        Remark,  // worth knowing, part of normal life: a power cut's remainder, a slot not in use
        Error,   // an invariant does not hold
    };
    enum class Mend {  // what a repair would have to rebuild
        Nothing,       // what is damaged is gone
        Volume,        // boot sector, FAT, directory, files' sizes
        System,        // the index's system head
        File,          // one record file's heads and key-frame records
        Events,        // one record file's events
    };

    Level level = Level::Error;
    std::string kind;     // a stable word for scripts, as "section-frames"
    std::string place;    // "index000.bin", "hi000003.mp4", "FAT", ...
    uint64_t offset = 0;  // bytes from the start of the place
    std::string what;
    std::string consequence;  // for the owner
    Mend mend = Mend::Nothing;
    uint32_t file = 0;         // record file of Mend::File and Mend::Events
    bool from_stream = false;  // found by reading all of `file`
};

using Findings = std::vector<Finding>;

inline size_t Errors(const Findings& findings) {
    size_t count = 0;
    for (const Finding& finding : findings) count += finding.level == Finding::Level::Error ? 1 : 0;
    return count;
}

}  // namespace card
