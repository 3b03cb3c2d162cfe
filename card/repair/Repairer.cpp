#include "repair/Repairer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>

#include "index/CardIndex.h"
#include "repair/IndexBuilder.h"
#include "repair/VolumeRescue.h"
#include "text/Error.h"
#include "text/TimeText.h"

namespace card {

namespace {

using Mend = Finding::Mend;

constexpr uint32_t kEventTolerance = 60;  // s an event may lie outside its file
constexpr int kPassesMax = 3;

// Whether the files that can be read lie where the layout puts them.
bool LiesSo(const Volume& volume, const FoundLayout& layout) {
    int where_planned = 0;
    int elsewhere = 0;
    for (uint32_t i = 0; i < layout.plan.Files(); ++i) {
        const prestore::StoredFile planned = layout.plan.File(i);
        if (!volume.Has(planned.name)) continue;
        const StoreFile file = volume.OpenFile(planned.name);
        if (file.Size() != planned.size || file.Reachable() != file.Size() || file.Extents().size() != 1) continue;
        const bool there = file.Extents()[0].offset == layout.base + layout.plan.ClusterOffset(planned.first_cluster);
        (there ? where_planned : elsewhere) += 1;
    }
    return where_planned >= elsewhere;
}

bool NeedsVolume(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& f) { return f.mend == Mend::Volume; });
}

