#include "clip/Clip.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "text/Error.h"

namespace card {

namespace {

constexpr uint64_t kSoundLead = 2;  // frames by which a sound's clock runs ahead of the picture's

// Takes frames as they are found and keeps those of the run.
class Lister {
  public:
    Lister(const Section& section, ClipStretch& result)
        : section_(section), result_(result), filter_(section.Start(), section.End()) {}

    void StreamHead() { restarted_ = true; }

    void Take(const StreamFrame& frame) {
        if (frame.payload.empty()) return;
        if (frame.key) parameters_.push_back(*frame.parameters);
        frames_.push_back({.offset = static_cast<uint32_t>(frame.offset),
                           .size = static_cast<uint32_t>(frame.size),
                           .time = frame.time,
                           .video = frame.kind == StreamFrame::Kind::Video,
                           .key = frame.key,
                           .restarted = std::exchange(restarted_, false),
                           .clock = frame.pts});
    }

    // Times every frame, and lets go of those before the key frame that the first picture of `from` needs.
    void Finish(uint32_t from, uint32_t to) {
        SettleTimes(frames_);
        size_t key = 0;
        for (const SurveyedFrame& frame : frames_) {
            if (frame.restarted) filter_.StreamHead();
            frame.video ? TakePicture(frame, key) : TakeSound(frame);
            key += frame.key ? 1 : 0;
        }
        const FrameTimes times = TimeFrames(marks_, Rate());
        result_.frame_duration = times.frame_duration;
        result_.steady_rate = times.steady_rate;
        size_t picture = 0;
        for (ClipFrame& frame : result_.frames) {
            if (frame.video) {
                frame.at = times.at[picture++];
            } else {
                frame.at = times.at[picture - 1] + frame.at * times.frame_duration;
            }
        }
        const bool any = std::any_of(marks_.begin(), marks_.end(), [from, to](const FrameMark& mark) {
            return mark.second >= from && mark.second <= to;
        });
        if (any) CutFront(from);
        if (!any) result_.frames.clear();
    }

  private:
    void CutFront(uint32_t from) {
        size_t picture = 0;
        size_t begin = 0;  // latest key frame so far
        for (size_t i = 0; i < result_.frames.size(); ++i) {
            if (!result_.frames[i].video) continue;
            if (result_.frames[i].key) begin = i;
            if (marks_[picture++].second >= from) break;
        }
        result_.frames.erase(result_.frames.begin(), result_.frames.begin() + static_cast<ptrdiff_t>(begin));
    }

    // `key`: key frames in front of it, this one not counted.
    void TakePicture(const SurveyedFrame& frame, size_t key) {
        const bool first = !filter_.Begun();
        if (!filter_.Take(frame)) {
            result_.foreign_frames += filter_.AfterForeign() ? 1 : 0;
            return;
        }
        if (first) result_.parameters = parameters_[key];
        marks_.push_back({filter_.Number(), frame.time});
        result_.frames.push_back({.offset = frame.offset, .size = frame.size, .key = frame.key});
    }

    void TakeSound(const SurveyedFrame& frame) {
        if (!filter_.Begun() || filter_.NumberInRun() == 0) return;
        if (filter_.AfterForeign()) {
            ++result_.foreign_frames;
            return;
        }
        const uint64_t index = FrameNumber(frame.clock, filter_.NumberInRun());
        const uint64_t beside = filter_.NumberInRun() + kSoundLead;
        const uint64_t ahead = index > beside ? index - beside : 0;  // pictures lost in between
        result_.frames.push_back({.offset = frame.offset,
                                  .size = frame.size,
                                  .video = false,
                                  .at = static_cast<Ticks>(std::min<uint64_t>(ahead, 250))});
    }

    uint32_t Rate() const {
        return result_.parameters.frame_rate != 0 ? result_.parameters.frame_rate : section_.head.m_u8Frame;
    }

