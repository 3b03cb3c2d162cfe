// What the stream of one record file holds, told by the stream alone: its runs, in order of their place.
//
// A run is what one section should cover: frames whose clock and time go on without a break, usually after
// a stream head.  Data of an earlier lap, or of before a format, makes runs of its own.  Keeps no payload.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "stream/Continuity.h"
#include "stream/StreamScanner.h"
#include "volume/Volume.h"

namespace card {

struct StreamRun {
    uint64_t begin = 0;   // of its stream head, or of its first frame when it has none
    uint64_t end = 0;     // after its last frame
    bool headed = false;  // a stream head stands at `begin`
    uint32_t first_time = 0;
    uint32_t last_time = 0;
    uint64_t first_clock = 0;  // of its first video frame, 90 kHz
    uint64_t last_clock = 0;
    uint32_t video_frames = 0;
    std::optional<StreamParameters> parameters;  // of its first key frame
    std::vector<SurveyedFrame> frames;
    std::vector<Garbage> holes;  // between its frames

    bool BeginsWithKey() const { return !frames.empty() && frames.front().key; }
    const SurveyedFrame& LastPicture() const;
};

struct Survey {
    std::vector<StreamRun> runs;
    std::vector<Garbage> holes;  // outside of every run

    // Whether `offset` is the first byte, or the byte after the last, of a run or frame.
    bool IsBorder(uint64_t offset) const;
};

inline constexpr uint64_t kSurveyLimit =
    uint64_t{RECORD_STREAM_LIMIT} + record_file::kPackedFrameMax + record_file::kStreamHeadSize;  // no stream goes on

// Called with the number of bytes that were looked through since the last call.
using SurveyProgress = std::function<void(uint64_t bytes)>;

// Surveys a record file from its start, as far as it is asked to and not a byte twice.
class Surveyor {
  public:
    explicit Surveyor(const StoreFile& file, SurveyProgress progress = {});
    Surveyor(ReadAtFunction read, uint64_t size, SurveyProgress progress = {});  // over any source of bytes
    Surveyor(const Surveyor&) = delete;
    Surveyor& operator=(const Surveyor&) = delete;

    void GoTo(uint64_t offset);  // up to the first frame or hole at or after it
    void GoToHole();             // on to the first byte that no frame explains
    void GoToEnd() { GoTo(UINT64_MAX); }
    Survey Result() const;  // of what was looked through

  private:
    bool Step();  // false at the end
    bool MayCount(const StreamFrame& frame) const;

    SurveyProgress progress_;
    StreamScanner scanner_;
    uint64_t told_ = 0;
    bool ended_ = false;
    bool in_hole_ = false;
    std::optional<uint64_t> head_;  // a stream head directly in front
    bool restarted_ = false;        // a stream head was found since the last frame
    std::vector<SurveyedFrame> frames_;
    std::vector<Garbage> holes_;
    std::vector<std::pair<uint32_t, StreamParameters>> parameters_;  // by the offset of their key frame
};

// One recording of the present lap: a run, and those that go on where it was interrupted by damage or by what an
// earlier lap left there.  Begins with a key frame.
struct Recording {
    uint64_t begin = 0;  // of its stream head; when that is gone, where it stood, or of its first key frame
    uint64_t end = 0;    // after its last frame
    size_t run = 0;      // its first
    uint32_t first_time = 0;
    uint32_t last_time = 0;
    bool lost_head = false;  // a stream head can stand at `begin` again
};

struct Recordings {
    std::vector<Recording> recordings;  // in order of their place
    bool stale_after = false;           // footage of an earlier lap follows
};

// What heads tell, as far as it agrees with the stream.
struct LapHints {
    uint64_t counted = 0;          // bytes of the present lap, at least
    std::vector<uint64_t> begins;  // of sections
};

// The recordings of the present lap.  A run that is older than what stands before it is of an earlier lap, unless
// the hints count it (the clock was set back then).
Recordings RecordingsOf(const Survey& survey, const LapHints& hints);

// Part of a record file that a section head claims.
struct SectionSpan {
    uint64_t begin = 0;  // in the record file
    uint64_t end = 0;    // after its last byte
    uint32_t start = 0;  // s since 1970 UTC
    uint32_t last = 0;
};

// The frames of a section: its pictures from the first key frame on and the sound beside them; what an earlier
// lap left in between is none of it.  This is what an export shows.
std::vector<const SurveyedFrame*> FramesOf(const Survey& survey, const SectionSpan& span);
size_t CountPictures(const Survey& survey, const std::vector<SectionSpan>& sections);

}  // namespace card
