#include "check/StoreCheck.h"

#include <algorithm>

#include "FormatText.h"
#include "check/FileCheck.h"
#include "index/CardIndex.h"
#include "text/Error.h"
#include "text/TimeText.h"

namespace card {

namespace {

using Level = Finding::Level;
using Mend = Finding::Mend;

constexpr uint32_t kCutMax = 10;  // s of footage whose file has no head that a power cut explains

// The store as a whole.
class StoreCheck {
  public:
    StoreCheck(const Volume& volume, const CheckProgress& progress, const CheckScope& scope)
        : volume_(volume), index_(volume), progress_(progress), scope_(scope) {}

    Findings Run() {
        for (const LostFile& lost : index_.Lost()) {
            if (!lost.Missing()) AddUnreadable(lost.name, lost.why);
        }
        CheckFiles();
        CheckSystem();
        CheckRing();
        uint64_t total = 0;
        for (const FileState& file : index_.Files()) total += Wanted(file) ? file.Length() : 0;
        uint64_t done = 0;
        const SurveyProgress progress = [&](uint64_t bytes) {
            done += bytes;
            if (progress_) progress_(done, total);
        };
        for (const FileState& file : index_.Files()) {
            if (!Wanted(file)) continue;
            IfReadable(Volume::RecordFileName(file.number),
                       [&] { CheckRecordFile(index_, file, findings_, progress, scope_.visit); });
        }
        IfReadable(RECORD_EVENT_NAME, [&] { CheckEvents(); });
        return std::move(findings_);
    }

  private:
    bool Wanted(const FileState& file) const {
        const bool in_scope = !scope_.files || scope_.files->count(file.number) != 0;
        return in_scope && file.Usable() && !file.lost;
    }

    // One file that cannot be read keeps nobody from looking at the others.
    template <typename Check>
    void IfReadable(const std::string& name, Check check) {
        try {
            check();
        } catch (const CardGone&) {
            throw;
        } catch (const CardError& error) {
            AddUnreadable(name, error.what());
        }
    }

    void AddUnreadable(const std::string& name, const std::string& why) {
        const bool told = std::any_of(findings_.begin(), findings_.end(), [&name](const Finding& finding) {
            return finding.place == name && finding.kind == "file-unreadable";
        });
        if (told) return;
        Add(Level::Error, "file-unreadable", name, 0, name + " cannot be read: " + why,
            "the rest of it was not checked; \"recordcard repair --out COPY\" saves what can be read", Mend::Nothing);
    }

    void Add(Level level, const char* kind, std::string place, uint64_t offset, std::string what,
             const char* consequence, Mend mend, uint32_t file = 0) {
        findings_.push_back({level, kind, std::move(place), offset, std::move(what), consequence, mend, file});
    }

    void CheckSize(const std::string& name, uint64_t wanted, const char* consequence) {
        IfReadable(name, [&] { CheckSizeOf(name, wanted, consequence); });
    }

    void CheckSizeOf(const std::string& name, uint64_t wanted, const char* consequence) {
        if (!volume_.Has(name)) {
            Add(Level::Error, "file-missing", name, 0, name + " is missing", consequence, Mend::Volume);
            return;
        }
        const StoreFile file = volume_.OpenFile(name);
        const bool may_grow = name == RECORD_EVENT_NAME;
        if ((file.Size() == wanted || (may_grow && file.Size() > wanted)) && file.Reachable() == file.Size()) return;
        Add(Level::Error, "file-size", name, 0,
            FormatText("%s has %llu bytes, %llu of them reachable, and should have %llu", name.c_str(),
                       static_cast<unsigned long long>(file.Size()), static_cast<unsigned long long>(file.Reachable()),
                       static_cast<unsigned long long>(wanted)),
            consequence, Mend::Volume);
    }

    bool Contradicts() const {
        const RecordSystemInfoHead_S& system = index_.System();
        return system.m_u32RecordSpaceSize != system.m_u32RecordFileSum << RECORD_FILE_SIZE_SHIFT ||
               system.m_u32SystemInfoCrc != RECORD_SYSTEM_CHECK_WORD;
    }

    void CheckFiles() {
        CheckSize(RECORD_INDEX_NAME, record_file::kFixedFileSize, "recordings may have no room in the index");
        CheckSize(RECORD_EVENT_NAME, record_file::kFixedFileSize, "alarms are not marked");
        for (uint32_t number = 0; number < index_.FileCount(); ++number) {
            if (Contradicts() && !volume_.Has(Volume::RecordFileName(number))) break;  // it is the head that is wrong
            CheckSize(Volume::RecordFileName(number), RECORD_FILE_SIZE,
                      "what it held is not found, and recording stops there");
        }
    }

