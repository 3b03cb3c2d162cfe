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
using record_file::kClockPerFrame;
using record_file::kKeyFramesMax;
using record_file::kStreamHeadSize;
using record_file::SectionHeadOffset;

constexpr uint32_t kRecordSize = sizeof(KeyFrameInfoHead_S);
constexpr uint32_t kStartSlack = 60;  // s a section may begin in front of its first key frame
constexpr uint32_t kEndSlack = 2;     // s its last sound may lie behind its last picture

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

const RecordInfoHead_S* HeadAt(const std::vector<RecordInfoHead_S>& heads, uint64_t start, const StreamRun& run) {
    for (const RecordInfoHead_S& head : heads) {
        const bool agrees = head.m_u32RecordStartPos == start && head.m_u32RecordStartTime <= run.first_time &&
                            uint64_t{head.m_u32RecordStartTime} + kStartSlack >= run.first_time;
        if (agrees) return &head;
    }
    return nullptr;
}

// One section after the other, from the file's runs.
class FileBuilder {
  public:
    FileBuilder(RebuiltFile& file, const std::vector<RecordInfoHead_S>& heads, const RecordsByFrame& records)
        : file_(file), heads_(heads), records_(records) {}

    void Add(const StreamRun& run) {
        const RecordInfoHead_S* left = HeadAt(heads_, StartOf(run), run);
        // More runs than sections can be counted: the last section takes the rest.
        const bool new_section = file_.sections.size() < RECORD_SECTION_MAX;
        if (new_section) {
            if (!file_.sections.empty()) CloseUp(file_.sections.back(), StartOf(run));
            file_.sections.push_back(NewSection(run, left));
            if (HeadFits(run)) file_.stream_heads.push_back(StartOf(run));
        }
        RecordInfoHead_S& section = file_.sections.back();
        for (const SurveyedFrame& frame : run.frames) {
            if (!frame.video) continue;
            ++section.m_u32FrameSum;
            Index(section, run, frame, new_section);
        }
        section.m_u32RecordSize = static_cast<uint32_t>(run.end - section.m_u32RecordStartPos);
        section.m_u32RecordEndTime = std::max(EndOf(run, left), section.m_u32RecordStartTime);
        end_ = std::max(end_, run.end);
    }

    uint64_t End() const { return end_; }

  private:
    RecordInfoHead_S NewSection(const StreamRun& run, const RecordInfoHead_S* left) const {
        RecordInfoHead_S head{};
        head.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
        head.m_u16RecordFileNo = static_cast<uint16_t>(file_.number);
        head.m_u16RecordUseNo = static_cast<uint16_t>(file_.sections.size() + 1);
        head.m_u32RecordStartPos = static_cast<uint32_t>(StartOf(run));
        head.m_u32StartKeyFramePos = static_cast<uint32_t>(file_.key_frames.size()) * kRecordSize;
        head.m_u32RecordStartTime = left != nullptr ? left->m_u32RecordStartTime : StartTime(run);
        head.m_u8RecordType = left != nullptr ? left->m_u8RecordType : RECORD_TYPE_SCHEDULE;
        head.m_u8SmartEnable = left != nullptr ? left->m_u8SmartEnable : 0;
        if (run.parameters) {
            head.m_u16Width = run.parameters->width;
            head.m_u16Height = run.parameters->height;
            head.m_u8Frame = run.parameters->frame_rate;
            head.m_u8VideoType = VideoCode(run.parameters->video_type);
            head.m_u8AudioType = AudioCode(run.parameters->audio_type);
        }
        return head;
    }

    // Sections lie without a gap: what is damaged behind a section's last frame may still hold sound.
    static void CloseUp(RecordInfoHead_S& section, uint64_t next) {
        section.m_u32RecordSize = static_cast<uint32_t>(next - section.m_u32RecordStartPos);
    }

    // The bytes in front of a first frame, when nothing else can stand there, are its lost stream head.
    bool HeadFits(const StreamRun& run) const {
        return !run.headed && run.BeginsWithKey() && run.first_clock == kClockPerFrame &&
               run.begin >= end_ + kStreamHeadSize;
    }
    uint64_t StartOf(const StreamRun& run) const { return HeadFits(run) ? run.begin - kStreamHeadSize : run.begin; }

