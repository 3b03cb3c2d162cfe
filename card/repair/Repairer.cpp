#include "repair/Repairer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "index/CardIndex.h"
#include "repair/IndexBuilder.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/VolumeRescue.h"

namespace card {

namespace {

using Mend = Finding::Mend;

constexpr uint32_t kEventTolerance = 60;  // s an event may lie outside its file
constexpr uint8_t kMotion = 1;            // the most common kind of event
constexpr int kPassesMax = 3;

// Record files of the card: numbers 0 to the highest.
uint32_t CountRecordFiles(const Volume& volume) {
    uint32_t count = 0;
    for (const std::string& name : volume.Names()) {
        const std::optional<uint32_t> number = Volume::RecordFileNumber(name);
        if (number && *number < RECORD_FILE_MAX) count = std::max(count, *number + 1);
    }
    return count;
}

void MakeFile(const std::string& path, uint64_t size, RepairLog& log) {
    const int fd = open64(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) throw SystemError(path + ": cannot create it", errno);
    const off64_t present = lseek64(fd, 0, SEEK_END);
    const bool grow = present >= 0 && static_cast<uint64_t>(present) < size;
    const bool done = !grow || (ftruncate64(fd, static_cast<off64_t>(size)) == 0 && fdatasync(fd) == 0);
    close(fd);
    if (!done) throw SystemError(path + ": cannot give it its size", errno);
    if (grow) log.push_back(path + (present == 0 ? " made anew" : " brought to its size"));
}

bool IndexReadable(const Volume& volume) {
    const auto system = volume.OpenFile(RECORD_INDEX_NAME).Get<RecordSystemInfoHead_S>(0);
    return system && AV_SystemInfoHeadCheck(&*system) == 0;
}

uint32_t RoomForFiles(const StoreFile& index) {
    const uint64_t blocks =
        index.Reachable() > RECORD_SECTION_BASE ? (index.Reachable() - RECORD_SECTION_BASE) / RECORD_SECTION_BLOCK : 0;
    return static_cast<uint32_t>(std::min<uint64_t>(blocks, RECORD_FILE_MAX));
}

std::vector<SectionSpan> SpansOf(const CardIndex& index, uint32_t file) {
    std::vector<SectionSpan> spans;
    for (const Section& section : index.Sections()) {
        if (section.file == file) spans.push_back(SpanOf(section));
    }
    return spans;
}

// Checks, and makes new heads for what the check names while its stream is at hand.
class Planner {
  public:
    Planner(const Volume& volume, const CheckProgress& progress)
        : volume_(volume),
          progress_(progress),
          index_(volume.OpenFile(RECORD_INDEX_NAME)),
          builder_(volume, index_),
          count_(std::min(CountRecordFiles(volume), RoomForFiles(index_))) {}

    StorePlan Run() {
        std::set<uint32_t> wanted;
        plan_.index_lost = !IndexReadable(volume_);
        if (plan_.index_lost) {
            plan_.findings.push_back(LostIndex());
            for (uint32_t number = 0; number < count_; ++number) {
                wanted.insert(number);
                plan_.events.insert(number);
            }
        } else {
            wanted = Check();
        }
        BuildOthers(wanted);
        Decide(wanted);
        return std::move(plan_);
    }

  private:
    static Finding LostIndex() {
        return {Finding::Level::Error,
                "index",
                RECORD_INDEX_NAME,
                0,
                "the system head is lost",
                "nothing on the card can be found",
                Mend::System,
                0,
                false};
    }

    std::set<uint32_t> Check() {
        const CardIndex index(volume_);
        CheckScope scope;
        scope.visit = [&](uint32_t file, const Survey& survey, bool mend) {
            const size_t pictures = CountPictures(survey, SpansOf(index, file));
            plan_.pictures_before += pictures;
            if (mend && file < count_) {
                plan_.rebuilt_before[file] = pictures;
                rebuilt_.emplace(file, builder_.Build(file, survey));
            }
        };
        plan_.findings = CheckStore(volume_, progress_, scope);
        std::set<uint32_t> wanted;
        for (const Finding& finding : plan_.findings) {
            if (finding.mend == Mend::File && finding.file < count_) wanted.insert(finding.file);
            if (finding.mend == Mend::Events) plan_.events.insert(finding.file);
            plan_.system = plan_.system || finding.mend == Mend::System;
        }
        return wanted;
    }

