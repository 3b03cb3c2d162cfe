#include "stream/StreamSurvey.h"

#include <algorithm>

namespace card {

namespace {

using record_file::kClockPerFrame;
using record_file::kStreamHeadSize;

constexpr uint64_t kClockRounding = 64;  // single precision, up to 33 bits of clock
constexpr uint64_t kFramesSkippedMax = 25 * 3600;
constexpr uint32_t kTimeJump = 60;  // s a frame may lie behind its predecessor, beside what was skipped
constexpr uint64_t kSoundAhead = 4 * kClockPerFrame;

// Takes what the scanner finds and cuts it into runs.
class Surveyor {
  public:
    void Head(uint64_t offset) { head_ = offset; }

    void Hole(const Garbage& garbage) {
        DropHead();
        pending_.push_back(garbage);
    }

    void Frame(const StreamFrame& frame) {
        const bool video = frame.kind == StreamFrame::Kind::Video;
        if (!video && !(run_ && !head_ && Accompanies(frame))) {
            return Hole({frame.offset, frame.size, Garbage::Reason::MixedClock});
        }
        if (video && (!run_ || head_ || !Continues(frame))) Begin(frame);
        Append(frame, video);
    }

    Survey Finish() {
        DropHead();
        Close();
        return std::move(survey_);
    }

  private:
    // A stream head that no frame followed.
    void DropHead() {
        if (head_) pending_.push_back({*head_, kStreamHeadSize, Garbage::Reason::NoHeader});
        head_.reset();
    }

    bool Continues(const StreamFrame& frame) const {
        if (frame.payload.empty()) return frame.time + uint64_t{kClockStepBack} >= run_->last_time;
        if (frame.pts + kClockRounding < run_->last_clock + kClockPerFrame) return false;
        const uint64_t steps = (frame.pts - run_->last_clock + kClockRounding) / kClockPerFrame;
        return steps <= kFramesSkippedMax && uint64_t{frame.time} + kClockStepBack >= run_->last_time &&
               frame.time <= uint64_t{run_->last_time} + kTimeJump + steps;
    }

    bool Accompanies(const StreamFrame& sound) const {
        return sound.pts + kClockRounding >= run_->last_clock && sound.pts <= run_->last_clock + kSoundAhead;
    }

    void Begin(const StreamFrame& frame) {
        Close();
        run_.emplace();
        run_->headed = head_.has_value();
        run_->begin = head_.value_or(frame.offset);
        run_->first_time = frame.time;
        run_->first_clock = frame.pts;
        head_.reset();
    }

    void Append(const StreamFrame& frame, bool video) {
        run_->holes.insert(run_->holes.end(), pending_.begin(), pending_.end());
        pending_.clear();
        if (video) {
            ++run_->video_frames;
            run_->last_time = frame.time;
            if (!frame.payload.empty()) run_->last_clock = frame.pts;
            if (!run_->parameters) run_->parameters = frame.parameters;
        }
        run_->end = frame.End();
        run_->frames.push_back({static_cast<uint32_t>(frame.offset), static_cast<uint32_t>(frame.size),
                                video ? frame.time : run_->last_time, video, frame.key});
    }

    void Close() {
        if (run_) survey_.runs.push_back(std::move(*run_));
        run_.reset();
        survey_.holes.insert(survey_.holes.end(), pending_.begin(), pending_.end());
        pending_.clear();
    }

    Survey survey_;
    std::optional<StreamRun> run_;
    std::optional<uint64_t> head_;  // a stream head directly in front
    std::vector<Garbage> pending_;  // behind the run's last frame
};

}  // namespace

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

Survey SurveyStream(const StoreFile& file, uint64_t begin, uint64_t end, bool whole, const SurveyProgress& progress) {
    const auto read = [&file](uint64_t at, void* buffer, size_t length) { return file.ReadAt(at, buffer, length); };
    return SurveyStream(ReadAtFunction(read), begin, std::min(end, file.Reachable()), whole, progress);
}

Survey SurveyStream(const ReadAtFunction& read, uint64_t begin, uint64_t end, bool whole,
                    const SurveyProgress& progress) {
    StreamScanner scanner(read, begin, end);
    Surveyor surveyor;
    uint64_t told = begin;
    for (;;) {
        const StreamScanner::Found found = scanner.Next();
        if (progress && (scanner.Position() - told > (1u << 20) || found == StreamScanner::Found::End)) {
            progress(scanner.Position() - told);
            told = scanner.Position();
        }
        if (found == StreamScanner::Found::End || (!whole && found == StreamScanner::Found::Garbage)) break;
        // The recorder counts nothing that begins behind a full file's mark.
        if (found == StreamScanner::Found::Frame && scanner.Frame().offset > RECORD_STREAM_LIMIT) break;
        if (found == StreamScanner::Found::StreamHead) surveyor.Head(scanner.StreamHeadOffset());
        if (found == StreamScanner::Found::Garbage) surveyor.Hole(scanner.GarbageFound());
        if (found == StreamScanner::Found::Frame) surveyor.Frame(scanner.Frame());
    }
    return surveyor.Finish();
}

size_t PresentRuns(const Survey& survey) {
    uint32_t latest = 0;
    for (size_t i = 0; i < survey.runs.size(); ++i) {
        if (uint64_t{survey.runs[i].first_time} + kClockStepBack < latest) return i;
        latest = std::max(latest, survey.runs[i].first_time);
    }
    return survey.runs.size();
}

}  // namespace card