    // A section's first record keeps its start, which may lie before its first frame.
    uint32_t StartTime(const StreamRun& run) const {
        if (!run.BeginsWithKey()) return run.first_time;
        const SurveyedFrame& first = run.frames.front();
        const KeyFrameInfoHead_S* record =
            records_.Find(0, static_cast<uint32_t>(first.End() - StartOf(run)),
                          run.first_time > kStartSlack ? run.first_time - kStartSlack : 0, run.first_time);
        return record != nullptr ? record->m_u32KeyFrameTime : run.first_time;
    }

    static uint32_t EndOf(const StreamRun& run, const RecordInfoHead_S* left) {
        const bool whole = left != nullptr && uint64_t{left->m_u32RecordStartPos} + left->m_u32RecordSize == run.end;
        const bool near =
            whole && left->m_u32RecordEndTime >= run.last_time && left->m_u32RecordEndTime <= run.last_time + kEndSlack;
        return near ? left->m_u32RecordEndTime : run.last_time;
    }

    void Index(RecordInfoHead_S& section, const StreamRun& run, const SurveyedFrame& frame, bool may_be_first) {
        const bool first = may_be_first && &frame == &run.frames.front();
        const uint64_t begin = first ? section.m_u32RecordStartPos : frame.offset;
        KeyFrameInfoHead_S made{};
        made.m_u32KeyFrameHeadFlag = RECORD_KEY_FRAME_FLAG;
        made.m_u32KeyFrameTime = first ? section.m_u32RecordStartTime : frame.time;
        made.m_u32KeyFrameLenth = static_cast<uint32_t>(frame.End() - begin);
        made.m_u32KeyFilePos = static_cast<uint32_t>(begin - section.m_u32RecordStartPos);
        made.m_u8KeyFrameType = RECORD_KEY_FRAME_REAL;
        const KeyFrameInfoHead_S* record = records_.Find(made.m_u32KeyFilePos, made.m_u32KeyFrameLenth,
                                                         made.m_u32KeyFrameTime, made.m_u32KeyFrameTime);
        const bool is_virtual = record != nullptr && record->m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL;
        if (is_virtual) made.m_u8KeyFrameType = RECORD_KEY_FRAME_VIRTUAL;
        if ((!frame.key && !is_virtual) || file_.key_frames.size() >= kKeyFramesMax) return;
        file_.key_frames.push_back(made);
        ++section.m_u32KeyFrameSum;
    }

    RebuiltFile& file_;
    const std::vector<RecordInfoHead_S>& heads_;
    const RecordsByFrame& records_;
    uint64_t end_ = 0;
};

// Writes `length` bytes unless they stand there already.
void WriteWhereDifferent(const StoreFile& file, uint64_t offset, const void* bytes, size_t length) {
    std::vector<uint8_t> present(length);
    const size_t got = file.ReadAt(offset, present.data(), length);
    if (got != length || std::memcmp(present.data(), bytes, length) != 0) file.WriteAt(offset, bytes, length);
}

}  // namespace

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

// Up to where the file head counts, if what it says agrees with the stream; else by the times alone.
size_t IndexBuilder::TrustedRuns(const Survey& survey, const Left& left) {
    const size_t by_time = PresentRuns(survey);
    const RecordFileInfoHead_S& head = left.head;
    if (survey.runs.empty() || head.m_u32FileInfoHeadFlag != RECORD_FILE_FLAG) return by_time;
    const uint32_t first = survey.runs.front().first_time;
    const bool same_lap = uint64_t{first} + kStartSlack >= head.m_u32RecordStartTime &&
                          first <= uint64_t{head.m_u32RecordEndTime} + kStartSlack;
    if (!same_lap || !survey.IsBorder(head.m_u32RecordFileSumLenth)) return by_time;
    const auto behind = std::find_if(survey.runs.begin(), survey.runs.end(),
                                     [&](const StreamRun& run) { return run.begin >= head.m_u32RecordFileSumLenth; });
    return std::max(by_time, static_cast<size_t>(behind - survey.runs.begin()));
}

