// What the stream of one record file holds, told by the stream alone: its runs, in order of their place.
//
// A run is what one section should cover: frames whose clock and time go on without a break, usually behind
// a stream head.  Data of an earlier lap, or of before a format, makes runs of its own.  Keeps no payload.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "stream/StreamScanner.h"
#include "volume/Volume.h"

namespace card {

struct SurveyedFrame {
    uint32_t offset = 0;  // of its first header byte in the record file
    uint32_t size = 0;    // in the stream, headers included, stream head not
    uint32_t time = 0;    // s since 1970 UTC
    bool video = false;
    bool key = false;

    uint64_t End() const { return uint64_t{offset} + size; }
};

struct StreamRun {
    uint64_t begin = 0;   // of its stream head, or of its first frame when it has none
    uint64_t end = 0;     // behind its last frame
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
};

struct Survey {
    std::vector<StreamRun> runs;
    std::vector<Garbage> holes;  // outside of every run

    // Whether `offset` is the first byte, or the byte behind the last, of a run or frame.
    bool IsBorder(uint64_t offset) const;
};

inline constexpr uint32_t kClockStepBack = 60;  // s a frame's time may go back when the camera's clock is set
inline constexpr uint64_t kSurveyLimit = uint64_t{RECORD_STREAM_LIMIT} + record_file::kPackedFrameMax +
                                         record_file::kStreamHeadSize;  // no stream reaches further

// Called with the number of bytes that were looked through since the last call.
using SurveyProgress = std::function<void(uint64_t bytes)>;

// Surveys bytes [begin, end) of a record file.  `whole`: to the end; otherwise only up to the first byte that
// no frame explains.
Survey SurveyStream(const StoreFile& file, uint64_t begin, uint64_t end, bool whole = true,
                    const SurveyProgress& progress = {});
// The same over any source of bytes.
Survey SurveyStream(const ReadAtFunction& read, uint64_t begin, uint64_t end, bool whole = true,
                    const SurveyProgress& progress = {});

// How many runs, from the first on, are of the present lap by their times: a stale one is older than one
// in front of it.
size_t PresentRuns(const Survey& survey);

}  // namespace card
