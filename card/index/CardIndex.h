// The index of a store as one picture: files, sections in the order they were recorded, key frames, events.
//
// Reads "index000.bin" and "event000.bin" once, when made; key-frame records on demand.  Never writes,
// never trusts a number: everything that does not fit is kept with its fault named, so that a listing can
// leave it out and a checker can speak of it.
// Invariant: a section without a fault lies inside its file's stream data and belongs to the present lap.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "RecordFormat.h"
#include "volume/Volume.h"

namespace card {

struct FileState {
    enum class Fault {
        None,
        NotFlagged,   // neither empty nor in use
        WrongNumber,  // speaks of another file
        BadCounts,    // length, sections or key frames impossible
    };
    uint32_t number = 0;
    RecordFileInfoHead_S head{};
    bool empty = true;  // all zero: never used, or wiped
    Fault fault = Fault::None;

    uint32_t first = 0;  // s since 1970 UTC: of its first picture, else as the head says
    uint32_t last = 0;
    bool lost = false;  // see LostFile

    bool Usable() const { return !empty && fault == Fault::None; }
    uint32_t Length() const { return head.m_u32RecordFileSumLenth; }  // bytes of stream data
    bool Full() const { return Usable() && Length() >= RECORD_STREAM_LIMIT; }
};

struct Section {
    enum class Fault {
        None,
        NotFlagged,    // no section head in this slot
        WrongPlace,    // speaks of another file or slot
        OutsideFile,   // reaches past the file's stream data
        EarlierLap,    // overlaps its predecessor or is older than its file: left over from an earlier lap
        BadKeyFrames,  // its key-frame records lie outside the file's
        FileLost,      // its record file is missing or cannot be read
    };
    uint32_t file = 0;        // where it was read
    uint32_t number = 0;      // 1 to 251
    RecordInfoHead_S head{};  // without what `cut_bytes` and `cut_key_frames` took off
    Fault fault = Fault::None;
    // The section head is written a moment before the file head: after a power cut between the two it is one
    // frame ahead of what the file counts, and a later section begins on that frame.
    uint32_t cut_bytes = 0;
    uint32_t cut_key_frames = 0;
    uint32_t first = 0;  // s since 1970 UTC, of its first picture
    uint32_t last = 0;   // of its last

    bool Usable() const { return fault == Fault::None; }
    uint32_t Start() const { return first; }  // what can be seen: s since 1970 UTC
    uint32_t End() const { return last; }
    uint32_t Wait() const;  // s from asking for the recording to its first picture
    uint32_t Seconds() const { return End() - Start(); }
    uint64_t Begin() const { return head.m_u32RecordStartPos; }        // in the record file; a stream head is first
    uint64_t Limit() const { return Begin() + head.m_u32RecordSize; }  // after its last byte
};

struct KeyFrame {
    KeyFrameInfoHead_S record{};
    uint64_t offset = 0;  // in the record file; the section's first one begins with the stream head
    bool fits = false;    // flagged, inside its section, after its predecessor, type known
};

// 1 motion, 4 alarm input, 8 both, 32 smart event; there are no others.
constexpr bool IsEventType(uint8_t type) {
    return type == 1 || type == 4 || type == 8 || type == 32;
}

struct Event {
    uint32_t number = 0;  // 1, 2, ... in the order of the listing; what `--event` takes
    uint32_t file = 0;    // where it was read
    uint32_t slot = 0;    // 1 to 1024
    AlarmFileInfoHead_S record{};
    bool fits = false;     // flagged, in its place, inside the time of its file
    bool counted = true;   // by its event head
    bool bad_end = false;  // an end that cannot be: it counts as open
    uint32_t limit = 0;    // s since 1970 UTC: it ended before, at the latest with the recording it began in

