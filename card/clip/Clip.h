// What to export, as an ordered run of frames: asked times, events or sections become stretches of the
// card; a stretch becomes the frames that were really recorded in it, each with the moment it happened.
//
// Reads headers only; payloads are read one by one as they are moved.  Whatever an earlier lap or a power
// cut left between the frames is counted and left out.  A ClipReader belongs to one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "clip/FrameClock.h"
#include "index/CardIndex.h"
#include "stream/Continuity.h"
#include "stream/NalUnits.h"
#include "stream/StreamScanner.h"

namespace card {

struct Selection {
    std::vector<Stretch> stretches;  // oldest first; empty: nothing was recorded there
    uint32_t from = 0;         // s since 1970 UTC; of earlier pictures only those are wanted that its first one needs
    uint32_t to = UINT32_MAX;  // a stretch without a picture from `from` to here gives nothing
    bool one_section = false;  // no other footage was asked for

    bool Misses(const LostFile& lost) const { return !one_section && lost.Touches(from, to); }
    uint64_t StreamBytes() const;
};

Selection SelectTimes(const CardIndex& index, uint32_t from, uint32_t to);        // both seconds included
Selection SelectEvent(const CardIndex& index, uint32_t number);                   // throws CardError: no such event
Selection SelectSection(const CardIndex& index, uint32_t file, uint32_t number);  // or no such section
Selection SelectAll(const CardIndex& index);

struct ClipFrame {
    uint64_t offset = 0;  // of its first header byte in the record file
    uint64_t size = 0;    // bytes there
    bool video = true;
    bool key = false;
    Ticks at = 0;       // when it was recorded; sound: when the picture beside it was
    Ticks decoded = 0;  // pictures, once they are put in order: see PictureOrder.h
    Ticks shown = 0;
};

struct ClipStretch {
    const Section* section = nullptr;
    StreamParameters parameters;    // of its first key frame
    std::vector<ClipFrame> frames;  // in the order of the stream; the first is a key frame
    Ticks frame_duration = 0;       // how long the last picture is shown
    uint32_t steady_rate = 0;       // see FrameTimes
    uint64_t damaged_bytes = 0;     // no frame of this stream
    uint32_t foreign_frames = 0;    // whole, but not of this run
};

using BytesDone = std::function<void(uint64_t bytes)>;  // called with a number of bytes more; may throw to stop

class ClipReader {
  public:
    // `from`, `to`: see Selection.
    ClipReader(const CardIndex& index, const Stretch& stretch, uint32_t from = 0, uint32_t to = UINT32_MAX);

    // Lists the stretch; without a key frame in it, no frames.
    ClipStretch List(const BytesDone& done);
    // The elementary stream's bytes of a listed frame, at most the first `limit`; valid until the next call.  Nothing:
    // the card does not give that frame again, for a place has become bad since, or is recorded over.  Throws
    // CardError.
    std::optional<ByteView> Payload(const ClipFrame& frame, size_t limit = SIZE_MAX);
    // The same with its headers, as it lies on the card.
    std::optional<ByteView> Packed(const ClipFrame& frame);

  private:
    bool IsThere(const ClipFrame& frame);

    const Section& section_;
    Stretch stretch_;
    uint32_t from_;
    uint32_t to_;
    StoreFile file_;
    StreamScanner scanner_;
    std::vector<uint8_t> bytes_;
};

}  // namespace card
