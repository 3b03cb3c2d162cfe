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

    // In place of what was attached, which stays when this fails.
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

    // The header of the complete frame at `position`, all of which lies in the segment; none when there is no such
    // frame.
    std::optional<AVDataInfo> Frame(int64_t position) const;

    // Where the record after the frame at `position` begins.
    static int64_t After(int64_t position, const AVDataInfo& frame) {
        return position + static_cast<int64_t>(sizeof frame) + frame.AVDataLen;
    }

    // The first five payload bytes of the record at `position` (start code and NAL header), or null.
    const uint8_t* NalStart(int64_t position) const;

  private:
    int id_ = -1;
    uint8_t* base_ = nullptr;
    int64_t size_ = 0;
};
