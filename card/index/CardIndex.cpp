#include "index/CardIndex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "index/SectionTimes.h"
#include "text/Error.h"

namespace card {

namespace {

using record_file::kAheadKeyFramesMax;
using record_file::kAheadMax;
using record_file::kKeyFramesMax;
using record_file::kPackedFrameMax;

constexpr uint32_t kEventTolerance = 60;  // s an event may lie outside its file: pre-record, clock set
constexpr uint32_t kRateSeconds = 600;    // of video the present bit rate is taken from

template <typename Record>
bool AllZero(const Record& record) {
    const Record zero{};
    return std::memcmp(&record, &zero, sizeof record) == 0;
}

FileState::Fault FileFault(const RecordFileInfoHead_S& head, uint32_t number) {
    using Fault = FileState::Fault;
    if (head.m_u32FileInfoHeadFlag != RECORD_FILE_FLAG) return Fault::NotFlagged;
    if (head.m_u32FileInfoHeadNo != number) return Fault::WrongNumber;
    const bool counts = head.m_u32RecordFileSumLenth <= RECORD_KEY_FRAME_BASE && head.m_u32RecordSectionSum >= 1 &&
                        head.m_u32RecordSectionSum <= RECORD_SECTION_MAX &&
                        head.m_u32RecordKeyFrameSum <= kKeyFramesMax;
    return counts ? Fault::None : Fault::BadCounts;
}

// Takes off what a section head is ahead of its file head; false when that is more than a power cut explains.
bool CutToFile(Section& section, const FileState& file) {
    RecordInfoHead_S& head = section.head;
    if (head.m_u32RecordStartPos > file.Length()) return false;
    const uint32_t room = file.Length() - head.m_u32RecordStartPos;
    if (head.m_u32RecordSize > room) {
        section.cut_bytes = head.m_u32RecordSize - room;
        head.m_u32RecordSize = room;
    }
    return section.cut_bytes <= kAheadMax;
}

bool CutKeyFrames(Section& section, const FileState& file) {
    RecordInfoHead_S& head = section.head;
    constexpr uint32_t kRecord = sizeof(KeyFrameInfoHead_S);
    const uint32_t first = head.m_u32StartKeyFramePos / kRecord;
    if (head.m_u32StartKeyFramePos % kRecord != 0) return false;
    if (first > file.head.m_u32RecordKeyFrameSum) return false;
    const uint32_t room = file.head.m_u32RecordKeyFrameSum - first;
    if (head.m_u32KeyFrameSum > room) {
        section.cut_key_frames = head.m_u32KeyFrameSum - room;
        head.m_u32KeyFrameSum = room;
    }
    return section.cut_key_frames <= kAheadKeyFramesMax;
}

// `earliest`: the start of the file's lap.
Section::Fault SectionFault(Section& section, const FileState& file, uint32_t earliest) {
    using Fault = Section::Fault;
    const RecordInfoHead_S& head = section.head;
    if (head.m_u32RecordInfoHeadFlag != RECORD_SECTION_FLAG) return Fault::NotFlagged;
    if (head.m_u16RecordFileNo != static_cast<uint16_t>(section.file) || head.m_u16RecordUseNo != section.number) {
        return Fault::WrongPlace;
    }
    if (!CutToFile(section, file)) return Fault::OutsideFile;
    if (head.m_u32RecordStartTime < earliest) return Fault::EarlierLap;
    if (!CutKeyFrames(section, file)) return Fault::BadKeyFrames;
    return Fault::None;
}

// A section begins where its predecessor ends, or on the frames that its predecessor's file head missed.
// Then its own end agrees with `next_begin`, where the following section or the free space begins; if not, its
// place is wrong and costs the predecessor nothing.
void SettleOverlap(Section* previous, Section& section, uint64_t next_begin) {
    if (previous == nullptr || section.Begin() >= previous->Limit()) return;
    const uint64_t overlap = previous->Limit() - section.Begin();
    const bool agrees = section.Limit() >= next_begin && section.Limit() - next_begin <= kPackedFrameMax;
    if (!agrees || section.Begin() < previous->Begin() || previous->cut_bytes + overlap > kAheadMax) {
        section.fault = Section::Fault::EarlierLap;
        return;
    }
    previous->cut_bytes += static_cast<uint32_t>(overlap);
    previous->head.m_u32RecordSize -= static_cast<uint32_t>(overlap);
}

bool EventFits(const Event& event, const FileState& file) {
    const AlarmFileInfoHead_S& record = event.record;
    return record.m_u32AlarmEventFlag == ALARM_RECORD_FLAG &&
           record.m_u16AlarmFileNo == static_cast<uint16_t>(event.file) && record.m_u16AlarmFileUseNo == event.slot &&
           uint64_t{event.Start()} + kEventTolerance >= file.first &&
           event.Start() <= uint64_t{file.last} + kEventTolerance;
}

}  // namespace

uint32_t Section::Wait() const {
    const uint32_t asked = head.m_u32RecordStartTime;
    return asked < first && first - asked <= 3600 ? first - asked : 0;
}

uint32_t Event::End() const {
    return Open() ? Start() : std::max(record.m_u32AlarmEndTime, Start());
}

std::string LostFile::Text() const {
    return name + (Missing() ? " is missing" : " cannot be read (" + why + ")");
}

CardIndex::CardIndex(const Volume& volume) : volume_(&volume) {
    if (!volume.Has(RECORD_INDEX_NAME)) {
        throw CardError(volume.Path() + " has no " + RECORD_INDEX_NAME +
                        ": no recording card, or its directory is damaged (\"recordcard repair\" can help)");
    }
    const StoreFile index = volume.OpenFile(RECORD_INDEX_NAME);
    const auto system = index.Get<RecordSystemInfoHead_S>(0);
    for (const UnreadPart& unread : volume.Unread()) {
        if (unread.file == RECORD_INDEX_NAME)
            throw CardError(volume.Path() +
                            ": " RECORD_INDEX_NAME " cannot be read, and nothing is found without it (" + unread.why +
                            ")");
    }
    if (!system || AV_SystemInfoHeadCheck(&*system) != 0) {
        throw CardError(volume.Path() + ": " + RECORD_INDEX_NAME +
                        " does not begin with the head of a recording card. If it held recordings, "
                        "\"recordcard repair\" can find them again; a new card needs \"recordcard format\".");
    }
    system_ = *system;
    ReadFiles(index);
    OrderRing();
    ReadSections(index);
    ReadEvents();
}

void CardIndex::ReadFiles(const StoreFile& index) {
    const uint64_t blocks =
        index.Reachable() > RECORD_SECTION_BASE ? (index.Reachable() - RECORD_SECTION_BASE) / RECORD_SECTION_BLOCK : 0;
    files_.resize(
        static_cast<size_t>(std::min({uint64_t{system_.m_u32RecordFileSum}, uint64_t{RECORD_FILE_MAX}, blocks})));
    // A count that its own check word contradicts is believed only as far as there are files.
    const bool contradicts = system_.m_u32RecordSpaceSize != system_.m_u32RecordFileSum << RECORD_FILE_SIZE_SHIFT;
    while (contradicts && !files_.empty() &&
           !volume_->Has(Volume::RecordFileName(static_cast<uint32_t>(files_.size() - 1)))) {
        files_.pop_back();
    }
    for (uint32_t number = 0; number < files_.size(); ++number) {
        FileState& file = files_[number];
        file.number = number;
        const auto head = index.Get<RecordFileInfoHead_S>(record_file::FileHeadOffset(number));
        if (head) file.head = *head;
        file.empty = AllZero(file.head);
        if (!file.empty) file.fault = FileFault(file.head, number);
    }
}

// The ring ends with the file being written.  A full one in that place is either just filled (the newest) or
// the next to be overwritten (the oldest): its predecessor's time tells.
void CardIndex::OrderRing() {
    const uint32_t count = FileCount();
    if (count == 0) return;
    const uint32_t current = std::min(system_.m_u32RecordFileNo, count - 1);
    const FileState& written = files_[current];
    const FileState& before = files_[(current + count - 1) % count];
    const bool oldest =
        written.Full() && before.Usable() && written.head.m_u32RecordStartTime < before.head.m_u32RecordStartTime;
    const uint32_t first = oldest ? current : (current + 1) % count;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t number = (first + i) % count;
        if (files_[number].Usable()) ring_.push_back(number);
    }
}

