// A media server's ring, attached.  Owns the attachment; hands out only bytes that lie in the segment,
// whatever position or length it is asked for.
#pragma once

#include <cstdint>
#include <optional>

#include "AVFrame.h"

class Ring {
  public:
    Ring() = default;
    ~Ring() { Detach(); }
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    bool Attach(int segment_id);
    void Detach();
    bool Attached() const { return base_ != nullptr; }
    int SegmentId() const { return id_; }

    // True once someone removed the segment: it stays attached, but nobody new finds it.
    bool Removed() const;

    // `length` bytes at `position`, or null when they do not all lie in the segment.
    uint8_t* Bytes(int64_t position, int64_t length) const;

    // A copy of the header at `position`, taken after its EndFlag was seen: the payload is there, too.  A header
    // that changes meanwhile is not ready (EndFlag 0).
    std::optional<AVDataInfo> Header(int64_t position) const;

    // The first five payload bytes of the record at `position` (start code and NAL header), or null.
    const uint8_t* NalStart(int64_t position) const;

  private:
    int id_ = -1;
    uint8_t* base_ = nullptr;
    int64_t size_ = 0;
};
