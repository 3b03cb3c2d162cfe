// The writer itself: opening, closing, and the way of one frame to the card.
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdio>

#include "CardFile.h"
#include "CardHealth.h"
#include "Clock.h"
#include "FramePacker.h"
#include "HandOver.h"
#include "Immortal.h"
#include "Mutex.h"
#include "RecorderStatus.h"
#include "RunIndex.h"
#include "libAVRecord.h"
#include "libCameraAccess.h"
#include "libLog.h"

namespace {

constinit std::atomic<AVRecordFrameCheck> g_frame_check{nullptr};

// The time that the frames of a run get.
class RunClock {
  public:
    // The run's first key frame is here.
    void Begin() {
        wall_ = WallSeconds();
        uptime_ = KQ_COMMON_GetUptime();
        const tm start = LocalTime(wall_);
        LOG_TRACE_AS("libAVRecordWriteFrame", " : ####################################################### \n");
        LOG_TRACE_AS("libAVRecordWriteFrame", ": ## PlayTime. %04d-%02d-%02d %02d:%02d:%02d    %u  ##\n",
                     start.tm_year + 1900, start.tm_mon + 1, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec,
                     static_cast<unsigned int>(wall_));
        LOG_TRACE_AS("libAVRecordWriteFrame", " : ####################################################### \n");
    }

    // Small steps of the wall clock are followed; after a large one the run keeps the time it began with.
    uint32_t FrameTime() const {
        const int64_t wall = WallSeconds();
        const int64_t steady = static_cast<int64_t>(wall_) + (KQ_COMMON_GetUptime() - uptime_);
        const int64_t step = wall - steady;
        return static_cast<uint32_t>(step > -60 && step < 60 ? wall : steady);
    }

  private:
    time_t wall_ = 0;  // at the first key frame
    long uptime_ = 0;
};

// The given names of the state stand after the members.
class Writer {
  public:
    int Open(const RecordFileInfoHead_S* file, int channel);
    int Close();
    int Hold();
    int Write(int channel, int kind, const char* data, const AVDataInfoOpt* info);
    int OpenStream(const char* path);
    int CloseStream();
    int StreamDescriptor();

  private:
    bool OpenFiles(uint32_t file_no);
    void BeginHandOver();
    void CloseFiles();
    int WriteFrame(const Frame& frame);
    int Append(std::span<const uint8_t> packed);
    [[maybe_unused]] bool OffsetIsTheFilesLength() const;  // asserted where assertions are on

