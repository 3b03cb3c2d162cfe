#include "RecordCard.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "CardFile.h"
#include "Clock.h"
#include "Descriptor.h"
#include "Mutex.h"
#include "RecordState.h"
#include "RecorderStatus.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libLog.h"

namespace {

constexpr char kDeviceNode[] = "/dev/mmcblk0p1";

// The card's device node, asked for 50 times a second.  The kernel tells of what happens to it, which costs a fifth of
// walking its path; whether the name still leads to it is asked once a second.  Where the name is a symbolic link, or
// nothing is told, the path is always walked.
class DeviceNode {
  public:
    // 0 when it is there, else why not.
    int Error() {
        const std::lock_guard guard(lock_);
        const bool is_untouched = IsUntouched();
        if (const long now = KQ_COMMON_GetUptime(); now != asked_) {
            asked_ = now;
            if (!is_untouched) {
                is_watched_ = Watch();
            }
        } else if (is_untouched) {
            return 0;
        }
        return access(kDeviceNode, F_OK) == 0 ? 0 : errno;
    }

  private:
    bool Watch() {
        constexpr uint32_t kRemoved = IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;  // its number of links is an attribute
        struct stat64 status {};
        events_ = Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        return events_.IsOpen() && lstat64(kDeviceNode, &status) == 0 && !S_ISLNK(status.st_mode) &&
               inotify_add_watch(events_.Get(), kDeviceNode, kRemoved | IN_DONT_FOLLOW) >= 0;
    }
    bool IsUntouched() {
        inotify_event event;
        is_watched_ = is_watched_ && read(events_.Get(), &event, sizeof event) < 0 && errno == EAGAIN;
        return is_watched_;
    }

