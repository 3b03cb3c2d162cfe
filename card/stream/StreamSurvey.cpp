#include "stream/StreamSurvey.h"

#include <algorithm>

namespace card {

namespace {

using record_file::kClockPerFrame;
using record_file::kStreamHeadSize;

constexpr uint64_t kSoundAhead = 4 * kClockPerFrame;  // after damage, where sound of an earlier lap may stand

// Cuts frames and holes, in the order of the stream, into runs.
class RunMaker {
  public:
    using KeyParameters = std::vector<std::pair<uint32_t, StreamParameters>>;

    RunMaker(const std::vector<Garbage>& holes, const KeyParameters& parameters)
        : hole_(holes.begin()), holes_end_(holes.end()), parameters_(parameters) {}

    void Take(const SurveyedFrame& frame) {
        for (; hole_ != holes_end_ && hole_->offset < frame.offset; ++hole_) pending_.push_back(*hole_);
        if (!frame.video && !(run_ && Accompanies(frame))) {
            pending_.push_back({frame.offset, frame.size, Garbage::Reason::MixedClock});
            return;
        }
        if (frame.video && (!run_ || frame.headed || !Continues(frame))) Begin(frame);
        Append(frame);
    }

    Survey Finish() {
        pending_.insert(pending_.end(), hole_, holes_end_);
        Close();
        return std::move(survey_);
    }

  private:
    // Sound has no time, and a clock of its own that only means something beside a picture's.
    bool Accompanies(const SurveyedFrame& sound) const {
        SurveyedFrame next = sound;
        next.clock += kClockPerFrame;  // sound of the last picture's own clock is fine
        return pending_.empty() ? ClockGoesOn(last_, next)
                                : ClockGoesOn(last_, next) && sound.clock <= last_.clock + kSoundAhead;
    }

    bool Continues(const SurveyedFrame& picture) const {
        return pending_.empty() ? GoesOn(last_, picture) : GoesOnAfterHole(last_, picture);
    }

    void Begin(const SurveyedFrame& frame) {
        Close();
        run_.emplace();
        run_->headed = frame.headed;
        run_->begin = frame.headed ? frame.offset - kStreamHeadSize : frame.offset;
        run_->first_time = frame.time;
        run_->first_clock = frame.clock;
        last_ = frame;
    }

    void Append(const SurveyedFrame& frame) {
        run_->holes.insert(run_->holes.end(), pending_.begin(), pending_.end());
        pending_.clear();
        if (frame.video) {
            ++run_->video_frames;
            if (!frame.empty) last_ = frame;
            last_.time = run_->last_time = frame.time;
            run_->last_clock = last_.clock;
            if (!run_->parameters && frame.key) run_->parameters = ParametersAt(frame.offset);
        }
        run_->end = frame.End();
        run_->frames.push_back(frame);
        if (!frame.video) run_->frames.back().time = run_->last_time;
    }

    std::optional<StreamParameters> ParametersAt(uint32_t offset) const {
        const auto found = std::lower_bound(parameters_.begin(), parameters_.end(), offset,
                                            [](const auto& entry, uint32_t at) { return entry.first < at; });
        if (found == parameters_.end() || found->first != offset) return std::nullopt;
        return found->second;
    }

    void Close() {
        if (run_) survey_.runs.push_back(std::move(*run_));
        run_.reset();
        survey_.holes.insert(survey_.holes.end(), pending_.begin(), pending_.end());
        pending_.clear();
    }