// Record files of the card: numbers 0 to the highest.
uint32_t CountRecordFiles(const Volume& volume) {
    uint32_t count = 0;
    for (const std::string& name : volume.Names()) {
        unsigned number = 0;
        int used = 0;
        if (std::sscanf(name.c_str(), "hi%6u.mp4%n", &number, &used) == 1 && used == static_cast<int>(name.size()) &&
            number < RECORD_FILE_MAX) {
            count = std::max(count, number + 1);
        }
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

// One pass over index and events: rebuilds what the findings name.
class Pass {
  public:
    Pass(const Volume& volume, RepairLog& log, const CheckProgress& progress)
        : index_(volume.OpenFile(RECORD_INDEX_NAME)),
          builder_(volume, index_),
          log_(log),
          progress_(progress),
          total_bytes_(volume.TotalBytes()),
          count_(std::min(CountRecordFiles(volume), RoomForFiles())) {
        if (volume.Has(RECORD_EVENT_NAME)) events_ = volume.OpenFile(RECORD_EVENT_NAME);
    }

    // `findings`: nothing when the index could not be read at all.
    void Run(const std::optional<Findings>& findings) {
        std::set<uint32_t> wanted;
        std::set<uint32_t> events;
        for (uint32_t number = 0; number < count_ && !findings; ++number) wanted.insert(number);
        bool system = !findings;
        for (const Finding& finding : findings.value_or(Findings{})) {
            if (finding.mend == Mend::File && finding.file < count_) wanted.insert(finding.file);
            if (finding.mend == Mend::Events) events.insert(finding.file);
            system = system || finding.mend == Mend::System;
        }
        BuildFiles(wanted);
        const RecordSystemInfoHead_S left = index_.Get<RecordSystemInfoHead_S>(0).value_or(RecordSystemInfoHead_S{});
        RecordSystemInfoHead_S head = BuildSystemHead(left, total_bytes_, files_);
        TakeWhole(head);
        head = BuildSystemHead(left, total_bytes_, files_);
        for (const uint32_t number : wanted) Write(number);
        if (!wanted.empty()) system = true;
        if (system && std::memcmp(&head, &left, sizeof head) != 0) {
            index_.WriteAt(0, &head, sizeof head);
            index_.Sync();
            log_.push_back("system head rebuilt");
        }
        for (uint32_t number = 0; number < count_ && !findings; ++number) events.insert(number);
        for (const uint32_t number : events) MendEvents(number);
    }

  private:
    uint32_t RoomForFiles() const {
        const uint64_t blocks = index_.Reachable() > RECORD_SECTION_BASE
                                    ? (index_.Reachable() - RECORD_SECTION_BASE) / RECORD_SECTION_BLOCK
                                    : 0;
        return static_cast<uint32_t>(std::min<uint64_t>(blocks, RECORD_FILE_MAX));
    }

    void BuildFiles(const std::set<uint32_t>& wanted) {
        files_.resize(count_);
        whole_.resize(count_);
        uint64_t done = 0;
        for (uint32_t number = 0; number < count_; ++number) {
            if (wanted.count(number) != 0) {
                Rebuilt rebuilt = builder_.Build(number, [&](uint64_t bytes) {
                    done += bytes;
                    if (progress_) progress_(done, wanted.size() * kSurveyLimit);
                });
                files_[number] = std::move(rebuilt.lap);
                whole_[number] = std::move(rebuilt.whole);
                continue;
            }
            files_[number].number = number;
            const auto head = index_.Get<RecordFileInfoHead_S>(RECORD_FILE_HEAD_BASE +
                                                               uint64_t{number} * sizeof(RecordFileInfoHead_S));
            if (head) files_[number].head = *head;
            files_[number].first_time = files_[number].head.m_u32RecordStartTime;
        }
    }

    // A file that is not being written is full: what looks like an earlier lap there is a clock that was set back.
    void TakeWhole(const RecordSystemInfoHead_S& system) {
        for (RebuiltFile& file : files_) {
            std::optional<RebuiltFile>& whole = whole_[file.number];
            if (file.number != system.m_u32RecordFileNo && !file.Full() && whole && whole->Full())
                file = std::move(*whole);
        }
    }

    void Write(uint32_t number) {
        const RebuiltFile& file = files_[number];
        builder_.Write(file);
        log_.push_back("file " + std::to_string(number) + ": " + Counted(file.sections.size(), "section") + ", " +
                       Counted(file.key_frames.size(), "key frame"));
    }

    bool Fits(const AlarmFileInfoHead_S& record, uint32_t number, uint32_t slot) const {
        const RecordFileInfoHead_S& file = files_[number].head;
        return record.m_u32AlarmEventFlag == ALARM_RECORD_FLAG && record.m_u16AlarmFileNo == number &&
               record.m_u16AlarmFileUseNo == slot &&
               (record.m_u32AlarmEndTime == 0 || record.m_u32AlarmEndTime >= record.m_u32AlarmStartTime) &&
               uint64_t{record.m_u32AlarmStartTime} + kEventTolerance >= file.m_u32RecordStartTime &&
               record.m_u32AlarmStartTime <= uint64_t{file.m_u32RecordEndTime} + kEventTolerance;
    }

    // Keeps the events that fit, one behind the other; behind a damaged head all that follow without a break.
    void MendEvents(uint32_t number) {
        if (!events_ || number >= ALARM_EVENT_FILE_MAX || number >= count_) return;
        const uint64_t place = record_file::EventHeadOffset(number);
        const uint64_t block = record_file::EventOffset(number, 1);
        auto head = events_->Get<AlarmEventHead_S>(place);
        if (!head || block + ALARM_EVENT_BLOCK > events_->Reachable()) return;
        const AlarmEventHead_S before = *head;
        const bool good = head->m_u32AlarmEventFlag == ALARM_EVENT_FLAG && head->m_u32AlarmFileNo == number &&
                          head->m_u32AlarmEventSum <= ALARM_EVENT_MAX;
        std::vector<AlarmFileInfoHead_S> records(good ? head->m_u32AlarmEventSum : ALARM_EVENT_MAX);
        events_->ReadAt(block, records.data(), records.size() * sizeof records[0]);
        std::vector<AlarmFileInfoHead_S> kept;
        for (uint32_t slot = 1; slot <= records.size(); ++slot) {
            const bool fits = !files_[number].Empty() && Fits(records[slot - 1], number, slot);
            if (fits) kept.push_back(records[slot - 1]);
            if (!fits && !good) break;
        }
        if ((good && kept.size() == records.size()) || (!good && kept.empty() && head->m_u32AlarmEventFlag == 0))
            return;
        if (!good) *head = AlarmEventHead_S{};
        Count(*head, kept, number);
        const size_t counted = kept.size();
        if (good) kept.resize(records.size());  // the slots that became free
        if (!kept.empty()) events_->WriteAt(block, kept.data(), kept.size() * sizeof kept[0]);
        if (std::memcmp(&before, &*head, sizeof before) != 0) events_->WriteAt(place, &*head, sizeof *head);
        events_->Sync();
        if (good || counted != 0)
            log_.push_back("events of file " + std::to_string(number) + ": " + std::to_string(counted) + " kept");
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
    RepairLog& log_;
    CheckProgress progress_;
    uint64_t total_bytes_;
    uint32_t count_;
    std::vector<RebuiltFile> files_;                 // by number
    std::vector<std::optional<RebuiltFile>> whole_;  // by number
};

bool IndexReadable(const Volume& volume) {
    const auto system = volume.OpenFile(RECORD_INDEX_NAME).Get<RecordSystemInfoHead_S>(0);
    return system && AV_SystemInfoHeadCheck(&*system) == 0;
}

}  // namespace

void RepairVolume(const std::string& path, RepairLog& log) {
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
        const bool sound = !NeedsVolume(CheckAll(*volume));
        if (sound || !layout || !LiesSo(*volume, *layout)) return;
    }
    for (std::string& line : RestoreVolume(device, *layout)) log.push_back(std::move(line));
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

void RepairStore(const Volume& volume, RepairLog& log, const CheckProgress& progress) {
    for (int pass = 0; pass < kPassesMax; ++pass) {
        std::optional<Findings> findings;
        if (IndexReadable(volume)) findings = CheckStore(volume);
        const bool mendable = !findings || std::any_of(findings->begin(), findings->end(), [](const Finding& f) {
            return f.mend == Mend::System || f.mend == Mend::File || f.mend == Mend::Events;
        });
        if (!mendable) return;
        const size_t done = log.size();
        Pass(volume, log, progress).Run(findings);
        if (log.size() == done) return;
    }
}

}  // namespace card
