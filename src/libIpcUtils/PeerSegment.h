// A shared segment that belongs to the camera's peers and is followed when they remove it and make it anew.
//
// Knows the segment by its key alone.  No lock of its own: the caller brings one.
#pragma once

#include "Attachment.h"

class PeerSegment {
  public:
    constexpr PeerSegment(int key, int size) : key_(key), size_(size) {}

    // Takes or creates the segment, as IpcShareMemInit does; false when it cannot be had.  Id() then goes on trying.
    bool Open();

    // Lets go of it; it stays as it is.
    void Forget();

    // Whether Open, or Id after it, got hold of a segment.
    bool Attached() const { return id_ >= 0; }

    // The segment that the key has now; -1 before Open and while none can be had.  A segment that was removed is kept
    // until the key has a new one, for as long as others still use it; else a new one is created.
    int Id();

    // The first `length` bytes of that segment, until the next call of a member; null when it has not so many or cannot
    // be had.  It stays attached from one call to the next, unless somebody removed it: then our own attachment must
    // not be what keeps it alive.
    const void* Look(size_t length);

  private:
    void Detach() { DetachSegment(attachment_); }

    const int key_;
    const int size_;
    bool wanted_ = false;
    int id_ = -1;
    Attachment attachment_{};  // for Look
};