    std::vector<Garbage>::const_iterator hole_;
    std::vector<Garbage>::const_iterator holes_end_;
    const KeyParameters& parameters_;
    Survey survey_;
    std::optional<StreamRun> run_;
    SurveyedFrame last_;            // picture of the run
    std::vector<Garbage> pending_;  // after the run's last frame
};

}  // namespace

const SurveyedFrame& StreamRun::LastPicture() const {
    const auto last = std::find_if(frames.rbegin(), frames.rend(), [](const SurveyedFrame& f) { return f.video; });
    return *last;  // a run begins with a picture
}

bool Survey::IsBorder(uint64_t offset) const {
    for (const StreamRun& run : runs) {
        if (offset == run.begin || offset == run.end) return true;
        if (offset < run.begin || offset > run.end) continue;
        const auto frame = std::lower_bound(run.frames.begin(), run.frames.end(), offset,
                                            [](const SurveyedFrame& f, uint64_t at) { return f.End() < at; });
        if (frame != run.frames.end() && (frame->End() == offset || frame->offset == offset)) return true;
    }
    return false;
}

Surveyor::Surveyor(const StoreFile& file, SurveyProgress progress)
    : Surveyor([file](uint64_t at, void* buffer, size_t length) { return file.ReadAt(at, buffer, length); },
               file.Reachable(), std::move(progress)) {}

Surveyor::Surveyor(ReadAtFunction read, uint64_t size, SurveyProgress progress)
    : progress_(std::move(progress)), scanner_(std::move(read), 0, std::min(kSurveyLimit, size)) {}

void Surveyor::GoTo(uint64_t offset) {
    while (scanner_.Position() < offset && Step()) {
    }
}

void Surveyor::GoToHole() {
    in_hole_ = false;
    while (!in_hole_ && Step()) {
    }
}

// The recorder counts nothing that it begins to write after a full file's mark.  A section's stream head and first
// frame are one write, of which the stream head may be lost.
bool Surveyor::MayCount(const StreamFrame& frame) const {
    const bool hole = !holes_.empty() && holes_.back().offset + holes_.back().length == frame.offset &&
                      holes_.back().length >= kStreamHeadSize;
    const bool first = frame.key && (head_ || hole);
    return frame.offset - (first ? kStreamHeadSize : 0) <= RECORD_STREAM_LIMIT;
}

bool Surveyor::Step() {
    if (ended_) return false;
    const StreamScanner::Found found = scanner_.Next();
    ended_ =
        found == StreamScanner::Found::End || (found == StreamScanner::Found::Frame && !MayCount(scanner_.Frame()));
    if (progress_ && (ended_ || scanner_.Position() - told_ > (1u << 20))) {
        progress_(scanner_.Position() - told_);
        told_ = scanner_.Position();
    }
    if (head_ && (ended_ || found != StreamScanner::Found::Frame)) {  // that no frame followed
        holes_.push_back({*head_, kStreamHeadSize, Garbage::Reason::NoHeader});
        head_.reset();
    }
    if (ended_) return false;
    if (found == StreamScanner::Found::StreamHead) {
        head_ = scanner_.StreamHeadOffset();
        restarted_ = true;
    }
    if (found == StreamScanner::Found::Garbage) holes_.push_back(scanner_.GarbageFound());
    in_hole_ = found == StreamScanner::Found::Garbage;
    if (found != StreamScanner::Found::Frame) return true;
    const StreamFrame& frame = scanner_.Frame();
    const bool video = frame.kind == StreamFrame::Kind::Video;
    if (head_ && !video) holes_.push_back({*head_, kStreamHeadSize, Garbage::Reason::NoHeader});
    frames_.push_back({.offset = static_cast<uint32_t>(frame.offset),
                       .size = static_cast<uint32_t>(frame.size),
                       .time = frame.time,
                       .video = video,
                       .key = frame.key,
                       .headed = video && head_.has_value(),
                       .restarted = std::exchange(restarted_, false),
                       .empty = frame.payload.empty(),
                       .clock = frame.pts});
    if (frame.key) parameters_.emplace_back(frames_.back().offset, *frame.parameters);
    head_.reset();
    return true;
}

Survey Surveyor::Result() const {
    std::vector<SurveyedFrame> frames = frames_;
    SettleTimes(frames);
    RunMaker maker(holes_, parameters_);
    for (const SurveyedFrame& frame : frames) maker.Take(frame);
    return maker.Finish();
}

namespace {

bool BeginsAt(const StreamRun& run, const std::vector<uint64_t>& claims) {
    return std::any_of(claims.begin(), claims.end(), [&run](uint64_t claim) {
        return claim == run.begin || (!run.headed && claim + kStreamHeadSize == run.begin);
    });
}

const SurveyedFrame* FirstKey(const StreamRun& run) {
    const auto key =
        std::find_if(run.frames.begin(), run.frames.end(), [](const SurveyedFrame& f) { return f.key && !f.empty; });
    return key == run.frames.end() ? nullptr : &*key;
}

class RecordingFinder {
  public:
    RecordingFinder(const Survey& survey, const LapHints& hints)
        : runs_(survey.runs), holes_(survey.holes), hints_(hints) {}