    void CheckSystem() {
        const RecordSystemInfoHead_S& system = index_.System();
        const uint32_t count = system.m_u32RecordFileSum;
        const auto add = [this](const char* kind, std::string what, const char* consequence) {
            Add(Level::Error, kind, RECORD_INDEX_NAME, 0, std::move(what), consequence, Mend::System);
        };
        const bool fewer = Contradicts() && count != 0 && !volume_.Has(Volume::RecordFileName(count - 1));
        if (count == 0 || count != index_.FileCount() || fewer || volume_.Has(Volume::RecordFileName(count))) {
            add("system-files",
                FormatText("the system head counts %u record files, which is not what the card has", count),
                "files are left out, or recording runs into files that are not there");
        }
        if (Contradicts()) {
            add("system-head", "the system head contradicts itself", "the camera shows wrong sizes");
        }
        if (system.m_u32RecordUsedFileSum > count) {
            add("system-used",
                FormatText("the system head counts %u used files of %u", system.m_u32RecordUsedFileSum, count),
                "the camera shows wrong sizes");
        }
    }

    // Only the current file may be neither empty nor full, but for a cut at a switch; an empty one only follows when
    // the ring was never round.
    void CheckRing() {
        const uint32_t count = index_.FileCount();
        const uint32_t current = index_.System().m_u32RecordFileNo;
        if (current >= count) {
            Add(Level::Error, "system-current", RECORD_INDEX_NAME, 28,
                FormatText("the current file is number %u of %u", current, count), "recording cannot go on",
                Mend::System);
        }
        const bool lapped = index_.System().m_u32RecordUsedFileSum >= count;
        bool any = false;
        for (const FileState& file : index_.Files()) {
            any = any || !file.empty;
            const uint64_t place = record_file::FileHeadOffset(file.number);
            if (file.fault != FileState::Fault::None) {
                Add(Level::Error, "file-head", RECORD_INDEX_NAME, place,
                    FormatText("file %u: %s", file.number, FaultText(file.fault)), "nothing of this file is listed",
                    Mend::File, file.number);
            } else if (file.empty && file.number != current && (lapped || file.number < current)) {
                Add(Level::Error, "file-head", RECORD_INDEX_NAME, place,
                    FormatText("file %u was recorded, but its head is empty", file.number),
                    "nothing of this file is listed", Mend::File, file.number);
            } else if (file.empty && file.number == current) {
                IfReadable(Volume::RecordFileName(current), [&] { CheckFresh(file.number, place); });
            } else if (file.Usable() && !file.Full() && file.number != current) {
                const bool cut = CutBeforeFull(file);
                Add(cut ? Level::Remark : Level::Error, "file-short", RECORD_INDEX_NAME, place,
                    FormatText("file %u is not full, though recording went on elsewhere", file.number),
                    cut ? "none: power was cut while the next file was begun"
                        : "part of its footage may not be listed, or recording goes on in the wrong file",
                    cut ? Mend::Nothing : Mend::File, file.number);
            }
        }
        if (current < count && any && index_.Files()[current].empty) CheckBeforeCurrent(current, count);
    }

    void CheckBeforeCurrent(uint32_t current, uint32_t count) {
        const FileState& before = index_.Files()[(current + count - 1) % count];
        if (before.Full() || before.fault != FileState::Fault::None || CutBeforeFull(before)) return;
        Add(Level::Error, "system-current", RECORD_INDEX_NAME, 28,
            FormatText("the current file is number %u, but the one before it is not full", current),
            "recording would go on in the wrong file", Mend::System);
    }

    bool HasSectionHead(uint32_t number) const {
        const auto head =
            volume_.OpenFile(RECORD_INDEX_NAME).Get<RecordInfoHead_S>(record_file::SectionHeadOffset(number, 1));
        return head && head->m_u32RecordInfoHeadFlag == RECORD_SECTION_FLAG && head->m_u16RecordFileNo == number;
    }

    // An empty head of the current file is right until its first frame; footage newer than the rest says that it is
    // lost.
    void CheckFresh(uint32_t number, uint64_t place) {
        const std::string name = Volume::RecordFileName(number);
        if (!volume_.Has(name)) return;
        Surveyor surveyor(volume_.OpenFile(name));
        surveyor.GoTo(record_file::kAheadMax);
        surveyor.GoToHole();
        const Survey survey = surveyor.Result();
        const std::vector<Recording> recordings = RecordingsOf(survey, {}).recordings;
        if (recordings.empty()) return;
        const uint32_t first = recordings.front().first_time;
        uint32_t last = first;  // after a second cut, what the first one left lies after it and is older
        for (const Recording& recording : recordings) last = std::max(last, recording.last_time);
        const std::optional<uint32_t> newest = index_.Newest();
        // After a hole only what follows the newest footage closely is new for certain.
        const bool close =
            newest && first + uint64_t{2} >= *newest && first <= uint64_t{*newest} + record_file::kAheadSecondsMax;
        if (recordings.front().begin != 0 && !close) return;
        if (newest && uint64_t{first} + kClockStepBack < *newest) return;
        // Formatting zeroes all heads: then it lay there before.
        if (!newest && volume_.Fat() != nullptr && number == 0 && !HasSectionHead(number)) return;
        const bool cut = last - first <= kCutMax;
        Add(cut ? Level::Remark : Level::Error, cut ? "footage-uncounted" : "file-head", RECORD_INDEX_NAME, place,
            FormatText("file %u holds %s of new footage, but its head is empty", number,
                       Duration(last - first).c_str()),
            "it is not listed, and is written over when recording goes on", Mend::File, number);
    }

