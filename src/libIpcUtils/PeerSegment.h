// A shared segment that belongs to the camera's peers and is followed when they remove it and make it anew.
//
// Knows the segment by its key alone; keeps no mapping.  No lock of its own: the caller brings one.
#pragma once

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

  private:
    const int key_;
    const int size_;
    bool wanted_ = false;
    int id_ = -1;
};
