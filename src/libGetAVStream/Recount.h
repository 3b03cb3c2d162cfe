// Tells a media server that counts its frames anew, as one does that was restarted in the old ring, from one whose
// last key frame is merely older than what a reader has seen already.
//
// Neither a low serial number nor two of them say so: answers may be late, and old records stay in the ring until they
// are written over.  The records after a last key frame that is merely old lead to the frame seen last.  Proof is that
// they end before it, and that one with the next serial number was written there since, or that a second of answers
// says the same.
#pragma once

#include <cstdint>

#include "Ring.h"

class Recount {
  public:
    // Looks at the key frame at `position`, which is not newer than `seen`.  True once the media server is known to
    // go on from there; call again and again.
    bool IsProved(const Ring& ring, int64_t position, uint32_t seen);
    void Forget() { *this = Recount(); }

  private:
    bool PassRecord(const Ring& ring);

    int64_t end_ = -1;   // where the records ended; -1: not looked at yet
    uint32_t last_ = 0;  // serial number of the last one
    int looks_ = 0;      // in a row at records that end too early
};
