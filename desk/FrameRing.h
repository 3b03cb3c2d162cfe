// The writing side of one frame ring: encoded frames in shared memory, read lock-free by position.
//
// A record is a 64-byte AVDataInfo followed by its payload; the next one follows at once.  The oldest records are
// simply overwritten: a reader notices by check word, end flag and serial.
// Invariants: the header at the write position is invalid until its record is complete, and EndFlag is written last;
// after every record lies room for another header; a record that does not fit goes to position 0 and an
// AVDATA_END_RING header stands where it would have begun; serials rise by one a record.
// One writing thread; the queries may come from any.
#pragma once

#include <atomic>
#include <optional>

#include "AVFrame.h"
#include "AccessUnit.h"
#include "SharedSegment.h"

namespace desk {

class FrameRing {
  public:
    struct Record {
        AVFrameType kind;
        View payload;
        uint32_t time_stamp;
        bool key = false;
    };
    struct Place {
        uint32_t serial;
        uint32_t position;
    };

    // The segment of `key` is 64 bytes longer than the ring of `ring_size` bytes.  A ring that a killed camera left
    // is written on from where that one stopped, so that its readers go on too.
    FrameRing(int key, uint32_t ring_size);

    uint32_t RingSize() const { return ring_size_; }
    uint32_t LargestPayload() const { return ring_size_ - 2 * uint32_t{sizeof(AVDataInfo)}; }

    // Where the record went; nothing when its payload is empty or larger than LargestPayload().
    std::optional<Place> Publish(const Record& record);

    // Sends all readers to position 0 and writes on from there, as after a restart of the encoder.  Returns when
    // readers have had the time to see it.
    void Restart();

    uint32_t WritePosition() const { return write_position_; }  // of the next record
    uint32_t LastKeyPosition() const { return key_position_; }  // 0 before the first; its record may be overwritten
    uint32_t LastSerial() const { return serial_; }

    // Puts any bytes at the write position, as if they were the next record; the next Publish overwrites them.
    void Spoil(const AVDataInfo& header, View payload);

  private:
    uint8_t* At(uint32_t position) const { return segment_.Data().data() + position; }
    void TakeOver();
    AVDataInfo HeaderAt(uint32_t position) const;
    void Invalidate(uint32_t position);
    void WriteMarker(AVDataEndFlag flag);
    void RepairFirstHeader();

    SharedSegment segment_;
    uint32_t ring_size_;
    std::atomic<uint32_t> write_position_{0};
    std::atomic<uint32_t> key_position_{0};
    std::atomic<uint32_t> serial_{0};
    AVDataInfo first_header_{};  // of the record at position 0 while there is one
};

}  // namespace desk
