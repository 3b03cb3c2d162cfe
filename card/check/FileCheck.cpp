#include "check/FileCheck.h"

#include <algorithm>

#include "AVFrame.h"
#include "FormatText.h"
#include "stream/StreamSurvey.h"
#include "text/TimeText.h"

namespace card {

namespace {

using record_file::FileHeadOffset;
using record_file::kStreamHeadSize;
using record_file::SectionHeadOffset;

using Level = Finding::Level;
using Mend = Finding::Mend;

// Frames that a full file's last section counts though its lengths have stopped: those that arrive while the run ends.
constexpr uint32_t kFullFileSlack = 250;
constexpr uint32_t kShortestPicture = 5;  // bytes: a start code and the first byte of a NAL header
constexpr uint32_t kStartSlack = 60;      // s a section may begin in front of its first frame
constexpr uint32_t kFullEndSlack = 30;    // s a run may take to end when its file is full
constexpr uint32_t kEndSlack = 2;         // s its last sound may lie after its last picture

// Sound without a byte, or a picture too short for the header of a NAL unit.
bool IsBare(const SurveyedFrame& frame) {
    const uint32_t headers = frame.video ? PS_PACK_HEADER_SIZE + PS_PES_HEADER_SIZE : PS_PES_HEADER_SIZE;
    return frame.size < headers + (frame.video ? kShortestPicture : 1);
}

uint8_t AudioStreamType(uint8_t code) {
    switch (code) {
        case CODE_AUDIO_AAC & 0xFF:
            return record_file::kStreamAac;
        case CODE_AUDIO_G711A & 0xFF:
            return record_file::kStreamG711A;
        case CODE_AUDIO_G711U & 0xFF:
            return record_file::kStreamG711U;
        default:
            return record_file::kStreamNone;
    }
}

// Stretch of a record file.
struct Part {
    uint64_t begin;
    uint64_t end;
};

// One record file that is in use: its heads against its stream.
class FileCheck {
  public:
    FileCheck(const CardIndex& index, const FileState& file, Findings& findings)
        : index_(index), file_(file), name_(Volume::RecordFileName(file.number)), findings_(findings) {}

    void Run(const StoreFile& record, const SurveyProgress& progress, const SurveyVisitor& visit) {
        Surveyor surveyor(record, progress);
        surveyor.GoTo(file_.Length());
        if (!file_.Full()) {
            surveyor.GoTo(uint64_t{file_.Length()} + record_file::kAheadMax);
            surveyor.GoToHole();
        }
        survey_ = surveyor.Result();
        for (const Section& section : index_.AllSections()) {
            if (section.file == file_.number) sections_.push_back(&section);
        }
        LapHints hints{.counted = file_.Length(), .begins = {}};
        for (const Section* section : sections_) {
            if (section->Usable()) hints.begins.push_back(section->Begin());
        }
        recordings_ = RecordingsOf(survey_, hints).recordings;
        const size_t before = findings_.size();
        CheckLap();
        for (const Section* section : sections_) {
            if (section->Usable()) CheckSection(*section);
        }
        CheckCovered();
        CheckSlots();
        CheckSums();
        if (!file_.Full()) CheckAfterCounted();
        const bool mendable = std::any_of(findings_.begin() + static_cast<ptrdiff_t>(before), findings_.end(),
                                          [](const Finding& finding) { return finding.mend == Mend::File; });
        if (!visit) return;
        if (mendable) surveyor.GoToEnd();
        visit(file_.number, mendable ? surveyor.Result() : survey_, mendable);
    }

  private:
    void Add(Level level, const char* kind, uint64_t offset, std::string what, const char* consequence, Mend mend) {
        findings_.push_back({level, kind, name_, offset, std::move(what), consequence, mend, file_.number, true});
    }
    void AddHead(Level level, const char* kind, uint64_t offset, std::string what, const char* consequence) {
        findings_.push_back(
            {level, kind, RECORD_INDEX_NAME, offset, std::move(what), consequence, Mend::File, file_.number, true});
    }
    // A file head that is ahead of its sections and stream.  The heads of files 0 to 63 lie in the system head's page:
    // when that names the next file it takes them to the card, which has neither the last sections nor their stream
    // yet.
    void AddAheadHead(const char* kind, std::string what, const char* consequence) {
        const bool is_cut = index_.System().m_u32RecordFileNo != file_.number && CutBeforeFull(file_) && !file_.Full();
        AddHead(is_cut ? Level::Remark : Level::Error, kind, FileHeadOffset(file_.number), std::move(what),
                is_cut ? "none beyond the cut: power went while the next file was named" : consequence);
    }
    std::string NameOf(const Section& section) const {
        return FormatText("section %u:%u", section.file, section.number);
    }