    // Files that the check could not read by their heads.
    void BuildOthers(const std::set<uint32_t>& wanted) {
        const uint64_t total = (wanted.size() - rebuilt_.size()) * kSurveyLimit;
        uint64_t done = 0;
        for (const uint32_t number : wanted) {
            if (rebuilt_.count(number) != 0) continue;
            rebuilt_.emplace(number, builder_.Build(number, [&](uint64_t bytes) {
                if (progress_) progress_(done += bytes, total);
            }));
        }
    }

    RebuiltFile AsItIs(uint32_t number) const {
        RebuiltFile file;
        file.number = number;
        const auto head = index_.Get<RecordFileInfoHead_S>(record_file::FileHeadOffset(number));
        if (head) file.head = *head;
        file.first_time = file.head.m_u32RecordStartTime;
        return file;
    }

    void Decide(const std::set<uint32_t>& wanted) {
        std::vector<RebuiltFile>& files = plan_.files;
        for (uint32_t number = 0; number < count_; ++number) {
            files.push_back(wanted.count(number) != 0 ? rebuilt_[number].lap : AsItIs(number));
        }
        const RecordSystemInfoHead_S left = index_.Get<RecordSystemInfoHead_S>(0).value_or(RecordSystemInfoHead_S{});
        const uint32_t current = BuildSystemHead(left, volume_.TotalBytes(), files).m_u32RecordFileNo;
        for (const uint32_t number : wanted) Settle(number, current);
        if (!plan_.write.empty() || plan_.index_lost) plan_.system = true;
        plan_.system_head = BuildSystemHead(left, volume_.TotalBytes(), files);
    }

    // A file that is not being written is full: what looks like an earlier lap there is a clock that was set back.
    // And whatever is decided, no picture may become unreachable by it.
    void Settle(uint32_t number, uint32_t current) {
        Rebuilt& rebuilt = rebuilt_[number];
        const size_t before = plan_.PicturesBefore(number);
        RebuiltFile& file = plan_.files[number];
        const bool filled = number != current && !file.Full() && rebuilt.whole && rebuilt.whole->Full();
        const bool fewer = file.pictures < before && rebuilt.whole && rebuilt.whole->pictures > file.pictures;
        if (filled || fewer) file = std::move(*rebuilt.whole);
        if (file.pictures < before) {
            plan_.left_alone.push_back(number);
            file = AsItIs(number);
        } else {
            plan_.write.push_back(number);
        }
    }

    const Volume& volume_;
    const CheckProgress& progress_;
    StoreFile index_;
    IndexBuilder builder_;
    uint32_t count_;
    StorePlan plan_;
    std::map<uint32_t, Rebuilt> rebuilt_;
};

// Carries a plan out.
class Writer {
  public:
    Writer(const Volume& volume, const StorePlan& plan, RepairLog& log)
        : index_(volume.OpenFile(RECORD_INDEX_NAME)),
          builder_(volume, index_),
          plan_(plan),
          files_(plan.files),
          log_(log) {
        if (volume.Has(RECORD_EVENT_NAME)) events_ = volume.OpenFile(RECORD_EVENT_NAME);
    }

    void Run(WriteJournal& journal) {
        for (const uint32_t number : plan_.write) {
            const RebuiltFile& file = files_[number];
            builder_.Write(file, journal);
            log_.push_back("file " + std::to_string(number) + ": " + Counted(file.sections.size(), "section") + ", " +
                           Counted(file.key_frames.size(), "key frame"));
        }
        const auto left = index_.Get<RecordSystemInfoHead_S>(0);
        if (plan_.system && (!left || std::memcmp(&*left, &plan_.system_head, sizeof *left) != 0)) {
            journal.Write(index_, 0, &plan_.system_head, sizeof plan_.system_head);
            index_.Sync();
            log_.push_back("system head rebuilt");
        }
        for (const uint32_t number : plan_.events) MendEvents(number, journal);
    }