    uint32_t Start() const { return record.m_u32AlarmStartTime; }
    uint32_t End() const;  // Start() while it is still open
    bool Open() const { return record.m_u32AlarmEndTime == 0 || bad_end; }
    bool KnownType() const { return IsEventType(record.m_u8AlarmFileType); }
};

// Part of a section that covers an asked time: from its last key frame at or before it.
struct Stretch {
    size_t section = 0;       // index into CardIndex::Sections()
    uint64_t begin = 0;       // in the record file: first byte of a key frame (a stream head may be first)
    uint64_t end = 0;         // after the last byte: a key frame later than the asked end, or the section's end
    uint32_t start_time = 0;  // of that key frame
};

struct Gap {
    size_t before = 0;  // index of the section that ends it
    uint32_t from = 0;
    uint32_t to = 0;
};

// A file of the store that holds recordings or alarms, and is missing or cannot be opened or read.
struct LostFile {
    std::string name;       // "hi000001.mp4"
    std::string why = {};   // what the system says; empty: it is missing
    uint32_t sections = 0;  // that its heads speak of; none of them is in CardIndex::Sections()
    uint64_t bytes = 0;     // of these
    uint32_t from = 0;      // s since 1970 UTC, as its head says
    uint32_t to = 0;

    bool Missing() const { return why.empty(); }
    std::string Text() const;  // "hi000001.mp4 is missing"
    bool Touches(uint32_t first, uint32_t last) const { return sections != 0 && from <= last && first <= to; }
};

class CardIndex {
  public:
    // Throws CardError when the index file is missing or its system head is not that of a prepared store.
    explicit CardIndex(const Volume& volume);

    const RecordSystemInfoHead_S& System() const { return system_; }
    uint32_t FileCount() const { return static_cast<uint32_t>(files_.size()); }  // bounded by the index file
    const std::vector<FileState>& Files() const { return files_; }               // by number
    const std::vector<uint32_t>& RingOrder() const { return ring_; }             // file numbers, oldest recording first

    // Sections as recorded, oldest first; faulty ones and such without a byte only in AllSections.
    const std::vector<Section>& Sections() const { return sections_; }
    const std::vector<Section>& AllSections() const { return all_sections_; }
    const std::vector<Event>& Events() const { return events_; }  // those that fit, oldest first
    const std::vector<Event>& AllEvents() const { return all_events_; }
    const std::vector<LostFile>& Lost() const { return lost_; }           // oldest recording first
    std::vector<UnreadPart> Unread() const { return volume_->Unread(); }  // of the files that are there, so far
    bool DirectoryIsWhole() const { return volume_->DirectoryIsWhole(); }

    std::vector<KeyFrame> KeyFrames(const Section& section) const;

    // What was recorded from `from` to `to` (both included), oldest first.
    std::vector<Stretch> Find(uint32_t from, uint32_t to) const;
    // Times between neighbouring sections in which nothing was recorded for more than `tolerance` seconds.
    std::vector<Gap> Gaps(uint32_t tolerance = 2) const;

    std::optional<uint32_t> Oldest() const;  // s since 1970 UTC; nothing: no recording
    std::optional<uint32_t> Newest() const;
    uint64_t StreamBytes() const;                  // recorded and kept
    std::optional<double> BytesPerSecond() const;  // of the newest minutes
    std::optional<double> HoursKept() const;       // how far back a full ring reaches at that rate

    StoreFile OpenRecordFile(uint32_t number) const;  // throws CardError when it is not there

  private:
    void ReadFiles(const StoreFile& index);
    void ReadSections(const StoreFile& index);
    void ReadEvents();
    void OrderRing();
    void TimeSections(std::vector<Section>& sections, FileState& file);
    void ReadTimes(const StoreFile& record, std::vector<Section>& sections, FileState& file) const;
    void ReadEventsOf(const StoreFile& events, uint32_t file);

    const Volume* volume_;
    RecordSystemInfoHead_S system_{};
    std::vector<FileState> files_;
    std::vector<uint32_t> ring_;
    std::vector<Section> sections_;
    std::vector<Section> all_sections_;
    std::vector<Event> events_;
    std::vector<Event> all_events_;
    std::vector<LostFile> lost_;
};

const char* FaultText(FileState::Fault fault);
const char* FaultText(Section::Fault fault);
// "motion", "input", "input and motion", "smart event"; several joined by ", "; unknown bits as "type 0x40".
std::string EventTypeText(uint8_t type);

}  // namespace card