    // Heads and stream of one lap?
    void CheckLap() {
        if (survey_.runs.empty()) return;
        const uint64_t time = survey_.runs.front().first_time;
        if (time <= uint64_t{file_.head.m_u32RecordEndTime} + kStartSlack) return;
        AddHead(Level::Error, "file-lap", FileHeadOffset(file_.number),
                FormatText("the heads of file %u speak of an earlier lap than its stream", file_.number),
                "the newest footage of this file is not listed, and what is listed has been written over");
    }

    void CheckSection(const Section& section) {
        const uint64_t place = SectionHeadOffset(section.file, section.number);
        if (section.cut_bytes != 0) {
            AddHead(Level::Remark, "section-ahead", place, NameOf(section) + " is ahead of its file",
                    "none: power was cut between two heads");
        }
        if (section.head.m_u32RecordSize == 0) return;
        const Recording* recording = RecordingAt(section.Begin());
        CheckBegin(section, recording);
        frames_ = FramesOf(survey_, card::SpanOf(section));
        CheckJoined(section);
        CheckForeign(section);
        CheckHoles(section);
        CheckBare(section);
        CheckCounts(section, place);
        CheckKeyFrames(section);
        CheckTimes(section, place);
        if (recording != nullptr) CheckParameters(section, survey_.runs[recording->run], place);
    }

    const Recording* RecordingAt(uint64_t begin) const {
        const auto found = std::find_if(recordings_.begin(), recordings_.end(),
                                        [begin](const Recording& recording) { return recording.begin == begin; });
        return found == recordings_.end() ? nullptr : &*found;
    }

    // A section that begins in damage: its stream head can stand again, or it begins with its first key frame.
    void CheckBegin(const Section& section, const Recording* recording) {
        if (recording != nullptr && survey_.runs[recording->run].headed) return;
        const bool settled = recording != nullptr && !recording->lost_head;
        const bool footage = std::any_of(recordings_.begin(), recordings_.end(), [&](const Recording& other) {
            return other.end > section.Begin() && other.begin < section.Limit();
        });
        Add(settled ? Level::Remark : Level::Error, "section-begin", section.Begin(),
            NameOf(section) +
                (settled ? " has lost its stream head" : " does not begin with a stream head and a key frame"),
            settled ? "none for players that look for frames" : "players may refuse the section",
            footage && !settled ? Mend::File : Mend::Nothing);
    }

    void CheckJoined(const Section& section) {
        for (const Recording& recording : recordings_) {
            const bool inside =
                recording.begin > section.Begin() + kStreamHeadSize && recording.begin < section.Limit();
            if (!inside || section.number == RECORD_SECTION_MAX) continue;
            Add(Level::Error, "section-joined", recording.begin, NameOf(section) + " runs into another recording",
                "times inside the section are wrong", Mend::File);
        }
    }

    // Pictures in a section that are none of it: what an earlier lap left where later writes were lost.
    void CheckForeign(const Section& section) {
        size_t foreign = 0;
        uint64_t first = 0;
        for (const StreamRun& run : survey_.runs) {
            for (const SurveyedFrame& frame : run.frames) {
                if (frame.offset < section.Limit() && frame.offset >= section.Begin() &&
                    frame.End() > section.Limit() && section.cut_bytes == 0) {
                    Add(Level::Error, "section-end", section.Limit(), NameOf(section) + " ends inside a frame",
                        "that frame is not played", Mend::File);
                }
                const bool inside = frame.offset >= section.Begin() && frame.End() <= section.Limit();
                if (!inside || !frame.video || IsTaken(frame)) continue;
                if (foreign++ == 0) first = frame.offset;
            }
        }
        if (foreign == 0) return;
        Add(Level::Error, "stream-foreign", first,
            FormatText("%zu pictures in section %u:%u are none of it, or lack their key frame", foreign, section.file,
                       section.number),
            "what was recorded there is lost; the rest plays", Mend::Nothing);
    }

    bool IsTaken(const SurveyedFrame& frame) const {
        const auto at =
            std::lower_bound(frames_.begin(), frames_.end(), &frame,
                             [](const SurveyedFrame* a, const SurveyedFrame* b) { return a->offset < b->offset; });
        return at != frames_.end() && *at == &frame;
    }

