// What a written frame leaves in the index: its key-frame record and the three heads, in memory and on the card.
//
// Every function is called by the writer, under its lock, after the frame's bytes are on the card.
#pragma once

#include "Frame.h"
#include "libRecordFile.h"

class HeadsGuard {  // the heads' lock, for a stretch without access to the card
  public:
    HeadsGuard();
    ~HeadsGuard();
    HeadsGuard(const HeadsGuard&) = delete;
    HeadsGuard& operator=(const HeadsGuard&) = delete;
};

struct WrittenFrame {
    const Frame& frame;
    uint32_t length;  // bytes in the stream
    uint32_t time;    // s since 1970 UTC
};

// Puts the stream's parameters into the section head.
void TellSectionItsStream(const AVStreamParam& parameters);

// Adds the frame's key-frame record if it gets one; whether it did.  The counts rise exactly when a record was written.
bool IndexKeyFrame(int fd, const WrittenFrame& written, const AVStreamParam& parameters);

// Counts the frame in the heads and writes them: section, file, system.  A failed write is told by the door to the
// card; the next frame writes them again.  Returns the file's key-frame records.
uint32_t UpdateHeads(int index, const WrittenFrame& written, bool is_indexed);
