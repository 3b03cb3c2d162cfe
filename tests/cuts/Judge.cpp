#include "Judge.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "FormatText.h"
#include "RecordFormat.h"
#include "check/StoreCheck.h"
#include "repair/Repairer.h"

namespace cuts {
namespace {

constexpr uint32_t kLapApart = 300;  // s, at least, from one lap of a file to the next

std::string Named(const Frame& frame) {
    return FormatText("frame %u:%u at %u, of %u", frame.file, frame.lap, frame.offset, frame.time);
}

}  // namespace

const RowRule& RuleOf(Row row) {
    static const RowRule rules[kRows] = {
        {"nothing", {}},
        {"stream data and heads", {}},
        {"stream data, heads written",
         {"stream-damaged", "stream-foreign", "section-begin", "section-end", "section-frames", "section-joined",
          "section-times", "key-frames", "file-length", "footage-unlisted"}},
        {"heads, stream data written", {}},
        {"key-frame records, counts written", {"key-frames"}},
        {"a key-frame record in two sectors", {"key-frames"}},
        {"section head, file head written",
         {"footage-unlisted", "file-sums", "file-length", "section-begin", "section-end", "section-frames",
          "section-times", "section-joined", "stream-damaged", "stream-foreign", "key-frames"}},
        {"file head, section head written", {"section-frames", "section-times", "file-sums"}},
        {"a file head in two sectors", {"file-sums"}},
        {"the file head at a switch to a used file",
         {"stream-damaged", "section-begin", "section-frames", "section-joined", "section-times", "key-frames",
          "file-lap", "footage-unlisted", "file-sums", "file-length", "stream-foreign"}},
        {"file full, the next one named", {}},
        {"event head", {"event-head"}},
        {"event, head written", {"event"}},
        {"an event in two sectors", {"event"}},
    };
    return rules[static_cast<size_t>(row)];
}

Judge::Judge(const Medium& medium, Recorder& recorder, const Tape& tape, std::vector<Frame> frames,
             std::set<Row> rows_before)
    : medium_(medium),
      recorder_(recorder),
      tape_(tape),
      frames_(std::move(frames)),
      rows_before_(std::move(rows_before)),
      volume_(card::Volume::Open(support::kCardDirectory)) {
    for (const Frame& frame : frames_) by_place_.insert({{frame.file, frame.offset}, &frame});
}

RecordFileInfoHead_S Judge::HeadOf(uint32_t file) const {
    return medium_.At<RecordFileInfoHead_S>(kIndex, record_file::FileHeadOffset(file));
}

RecordInfoHead_S Judge::SectionOf(uint32_t file, uint32_t number) const {
    return medium_.At<RecordInfoHead_S>(kIndex, record_file::SectionHeadOffset(file, number));
}

bool Judge::IsIntact(const Frame& frame) const {
    return medium_.Bytes(kRecord + static_cast<int>(frame.file), frame.offset, frame.bytes.size()) == frame.bytes;
}

Verdict Judge::Of(const Cut& cut) {
    Verdict verdict;
    const Listing listing = ReadCard(medium_);
    if (!listing.is_card) verdict.Blame("no recording card any more");
    JudgeRecords(cut, listing, verdict);
    JudgeFrames(cut, listing, verdict);
    JudgeListed(cut, listing, verdict);
    JudgeStart(cut, verdict);
    JudgeCheck(verdict);
    if (verdict.rows.empty()) verdict.rows.insert(Row::kNothing);
    return verdict;
}

// What was recorded: all that a hand-over has put onto the card is found and whole, and each other loss has a name.
void Judge::JudgeFrames(const Cut& cut, const Listing& listing, Verdict& verdict) const {
    for (const Frame& frame : frames_) {
        if (!frame.promised || !frame.IsThere(cut.at)) continue;
        const bool is_listed = listing.LengthAt(frame.file, frame.offset) == frame.bytes.size();
        const bool is_intact = IsIntact(frame);
        if (is_listed && is_intact) continue;
        const bool is_claimed = frame.End() <= listing.claimed[frame.file];
        ++verdict.lost;
        verdict.claimed += is_claimed && !is_intact ? 1 : 0;
        if (frame.handed_over <= cut.at)
            verdict.Blame(Named(frame) + " was handed over and is " + (is_intact ? "not listed" : "damaged"));
        verdict.rows.insert(is_intact ? WhyNotListed(frame) : is_claimed ? Row::kStream : Row::kBoth);
    }
}

// Of a frame that is on the card.
Row Judge::WhyNotListed(const Frame& frame) const {
    const auto head = HeadOf(frame.file);
    if (frame.End() > head.m_u32RecordFileSumLenth) return Row::kHeads;
    for (uint32_t u = 1; u <= std::min(head.m_u32RecordSectionSum, RECORD_SECTION_MAX); ++u) {
        const auto section = SectionOf(frame.file, u);
        const bool holds = section.m_u32RecordStartPos <= frame.offset &&
                           frame.End() <= uint64_t{section.m_u32RecordStartPos} + section.m_u32RecordSize;
        if (holds && section.m_u32RecordStartTime >= head.m_u32RecordStartTime)
            return Row::kStream;  // that is in front of it
    }
    return Row::kSectionBehind;
}

// What is found: nothing but what was recorded.  Of a frame whose last packets are lost the first ones are.
void Judge::JudgeListed(const Cut& cut, const Listing& listing, Verdict& verdict) const {
    for (const Listed& each : listing.frames) {
        const auto [begin, end] = by_place_.equal_range({each.file, each.offset});
        const bool was_written = std::any_of(begin, end, [&](const auto& placed) {
            return placed.second->bytes.size() >= each.length && placed.second->written <= cut.at;
        });
        if (!was_written)
            verdict.Blame(FormatText("file %u lists %u bytes at %u, where no frame was written", each.file, each.length,
                                     each.offset));
    }
    for (uint32_t file = 0; file < listing.claimed.size(); ++file) {
        uint32_t end = 0;
        for (const Frame& frame : frames_) {
            if (frame.file == file && frame.written <= cut.at) end = std::max(end, frame.End());
        }
        if (listing.claimed[file] > end)
            verdict.Blame(
                FormatText("file %u claims %u bytes of %u that were written", file, listing.claimed[file], end));
    }
}

Judge::State Judge::StateOf(int file, uint64_t offset, const History& record, size_t at) const {
    const auto is_there = [&](const History::Version& version) {
        return medium_.Bytes(file, offset, version.bytes.size()) == version.bytes;
    };
    const auto newest = record.versions.begin() + static_cast<ptrdiff_t>(record.Newest(at));
    if (newest == record.versions.begin() || is_there(*newest)) return State::kNew;
    return std::any_of(record.versions.begin(), newest, is_there) ? State::kOld : State::kTorn;
}

// Of a new lap whose file still has the head of the one before.
bool Judge::HasOldHead(const Frame& frame, const Cut& cut) const {
    const auto head = HeadOf(frame.file);
    return frame.lap > 1 && frame.IsThere(cut.at) && head.m_u32FileInfoHeadFlag != 0 &&
           head.m_u32RecordStartTime + kLapApart < frame.time;
}

void Judge::JudgeRecords(const Cut& cut, const Listing& listing, Verdict& verdict) const {
    const auto length_of = [&](uint64_t n) { return HeadOf(static_cast<uint32_t>(n)).m_u32RecordFileSumLenth; };
    for (const auto& [place, record] : tape_.Records()) {
        const auto& [id, offset] = place;
        const State state = StateOf(id, offset, record, cut.at);
        if (state == State::kNew) continue;
        if (id == kEvents) {
            const bool is_head = offset < ALARM_EVENT_BLOCK;
            verdict.rows.insert(is_head ? Row::kEventHead : state == State::kTorn ? Row::kEventTorn : Row::kEvent);
        } else if (id >= kRecord) {
            const uint64_t number = (offset - RECORD_KEY_FRAME_BASE) / sizeof(KeyFrameInfoHead_S);
            if (number < HeadOf(static_cast<uint32_t>(id - kRecord)).m_u32RecordKeyFrameSum)
                verdict.rows.insert(state == State::kTorn ? Row::kKeyRecordTorn : Row::kKeyRecord);
        } else if (offset >= RECORD_FILE_HEAD_BASE && offset < RECORD_SECTION_BASE) {
            if (state == State::kTorn) verdict.rows.insert(Row::kFileTorn);
        } else if (offset >= RECORD_SECTION_BASE) {
            const uint64_t file = (offset - RECORD_SECTION_BASE) / RECORD_SECTION_BLOCK;
            const auto section = medium_.At<RecordInfoHead_S>(kIndex, offset);
            const bool is_short = uint64_t{section.m_u32RecordStartPos} + section.m_u32RecordSize < length_of(file);
            const bool is_another = std::memcmp(&section, record.versions[record.Newest(cut.at)].bytes.data(), 8) != 0;
            const bool is_full = length_of(file) >= RECORD_STREAM_LIMIT;  // then lengths stand still, and counts do not
            if (is_short || is_another || is_full) verdict.rows.insert(Row::kSectionBehind);
        }
    }
    for (const Frame& frame : frames_) {
        if (HasOldHead(frame, cut)) verdict.rows.insert(Row::kFileAtSwitch);
    }
    for (uint32_t file = 0; file < medium_.RecordFiles(); ++file) {
        if (listing.claimed[file] > length_of(file)) verdict.rows.insert(Row::kSectionAhead);
        const auto events = medium_.At<AlarmEventHead_S>(kEvents, record_file::EventHeadOffset(file));
        if (events.m_u32AlarmEventSum == 0) continue;
        const auto last =
            medium_.At<AlarmFileInfoHead_S>(kEvents, record_file::EventOffset(file, events.m_u32AlarmEventSum));
        if (last.m_u16AlarmFileUseNo != events.m_u32AlarmEventSum) verdict.rows.insert(Row::kEvent);
    }
    const uint32_t count = medium_.RecordFiles();
    const uint32_t before = (listing.current + count - 1) % count;
    const uint32_t filled = length_of(before);
    if (filled != 0 && filled < RECORD_STREAM_LIMIT) verdict.rows.insert(Row::kNextNamed);
}

// Where the next run would write: behind all that was handed over, or over the oldest file of a full ring.
void Judge::JudgeStart(const Cut& cut, Verdict& verdict) const {
    const Recorder::Start start = recorder_.CheckStart();
    if (start.refused) verdict.Blame("the start check refuses the card");
    if (start.refused) return;
    std::vector<const Frame*> kept;  // of one lap of each file: none that a later one has begun to overwrite
    std::set<uint32_t> files;
    for (const Frame& frame : frames_) {
        if (frame.handed_over > cut.at || !frame.IsThere(cut.at)) continue;
        kept.push_back(&frame);
        files.insert(frame.file);
    }
    if (start.offset == 0 && files.size() == medium_.RecordFiles() && kept.front()->file == start.file) return;
    for (const Frame* frame : kept) {
        if (frame->file == start.file && frame->End() > start.offset)
            verdict.Blame(Named(*frame) + FormatText(" will be written over: the next run begins at %u of file %u",
                                                     start.offset, start.file));
    }
}

void Judge::JudgeCheck(Verdict& verdict) const {
    for (const card::Finding& finding : card::CheckStore(volume_)) {
        if (finding.level == card::Finding::Level::Error) verdict.errors.insert(finding.kind);
    }
    for (const std::string& error : verdict.errors) {
        const auto names = [&](Row row) { return RuleOf(row).errors.count(error) != 0; };
        const bool is_named = std::any_of(verdict.rows.begin(), verdict.rows.end(), names) ||
                              std::any_of(rows_before_.begin(), rows_before_.end(), names);
        if (!is_named) verdict.Blame("the checker's error \"" + error + "\" has no row");
    }
}

std::string Judge::AfterRepair(const Cut& cut) const {
    const Kept kept(medium_);
    card::RepairLog log;
    card::RepairStore(card::Volume::Open(support::kCardDirectory, card::Access::ReadWrite), log);
    for (const card::Finding& finding : card::CheckStore(volume_)) {
        const bool is_gone = finding.mend == card::Finding::Mend::Nothing;  // what was there: no repair brings it back
        // Few new frames in the midst of an earlier lap: a repair keeps what it would lose more of, the earlier lap.
        const bool is_kept = std::any_of(frames_.begin(), frames_.end(), [&](const Frame& frame) {
            return frame.file == finding.file && HasOldHead(frame, cut);
        });
        if (finding.level == card::Finding::Level::Error && !is_gone && !is_kept)
            return "after repair: " + finding.kind + ", " + finding.what;
    }
    const Listing listing = ReadCard(medium_);
    Verdict verdict;
    JudgeListed(cut, listing, verdict);
    if (!verdict.fault.empty()) return "after repair: " + verdict.fault;
    // Asked for: each whole picture from its run's first whole key frame on, and the sound that follows a whole frame.
    const Frame* before = nullptr;
    bool has_begun = false;  // the run
    bool is_whole = false;   // the frame before
    for (const Frame& frame : frames_) {
        if (!frame.promised || !frame.IsThere(cut.at) || HasOldHead(frame, cut)) continue;
        const bool goes_on = before != nullptr && before->file == frame.file && before->lap == frame.lap &&
                             before->End() == frame.offset;
        has_begun = (goes_on && has_begun) || (IsIntact(frame) && frame.IsKey());
        is_whole = IsIntact(frame) && (!frame.IsSound() || (goes_on && is_whole));
        before = &frame;
        if (has_begun && is_whole && listing.LengthAt(frame.file, frame.offset) == 0)
            return "after repair: " + Named(frame) + " is on the card and not listed";
    }
    return "";
}

std::vector<Frame> Judge::Carried(const Cut& cut) const {
    const Listing listing = ReadCard(medium_);
    std::vector<Frame> carried;
    for (const Frame& frame : frames_) {
        if (frame.written > cut.at) continue;
        const auto head = HeadOf(frame.file);
        Frame left = frame;
        left.overwritten = frame.overwritten <= cut.at ? 0 : Frame::kNever;
        left.promised = frame.promised && frame.IsThere(cut.at) && IsIntact(frame) &&
                        frame.End() <= head.m_u32RecordFileSumLenth && frame.time <= head.m_u32RecordEndTime &&
                        listing.LengthAt(frame.file, frame.offset) == frame.bytes.size();
        left.written = left.counted = 0;
        left.handed_over = left.promised ? 0 : Frame::kNever;
        carried.push_back(left);
    }
    return carried;
}

void Judge::Describe(const Cut& cut) const {
    std::printf("cut after operation %zu of %zu\n", cut.at, tape_.Operations());
    for (size_t i = 0; i < cut.pages.size(); ++i) {
        const PageHistory& page = tape_.Pages()[i];
        const Choice& choice = cut.pages[i];
        if (page.Newest(cut.at) == 0) continue;
        std::printf("  file %d page %u: version %zu of %zu to %zu", page.file, page.number, choice.version,
                    page.Oldest(cut.at), page.Newest(cut.at));
        if (choice.other_sectors != 0) std::printf(", sectors %02x of version %zu", choice.other_sectors, choice.other);
        std::printf("\n");
    }
    for (const auto& [place, record] : tape_.Records()) {
        const auto& [file, offset] = place;
        const State state = StateOf(file, offset, record, cut.at);
        if (state != State::kNew)
            std::printf("  record at %ju of file %d: %s\n", uintmax_t{offset}, file,
                        state == State::kOld ? "old" : "torn");
    }
    for (const card::Finding& finding : card::CheckStore(volume_))
        std::printf("  %s %s: %s\n", finding.level == card::Finding::Level::Error ? "error" : "remark",
                    finding.kind.c_str(), finding.what.c_str());
}

}  // namespace cuts