    void CheckHoles(const Section& section) {
        const auto check = [&](const Garbage& hole) {
            if (hole.offset + hole.length <= section.Begin() || hole.offset >= section.Limit()) return;
            const bool cut = hole.reason == Garbage::Reason::CutOff && section.cut_bytes != 0;
            if (cut) return;
            const uint64_t begin = std::max(hole.offset, section.Begin());
            const uint64_t end = std::min(hole.offset + hole.length, section.Limit());
            Add(Level::Error, "stream-damaged", begin,
                FormatText("%llu bytes of ", static_cast<unsigned long long>(end - begin)) + NameOf(section) +
                    " are no footage: " + GarbageText(hole.reason),
                "what was recorded there is lost; the rest plays", Mend::Nothing);
        };
        for (const Garbage& hole : survey_.holes) check(hole);
        for (const StreamRun& run : survey_.runs) std::for_each(run.holes.begin(), run.holes.end(), check);
    }

    void CheckBare(const Section& section) {
        const auto bare =
            std::count_if(frames_.begin(), frames_.end(), [](const SurveyedFrame* frame) { return IsBare(*frame); });
        if (bare == 0) return;
        Add(Level::Remark, "frames-bare", section.Begin(),
            FormatText("%zu frames of section %u:%u hold no picture and no sound", static_cast<size_t>(bare),
                       section.file, section.number),
            "none: recorders of earlier versions wrote them; they are left out", Mend::Nothing);
    }

    bool Ahead(const Section& section, uint32_t counted, size_t found) const {
        const bool may = section.cut_bytes != 0 || (file_.Full() && &section == sections_.back());
        const uint32_t most = section.cut_bytes != 0 ? record_file::kAheadFramesMax : kFullFileSlack;
        return may && counted > found && counted - found <= most;
    }

    void CheckCounts(const Section& section, uint64_t place) {
        const size_t pictures = static_cast<size_t>(
            std::count_if(frames_.begin(), frames_.end(), [](const SurveyedFrame* frame) { return frame->video; }));
        const uint32_t counted = section.head.m_u32FrameSum;
        if (pictures == counted || Ahead(section, counted, pictures)) return;
        AddHead(Level::Error, "section-frames", place,
                FormatText("section %u:%u has %zu pictures, its head says %u", section.file, section.number, pictures,
                           counted),
                "length and position are shown wrong");
    }

    // Every record against a frame, and every real key frame against a record.
    void CheckKeyFrames(const Section& section) {
        const uint64_t base = RECORD_KEY_FRAME_BASE + uint64_t{section.head.m_u32StartKeyFramePos};
        auto frame = frames_.begin();
        uint32_t missing = 0;
        uint32_t wrong = 0;
        uint64_t first_wrong = 0;
        uint32_t number = 0;
        const auto records = index_.KeyFrames(section);
        for (const KeyFrame& key : records) {
            const uint64_t place = base + uint64_t{number++} * sizeof(KeyFrameInfoHead_S);
            const size_t most = section.cut_bytes != 0 ? record_file::kAheadKeyFramesMax : kFullFileSlack;
            if (!key.fits && number > records.size() - std::min<size_t>(records.size(), most) &&
                (section.cut_bytes != 0 || file_.Full())) {
                continue;  // counted, but its frame was not
            }
            auto at = frame;
            while (at != frames_.end() && (*at)->End() <= key.offset) ++at;
            if (!key.fits || at == frames_.end() || !Agrees(section, key, **at)) {
                if (wrong++ == 0) first_wrong = place;
                continue;
            }
            missing += static_cast<uint32_t>(std::count_if(frame, at, [](const SurveyedFrame* f) { return f->key; }));
            frame = at + 1;
        }
        missing +=
            static_cast<uint32_t>(std::count_if(frame, frames_.end(), [](const SurveyedFrame* f) { return f->key; }));
        if (wrong == 0 && (missing == 0 || section.cut_key_frames != 0)) return;
        Add(Level::Error, "key-frames", wrong != 0 ? first_wrong : base,
            FormatText("section %u:%u: %u key-frame records do not fit the stream, %u key frames have none",
                       section.file, section.number, wrong, missing),
            "seeking in this section jumps to wrong places or fails", Mend::File);
    }

    bool Agrees(const Section& section, const KeyFrame& key, const SurveyedFrame& frame) const {
        const bool first = key.record.m_u32KeyFilePos == 0;
        const uint64_t begin = first ? section.Begin() : frame.offset;
        const uint32_t time = first ? section.head.m_u32RecordStartTime : frame.time;
        const bool kind = frame.video && (frame.key || key.record.m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL);
        const bool timed = key.record.m_u32KeyFrameTime == time || (frame.corrected && !first);
        return kind && key.offset == begin && frame.End() - begin == key.record.m_u32KeyFrameLenth && timed;
    }

