#include "repair/IndexBuilder.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

#include "AVFrame.h"
#include "text/Error.h"

namespace card {

namespace {

using record_file::FileHeadOffset;
using record_file::kKeyFramesMax;
using record_file::kStreamHeadSize;
using record_file::SectionHeadOffset;

constexpr uint32_t kRecordSize = sizeof(KeyFrameInfoHead_S);
constexpr uint32_t kStartSlack = 60;  // s a section may begin in front of its first key frame
constexpr uint32_t kEndSlack = 2;     // s its last sound may lie after its last picture

uint8_t AudioCode(uint8_t stream_type) {
    switch (stream_type) {
        case record_file::kStreamAac:
            return CODE_AUDIO_AAC & 0xFF;
        case record_file::kStreamG711A:
            return CODE_AUDIO_G711A & 0xFF;
        case record_file::kStreamG711U:
            return CODE_AUDIO_G711U & 0xFF;
        default:
            return CODE_AUDIO_NULL & 0xFF;
    }
}

uint8_t VideoCode(uint8_t stream_type) {
    return stream_type == record_file::kStreamH265 ? CODE_VIDEO_H265 & 0xFF : CODE_VIDEO_H264 & 0xFF;
}

// Key-frame records by what a frame must agree with.
class RecordsByFrame {
  public:
    explicit RecordsByFrame(const std::vector<KeyFrameInfoHead_S>& records) {
        for (const KeyFrameInfoHead_S& record : records) {
            const bool known = record.m_u32KeyFrameHeadFlag == RECORD_KEY_FRAME_FLAG &&
                               (record.m_u8KeyFrameType == RECORD_KEY_FRAME_REAL ||
                                record.m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL);
            if (known) records_.emplace(std::tuple(record.m_u32KeyFilePos, record.m_u32KeyFrameLenth), record);
        }
    }

    // The latest record of a frame so placed, timed inside [from, to].
    const KeyFrameInfoHead_S* Find(uint32_t position, uint32_t length, uint32_t from, uint32_t to) const {
        const KeyFrameInfoHead_S* latest = nullptr;
        const auto [first, last] = records_.equal_range(std::tuple(position, length));
        for (auto at = first; at != last; ++at) {
            const uint32_t time = at->second.m_u32KeyFrameTime;
            const bool later = latest == nullptr || time > latest->m_u32KeyFrameTime;
            if (time >= from && time <= to && later) latest = &at->second;
        }
        return latest;
    }

  private:
    std::multimap<std::tuple<uint32_t, uint32_t>, KeyFrameInfoHead_S> records_;
};

// Whether a section head that is left speaks of the recording that begins here.
bool SpeaksOf(const RecordInfoHead_S& head, uint64_t begin, uint32_t first_time) {
    return head.m_u32RecordStartPos == begin && head.m_u32RecordStartTime <= first_time &&
           uint64_t{head.m_u32RecordStartTime} + kStartSlack >= first_time;
}

// What one section is going to cover.
struct Cover {
    const Recording* recording;  // its first
    SectionSpan span;
};

// A section ends with its last frame: what lies between it and the next is no footage, or none of either.  When there
// are more recordings than sections can be counted, the last section takes the rest.
std::vector<Cover> Covers(const std::vector<Recording>& recordings) {
    std::vector<Cover> covers;
    for (const Recording& recording : recordings) {
        if (covers.size() < RECORD_SECTION_MAX) {
            covers.push_back({&recording, {recording.begin, recording.end, recording.first_time, 0}});
        }
        SectionSpan& span = covers.back().span;
        span.end = recording.end;
        span.start = std::min(span.start, recording.first_time);
        span.last = std::max(span.last, recording.last_time);
    }
    return covers;
}

// One section after the other.
class FileBuilder {
  public:
    FileBuilder(RebuiltFile& file, const std::vector<RecordInfoHead_S>& heads, const RecordsByFrame& records)
        : file_(file), heads_(heads), records_(records) {}

