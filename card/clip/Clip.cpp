#include "clip/Clip.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "text/Error.h"

namespace card {

namespace {

using record_file::kClockBits;
using record_file::kClockPerFrame;

constexpr int64_t kClockStep = 60;       // s the camera's clock may have been set back or forth in a run
constexpr uint64_t kLostMax = 1u << 20;  // pictures that may be missing between two
constexpr uint64_t kSoundLead = 2;       // frames by which a sound's clock runs ahead of the picture's
constexpr uint64_t kClockMask = (uint64_t{1} << kClockBits) - 1;

// Number of the frame in its run; `near` is a number close to it, since the clock wraps after a day.
uint64_t IndexOf(uint64_t pts, uint64_t near) {
    const uint64_t near_clock = near * kClockPerFrame;
    uint64_t clock = (near_clock & ~kClockMask) + pts;
    if (clock + (kClockMask >> 1) < near_clock) clock += kClockMask + 1;
    return (clock + kClockPerFrame / 2) / kClockPerFrame;  // the clock is kept in single precision
}

// Takes frames as they are found and keeps those of the run.
class Lister {
  public:
    Lister(const Section& section, ClipStretch& result) : section_(section), result_(result) {}

    void StreamHead() {
        run_base_ = last_index_;  // the writer began to count again
        last_in_run_ = 0;
    }

    void Take(const StreamFrame& frame) {
        if (frame.payload.empty()) return;
        if (frame.kind == StreamFrame::Kind::Audio) {
            TakeSound(frame);
        } else {
            TakePicture(frame);
        }
    }

    // Times every frame, and lets go of those before the key frame that the first picture of `from` needs.
    void Finish(uint32_t from) {
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
        CutFront(from);
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

    // Pictures of another lap carry its times, and numbers that do not go on from here.
    bool Foreign(const StreamFrame& frame, uint64_t in_run) const {
        if (frame.time + kClockStep < section_.Start() || frame.time > section_.End() + kClockStep) return true;
        return last_in_run_ != 0 && (in_run <= last_in_run_ || in_run > last_in_run_ + kLostMax);
    }

    void TakePicture(const StreamFrame& frame) {
        const uint64_t in_run = IndexOf(frame.pts, last_in_run_);
        behind_foreign_ = Foreign(frame, in_run);
        if (behind_foreign_) {
            ++result_.foreign_frames;
            return;
        }
        if (marks_.empty()) {
            if (!frame.key) return;
            result_.parameters = *frame.parameters;
        }
        last_in_run_ = in_run;
        last_index_ = run_base_ + in_run;
        marks_.push_back({last_index_, frame.time});
        result_.frames.push_back({.offset = frame.offset, .size = frame.size, .key = frame.key});
    }

    void TakeSound(const StreamFrame& frame) {
        if (marks_.empty() || last_in_run_ == 0) return;
        if (behind_foreign_) {
            ++result_.foreign_frames;
            return;
        }
        const uint64_t index = IndexOf(frame.pts, last_in_run_);
        const uint64_t beside = last_in_run_ + kSoundLead;
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
    std::vector<FrameMark> marks_;
    uint64_t run_base_ = 0;
    uint64_t last_index_ = 0;
    uint64_t last_in_run_ = 0;  // frames are numbered from 1; 0: none yet
    bool behind_foreign_ = false;
};

// Where an event that was never closed may reach to: nothing later is in its file.
uint32_t LastSecond(const CardIndex& index, const Event& event) {
    return event.Open() ? std::max(event.Start(), index.Files()[event.file].head.m_u32RecordEndTime) : event.End();
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

// The index knows whole seconds: a key frame of the second `from` may stand behind other pictures of it, so the
// search begins a second earlier, and listing finds the place.
Selection SelectTimes(const CardIndex& index, uint32_t from, uint32_t to) {
    Selection selection{index.Find(std::max(from, 1u) - 1, to), from};
    std::erase_if(selection.stretches, [&](const Stretch& s) { return index.Sections()[s.section].End() < from; });
    return selection;
}

Selection SelectEvent(const CardIndex& index, uint32_t number) {
    for (const Event& event : index.Events()) {
        if (event.number == number) return SelectTimes(index, event.Start(), LastSecond(index, event));
    }
    throw CardError("There is no event " + std::to_string(number) + " on the card; \"recordcard events\" lists them.",
                    kUsage);
}

Selection SelectSection(const CardIndex& index, uint32_t file, uint32_t number) {
    for (const Stretch& stretch : SelectAll(index).stretches) {
        const Section& section = index.Sections()[stretch.section];
        if (section.file == file && section.number == number) return {{stretch}};
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

ClipReader::ClipReader(const CardIndex& index, const Stretch& stretch, uint32_t from)
    : section_(index.Sections()[stretch.section]),
      stretch_(stretch),
      from_(from),
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
    lister.Finish(from_);
    return result;
}

const std::vector<uint8_t>& ClipReader::Payload(const ClipFrame& frame, size_t limit) {
    if (scanner_.Position() != frame.offset) scanner_.Seek(frame.offset);
    if (scanner_.Next() != StreamScanner::Found::Frame || !scanner_.ReadPayload(scanner_.Frame(), bytes_, limit)) {
        throw CardError(file_.Name() + ": the card gives other data than a moment ago; is it still being recorded?");
    }
    return bytes_;
}

const std::vector<uint8_t>& ClipReader::Packed(const ClipFrame& frame) {
    bytes_.resize(frame.size);
    if (file_.ReadAt(frame.offset, bytes_.data(), bytes_.size()) != bytes_.size()) {
        throw CardError(file_.Name() + ": the card gives other data than a moment ago; is it still being recorded?");
    }
    return bytes_;
}

}  // namespace card