    void CheckTimes(const Section& section, uint64_t place) {
        if (frames_.empty()) return;
        const uint64_t first = frames_.front()->time;
        const uint64_t last = frames_.back()->time;
        const uint32_t start = section.head.m_u32RecordStartTime;
        const bool starts = start <= first && first <= uint64_t{start} + kStartSlack;
        const bool filled = file_.Full() && &section == sections_.back();  // the end goes on while the run ends
        const uint32_t slack =
            filled ? kFullEndSlack : kEndSlack + (section.cut_bytes != 0 ? record_file::kAheadSecondsMax : 0);
        // A clock that is set back leaves the last picture before the start, where no end lies that a repair has made.
        const bool ends = section.head.m_u32RecordEndTime <= std::max(last, uint64_t{start}) + slack &&
                          last <= std::max(uint64_t{section.head.m_u32RecordEndTime},
                                           uint64_t{start} + (frames_.size() == 1 ? kStartSlack : 0));
        if (starts && ends) return;
        AddHead(Level::Error, "section-times", place, NameOf(section) + " has other times than its stream",
                "footage is listed at a wrong time");
    }

    void CheckParameters(const Section& section, const StreamRun& run, uint64_t place) {
        if (!run.parameters) return;
        const StreamParameters& stream = *run.parameters;
        const RecordInfoHead_S& head = section.head;
        const uint8_t codec =
            stream.video_type == record_file::kStreamH265 ? CODE_VIDEO_H265 & 0xFF : CODE_VIDEO_H264 & 0xFF;
        const bool odd = head.m_u8RecordType != RECORD_TYPE_SCHEDULE || head.m_u8SmartEnable > 1 ||
                         AudioStreamType(head.m_u8AudioType) != stream.audio_type;
        if (odd) {
            AddHead(Level::Remark, "section-kind", place,
                    NameOf(section) + " has a record type, sound or encoding that it cannot have",
                    "none for the footage; programs may show it wrong");
        }
        if (head.m_u16Width == stream.width && head.m_u16Height == stream.height &&
            head.m_u8Frame == stream.frame_rate && head.m_u8VideoType == codec) {
            return;
        }
        AddHead(Level::Error, "section-format", place, NameOf(section) + " has another picture format than its stream",
                "players may show it wrong");
    }

    // Frames that no section holds.
    void CheckCovered() {
        std::vector<Part> open;
        uint64_t covered = 0;
        for (const Section* section : sections_) {
            if (!section->Usable()) continue;
            if (section->Begin() > covered) open.push_back({covered, section->Begin()});
            covered = std::max(covered, section->Limit());
        }
        if (file_.Length() > covered) open.push_back({covered, file_.Length()});
        for (const Part& part : open) {
            size_t frames = 0;
            for (const Recording& recording : recordings_) {
                for (const SurveyedFrame* f : FramesOf(survey_, SpanOf(recording)))
                    frames += f->offset >= part.begin && f->offset < part.end ? 1 : 0;
            }
            const bool after_last = file_.head.m_u32RecordSectionSum == RECORD_SECTION_MAX;
            if (frames != 0) {
                Add(after_last ? Level::Remark : Level::Error, "footage-unlisted", part.begin,
                    FormatText("%zu frames from %llu to %llu lie in no section", frames,
                               static_cast<unsigned long long>(part.begin), static_cast<unsigned long long>(part.end)),
                    "this footage is there but not listed", Mend::File);
            } else if (part.end == file_.Length()) {
                AddAheadHead("file-length",
                             FormatText("file %u counts %llu bytes past its last footage", file_.number,
                                        static_cast<unsigned long long>(part.end - part.begin)),
                             "footage may have been lost there; that much space is not recorded into");
            } else {
                Add(Level::Remark, "stretch-empty", part.begin,
                    FormatText("%llu bytes lie in no section and hold no footage",
                               static_cast<unsigned long long>(part.end - part.begin)),
                    "none", Mend::Nothing);
            }
        }
    }

    // Slots that count and hold no section: normal when their number was used up, or already told as unlisted.
    void CheckSlots() {
        for (const Section* section : sections_) {
            if (section->Usable()) continue;
            AddHead(Level::Remark, "section-slot", SectionHeadOffset(section->file, section->number),
                    NameOf(*section) + " is not used: " + FaultText(section->fault),
                    "none, unless frames are named as unlisted");
            findings_.back().mend = Mend::Nothing;
        }
    }