    void CheckEvents() {
        if (!volume_.Has(RECORD_EVENT_NAME)) return;
        const StoreFile events = volume_.OpenFile(RECORD_EVENT_NAME);
        for (const FileState& file : index_.Files()) {
            if (file.number >= ALARM_EVENT_FILE_MAX) break;
            const uint64_t place = record_file::EventHeadOffset(file.number);
            const auto head = events.Get<AlarmEventHead_S>(place);
            if (!head) continue;
            const bool zero = head->m_u32AlarmEventFlag == 0 && head->m_u32AlarmEventSum == 0;
            const bool damaged =
                !zero && (head->m_u32AlarmEventFlag != ALARM_EVENT_FLAG || head->m_u32AlarmFileNo != file.number ||
                          head->m_u32AlarmEventSum > ALARM_EVENT_MAX);
            const EventSums sums = SumsOf(file.number);
            if (damaged || sums.uncounted != 0) {
                Add(Level::Error, "event-head", RECORD_EVENT_NAME, place,
                    damaged ? FormatText("the event head of file %u is damaged", file.number)
                            : FormatText("the event head of file %u leaves out %u events that are there", file.number,
                                         sums.uncounted),
                    "the camera does not list these alarms, and writes new ones over them", Mend::Events, file.number);
            } else if (!zero && sums.events != 0 && !sums.Agree(*head)) {
                Add(Level::Remark, "event-sums", RECORD_EVENT_NAME, place,
                    FormatText("the event head of file %u has other times or types than its events", file.number),
                    "none for the events themselves", Mend::Events, file.number);
            }
        }
        for (const Event& event : index_.AllEvents()) {
            event.fits ? CheckEvent(event) : CheckStrayEvent(event);
        }
    }

    // What an event head should say.
    struct EventSums {
        uint32_t events = 0;
        uint32_t uncounted = 0;
        uint32_t start = UINT32_MAX;
        uint32_t end = 0;
        uint8_t types = 0;

        bool Agree(const AlarmEventHead_S& head) const {
            const uint32_t end_said = head.m_u32AlarmEndTime;
            return head.m_u32AlarmStartTime >= start && head.m_u32AlarmStartTime <= std::max(start, end) &&
                   (end_said == 0 || (end_said >= start && end_said <= std::max(start, end))) &&
                   (head.m_u8AlarmEventType & types) == types && (head.m_u8AlarmEventType & ~(1 | 4 | 8 | 32)) == 0;
        }
    };

    EventSums SumsOf(uint32_t file) const {
        EventSums sums;
        for (const Event& event : index_.AllEvents()) {
            if (event.file != file || !event.fits) continue;
            ++sums.events;
            sums.uncounted += event.counted ? 0 : 1;
            sums.start = std::min(sums.start, event.Start());
            sums.end = std::max({sums.end, event.Start(), event.End()});
            sums.types = static_cast<uint8_t>(sums.types | event.record.m_u8AlarmFileType);
        }
        return sums;
    }

    void CheckEvent(const Event& event) {
        const uint64_t place = record_file::EventOffset(event.file, event.slot);
        if (event.bad_end) {
            Add(Level::Error, "event-end", RECORD_EVENT_NAME, place,
                FormatText("event %u of file %u has an end that cannot be", event.slot, event.file),
                "it is shown as one that was still on", Mend::Events, event.file);
        }
        if (!event.KnownType()) {
            Add(Level::Error, "event-type", RECORD_EVENT_NAME, place,
                FormatText("event %u of file %u is of kind 0x%X, which there is not", event.slot, event.file,
                           event.record.m_u8AlarmFileType),
                "what set off this alarm is not shown", Mend::Events, event.file);
        }
    }

    void CheckStrayEvent(const Event& event) {
        const FileState& file = index_.Files()[event.file];
        const bool stale = event.record.m_u32AlarmEventFlag == ALARM_RECORD_FLAG && event.End() < file.first;
        const uint64_t place = record_file::EventOffset(event.file, event.slot);
        Add(stale ? Level::Remark : Level::Error, "event", RECORD_EVENT_NAME, place,
            FormatText("event %u of file %u %s", event.slot, event.file,
                       stale ? "is left over from an earlier lap" : "does not fit its file"),
            stale ? "none" : "this alarm is not listed", Mend::Events, event.file);
    }

    const Volume& volume_;
    CardIndex index_;
    const CheckProgress& progress_;
    const CheckScope& scope_;
    Findings findings_;
};

}  // namespace

Findings CheckStore(const Volume& volume, const CheckProgress& progress, const CheckScope& scope) {
    return StoreCheck(volume, progress, scope).Run();
}

}  // namespace card