void CardIndex::ReadSections(const StoreFile& index) {
    for (const uint32_t number : ring_) {
        FileState& file = files_[number];
        std::array<RecordInfoHead_S, RECORD_SECTION_MAX> heads{};
        index.ReadAt(record_file::SectionHeadOffset(number, 1), heads.data(),
                     file.head.m_u32RecordSectionSum * sizeof(RecordInfoHead_S));
        // A start of the file that no section reaches is damaged itself.
        uint32_t earliest = file.head.m_u32RecordStartTime;
        const bool any =
            std::any_of(heads.begin(), heads.begin() + file.head.m_u32RecordSectionSum,
                        [earliest](const RecordInfoHead_S& h) { return h.m_u32RecordStartTime >= earliest; });
        if (!any) earliest = 0;
        std::vector<Section> sections(file.head.m_u32RecordSectionSum);
        Section* previous = nullptr;  // usable
        for (uint32_t i = 0; i < sections.size(); ++i) {
            Section& section = sections[i];
            section.file = number;
            section.number = i + 1;
            section.head = heads[i];
            section.fault = SectionFault(section, file, earliest);
            const bool last = i + 1 == sections.size();
            if (section.Usable())
                SettleOverlap(previous, section, last ? file.Length() : heads[i + 1].m_u32RecordStartPos);
            if (section.Usable()) previous = &section;
        }
        TimeSections(sections, file);
        all_sections_.insert(all_sections_.end(), sections.begin(), sections.end());
    }
    std::copy_if(all_sections_.begin(), all_sections_.end(), std::back_inserter(sections_),
                 [](const Section& section) { return section.Usable() && section.head.m_u32RecordSize != 0; });
}