    void Add(const Survey& survey, const Cover& cover) {
        const SectionSpan& span = cover.span;
        const StreamRun& run = survey.runs[cover.recording->run];
        const auto left = std::find_if(heads_.begin(), heads_.end(), [&](const RecordInfoHead_S& head) {
            return SpeaksOf(head, span.begin, cover.recording->first_time);
        });
        const RecordInfoHead_S* head = left == heads_.end() ? nullptr : &*left;
        const std::vector<const SurveyedFrame*> own = FramesOf(survey, span);
        if (own.empty()) return;  // no picture's time is its own
        if (cover.recording->lost_head) file_.stream_heads.push_back(span.begin);
        RecordInfoHead_S section = NewSection(span, run, head);
        section.m_u32RecordStartTime = head != nullptr ? head->m_u32RecordStartTime : StartTime(*own.front(), span);
        section.m_u32RecordEndTime = std::max(EndOf(span, head), section.m_u32RecordStartTime);
        // Counted is what these times show: they may reach further than the stream's, where its clock was set back.
        const auto shown =
            FramesOf(survey, {span.begin, span.end, section.m_u32RecordStartTime, section.m_u32RecordEndTime});
        for (const SurveyedFrame* frame : shown) {
            if (!frame->video) continue;
            ++section.m_u32FrameSum;
            Index(section, *frame, frame == shown.front());
        }
        file_.sections.push_back(section);
    }

  private:
    RecordInfoHead_S NewSection(const SectionSpan& span, const StreamRun& run, const RecordInfoHead_S* left) const {
        RecordInfoHead_S head{};
        head.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
        head.m_u16RecordFileNo = static_cast<uint16_t>(file_.number);
        head.m_u16RecordUseNo = static_cast<uint16_t>(file_.sections.size() + 1);
        head.m_u32RecordStartPos = static_cast<uint32_t>(span.begin);
        head.m_u32RecordSize = static_cast<uint32_t>(span.end - span.begin);
        head.m_u32StartKeyFramePos = static_cast<uint32_t>(file_.key_frames.size()) * kRecordSize;
        head.m_u8RecordType = RECORD_TYPE_SCHEDULE;  // there are no others
        head.m_u8SmartEnable = left != nullptr && left->m_u8SmartEnable == 1 ? 1 : 0;
        if (run.parameters) {
            head.m_u16Width = run.parameters->width;
            head.m_u16Height = run.parameters->height;
            head.m_u8Frame = run.parameters->frame_rate;
            head.m_u8VideoType = VideoCode(run.parameters->video_type);
            head.m_u8AudioType = AudioCode(run.parameters->audio_type);
        }
        return head;
    }

    // A section's first record keeps its start, which may lie before its first frame.
    uint32_t StartTime(const SurveyedFrame& first, const SectionSpan& span) const {
        const KeyFrameInfoHead_S* record = records_.Find(0, static_cast<uint32_t>(first.End() - span.begin),
                                                         std::max(first.time, kStartSlack) - kStartSlack, first.time);
        return record != nullptr ? record->m_u32KeyFrameTime : first.time;
    }

    static uint32_t EndOf(const SectionSpan& span, const RecordInfoHead_S* left) {
        const bool whole = left != nullptr && uint64_t{left->m_u32RecordStartPos} + left->m_u32RecordSize == span.end;
        const bool near = whole && left->m_u32RecordEndTime >= span.last &&
                          left->m_u32RecordEndTime <= uint64_t{span.last} + kEndSlack;
        return near ? left->m_u32RecordEndTime : span.last;
    }

    void Index(RecordInfoHead_S& section, const SurveyedFrame& frame, bool first) {
        const uint64_t begin = first ? section.m_u32RecordStartPos : frame.offset;
        KeyFrameInfoHead_S made{};
        made.m_u32KeyFrameHeadFlag = RECORD_KEY_FRAME_FLAG;
        made.m_u32KeyFrameTime = first ? section.m_u32RecordStartTime : frame.time;
        made.m_u32KeyFrameLenth = static_cast<uint32_t>(frame.End() - begin);
        made.m_u32KeyFilePos = static_cast<uint32_t>(begin - section.m_u32RecordStartPos);
        made.m_u8KeyFrameType = RECORD_KEY_FRAME_REAL;
        const uint32_t slack = frame.corrected ? kStartSlack : 0;  // then the record knows the time better
        const KeyFrameInfoHead_S* record =
            records_.Find(made.m_u32KeyFilePos, made.m_u32KeyFrameLenth,
                          std::max(made.m_u32KeyFrameTime, slack) - slack, made.m_u32KeyFrameTime + slack);
        if (record != nullptr) made = *record;
        const bool is_virtual = made.m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL;
        if ((!frame.key && !is_virtual) || file_.key_frames.size() >= kKeyFramesMax) return;
        file_.key_frames.push_back(made);
        ++section.m_u32KeyFrameSum;
    }

