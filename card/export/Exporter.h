// Moves stretches of the card into playable files: one, or several where the stream itself changes.
//
// Never changes a picture; never shows one that is not of these stretches.  Time in the file is real time;
// only where nothing was recorded for more than kGapMax seconds it goes on at the next picture, with a chapter.
// One thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "clip/Clip.h"
#include "clip/ClipTimeline.h"
#include "export/ClipWriter.h"
#include "export/OutputFiles.h"
#include "index/CardIndex.h"
#include "text/TimeText.h"

namespace card {

struct ExportPart {
    std::string path;
    uint32_t start = 0;  // s since 1970 UTC, first picture
    Ticks length = 0;    // as played
    uint64_t pictures = 0;
    uint32_t gaps = 0;  // left out
    bool has_sound = false;
    StreamParameters parameters;  // of its first key frame
};

struct ExportReport {
    std::vector<ExportPart> parts;  // empty: there was no key frame in any stretch
    uint64_t found = 0;             // pictures of that time, whether a file could begin with them or not
    uint64_t damaged_bytes = 0;     // left out, as they are no frames, or none any more
    uint64_t foreign_frames = 0;    // left out, as they are of an earlier lap
    bool aside = false;             // what was there before is kept, as not all could be read
};

class Exporter {
  public:
    // Throws CardError (kUsage) when the files must not be written there.  `index` outlives it.
    Exporter(const CardIndex& index, const std::string& path, OutputFiles::Mode mode, const TimeStyle& times);

    // Throws CardError; then no file was made.  `done` is called with up to twice the selection's bytes; `whole` tells
    // in the end whether all of it could be read: files that are there are not replaced by less.
    ExportReport Run(
        const Selection& selection, const BytesDone& done, const std::function<bool()>& whole = [] { return true; });

  private:
    void Move(const Selection& selection, size_t number);
    void MovePicture(ByteView unit, const ClipStretch& stretch, const ClipFrame& frame, std::span<const Stretch> later);
    void StartPart(const ClipStretch& stretch, const ClipFrame& frame, ByteView unit, ClipShape shape);
    void FinishPart();
    std::optional<SoundFormat> FindSound(const Stretch& stretch, size_t frames_max) const;
    bool NeedsNewPart(const ClipShape& shape) const;
    bool Raw() const { return container_ != Container::Mp4 && container_ != Container::Matroska; }

    const CardIndex& index_;
    Container container_;
    TimeStyle times_;
    OutputFiles files_;
    BytesDone done_;
    std::unique_ptr<ClipWriter> writer_;  // null: no part is open
    ClipShape shape_;                     // of the open part
    ClipTimeline timeline_;
    ExportReport report_;
    std::optional<SoundFormat> sound_;  // of the present stretch
    bool chapter_due_ = false;
    uint64_t bytes_left_ = 0;
};

}  // namespace card