    const Section& section_;
    ClipStretch& result_;
    SectionFilter filter_;
    std::vector<SurveyedFrame> frames_;         // as found
    std::vector<StreamParameters> parameters_;  // of each key frame found
    std::vector<FrameMark> marks_;
    bool restarted_ = false;  // a stream head was found since the last frame
};

// Where an event that was never closed may reach to.
uint32_t LastSecond(const Event& event) {
    return event.Open() ? std::max(event.Start(), event.limit) : event.End();
}

StreamScanner Scanner(const StoreFile& file, const Stretch& stretch) {
    return StreamScanner(
        [file](uint64_t offset, void* buffer, size_t length) { return file.ReadAt(offset, buffer, length); },
        stretch.begin, stretch.end);
}

}  // namespace

uint64_t Selection::StreamBytes() const {
    uint64_t sum = 0;
    for (const Stretch& stretch : stretches) sum += stretch.end - stretch.begin;
    return sum;
}

// The index knows whole seconds: a key frame of the second `from` may stand after other pictures of it, so the
// search begins a second earlier, and listing finds the place.
Selection SelectTimes(const CardIndex& index, uint32_t from, uint32_t to) {
    Selection selection{index.Find(std::max(from, 1u) - 1, to), from, to};
    std::erase_if(selection.stretches, [&](const Stretch& s) { return index.Sections()[s.section].End() < from; });
    return selection;
}

Selection SelectEvent(const CardIndex& index, uint32_t number) {
    for (const Event& event : index.Events()) {
        if (event.number == number) return SelectTimes(index, event.Start(), LastSecond(event));
    }
    throw CardError("There is no event " + std::to_string(number) + " on the card; \"recordcard events\" lists them.",
                    kUsage);
}

Selection SelectSection(const CardIndex& index, uint32_t file, uint32_t number) {
    for (const Stretch& stretch : SelectAll(index).stretches) {
        const Section& section = index.Sections()[stretch.section];
        if (section.file == file && section.number == number) return {.stretches = {stretch}, .one_section = true};
    }
    for (const Section& section : index.AllSections()) {
        if (section.file == file && section.number == number && section.fault == Section::Fault::FileLost)
            throw CardError(Volume::RecordFileName(file) + ", in which that section lies, is missing or cannot be read",
                            kFindings);
    }
    throw CardError("There is no section " + std::to_string(file) + ":" + std::to_string(number) +
                        " on the card; \"recordcard list\" names them.",
                    kUsage);
}

Selection SelectAll(const CardIndex& index) {
    Selection selection;
    for (size_t i = 0; i < index.Sections().size(); ++i) {
        const Section& section = index.Sections()[i];
        selection.stretches.push_back({i, section.Begin(), section.Limit(), section.Start()});
    }
    return selection;
}

ClipReader::ClipReader(const CardIndex& index, const Stretch& stretch, uint32_t from, uint32_t to)
    : section_(index.Sections()[stretch.section]),
      stretch_(stretch),
      from_(from),
      to_(to),
      file_(index.OpenRecordFile(section_.file)),
      scanner_(Scanner(file_, stretch)) {}

ClipStretch ClipReader::List(const BytesDone& done) {
    ClipStretch result;
    result.section = &section_;
    Lister lister(section_, result);
    scanner_ = Scanner(file_, stretch_);
    for (uint64_t before = stretch_.begin;; before = scanner_.Position()) {
        const StreamScanner::Found found = scanner_.Next();
        if (found == StreamScanner::Found::End) break;
        if (found == StreamScanner::Found::StreamHead) lister.StreamHead();
        if (found == StreamScanner::Found::Garbage) result.damaged_bytes += scanner_.GarbageFound().length;
        if (found == StreamScanner::Found::Frame) lister.Take(scanner_.Frame());
        done(scanner_.Position() - before);
    }
    lister.Finish(from_, to_);
    return result;
}

// Parses the frame once more: the scanner then stands after it.
bool ClipReader::IsThere(const ClipFrame& frame) {
    if (scanner_.Position() != frame.offset) scanner_.Seek(frame.offset);
    return scanner_.Next() == StreamScanner::Found::Frame && scanner_.Frame().size == frame.size;
}

std::optional<ByteView> ClipReader::Payload(const ClipFrame& frame, size_t limit) {
    if (!IsThere(frame) || !scanner_.ReadPayload(scanner_.Frame(), bytes_, limit)) return std::nullopt;
    return bytes_;
}

std::optional<ByteView> ClipReader::Packed(const ClipFrame& frame) {
    bytes_.resize(frame.size);
    if (!IsThere(frame) || file_.ReadAt(frame.offset, bytes_.data(), bytes_.size()) != bytes_.size()) {
        return std::nullopt;
    }
    return bytes_;
}

}  // namespace card