  private:
    bool Fits(const AlarmFileInfoHead_S& record, uint32_t number, uint32_t slot) const {
        const RecordFileInfoHead_S& file = files_[number].head;
        return record.m_u32AlarmEventFlag == ALARM_RECORD_FLAG && record.m_u16AlarmFileNo == number &&
               record.m_u16AlarmFileUseNo == slot &&
               uint64_t{record.m_u32AlarmStartTime} + kEventTolerance >= file.m_u32RecordStartTime &&
               record.m_u32AlarmStartTime <= uint64_t{file.m_u32RecordEndTime} + kEventTolerance;
    }

    // An end that cannot be is as good as none; a kind that there is not becomes the one its head names.
    AlarmFileInfoHead_S Mended(AlarmFileInfoHead_S record, const AlarmEventHead_S& head, uint32_t number) const {
        const uint64_t end = record.m_u32AlarmEndTime;
        const uint64_t latest = std::max(files_[number].head.m_u32RecordEndTime, record.m_u32AlarmStartTime);
        if (end + kEventTolerance < record.m_u32AlarmStartTime || end > latest + kEventTolerance)
            record.m_u32AlarmEndTime = 0;
        if (IsEventType(record.m_u8AlarmFileType)) return record;
        record.m_u8AlarmFileType = IsEventType(head.m_u8AlarmEventType) ? head.m_u8AlarmEventType : kMotion;
        return record;
    }

    // Keeps the events that fit, one after the other, also those that a damaged head does not count.
    void MendEvents(uint32_t number, WriteJournal& journal) {
        if (!events_ || number >= ALARM_EVENT_FILE_MAX || number >= files_.size()) return;
        const uint64_t place = record_file::EventHeadOffset(number);
        const uint64_t block = record_file::EventOffset(number, 1);
        auto head = events_->Get<AlarmEventHead_S>(place);
        if (!head || block + ALARM_EVENT_BLOCK > events_->Reachable()) return;
        const bool good = head->m_u32AlarmEventFlag == ALARM_EVENT_FLAG && head->m_u32AlarmFileNo == number &&
                          head->m_u32AlarmEventSum <= ALARM_EVENT_MAX;
        const uint32_t counted = good ? head->m_u32AlarmEventSum : 0;
        std::vector<AlarmFileInfoHead_S> records(ALARM_EVENT_MAX);
        events_->ReadAt(block, records.data(), records.size() * sizeof records[0]);
        std::vector<AlarmFileInfoHead_S> kept;
        for (uint32_t slot = 1; slot <= records.size(); ++slot) {
            const bool fits = !files_[number].Empty() && Fits(records[slot - 1], number, slot);
            if (!fits && slot > counted) break;
            if (fits) kept.push_back(Mended(records[slot - 1], good ? *head : AlarmEventHead_S{}, number));
        }
        if (!good) *head = AlarmEventHead_S{};
        Count(*head, kept, number);
        const size_t left = kept.size();
        kept.resize(std::max<size_t>(left, counted));  // the slots that became free
        bool changed = !kept.empty() && journal.Write(*events_, block, kept.data(), kept.size() * sizeof kept[0]);
        changed = journal.Write(*events_, place, &*head, sizeof *head) || changed;
        events_->Sync();
        if (changed) log_.push_back("events of file " + std::to_string(number) + ": " + std::to_string(left) + " kept");
    }

    static void Count(AlarmEventHead_S& head, std::vector<AlarmFileInfoHead_S>& kept, uint32_t number) {
        if (kept.empty()) {
            head = {};
            return;
        }
        head.m_u32AlarmEventFlag = ALARM_EVENT_FLAG;
        head.m_u32AlarmFileNo = number;
        head.m_u32AlarmEventSum = static_cast<uint32_t>(kept.size());
        head.m_u32AlarmStartTime = UINT32_MAX;
        head.m_u32AlarmEndTime = 0;
        head.m_u8AlarmEventType = 0;
        for (uint32_t i = 0; i < kept.size(); ++i) {
            kept[i].m_u16AlarmFileUseNo = static_cast<uint16_t>(i + 1);
            head.m_u32AlarmStartTime = std::min(head.m_u32AlarmStartTime, kept[i].m_u32AlarmStartTime);
            head.m_u32AlarmEndTime = std::max(head.m_u32AlarmEndTime, kept[i].m_u32AlarmEndTime);
            head.m_u8AlarmEventType = static_cast<uint8_t>(head.m_u8AlarmEventType | kept[i].m_u8AlarmFileType);
        }
    }