    void CheckSums() {
        uint32_t keys = 0;
        uint32_t start = UINT32_MAX;
        uint32_t end = 0;
        for (const Section* section : sections_) {
            if (!section->Usable()) continue;
            keys = std::max(keys, section->head.m_u32StartKeyFramePos / uint32_t{sizeof(KeyFrameInfoHead_S)} +
                                      section->head.m_u32KeyFrameSum);
            start = std::min(start, section->head.m_u32RecordStartTime);
            end = std::max({end, section->head.m_u32RecordStartTime, section->head.m_u32RecordEndTime});
        }
        const RecordFileInfoHead_S& head = file_.head;
        if (start == UINT32_MAX) return;
        uint32_t types = 0;
        for (const Section* section : sections_) types |= section->Usable() ? section->head.m_u8RecordType : 0;
        if (types != head.m_u32RecordFileSumType && types == RECORD_TYPE_SCHEDULE) {
            AddHead(Level::Remark, "file-types", FileHeadOffset(file_.number),
                    FormatText("the head of file %u names record types that no section has", file_.number),
                    "none for the footage");
        }
        const bool keys_fit = keys == head.m_u32RecordKeyFrameSum || sections_.back()->cut_bytes != 0;
        const bool times_fit =
            start == head.m_u32RecordStartTime && head.m_u32RecordEndTime >= head.m_u32RecordStartTime &&
            head.m_u32RecordEndTime + uint64_t{1} >= end && head.m_u32RecordEndTime <= uint64_t{end} + kClockStepBack;
        if (keys_fit && times_fit) return;
        const bool is_ahead = keys <= head.m_u32RecordKeyFrameSum && times_fit;
        std::string what = FormatText(
            "the head of file %u says %u key frames from %u to %u, its sections %u from %u to %u", file_.number,
            head.m_u32RecordKeyFrameSum, head.m_u32RecordStartTime, head.m_u32RecordEndTime, keys, start, end);
        const char* const consequence = "new footage may be indexed at wrong places";
        if (is_ahead) return AddAheadHead("file-sums", std::move(what), consequence);
        AddHead(Level::Error, "file-sums", FileHeadOffset(file_.number), std::move(what), consequence);
    }

    // What a power cut left after the heads.  It may begin with sound or, as pages reach the card in any order, with
    // a hole; after one only the next times are taken for the file's own.
    void CheckAfterCounted() {
        const uint64_t newest = file_.head.m_u32RecordEndTime;
        size_t frames = 0;
        size_t pictures = 0;
        uint32_t first = 0;
        uint32_t last = 0;
        for (const Recording& recording : recordings_) {
            for (const SurveyedFrame* frame : FramesOf(survey_, SpanOf(recording))) {
                if (frame->offset < file_.Length() || frame->time + uint64_t{kClockStepBack} < newest) continue;
                const uint64_t begin = frame->offset - (frame->headed ? kStreamHeadSize : 0);
                const bool joined = frames != 0 || begin == file_.Length();
                const bool close = frame->time + uint64_t{kEndSlack} >= newest &&
                                   frame->time <= newest + record_file::kAheadSecondsMax;
                if (!joined && !close) continue;
                if (frames++ == 0) first = frame->time;
                pictures += frame->video ? 1 : 0;
                last = std::max(first, frame->time);
            }
        }
        if (frames == 0) return;
        Add(Level::Remark, "footage-uncounted", file_.Length(),
            FormatText("%zu pictures (%s) lie after what the heads count, as after a power cut", pictures,
                       Duration(last - first).c_str()),
            "they are not listed, and are written over when recording goes on", Mend::File);
    }

    static SectionSpan SpanOf(const Recording& recording) {
        return {recording.begin, recording.end, recording.first_time, recording.last_time};
    }

    const CardIndex& index_;
    const FileState& file_;
    std::string name_;
    Findings& findings_;
    Survey survey_;
    std::vector<const Section*> sections_;
    std::vector<Recording> recordings_;
    std::vector<const SurveyedFrame*> frames_;  // of the section at hand
};

}  // namespace

void CheckRecordFile(const CardIndex& index, const FileState& file, Findings& findings, const SurveyProgress& progress,
                     const SurveyVisitor& visit) {
    FileCheck(index, file, findings).Run(index.OpenRecordFile(file.number), progress, visit);
}

bool CutBeforeFull(const FileState& file) {
    return file.Usable() && uint64_t{file.Length()} + record_file::kAheadMax >= RECORD_STREAM_LIMIT;
}

SectionSpan SpanOf(const Section& section) {
    return {section.Begin(), section.Limit(), section.Start(), section.End()};
}

}  // namespace card