    Mutex lock_;
    long asked_ = -1;  // s since boot
    Descriptor events_;
    bool is_watched_ = false;
};
constinit DeviceNode g_device_node;

struct Identity {  // of the mounted card
    dev_t device = 0;
    ino_t index = 0;
    int volume[2] = {};
    bool operator==(const Identity&) const = default;
};

bool Identify(int fd, Identity* found) {
    struct stat64 file {};
    struct statfs64 volume {};
    if (fstat64(fd, &file) != 0 || fstatfs64(fd, &volume) != 0) {
        LOG_ERROR(": the card cannot be identified, errno = %d\n", errno);
        return false;
    }
    *found = {.device = file.st_dev, .index = static_cast<ino_t>(file.st_ino)};
    static_assert(sizeof found->volume == sizeof volume.f_fsid);
    std::memcpy(found->volume, &volume.f_fsid, sizeof found->volume);
    return true;
}

Identity g_identity;      // of the card that g_heads are of
AVRecordHeads g_heads{};  // as the card has them, or ought to

struct Refused {  // what the card refused and no frame writes again
    AVRecordHeads heads{};
    bool section = false;
    bool file = false;
};
Refused g_refused;

struct LeftFile {  // it refused what was written
    bool is_one = false;
    uint32_t number = 0;
    uint32_t start = 0;  // of its lap; 0: nothing of it was recorded
};
LeftFile g_left;

void SetHeads(const RecordSystemInfoHead_S& system, const RecordFileInfoHead_S& file) {
    AVRecordFramesHold();
    AVRecordHeadsLock();
    *AV_RecordSystemInfoHeadGet() = system;
    *AV_RecordFileInfoHeadGet() = file;
    AVRecordHeadsUnlock();
}

// What a damaged head says of its place must not lead a run into the files and slots of another.
void KeepToItsPlace(RecordFileInfoHead_S* file, uint32_t number) {
    if (file->m_u32FileInfoHeadFlag == RECORD_FILE_FLAG) {
        file->m_u32FileInfoHeadNo = number;
        file->m_u32RecordSectionSum = std::min(file->m_u32RecordSectionSum, RECORD_SECTION_MAX);
    }
}

// An index that ends before the head means an empty file.  Any other failure tells nothing about the file: to take it
// for empty would be to overwrite the newest footage of the card.
bool ReadFileHead(int fd, uint32_t number, RecordFileInfoHead_S* file) {
    const AVHeadLoad load = AVRecordFileHeadLoad(fd, number, file);
    if (load == AV_HEAD_LOADED) {
        KeepToItsPlace(file, number);
    } else {
        *file = {};
    }
    return load != AV_HEAD_FAILED;
}

// A number that the ring does not hold would make a file where no reader looks.
bool IsPrepared(const RecordSystemInfoHead_S& system) {
    return AV_SystemInfoHeadCheck(&system) == 0 && system.m_u32RecordFileNo < RECORD_FILE_MAX &&
           system.m_u32RecordFileNo < system.m_u32RecordFileSum;
}

template <class Head>
bool AreSame(const Head& a, const Head& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Whether the card has an earlier state of our own heads: it refused the last ones, and the footage they count is
// there.
bool IsBehind(const RecordSystemInfoHead_S& system, const RecordFileInfoHead_S& file) {
    const RecordFileInfoHead_S& ours = g_heads.file;
    const RecordInfoHead_S& section = g_heads.section;
    return section.m_u32RecordInfoHeadFlag == RECORD_SECTION_FLAG &&
           section.m_u16RecordFileNo == ours.m_u32FileInfoHeadNo && file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG &&
           ours.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG &&
           system.m_u32RecordFileSum == g_heads.system.m_u32RecordFileSum &&
           system.m_u32SDCardSpaceSize == g_heads.system.m_u32SDCardSpaceSize &&
           system.m_u32RecordUsedFileSum <= g_heads.system.m_u32RecordUsedFileSum &&
           (system.m_u32RecordFileNo == ours.m_u32FileInfoHeadNo ||
            system.m_u32RecordFileNo == g_heads.system.m_u32RecordFileNo) &&
           file.m_u32RecordStartTime >= ours.m_u32RecordStartTime &&
           file.m_u32RecordFileSumLenth <= ours.m_u32RecordFileSumLenth &&
           file.m_u32RecordKeyFrameSum <= ours.m_u32RecordKeyFrameSum &&
           file.m_u32RecordSectionSum <= ours.m_u32RecordSectionSum;
}

// The newest section's head on the card is ours, or there is none to compare.
bool SectionIsSame(int fd) {
    const RecordInfoHead_S& section = g_heads.section;
    const uint32_t count = g_heads.file.m_u32RecordSectionSum;
    if (section.m_u32RecordSize == 0 || section.m_u16RecordUseNo < 1 || section.m_u16RecordUseNo > count ||
        section.m_u16RecordFileNo != g_heads.file.m_u32FileInfoHeadNo || count > RECORD_SECTION_MAX) {
        return true;
    }
    RecordInfoHead_S sections[RECORD_SECTION_MAX];
    return AV_RecordSectionInfoHeadRead(fd, &g_heads.file, sections) == 0 &&
           AreSame(sections[section.m_u16RecordUseNo - 1], section);
}

// A place that takes no section head costs that section its index and must not keep the next from being recorded.
void WriteSection(int fd) {
    if (AV_RecordSectionInfoHeadWrite(fd, &g_heads.file, &g_heads.section) != 0) {
        g_refused = {.heads = g_heads, .section = true};
    }
}

// A full file's head is nobody's any more once recording goes on in the next; another one is written with each frame.
void WriteHeads(int fd) {
    const RecordFileInfoHead_S& file = g_heads.file;
    const bool is_left = g_heads.system.m_u32RecordFileNo != file.m_u32FileInfoHeadNo;
    const bool section = AV_RecordSectionInfoHeadWrite(fd, &file, &g_heads.section) == 0;
    const bool head = AV_RecordFileInfoHeadAccecsFileNoWrite(fd, file.m_u32FileInfoHeadNo, &file) == 0;
    if (!section || (!head && is_left)) {
        g_refused = {.heads = g_heads, .section = !section, .file = !head && is_left};
    }
    AV_SystemInfoHeadWrite(fd, &g_heads.system);
}

// Waits for the card: what is written only reaches the system's cache.  On failure errno says why.
bool PutSystemHead(int fd, const RecordSystemInfoHead_S& system) {
    return AV_SystemInfoHeadWrite(fd, &system) >= 0 &&
           card::SyncRange(card::Kind::kIndex, fd, 0, sizeof system) == card::Result::kDone;
}

// A card that refused every write is tried with one that changes nothing, instead of with a run.
bool TakesData(int fd) {
    return AVRecordCardFailing() == 0 || PutSystemHead(fd, g_heads.system);
}

// When the file that was left is the current one still: the next one becomes it, as if this one were full.
bool GoOnAfterLeft(int fd, AVRecordHeads* heads) {
    const bool is_its_lap = g_left.start == 0 || g_left.start == heads->file.m_u32RecordStartTime;
    if (!g_left.is_one || heads->system.m_u32RecordFileNo != g_left.number || !is_its_lap) {
        return true;
    }
    RecordFileInfoHead_S full = heads->file;
    full.m_u32RecordFileSumLenth = RECORD_STREAM_LIMIT;
    AV_SystemInfoHeadUsedFileSumFresh(&heads->system, &full);
    AV_SystemInfoHeadFileNoFresh(&heads->system, &full);
    if (!PutSystemHead(fd, heads->system)) {
        RecorderStatusActivity("card cannot be written");
        return false;
    }
    LOG_ERROR_AS("AVRecordParamInit", ": record file %u takes no data, recording goes on in file %u\n", g_left.number,
                 heads->system.m_u32RecordFileNo);
    g_left = {};
    return ReadFileHead(fd, heads->system.m_u32RecordFileNo, &heads->file);
}

// The door to the card has logged what failed.
CardMatch Unknown() {
    RecorderStatusActivity("card cannot be written");
    return CardMatch::Unknown;
}

}  // namespace

int FileUtilsGetStorageStatus(const char* path) {
    (void)path;
    const int error = g_device_node.Error();
    if (error == 0) {
        return 0;
    }
    LOG_TRACE(": errno = %d %s\n", error, std::strerror(error));
    return -1;
}

bool CardWasPulled() {
    static std::atomic<int> last_error{0};  // what lasts is said once
    const int error = g_device_node.Error();
    if (last_error.exchange(error) != error && error != 0) {
        LOG_TRACE_AS("FileUtilsGetStorageStatus", ": errno = %d %s\n", error, std::strerror(error));
    }
    return error == ENOENT || error == ENOTDIR;
}

bool CardLoadHeads() {
    AVRecordHeads heads{};
    SetHeads(heads.system, heads.file);
    RecorderStatusActivity("card cannot be read");
    const Descriptor index = card::OpenIndex(g_left.is_one ? AVFILE_READ_WRITE : AVFILE_READ);
    if (!index.IsOpen() || !Identify(index.Get(), &g_identity)) {
        LOG_TRACE_AS("AVRecordParamInit", ": open file fail \n");
        return false;
    }
    if (AV_SystemInfoHeadRead(index.Get(), &heads.system) < 0) {
        LOG_TRACE_AS("AVRecordParamInit", ": read file Head fail \n");
        return false;
    }
    if (!IsPrepared(heads.system)) {
        LOG_TRACE_AS("AVRecordParamInit", ": chek file Head fail \n");
        RecorderStatusActivity("card not prepared for recording");
        return false;
    }
    if (!ReadFileHead(index.Get(), heads.system.m_u32RecordFileNo, &heads.file) ||
        !GoOnAfterLeft(index.Get(), &heads)) {
        return false;
    }
    g_heads = heads;
    SetHeads(heads.system, heads.file);
    return true;
}

void CardRememberHeads() {
    AVRecordHeadsCopy(&g_heads);
}

CardMatch CardMatchHeads() {
    const Descriptor index = card::OpenIndex(AVFILE_READ_WRITE);
    Identity identity;
    if (!index.IsOpen() || !Identify(index.Get(), &identity)) {
        return Unknown();
    }
    RecordSystemInfoHead_S system{};
    if (AV_SystemInfoHeadRead(index.Get(), &system) < 0) {
        return Unknown();
    }
    const bool is_in_use = g_heads.file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG;
    const uint32_t number = is_in_use ? g_heads.file.m_u32FileInfoHeadNo : g_heads.system.m_u32RecordFileNo;
    RecordFileInfoHead_S file{};
    if (!ReadFileHead(index.Get(), number, &file)) {
        return CardMatch::Unknown;
    }
    const bool is_same_card = identity == g_identity;
    if (is_same_card && AreSame(system, g_heads.system) && AreSame(file, g_heads.file)) {
        if (!SectionIsSame(index.Get())) {
            WriteSection(index.Get());
        }
        return TakesData(index.Get()) ? CardMatch::Ours : Unknown();
    }
    if (is_same_card && IsBehind(system, file)) {
        WriteHeads(index.Get());  // what it refuses again is written with the next frame
        return TakesData(index.Get()) ? CardMatch::Ours : Unknown();
    }
    LOG_TRACE(": the card is another one or was changed, its heads are read anew\n");
    return CardMatch::Other;
}

bool CardLeaveFile() {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const Descriptor index = card::OpenIndex(AVFILE_READ_WRITE);
    const bool takes_heads = index.IsOpen() && PutSystemHead(index.Get(), heads.system);
    if (!takes_heads && errno != EROFS) {
        return false;  // it is not the file
    }
    Identity identity;
    if (takes_heads && (!Identify(index.Get(), &identity) || !(identity == g_identity))) {
        return false;  // it was gone, and is back or another one
    }
    const bool is_in_use = heads.file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG;
    g_left = {.is_one = true,
              .number = is_in_use ? heads.file.m_u32FileInfoHeadNo : heads.system.m_u32RecordFileNo,
              .start = heads.file.m_u32RecordStartTime};
    return true;
}

void CardRetryRefused() {
    AVRecordHeads now;
    AVRecordHeadsCopy(&now);
    const RecordFileInfoHead_S& file = g_refused.heads.file;
    const RecordInfoHead_S& section = g_refused.heads.section;
    const bool slot_is_another = now.section.m_u16RecordFileNo == section.m_u16RecordFileNo &&
                                 now.section.m_u16RecordUseNo <= section.m_u16RecordUseNo;
    g_refused.section = g_refused.section && !slot_is_another;
    g_refused.file = g_refused.file && now.file.m_u32FileInfoHeadNo != file.m_u32FileInfoHeadNo;
    if (!g_refused.section && !g_refused.file) {
        return;
    }
    const Descriptor index = card::OpenIndex(AVFILE_READ_WRITE);
    Identity identity;
    if (!index.IsOpen() || !Identify(index.Get(), &identity)) {
        return;
    }
    if (!(identity == g_identity)) {
        g_refused = {};
        return;
    }
    g_refused.section = g_refused.section && AV_RecordSectionInfoHeadWrite(index.Get(), &file, &section) != 0;
    g_refused.file =
        g_refused.file && AV_RecordFileInfoHeadAccecsFileNoWrite(index.Get(), file.m_u32FileInfoHeadNo, &file) != 0;
}