    StoreFile index_;
    std::optional<StoreFile> events_;
    IndexBuilder builder_;
    const StorePlan& plan_;
    const std::vector<RebuiltFile>& files_;  // by number
    RepairLog& log_;
};

}  // namespace

void RepairVolume(const std::string& path, RepairLog& log, WriteJournal& journal) {
    const Device device = Device::OpenCard(path, Access::ReadWrite);
    const std::optional<FoundLayout> layout = FindLayout(device);
    std::optional<Volume> volume;
    try {
        volume = Volume::Open(path);
    } catch (const CardError&) {
        if (!layout) {
            throw CardError(path +
                            " has no file system left, and is not laid out as a camera does it; \"recordcard repair "
                            "CARD --out FOLDER/\" "
                            "takes out what it finds");
        }
    }
    if (volume) {
        const bool sound = !NeedsVolume(CheckVolume(*volume));
        if (sound || !layout || !LiesSo(*volume, *layout)) return;
    }
    for (std::string& line : RestoreVolume(device, *layout, journal)) log.push_back(std::move(line));
}

void RepairVolume(const std::string& path, RepairLog& log) {
    WriteJournal journal;
    RepairVolume(path, log, journal);
}

void RepairFolder(const std::string& path, RepairLog& log) {
    for (const char* name : {RECORD_INDEX_NAME, RECORD_EVENT_NAME})
        MakeFile(path + "/" + name, record_file::kFixedFileSize, log);
    const Volume volume = Volume::Open(path);
    const uint32_t count = CountRecordFiles(volume);
    if (count == 0) throw CardError(path + " holds no record file");
    for (uint32_t number = 0; number < count; ++number) {
        MakeFile(path + "/" + Volume::RecordFileName(number), RECORD_FILE_SIZE, log);
    }
}

size_t StorePlan::PicturesBefore(uint32_t file) const {
    const auto found = rebuilt_before.find(file);
    return found == rebuilt_before.end() ? 0 : found->second;
}

bool NeedsVolume(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& f) { return f.mend == Mend::Volume; });
}

bool StorePlan::Needed() const {
    return system || !write.empty() || !events.empty();
}

StorePlan PlanStore(const Volume& volume, const CheckProgress& progress) {
    return Planner(volume, progress).Run();
}

RepairResult CarryOut(const StorePlan& plan, const Volume& volume, RepairLog& log, const CheckProgress& progress) {
    WriteJournal journal;
    Writer(volume, plan, log).Run(journal);
    RepairResult result{{}, plan.pictures_before, plan.pictures_before, false};
    const CardIndex index(volume);
    const std::set<uint32_t> written(plan.write.begin(), plan.write.end());
    for (const uint32_t number : written) result.pictures_after -= plan.PicturesBefore(number);
    CheckScope scope{written, [&](uint32_t file, const Survey& survey, bool) {
                         result.pictures_after += CountPictures(survey, SpansOf(index, file));
                     }};
    result.findings = CheckStore(volume, progress, scope);
    for (const Finding& finding : plan.findings) {
        if (finding.from_stream && written.count(finding.file) == 0) result.findings.push_back(finding);
    }
    if (result.pictures_after < result.pictures_before) {
        journal.TakeBack();
        result.taken_back = true;
    }
    return result;
}

RepairResult RepairStore(const Volume& volume, RepairLog& log, const CheckProgress& progress) {
    RepairResult result;
    for (int pass = 0; pass < kPassesMax; ++pass) {
        const StorePlan plan = PlanStore(volume, progress);
        if (!plan.Needed()) return {plan.findings, plan.pictures_before, plan.pictures_before, false};
        const size_t done = log.size();
        result = CarryOut(plan, volume, log, progress);
        const bool more = std::any_of(result.findings.begin(), result.findings.end(), [](const Finding& f) {
            return f.mend != Mend::Nothing && f.mend != Mend::Volume;
        });
        if (!more || result.taken_back || log.size() == done) break;
    }
    return result;
}

}  // namespace card
