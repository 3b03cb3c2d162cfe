// A frame as the playback reader hands it out.
#pragma once

#include <memory>

#include "Fuzz.h"
#include "libRecordFile.h"

namespace fuzz {

struct Played {
    int kind = -7;  // these are what no frame has: a reader that refuses changes nothing
    uint32_t length = 77, time = 777, pts = 7777;

    static uint8_t* Payload() {
        static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[PLAYBACK_BUFFER_SIZE]);
        return buffer.get();
    }
    bool Read(const MemoryFile& file, uint32_t& offset) {
        return libAVRecordPlayBackGetPSFrame(file.fd(), &offset, &kind, Payload(), &length, &time, &pts) == 0;
    }
    bool operator==(const Played&) const = default;
};

}  // namespace fuzz