    Recordings Run() {
        for (size_t i = 0; i < runs_.size(); ++i) {
            if (Joins(i)) {
                Recording& recording = result_.recordings.back();
                recording.end = runs_[i].end;
                recording.last_time = std::max(recording.last_time, runs_[i].last_time);
                last_ = i;
            } else if (IsOlder(i) && !IsCounted(i)) {
                if (!AnyPresentAfter(i)) {
                    result_.stale_after = true;
                    break;
                }
            } else if (const SurveyedFrame* key = FirstKey(runs_[i])) {
                Begin(i, *key);
            }
        }
        return std::move(result_);
    }

  private:
    void Begin(size_t i, const SurveyedFrame& key) {
        const StreamRun& run = runs_[i];
        const bool at_key = &key == &run.frames.front();
        const bool lost_head = !run.headed && at_key && HasRoomForHead(run.begin);
        const uint64_t begin = lost_head ? run.begin - kStreamHeadSize : at_key ? run.begin : key.offset;
        result_.recordings.push_back({.begin = begin,
                                      .end = run.end,
                                      .run = i,
                                      .first_time = key.time,
                                      .last_time = run.last_time,
                                      .lost_head = lost_head});
        latest_ = std::max(latest_, key.time);
        last_ = i;
    }

    // Bytes of no frame, sound neither, directly in front.
    bool HasRoomForHead(uint64_t begin) const {
        return std::any_of(holes_.begin(), holes_.end(), [begin](const Garbage& hole) {
            return hole.offset + hole.length == begin && hole.length >= kStreamHeadSize &&
                   hole.reason != Garbage::Reason::MixedClock;
        });
    }

    // The run goes on where the recording ended, whatever lies between them.
    bool Joins(size_t i) const {
        if (result_.recordings.empty() || runs_[i].headed || BeginsAt(runs_[i], hints_.begins)) return false;
        return GoesOnAfterHole(runs_[last_].LastPicture(), runs_[i].frames.front());
    }
    bool IsOlder(size_t i) const { return uint64_t{runs_[i].first_time} + kClockStepBack < latest_; }

    bool MayCount(size_t i) const {
        return runs_[i].begin < hints_.counted && (runs_[i].headed || BeginsAt(runs_[i], hints_.begins));
    }

    // Older, and yet of this lap: the clock was set back.  But not when what came before goes on after it.
    bool IsCounted(size_t i) const {
        if (!MayCount(i)) return false;
        for (size_t k = i + 1; k < runs_.size(); ++k) {
            if (Joins(k)) return false;
        }
        return true;
    }

    bool AnyPresentAfter(size_t i) const {
        constexpr uint32_t kMonth = 30 * 24 * 3600;  // s; a file is filled much sooner
        for (size_t k = i + 1; k < runs_.size(); ++k) {
            const bool newer = !IsOlder(k) && runs_[k].first_time <= uint64_t{latest_} + kMonth;
            if (Joins(k) || newer || MayCount(k)) return true;
        }
        return false;
    }

    const std::vector<StreamRun>& runs_;
    const std::vector<Garbage>& holes_;
    const LapHints& hints_;
    Recordings result_;
    size_t last_ = 0;  // run of the recording being made
    uint32_t latest_ = 0;
};

}  // namespace

Recordings RecordingsOf(const Survey& survey, const LapHints& hints) {
    return RecordingFinder(survey, hints).Run();
}

std::vector<const SurveyedFrame*> FramesOf(const Survey& survey, const SectionSpan& span) {
    std::vector<const SurveyedFrame*> frames;
    SectionFilter filter(span.start, span.last);
    for (const StreamRun& run : survey.runs) {
        if (run.end <= span.begin || run.begin >= span.end) continue;
        for (const SurveyedFrame& frame : run.frames) {
            if (frame.offset < span.begin || frame.End() > span.end) continue;
            if (frame.restarted) filter.StreamHead();
            const bool taken = frame.video ? frame.empty ? filter.Begun() && !filter.AfterForeign() : filter.Take(frame)
                                           : filter.Begun() && !filter.AfterForeign();
            if (taken) frames.push_back(&frame);
        }
    }
    return frames;
}

size_t CountPictures(const Survey& survey, const std::vector<SectionSpan>& sections) {
    size_t count = 0;
    for (const SectionSpan& section : sections) {
        for (const SurveyedFrame* frame : FramesOf(survey, section)) count += frame->video && !frame->empty ? 1 : 0;
    }
    return count;
}

}  // namespace card