RebuiltFile IndexBuilder::BuildRuns(const Survey& survey, size_t runs, const Left& left, uint32_t number) {
    RebuiltFile file;
    file.number = number;
    file.stale_behind = runs < survey.runs.size();
    if (runs == 0) return file;
    const RecordsByFrame records(left.key_frames);
    FileBuilder builder(file, left.sections, records);
    for (size_t i = 0; i < runs; ++i) builder.Add(survey.runs[i]);
    file.first_time = survey.runs.front().first_time;
    RecordFileInfoHead_S& head = file.head;
    head.m_u32FileInfoHeadFlag = RECORD_FILE_FLAG;
    head.m_u32FileInfoHeadNo = number;
    head.m_u32RecordStartTime = UINT32_MAX;
    for (const RecordInfoHead_S& section : file.sections) {
        head.m_u32RecordStartTime = std::min(head.m_u32RecordStartTime, section.m_u32RecordStartTime);
        head.m_u32RecordEndTime = std::max(head.m_u32RecordEndTime, section.m_u32RecordEndTime);
        head.m_u32RecordFileSumType |= section.m_u8RecordType;
    }
    head.m_u32RecordFileSumLenth = static_cast<uint32_t>(builder.End());
    head.m_u32RecordSectionSum = static_cast<uint32_t>(file.sections.size());
    head.m_u32RecordKeyFrameSum = static_cast<uint32_t>(file.key_frames.size());
    return file;
}

Rebuilt IndexBuilder::Build(uint32_t number, const SurveyProgress& progress) const {
    const StoreFile record = volume_->OpenFile(Volume::RecordFileName(number));
    const Survey survey = SurveyStream(record, 0, kSurveyLimit, true, progress);
    return BuildFrom(survey, ReadLeft(record, number), number);
}

Rebuilt IndexBuilder::BuildFrom(const Survey& survey, const Left& left, uint32_t number) {
    const size_t runs = TrustedRuns(survey, left);
    Rebuilt rebuilt{BuildRuns(survey, runs, left, number), std::nullopt};
    if (runs < survey.runs.size()) rebuilt.whole = BuildRuns(survey, survey.runs.size(), left, number);
    return rebuilt;
}

void IndexBuilder::Write(const RebuiltFile& file) const {
    const StoreFile record = volume_->OpenFile(Volume::RecordFileName(file.number));
    for (const uint64_t offset : file.stream_heads) record.WriteAt(offset, record_file::kStreamHead, kStreamHeadSize);
    const size_t length = file.key_frames.size() * kRecordSize;
    const bool room = record.Reachable() >= RECORD_KEY_FRAME_BASE + length;  // not in a file that was cut
    if (length != 0 && room) WriteWhereDifferent(record, RECORD_KEY_FRAME_BASE, file.key_frames.data(), length);
    record.Sync();
    if (!file.Empty()) {
        WriteWhereDifferent(*index_, SectionHeadOffset(file.number, 1), file.sections.data(),
                            file.sections.size() * sizeof(RecordInfoHead_S));
    }
    WriteWhereDifferent(*index_, FileHeadOffset(file.number), &file.head, sizeof file.head);
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
    bool lapped = false;  // what lies behind the current file is of an earlier lap
    for (uint32_t i = 0; i < count; ++i) {
        full += files[i].Full() ? 1 : 0;
        lapped = lapped || (i > head.m_u32RecordFileNo && !files[i].Empty());
    }
    lapped =
        lapped || full == count || (count != 0 && head.m_u32RecordFileNo + 1 == count && files.back().stale_behind);
    head.m_u32RecordUsedFileSum = lapped ? count : full;
    if (trusted && left.m_u32RecordUsedFileSum <= count) {
        head.m_u32RecordUsedFileSum = std::max(head.m_u32RecordUsedFileSum, left.m_u32RecordUsedFileSum);
    }
    return head;
}

}  // namespace card