    Mutex mutex_;                       // opening, closing and frames exclude each other
    std::atomic<bool> is_open_{false};  // m_bInit
    std::atomic<int> channel_{-1};      // m_AVIndex: the stream whose frames are taken
    Descriptor index_;                  // g_Rec_Fd
    Descriptor stream_;                 // g_fd_stream, and g_fd_KeyFrame: the record file
    uint32_t offset_ = 0;               // g_u32Offset: next write position in it
    bool takes_frames_ = false;         // m_IFrameGet
    bool has_begun_ = false;            // m_FirstIFrameMark: the run's first key frame is on the card
    FramePacker packer_;
    RunIndex run_index_;
    RunClock clock_;
    HandOver hand_over_;
};

constinit Immortal<Writer> g_writer;
constexpr Writer& TheWriter() {
    return g_writer.value;
}

int Writer::Open(const RecordFileInfoHead_S* file, int channel) {
    if (file == nullptr || channel < 0 || channel >= CAMERA_VIDEO_STREAMS) {
        return -1;
    }
    const std::lock_guard lock(mutex_);
    CloseFiles();
    uint32_t file_no = 0;
    uint32_t section_no = 0;
    {
        const HeadsGuard heads;
        file_no = file->m_u32FileInfoHeadNo;
        section_no = file->m_u32RecordSectionSum;
        offset_ = file->m_u32RecordFileSumLenth;
    }
    if (!OpenFiles(file_no)) {
        CloseFiles();
        return -1;
    }
    card::Pardon();
    LOG_TRACE_AS("KQ_RecordInit", " : g_u32Offset = %d \n", static_cast<int>(offset_));
    RecorderStatusPlace(file_no, section_no);
    takes_frames_ = true;
    channel_ = channel;
    is_open_ = true;
    BeginHandOver();
    return 0;
}

void Writer::BeginHandOver() {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const uint32_t next = heads.file.m_u32FileInfoHeadNo + 1;
    hand_over_.Start({.index_fd = index_.Get(),
                      .stream_fd = stream_.Get(),
                      .next_file_no = next < heads.system.m_u32RecordFileSum ? next : 0,
                      .stream_end = offset_,
                      .key_records = heads.file.m_u32RecordKeyFrameSum});
}

// Recording fills the files that are there and creates none: without a card their folder is the camera's flash.
bool Writer::OpenFiles(uint32_t file_no) {
    index_ = card::OpenIndex(AVFILE_READ_WRITE);
    if (!index_.IsOpen()) {
        LOG_TRACE_AS("AVFileOpen", " :open %s fail %d\n", card::kIndexPath, errno);
        return false;
    }
    char path[64];
    std::snprintf(path, sizeof path, RECORD_STORE_DIRECTORY RECORD_FILE_NAME, static_cast<int>(file_no));
    LOG_TRACE_AS("KQ_RecordInit", " :################## FileName = %s \n", path);
    stream_ = card::OpenRecordFile(file_no, AVFILE_READ_WRITE);
    if (!stream_.IsOpen()) {
        LOG_TRACE_AS("AVFileOpen", " :open %s fail %d\n", path, errno);
        LOG_TRACE_AS("KQ_RecordInit", " : open %s file fail\n", path);
    }
    return stream_.IsOpen();
}

int Writer::Close() {
    const std::lock_guard lock(mutex_);
    CloseFiles();
    return 0;
}

void Writer::CloseFiles() {
    is_open_ = false;
    channel_ = -1;
    if (index_.IsOpen() && stream_.IsOpen()) {
        hand_over_.HeadsWritten(run_index_.Finish(index_.Get(), stream_.Get()));
    }
    hand_over_.Stop();
    // A close that fails is told by the door; nothing could be done here that the next run does not do.
    index_.Close();
    stream_.Close();
    takes_frames_ = false;
    has_begun_ = false;
    offset_ = 0;
    packer_.Reset();
    run_index_.Reset();
}

int Writer::Hold() {
    const std::lock_guard lock(mutex_);
    takes_frames_ = false;
    return 0;
}

int Writer::OpenStream(const char* path) {
    const std::lock_guard lock(mutex_);
    stream_ = Descriptor(AV_RecordStreamFileOpen(path, AVFILE_READ_WRITE), AV_RecordStreamFileClose);
    return stream_.IsOpen() ? 0 : -1;
}

int Writer::CloseStream() {
    const std::lock_guard lock(mutex_);
    return stream_.Close();
}

int Writer::StreamDescriptor() {
    const std::lock_guard lock(mutex_);
    return stream_.Get();
}

int Writer::Write(int channel, int kind, const char* data, const AVDataInfoOpt* info) {
    // Asked without the lock first: the readers of other streams must not wait for the card.
    if (!is_open_ || channel_ != channel) {
        return 0;
    }
    if (data == nullptr || info == nullptr || info->AVDataLen < 0 ||
        (kind != AV_FRAME_TYPE_VIDEO && kind != AV_FRAME_TYPE_AUDIO)) {
        return -1;
    }
    const std::lock_guard lock(mutex_);
    if (!is_open_ || channel_ != channel || !takes_frames_) {
        return 0;
    }
    return WriteFrame(Frame(kind, data, *info));
}

// A frame lies in the media server's ring while it is packed and may have been overwritten meanwhile.
bool IsIntact(const Frame& frame) {
    const AVRecordFrameCheck is_intact = g_frame_check.load(std::memory_order_relaxed);
    if (is_intact == nullptr) {
        return true;
    }
    std::atomic_thread_fence(std::memory_order_acquire);  // the frame's bytes were read before its header is read again
    return is_intact(reinterpret_cast<const char*>(frame.data.data()), &frame.info) != 0;
}

int Writer::WriteFrame(const Frame& frame) {
    const bool is_first = !has_begun_;
    if (is_first && !frame.found.is_key) {
        return -1;
    }
    if (is_first) {
        packer_.ReadParameters(channel_, frame.found.codec);
        RunIndex::Begin(packer_.Parameters());
        clock_.Begin();
    }
    uint32_t time = clock_.FrameTime();
    const std::span<const uint8_t> packed = packer_.Pack(frame, is_first, time);
    if (packed.empty()) {
        return -1;
    }
    if (!IsIntact(frame)) {
        RecorderStatusFrameTorn();
        return -1;
    }
    assert(OffsetIsTheFilesLength());
    if (const int appended = Append(packed); appended <= 0) {
        RecorderStatusFrameDropped();
        return appended;
    }
    if (is_first) {
        has_begun_ = true;
        const HeadsGuard heads;
        time = AV_RecordInfoHeadGet()->m_u32RecordStartTime;
    }
    const WrittenFrame written{frame, static_cast<uint32_t>(packed.size()), time};
    offset_ += written.length;
    hand_over_.StreamWritten(offset_);
    hand_over_.HeadsWritten(run_index_.Add(index_.Get(), stream_.Get(), written, packer_.Parameters()));
    RecorderStatusFrame(time);
    return 0;
}

// Up to the limit, after which the length stands still.
bool Writer::OffsetIsTheFilesLength() const {
    const HeadsGuard heads;
    const uint32_t length = AV_RecordFileInfoHeadGet()->m_u32RecordFileSumLenth;
    return length == offset_ || length > RECORD_STREAM_LIMIT;
}

// The zeros that complete the last sector of a write up to `end`.  Of a sector that is written in part the system would
// first read the rest from the card, in the frame's way; the next frame is written over the zeros.
int SectorFill(uint32_t end) {
    return static_cast<int>((kCardSector - end % kCardSector) % kCardSector);
}
static_assert(RECORD_KEY_FRAME_BASE % kCardSector == 0, "no fill reaches the key-frame area");

int Writer::Append(std::span<const uint8_t> packed) {
    if (offset_ > RECORD_KEY_FRAME_BASE || packed.size() > RECORD_KEY_FRAME_BASE - offset_) {
        LOG_ERROR_AS("libAVRecordWriteFrame", " : %zu bytes at %u would reach the key-frame area, dropped\n",
                     packed.size(), offset_);
        return -1;
    }
    const auto length = static_cast<int>(packed.size());
    const int whole = length + SectorFill(offset_ + static_cast<uint32_t>(length));
    const int written = AV_RecordStreamInfoWrite(stream_.Get(), offset_, packed.data(), whole);
    return written == whole ? length : written;
}

}  // namespace

int KQ_RecordInit(const RecordFileInfoHead_S* file, int channel) {
    return TheWriter().Open(file, channel);
}
int KQ_RecordUninit(void) {
    return TheWriter().Close();
}
int AVRecordFramesHold(void) {
    return TheWriter().Hold();
}
int KQ_RecordOpen(const char* path) {
    return TheWriter().OpenStream(path);
}
int KQ_RecordClose(void) {
    return TheWriter().CloseStream();
}
int KQ_RecordStreamFdGet(void) {
    return TheWriter().StreamDescriptor();
}

void AVRecordFrameCheckSet(AVRecordFrameCheck is_intact) {
    g_frame_check = is_intact;
}

int libAVRecordWriteFrame(int channel, int kind, const char* data, const AVDataInfoOpt* info) {
    return TheWriter().Write(channel, kind, data, info);
}