void CardIndex::TimeSections(std::vector<Section>& sections, FileState& file) {
    LostFile lost{.name = Volume::RecordFileName(file.number)};
    try {
        if (volume_->Has(lost.name)) return ReadTimes(volume_->OpenFile(lost.name), sections, file);
    } catch (const CardGone&) {
        throw;
    } catch (const CardError& error) {
        lost.why = error.what();
    }
    file.lost = true;
    file.first = lost.from = file.head.m_u32RecordStartTime;
    file.last = lost.to = std::max(lost.from, file.head.m_u32RecordEndTime);
    for (Section& section : sections) {
        if (!section.Usable() || section.head.m_u32RecordSize == 0) continue;
        section.fault = Section::Fault::FileLost;
        ++lost.sections;
        lost.bytes += section.head.m_u32RecordSize;
    }
    if (lost.sections != 0 || !lost.Missing()) lost_.push_back(std::move(lost));
}

void CardIndex::ReadTimes(const StoreFile& record, std::vector<Section>& sections, FileState& file) const {
    file.first = file.head.m_u32RecordStartTime;
    file.last = file.head.m_u32RecordEndTime;
    std::optional<uint32_t> next;
    bool first = true;
    for (auto section = sections.rbegin(); section != sections.rend(); ++section) {
        if (!section->Usable() || section->head.m_u32RecordSize == 0) continue;
        ReadPictureTimes(record, *section, next, file.head.m_u32RecordEndTime);
        // After a clock that was set back a later section begins before an earlier one's end.
        next = next && *next < section->first ? std::nullopt : std::optional(section->first);
        file.first = first ? section->first : std::min(file.first, section->first);
        file.last = first ? section->last : std::max(file.last, section->last);
        first = false;
    }
}

void CardIndex::ReadEvents() {
    LostFile lost{.name = RECORD_EVENT_NAME};
    bool read = false;
    try {
        if (volume_->Has(RECORD_EVENT_NAME)) {
            const StoreFile file = volume_->OpenFile(RECORD_EVENT_NAME);
            for (const uint32_t number : ring_) {
                if (number < ALARM_EVENT_FILE_MAX) ReadEventsOf(file, number);
            }
            read = true;
        }
    } catch (const CardGone&) {
        throw;
    } catch (const CardError& error) {
        lost.why = error.what();
    }
    if (!read) lost_.push_back(std::move(lost));
    std::copy_if(all_events_.begin(), all_events_.end(), std::back_inserter(events_),
                 [](const Event& event) { return event.fits; });
    std::stable_sort(events_.begin(), events_.end(),
                     [](const Event& a, const Event& b) { return a.Start() < b.Start(); });
    for (size_t i = 0; i < events_.size(); ++i) events_[i].number = static_cast<uint32_t>(i + 1);
}

