// Walks the program stream of a record file, frame by frame, over any source of bytes.
//
// Strict: what it calls a frame is exactly what the packer makes; every other byte is reported as garbage
// with its place, and the walk goes on at the next plausible pack header or stream head.  No length is
// trusted: the headers before and after each are checked as well.  Reads ahead in large pieces; holds one buffer
// and no payload.  One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "RecordFormat.h"

namespace card {

// Reads up to `length` bytes at `offset`, less only at the end of the source (as StoreFile::ReadAt).
using ReadAtFunction = std::function<size_t(uint64_t offset, void* buffer, size_t length)>;

// What the program stream map of a key frame says.
struct StreamParameters {
    uint8_t video_type = 0;  // 0x1B H.264, 0x24 H.265
    uint16_t width = 0;      // pixels
    uint16_t height = 0;
    uint16_t video_bit_rate = 0;
    uint8_t frame_rate = 0;    // frames a second
    uint8_t audio_type = 0;    // 0x0F AAC, 0x90 G.711 A-law, 0x91 G.711 u-law, 0 none of these
    uint16_t sample_rate = 0;  // Hz
    uint16_t audio_bit_rate = 0;

    bool operator==(const StreamParameters&) const = default;
};

struct Payload {
    uint64_t offset;  // in the source
    uint32_t length;  // bytes
};

struct StreamFrame {
    enum class Kind { Video, Audio };

    uint64_t offset = 0;  // of its first header byte in the source; a stream head in front is not part of it
    uint64_t size = 0;    // bytes in the stream, headers included
    Kind kind = Kind::Video;
    bool key = false;   // system header and program stream map are present
    uint32_t time = 0;  // s since 1970 UTC; audio: that of the latest video frame, 0 if none yet
    uint64_t pts = 0;   // 33 bits, 90 kHz; 0 for a frame without packets
    std::optional<StreamParameters> parameters;  // of a key frame
    std::vector<Payload> payload;                // in order; joined they are the access unit

    uint64_t PayloadSize() const;
    uint64_t End() const { return offset + size; }
};

struct Garbage {
    enum class Reason {
        NoHeader,    // no header known to this stream begins here
        BadPack,     // a pack header, but not as the packer makes it
        BadSystem,   // system header or program stream map of a key frame is wrong
        BadPacket,   // a packet header is wrong, or its length impossible
        MixedClock,  // the packets of one frame disagree about its clock
        CutOff,      // the range ends inside of it
        Torn,        // another frame's header stands inside its payload: part of it was never written, or written over
    };
    uint64_t offset = 0;
    uint64_t length = 0;  // up to where the walk goes on
    Reason reason = Reason::NoHeader;
};
// The time in the pack header at `bytes`; nothing when no picture plausibly begins there.
std::optional<uint32_t> PictureTimeAt(const uint8_t* bytes, size_t length);

const char* GarbageText(Garbage::Reason reason);

class StreamScanner {
  public:
    enum class Found { Frame, StreamHead, Garbage, End };

    // Scans bytes [begin, end) of the source; the source may be shorter.
    StreamScanner(ReadAtFunction read, uint64_t begin, uint64_t end);

    // Goes on to the next thing; afterwards the accessor of its kind below is valid until the next call.
    Found Next();
    const StreamFrame& Frame() const { return frame_; }
    const struct Garbage& GarbageFound() const { return garbage_; }
    uint64_t StreamHeadOffset() const { return stream_head_; }

    uint64_t Position() const { return position_; }  // where the next thing begins
    uint64_t End() const { return end_; }
    // Continues elsewhere in the range; what stands in front of it counts as unknown.
    void Seek(uint64_t position);

    // Reads the payload of a frame, at most its first `limit` bytes, into `bytes` (replaced); false when the
    // source came short.
    bool ReadPayload(const StreamFrame& frame, std::vector<uint8_t>& bytes, size_t limit = SIZE_MAX) const;

  private:
    const uint8_t* Bytes(uint64_t offset, size_t length);
    std::optional<Garbage::Reason> TakeVideo();
    std::optional<Garbage::Reason> TakeAudio();
    std::optional<Garbage::Reason> TakeKeyHeaders(uint64_t& at);
    std::optional<Garbage::Reason> TakePackets(uint8_t stream_id, uint64_t& at, bool one);
    bool PlausibleStart(uint64_t offset);
    uint64_t NextStart(uint64_t from);
    Found SkipGarbage(Garbage::Reason reason);
    Found TakeFrame();

    ReadAtFunction read_;
    uint64_t end_;
    uint64_t position_;
    uint32_t time_ = 0;

    StreamFrame frame_;
    struct Garbage garbage_;
    uint64_t stream_head_ = 0;

    std::vector<uint8_t> buffer_;
    uint64_t buffer_offset_ = 0;
    size_t buffer_length_ = 0;
};

}  // namespace card