    RebuiltFile& file_;
    const std::vector<RecordInfoHead_S>& heads_;
    const RecordsByFrame& records_;
};

}  // namespace

std::vector<SectionSpan> RebuiltFile::Spans() const {
    std::vector<SectionSpan> spans;
    for (const RecordInfoHead_S& section : sections) {
        spans.push_back({section.m_u32RecordStartPos, uint64_t{section.m_u32RecordStartPos} + section.m_u32RecordSize,
                         section.m_u32RecordStartTime, section.m_u32RecordEndTime});
    }
    return spans;
}

IndexBuilder::Left IndexBuilder::ReadLeft(const StoreFile& record, uint32_t number) const {
    Left left;
    left.head = index_->Get<RecordFileInfoHead_S>(FileHeadOffset(number)).value_or(RecordFileInfoHead_S{});
    for (uint32_t slot = 1; slot <= RECORD_SECTION_MAX; ++slot) {
        const auto head = index_->Get<RecordInfoHead_S>(SectionHeadOffset(number, slot));
        if (head && head->m_u32RecordInfoHeadFlag == RECORD_SECTION_FLAG && head->m_u16RecordFileNo == number) {
            left.sections.push_back(*head);
        }
    }
    left.key_frames.resize(kKeyFramesMax);
    left.key_frames.resize(record.ReadAt(RECORD_KEY_FRAME_BASE, left.key_frames.data(), kKeyFramesMax * kRecordSize) /
                           kRecordSize);
    return left;
}

// What the heads count, if it agrees with the stream.
LapHints IndexBuilder::Hints(const Survey& survey, const Left& left) {
    LapHints hints;
    for (const StreamRun& run : survey.runs) {
        for (const RecordInfoHead_S& head : left.sections) {
            const bool lost_head = !run.headed && head.m_u32RecordStartPos + kStreamHeadSize == run.begin;
            if (SpeaksOf(head, lost_head ? run.begin - kStreamHeadSize : run.begin, run.first_time))
                hints.begins.push_back(head.m_u32RecordStartPos);
        }
    }
    const RecordFileInfoHead_S& head = left.head;
    if (survey.runs.empty() || head.m_u32FileInfoHeadFlag != RECORD_FILE_FLAG) return hints;
    const uint32_t first = survey.runs.front().first_time;
    const bool same_lap = uint64_t{first} + kStartSlack >= head.m_u32RecordStartTime &&
                          first <= uint64_t{head.m_u32RecordEndTime} + kStartSlack;
    if (same_lap && survey.IsBorder(head.m_u32RecordFileSumLenth)) hints.counted = head.m_u32RecordFileSumLenth;
    return hints;
}

RebuiltFile IndexBuilder::BuildLap(const Survey& survey, const LapHints& hints, const Left& left, uint32_t number) {
    RebuiltFile file;
    file.number = number;
    const Recordings found = RecordingsOf(survey, hints);
    file.stale_after = found.stale_after;
    if (found.recordings.empty()) return file;
    const RecordsByFrame records(left.key_frames);
    FileBuilder builder(file, left.sections, records);
    const std::vector<Cover> covers = Covers(found.recordings);
    for (const Cover& cover : covers) builder.Add(survey, cover);
    if (file.sections.empty()) return file;
    file.first_time = found.recordings.front().first_time;
    RecordFileInfoHead_S& head = file.head;
    head.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
    head.m_u32FileInfoHeadNo = number;
    head.m_u32RecordStartTime = UINT32_MAX;
    for (const RecordInfoHead_S& section : file.sections) {
        head.m_u32RecordStartTime = std::min(head.m_u32RecordStartTime, section.m_u32RecordStartTime);
        head.m_u32RecordEndTime = std::max(head.m_u32RecordEndTime, section.m_u32RecordEndTime);
        head.m_u32RecordFileSumType |= section.m_u8RecordType;
    }
    head.m_u32RecordFileSumLenth = file.sections.back().m_u32RecordStartPos + file.sections.back().m_u32RecordSize;
    head.m_u32RecordSectionSum = static_cast<uint32_t>(file.sections.size());
    head.m_u32RecordKeyFrameSum = static_cast<uint32_t>(file.key_frames.size());
    file.pictures = CountPictures(survey, file.Spans());
    return file;
}

Rebuilt IndexBuilder::Build(uint32_t number, const SurveyProgress& progress) const {
    Surveyor surveyor(volume_->OpenFile(Volume::RecordFileName(number)), progress);
    surveyor.GoToEnd();
    return Build(number, surveyor.Result());
}

Rebuilt IndexBuilder::Build(uint32_t number, const Survey& survey) const {
    return BuildFrom(survey, ReadLeft(volume_->OpenFile(Volume::RecordFileName(number)), number), number);
}

Rebuilt IndexBuilder::BuildFrom(const Survey& survey, const Left& left, uint32_t number) {
    LapHints hints = Hints(survey, left);
    Rebuilt rebuilt{BuildLap(survey, hints, left, number), std::nullopt};
    if (!rebuilt.lap.stale_after) return rebuilt;
    hints.counted = UINT64_MAX;
    rebuilt.whole = BuildLap(survey, hints, left, number);
    return rebuilt;
}

void IndexBuilder::Write(const RebuiltFile& file, WriteJournal& journal) const {
    const StoreFile record = volume_->OpenFile(Volume::RecordFileName(file.number));
    for (const uint64_t offset : file.stream_heads)
        journal.Write(record, offset, record_file::kStreamHead, kStreamHeadSize);
    const size_t length = file.key_frames.size() * kRecordSize;
    const bool room = record.Reachable() >= RECORD_KEY_FRAME_BASE + length;  // not in a file that was cut
    if (length != 0 && room) journal.Write(record, RECORD_KEY_FRAME_BASE, file.key_frames.data(), length);
    record.Sync();
    if (!file.Empty()) {
        journal.Write(*index_, SectionHeadOffset(file.number, 1), file.sections.data(),
                      file.sections.size() * sizeof(RecordInfoHead_S));
    }
    journal.Write(*index_, FileHeadOffset(file.number), &file.head, sizeof file.head);
    index_->Sync();
}

uint32_t CurrentFile(const std::vector<RebuiltFile>& files, uint32_t current) {
    const uint32_t count = static_cast<uint32_t>(files.size());
    if (count == 0) return 0;
    const auto before = [count](uint32_t number) { return (number + count - 1) % count; };
    uint32_t started = 0;  // files that are neither empty nor full: only the current one may be
    uint32_t newest = count;
    for (uint32_t i = 0; i < count; ++i) {
        if (files[i].Empty()) continue;
        started += files[i].Full() ? 0 : 1;
        if (newest == count || files[i].first_time >= files[newest].first_time) newest = i;
    }
    if (newest == count) return 0;
    if (current < count) {
        const bool is_started = !files[current].Empty() && !files[current].Full();
        const bool next = started == 0 && !files[before(current)].Empty() && (count == 1 || before(current) == newest);
        const bool just_filled = started == 0 && current == newest;
        if ((is_started && started == 1) || next || just_filled) return current;
    }
    return files[newest].Full() ? (newest + 1) % count : newest;
}

RecordSystemInfoHead_S BuildSystemHead(const RecordSystemInfoHead_S& left, uint64_t card_bytes,
                                       const std::vector<RebuiltFile>& files) {
    const uint32_t count = static_cast<uint32_t>(files.size());
    const bool trusted = AV_SystemInfoHeadCheck(&left) == 0;
    RecordSystemInfoHead_S head{};
    AV_SystemInfoHeadParamInit(&head, static_cast<uint32_t>(card_bytes >> 20), count);
    if (trusted && left.m_u32SDCardSpaceSize != 0) head.m_u32SDCardSpaceSize = left.m_u32SDCardSpaceSize;
    head.m_u32RecordFileNo = CurrentFile(files, trusted ? left.m_u32RecordFileNo : UINT32_MAX);
    uint32_t full = 0;
    bool lapped = false;  // what lies after the current file is of an earlier lap
    for (uint32_t i = 0; i < count; ++i) {
        full += files[i].Full() ? 1 : 0;
        lapped = lapped || (i > head.m_u32RecordFileNo && !files[i].Empty());
    }
    lapped = lapped || full == count || (count != 0 && head.m_u32RecordFileNo + 1 == count && files.back().stale_after);
    head.m_u32RecordUsedFileSum = lapped ? count : full;
    if (trusted && left.m_u32RecordUsedFileSum <= count) {
        head.m_u32RecordUsedFileSum = std::max(head.m_u32RecordUsedFileSum, left.m_u32RecordUsedFileSum);
    }
    return head;
}

}  // namespace card