// Those that the head counts, and after them those that fit all the same: a head can be lost.
void CardIndex::ReadEventsOf(const StoreFile& events, uint32_t file) {
    const FileState& state = files_[file];
    const auto head = events.Get<AlarmEventHead_S>(record_file::EventHeadOffset(file));
    const bool good = head && head->m_u32AlarmEventFlag == ALARM_EVENT_FLAG && head->m_u32AlarmFileNo == file;
    const uint32_t count = good ? std::min(head->m_u32AlarmEventSum, ALARM_EVENT_MAX) : 0;
    for (uint32_t slot = 1; slot <= ALARM_EVENT_MAX; ++slot) {
        const auto record = events.Get<AlarmFileInfoHead_S>(record_file::EventOffset(file, slot));
        if (!record) break;
        Event event{.file = file, .slot = slot, .record = *record, .counted = slot <= count};
        event.fits = EventFits(event, state);
        if (!event.fits && !event.counted) break;
        event.limit = state.last;
        for (const Section& section : all_sections_) {
            const bool holds = section.file == file && section.Usable() && section.Start() <= event.Start() &&
                               event.Start() <= section.End();
            if (holds) event.limit = section.End();
        }
        const uint32_t end = record->m_u32AlarmEndTime;
        event.bad_end = end != 0 && (uint64_t{end} + kEventTolerance < event.Start() ||
                                     end > uint64_t{std::max(state.last, event.Start())} + kEventTolerance);
        all_events_.push_back(event);
    }
}

std::vector<KeyFrame> CardIndex::KeyFrames(const Section& section) const {
    const uint64_t begin = RECORD_KEY_FRAME_BASE + uint64_t{section.head.m_u32StartKeyFramePos};
    const uint64_t room = begin < RECORD_FILE_SIZE ? (RECORD_FILE_SIZE - begin) / sizeof(KeyFrameInfoHead_S) : 0;
    std::vector<KeyFrameInfoHead_S> records(
        static_cast<size_t>(std::min<uint64_t>(room, section.head.m_u32KeyFrameSum)));
    const size_t got =
        OpenRecordFile(section.file).ReadAt(begin, records.data(), records.size() * sizeof(KeyFrameInfoHead_S));
    records.resize(got / sizeof(KeyFrameInfoHead_S));

    std::vector<KeyFrame> frames;
    frames.reserve(records.size());
    uint64_t free_from = 0;  // after the last frame that fits, from the section's start
    for (const KeyFrameInfoHead_S& record : records) {
        const uint64_t end = uint64_t{record.m_u32KeyFilePos} + record.m_u32KeyFrameLenth;
        KeyFrame frame{.record = record, .offset = section.Begin() + record.m_u32KeyFilePos};
        frame.fits =
            record.m_u32KeyFrameHeadFlag == RECORD_KEY_FRAME_FLAG && record.m_u32KeyFilePos >= free_from &&
            record.m_u32KeyFrameLenth != 0 && end <= section.head.m_u32RecordSize &&
            (record.m_u8KeyFrameType == RECORD_KEY_FRAME_REAL || record.m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL);
        if (frame.fits) free_from = end;
        frames.push_back(frame);
    }
    return frames;
}

std::vector<Stretch> CardIndex::Find(uint32_t from, uint32_t to) const {
    std::vector<Stretch> stretches;
    for (size_t i = 0; i < sections_.size(); ++i) {
        const Section& section = sections_[i];
        if (section.End() < from || section.Start() > to) continue;
        Stretch stretch{.section = i, .begin = section.Begin(), .end = section.Limit(), .start_time = section.Start()};
        if (section.Start() < from || section.End() > to) {
            for (const KeyFrame& key : KeyFrames(section)) {
                // A virtual key frame may refer to the real one before it: no place to begin.
                if (!key.fits || key.record.m_u8KeyFrameType != RECORD_KEY_FRAME_REAL) continue;
                if (key.record.m_u32KeyFrameTime > to) {
                    stretch.end = key.offset;
                    break;
                }
                if (key.record.m_u32KeyFrameTime <= from) {
                    stretch.begin = key.offset;
                    stretch.start_time = key.record.m_u32KeyFrameTime;
                }
            }
        }
        if (stretch.begin < stretch.end) stretches.push_back(stretch);
    }
    return stretches;
}

std::vector<Gap> CardIndex::Gaps(uint32_t tolerance) const {
    std::vector<Gap> gaps;
    for (size_t i = 1; i < sections_.size(); ++i) {
        const uint32_t from = sections_[i - 1].End();
        const uint32_t to = sections_[i].Start();
        if (to > from && to - from > tolerance) gaps.push_back({i, from, to});
    }
    return gaps;
}

std::optional<uint32_t> CardIndex::Oldest() const {
    std::optional<uint32_t> oldest;
    for (const Section& section : sections_) oldest = std::min(oldest.value_or(UINT32_MAX), section.Start());
    return oldest;
}

std::optional<uint32_t> CardIndex::Newest() const {
    std::optional<uint32_t> newest;
    for (const Section& section : sections_) newest = std::max(newest.value_or(0), section.End());
    return newest;
}

uint64_t CardIndex::StreamBytes() const {
    uint64_t sum = 0;
    for (const Section& section : sections_) sum += section.head.m_u32RecordSize;
    return sum;
}

std::optional<double> CardIndex::BytesPerSecond() const {
    uint64_t bytes = 0;
    uint64_t seconds = 0;
    for (auto section = sections_.rbegin(); section != sections_.rend() && seconds < kRateSeconds; ++section) {
        if (section->cut_bytes != 0) continue;  // then its size is not that of its seconds
        bytes += section->head.m_u32RecordSize;
        seconds += section->Seconds();
    }
    if (seconds == 0) return std::nullopt;
    return static_cast<double>(bytes) / static_cast<double>(seconds);
}

std::optional<double> CardIndex::HoursKept() const {
    const std::optional<double> rate = BytesPerSecond();
    if (!rate || *rate <= 0) return std::nullopt;
    return static_cast<double>(FileCount()) * RECORD_STREAM_LIMIT / *rate / 3600;
}

StoreFile CardIndex::OpenRecordFile(uint32_t number) const {
    return volume_->OpenFile(Volume::RecordFileName(number));
}

const char* FaultText(FileState::Fault fault) {
    switch (fault) {
        case FileState::Fault::None:
            return "";
        case FileState::Fault::NotFlagged:
            return "its head is neither empty nor in use";
        case FileState::Fault::WrongNumber:
            return "its head speaks of another file";
        case FileState::Fault::BadCounts:
            return "its head holds impossible counts";
    }
    return "";
}

const char* FaultText(Section::Fault fault) {
    switch (fault) {
        case Section::Fault::None:
            return "";
        case Section::Fault::NotFlagged:
            return "there is no section head in its place";
        case Section::Fault::WrongPlace:
            return "its head speaks of another file or section";
        case Section::Fault::OutsideFile:
            return "it reaches past the file's stream data";
        case Section::Fault::EarlierLap:
            return "it is left over from an earlier lap";
        case Section::Fault::BadKeyFrames:
            return "its key-frame records lie outside the file's";
        case Section::Fault::FileLost:
            return "its record file is missing or cannot be read";
    }
    return "";
}

std::string EventTypeText(uint8_t type) {
    static constexpr struct {
        uint8_t bit;
        const char* text;
    } kTypes[] = {{1, "motion"}, {4, "input"}, {8, "input and motion"}, {32, "smart event"}};
    std::string text;
    const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
    for (const auto& known : kTypes) {
        if ((type & known.bit) != 0) add(known.text);
        type = static_cast<uint8_t>(type & ~known.bit);
    }
    if (type != 0 || text.empty()) {
        char unknown[16];
        std::snprintf(unknown, sizeof unknown, "type 0x%02x", type);
        add(unknown);
    }
    return text;
}

}  // namespace card
