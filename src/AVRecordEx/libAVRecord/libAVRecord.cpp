// The writer itself: opening, closing, and the way of one frame to the card.
#include "libAVRecord.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <span>

#include "CardHealth.h"
#include "Clock.h"
#include "FrameClass.h"
#include "RecorderStatus.h"
#include "libCameraAccess.h"
#include "libLog.h"

namespace {

constexpr char kIndexPath[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;
constexpr int kStreams = 3;
constexpr int kShortestPicture = 5;             // a start code and a byte that says what follows
constexpr uint32_t kVirtualKeyPixels = 345600;  // 720 x 480; below, a virtual key frame is not indexed
constexpr uint32_t kKeyFrameRecords = (RECORD_FILE_SIZE - RECORD_KEY_FRAME_BASE) / sizeof(KeyFrameInfoHead_S);

// In front of the first frame of every run.
constexpr uint8_t PSHead[RECORD_STREAM_HEAD_SIZE] = {0x49, 0x4D, 0x4B, 0x48, 0x01, 0x02, 0x00, 0x00,
                                                     0x02, 0x00, 0x00, 0x01, 0x01, 0x20, 0x01, 0x10,
                                                     0x80, 0xBB, 0x00, 0x00, 0x00, 0xFA, 0x00, 0x00};
uint8_t PsVedioBuf[RECORD_PACK_BUFFER_SIZE];

constinit std::atomic<AVRecordFrameCheck> g_frame_check{nullptr};

struct AVRecordInfoEx {      // counts of the run
    uint32_t m_u32FileSize;  // bytes written
    uint32_t m_u32KeyFrameNum;
    uint32_t m_u32FrameNum;  // video frames handed in
};

struct Frame {
    int kind;  // AVFrameType
    std::span<const uint8_t> data;
    const AVDataInfoOpt& info;  // the reader's copy of its header
    bool is_virtual_key;

    int Length() const { return static_cast<int>(data.size()); }
};

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
    int OpenFiles(uint32_t file_no);
    void CloseFiles();
    int WriteFrame(const Frame& frame);
    void BeginRun(AVCodeType video_codec);
    uint32_t FrameTime() const;
    int Pack(const Frame& frame, bool is_key, uint32_t time);
    int PackAudio(const Frame& frame);
    int Append(int length);
    bool IndexKeyFrame(const Frame& frame, bool is_key, int length, uint32_t time);
    void UpdateHeads(const Frame& frame, bool is_indexed, int length, uint32_t time);

    std::mutex mutex_;  // opening, closing and frames exclude each other
    std::atomic<int> m_bInit{0};
    std::atomic<int> m_AVIndex{-1};  // the stream whose frames are taken
    pthread_mutex_t m_AVStreamLock{};
    bool lock_made_ = false;
    int g_Rec_Fd = -1;               // the index
    int g_fd_stream = -1;            // the record file
    int g_fd_KeyFrame = -1;          // the record file again, for its key-frame area
    uint32_t g_u32Offset = 0;        // next write position in the record file
    bool m_IFrameGet = false;        // frames are wanted
    bool m_FirstIFrameMark = false;  // the run's first key frame is on the card
    bool g_s32KeyFrameMark = false;  // the frame in hand is the run's first key frame
    AVCodeType m_AudioCodec = CODE_AUDIO_NULL;
    AVRecordInfoEx g_stRecordInfoEx{};
    AVStreamParam g_stAVStreamParam{};
    time_t base_wall_ = 0;  // wall clock and uptime of the first key frame
    long base_uptime_ = 0;
};

constinit Writer g_writer;

class HeadsGuard {
  public:
    HeadsGuard() { AVRecordHeadsLock(); }
    ~HeadsGuard() { AVRecordHeadsUnlock(); }
    HeadsGuard(const HeadsGuard&) = delete;
    HeadsGuard& operator=(const HeadsGuard&) = delete;
};

int Writer::Open(const RecordFileInfoHead_S* file, int channel) {
    if (file == nullptr || channel < 0 || channel >= kStreams) {
        return -1;
    }
    const std::lock_guard lock(mutex_);
    CloseFiles();
    AVRecordCreateLock(&m_AVStreamLock);
    lock_made_ = true;
    uint32_t file_no = 0;
    {
        const HeadsGuard heads;
        file_no = file->m_u32FileInfoHeadNo;
        g_u32Offset = file->m_u32RecordFileSumLenth;
    }
    if (OpenFiles(file_no) < 0) {
        CloseFiles();
        return -1;
    }
    card::Pardon();
    LOG_TRACE("%s %d : g_u32Offset = %d \n", static_cast<int>(g_u32Offset));
    g_stAVStreamParam = {};
    m_AudioCodec = CODE_AUDIO_NULL;
    m_IFrameGet = true;
    m_AVIndex = channel;
    m_bInit = 1;
    return 0;
}

int Writer::OpenFiles(uint32_t file_no) {
    g_Rec_Fd = AV_RecordOpen(kIndexPath, AVFILE_READ_WRITE);
    if (g_Rec_Fd < 0) {
        return -1;
    }
    char path[64];
    std::snprintf(path, sizeof path, RECORD_STORE_DIRECTORY RECORD_FILE_NAME, static_cast<int>(file_no));
    LOG_TRACE("%s %d :################## FileName = %s \n", path);
    g_fd_stream = AV_RecordStreamFileOpen(path, AVFILE_READ_WRITE);
    if (g_fd_stream < 0) {
        LOG_TRACE("%s %d : open %s file fail\n", path);
        return -1;
    }
    g_fd_KeyFrame = g_fd_stream;
    return 0;
}

int Writer::Close() {
    const std::lock_guard lock(mutex_);
    CloseFiles();
    return 0;
}

void Writer::CloseFiles() {
    m_bInit = 0;
    m_AVIndex = -1;
    if (g_Rec_Fd >= 0) {
        AV_RecordClose(g_Rec_Fd);
        g_Rec_Fd = -1;
    }
    g_fd_KeyFrame = -1;
    if (g_fd_stream >= 0) {
        AV_RecordStreamFileClose(g_fd_stream);
        g_fd_stream = -1;
    }
    m_IFrameGet = false;
    m_FirstIFrameMark = false;
    g_s32KeyFrameMark = false;
    g_u32Offset = 0;
    g_stRecordInfoEx = {};
    if (lock_made_) {
        AVRecordDestroyLock(&m_AVStreamLock);
        lock_made_ = false;
    }
}

int Writer::Hold() {
    const std::lock_guard lock(mutex_);
    m_IFrameGet = false;
    return 0;
}

int Writer::OpenStream(const char* path) {
    const std::lock_guard lock(mutex_);
    if (g_fd_stream >= 0) {
        AV_RecordStreamFileClose(g_fd_stream);
    }
    g_fd_stream = AV_RecordStreamFileOpen(path, AVFILE_READ_WRITE);
    g_fd_KeyFrame = g_fd_stream;
    return g_fd_stream >= 0 ? 0 : -1;
}

int Writer::CloseStream() {
    const std::lock_guard lock(mutex_);
    const int fd = g_fd_stream;
    g_fd_stream = -1;
    g_fd_KeyFrame = -1;
    return AV_RecordStreamFileClose(fd);
}

int Writer::StreamDescriptor() {
    const std::lock_guard lock(mutex_);
    return g_fd_stream;
}

int Writer::Write(int channel, int kind, const char* data, const AVDataInfoOpt* info) {
    // Asked without the lock first: the readers of other streams must not wait for the card.
    if (m_bInit == 0 || m_AVIndex != channel) {
        return 0;
    }
    if (data == nullptr || info == nullptr || info->AVDataLen < 0 ||
        (kind != AV_FRAME_TYPE_VIDEO && kind != AV_FRAME_TYPE_AUDIO)) {
        return -1;
    }
    const std::lock_guard lock(mutex_);
    if (m_bInit == 0 || m_AVIndex != channel) {
        return 0;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(data);
    return WriteFrame({kind, {bytes, static_cast<size_t>(info->AVDataLen)}, *info, info->iVirtualIFrame == 1});
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
    if (!m_IFrameGet) {
        return 0;
    }
    const FrameClass found = frame.kind == AV_FRAME_TYPE_VIDEO ? ClassifyVideo(frame.data) : FrameClass{};
    if (!m_FirstIFrameMark) {
        if (!found.is_key) {
            base_uptime_ = 0;
            return -1;
        }
        BeginRun(found.codec);
    }
    uint32_t time = FrameTime();
    const int length = Pack(frame, found.is_key, time);
    if (length < 0) {
        return -1;
    }
    if (!IsIntact(frame)) {
        RecorderStatusFrameTorn();
        return -1;
    }
    const int written = Append(length);
    if (written <= 0) {
        RecorderStatusFrameDropped();
        return written;
    }
    if (g_s32KeyFrameMark) {
        m_FirstIFrameMark = true;
        g_s32KeyFrameMark = false;
        const HeadsGuard heads;
        time = AV_RecordInfoHeadGet()->m_u32RecordStartTime;
    }
    g_stRecordInfoEx.m_u32FileSize += static_cast<uint32_t>(length);
    g_u32Offset += static_cast<uint32_t>(length);
    const bool is_indexed = IndexKeyFrame(frame, found.is_key, length, time);
    UpdateHeads(frame, is_indexed, length, time);
    RecorderStatusFrame(time);
    return 0;
}

// What the camera says of a stream, for the packer and for players.
AVStreamParam ReadStreamParam(int channel, AVCodeType video_codec) {
    Camera_VideoConfig videos[kStreams]{};
    Camera_AudioConfig audio{};
    Camera_DISPLAYPROPERTY display{};
    CameraGetVideoConfig(videos);
    CameraGetAudioConfig(&audio);
    CameraGetDisplayProperty(&display);
    const Camera_VideoConfig& video = videos[channel];
    const bool is_upright = display.ucRotateAngle == 1 || display.ucRotateAngle == 3;

    AVStreamParam param{};
    param.m_u8VedioCodeType = static_cast<uint16_t>(video_codec);
    param.m_u16VedioWidth = static_cast<uint16_t>(is_upright ? video.iVideoHeight : video.iVideoWidth);
    param.m_u16VedioHeight = static_cast<uint16_t>(is_upright ? video.iVideoWidth : video.iVideoHeight);
    param.m_u16VedioBitRate = static_cast<uint16_t>(video.iBitrate);
    param.m_u16VedioFrame = static_cast<uint16_t>(video.iFrameRate);
    param.m_u8AudioCodeType = static_cast<uint16_t>(audio.iEncoding);
    param.m_u16AudioSampleRate = static_cast<uint16_t>(audio.iSamplerate);
    param.m_u16AudioBitRate = static_cast<uint16_t>(audio.iBitrate);
    if (audio.iEncoding == 0 || audio.iEncoding == 1) {
        param.m_u8AudioCodeType = audio.iEncoding == 0 ? CODE_AUDIO_G711U : CODE_AUDIO_G711A;
        param.m_u16AudioSampleRate = 8000;
        param.m_u16AudioBitRate = 33000;
    }
    LOG_TRACE("%s %d : Now RotateAngle  %d, width = %d, height = %d  framerate = %d  \n", display.ucRotateAngle,
              param.m_u16VedioWidth, param.m_u16VedioHeight, param.m_u16VedioFrame);
    return param;
}

// The first key frame is here: takes the stream's parameters and the time that the run's frames count from.
void Writer::BeginRun(AVCodeType video_codec) {
    g_s32KeyFrameMark = true;
    const AVStreamParam param = ReadStreamParam(m_AVIndex, video_codec);
    g_stAVStreamParam = param;
    m_AudioCodec = static_cast<AVCodeType>(param.m_u8AudioCodeType);

    RecordVedioInfo_S info{};
    info.m_u16Width = param.m_u16VedioWidth;
    info.m_u16Height = param.m_u16VedioHeight;
    info.m_u8Frame = static_cast<uint8_t>(param.m_u16VedioFrame);
    info.m_u8VideoType = static_cast<uint8_t>(param.m_u8VedioCodeType);
    info.m_u8AudioType = static_cast<uint8_t>(param.m_u8AudioCodeType);
    {
        const HeadsGuard heads;
        AV_RecordSectionInfoHeadVedioParamFresh(AV_RecordInfoHeadGet(), &info);
    }
    base_wall_ = WallSeconds();
    base_uptime_ = KQ_COMMON_GetUptime();
    const tm start = LocalTime(base_wall_);
    LOG_TRACE("%s %d : ####################################################### \n");
    LOG_TRACE("%s %d: ## PlayTime. %04d-%02d-%02d %02d:%02d:%02d    %u  ##\n", start.tm_year + 1900, start.tm_mon + 1,
              start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec, static_cast<unsigned int>(base_wall_));
    LOG_TRACE("%s %d : ####################################################### \n");
}

// Small steps of the wall clock are followed; after a large one the run keeps the time it began with.
uint32_t Writer::FrameTime() const {
    const int64_t wall = WallSeconds();
    const int64_t steady = static_cast<int64_t>(base_wall_) + (KQ_COMMON_GetUptime() - base_uptime_);
    const int64_t step = wall - steady;
    return static_cast<uint32_t>(step > -60 && step < 60 ? wall : steady);
}

// The room that a video frame may need.  Only its length is asked: a frame still lies in the media server's
// ring, and bytes that change while they are read must not decide how much is written.
int64_t VideoRoom(const Frame& frame, bool is_key) {
    constexpr int kCuts = 2;  // of a key frame, at most; each begins a packet
    constexpr int kKeyFrameExtra = PS_KEY_FRAME_HEADERS - PS_PACK_HEADER_SIZE + kCuts * PS_PES_HEADER_SIZE;
    const int64_t size = PackedVideoSize(false, frame.data.data(), frame.Length());
    return size < 0 || !is_key ? size : size + kKeyFrameExtra;
}

// Returns the bytes in PsVedioBuf, or -1.  A frame goes in whole or not at all.
int Writer::Pack(const Frame& frame, bool is_key, uint32_t time) {
    if (frame.kind != AV_FRAME_TYPE_VIDEO) {
        return PackAudio(frame);
    }
    ++g_stRecordInfoEx.m_u32FrameNum;
    const int head = g_s32KeyFrameMark ? RECORD_STREAM_HEAD_SIZE : 0;
    const int64_t room = VideoRoom(frame, is_key);
    if (frame.Length() < kShortestPicture || room < 0 || room + head > RECORD_PACK_BUFFER_SIZE) {
        LOG_ERROR("%s %d : a frame of %d bytes is none or does not fit, dropped\n", frame.Length());
        RecorderStatusFrameDropped();
        return -1;
    }
    std::memcpy(PsVedioBuf, PSHead, static_cast<size_t>(head));
    const int packed =
        libAVRecordVideoPsStreamWrite(is_key ? 1 : 0, frame.data.data(), frame.Length(), PsVedioBuf + head,
                                      g_stRecordInfoEx.m_u32FrameNum, &g_stAVStreamParam, time);
    return packed < 0 ? -1 : packed + head;
}

int Writer::PackAudio(const Frame& frame) {
    if (m_AudioCodec != CODE_AUDIO_AAC && m_AudioCodec != CODE_AUDIO_G711U && m_AudioCodec != CODE_AUDIO_G711A) {
        return -1;
    }
    const int64_t size = PackedAudioSize(frame.Length());
    if (frame.data.empty() || size < 0 || size > RECORD_PACK_BUFFER_SIZE) {
        LOG_ERROR("%s %d : audio of %d bytes is none or does not fit, dropped\n", frame.Length());
        RecorderStatusFrameDropped();
        return -1;
    }
    return libAVRecordAudioPsStreamWrite(frame.data.data(), frame.Length(), PsVedioBuf,
                                         g_stRecordInfoEx.m_u32FrameNum + 1);
}

int Writer::Append(int length) {
    if (g_u32Offset > RECORD_KEY_FRAME_BASE || static_cast<uint32_t>(length) > RECORD_KEY_FRAME_BASE - g_u32Offset) {
        LOG_ERROR("%s %d : %d bytes at %u would reach the key-frame area, dropped\n", length, g_u32Offset);
        return -1;
    }
    return AV_RecordStreamInfoWrite(g_fd_stream, g_u32Offset, PsVedioBuf, length);
}

// Adds the frame's key-frame record if it gets one.  The counts rise exactly when a record was written.
bool Writer::IndexKeyFrame(const Frame& frame, bool is_key, int length, uint32_t time) {
    const uint32_t pixels = uint32_t{g_stAVStreamParam.m_u16VedioWidth} * g_stAVStreamParam.m_u16VedioHeight;
    const bool is_virtual = frame.kind == AV_FRAME_TYPE_VIDEO && frame.is_virtual_key;
    if (!is_key && !(is_virtual && pixels >= kVirtualKeyPixels)) {
        return false;
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const uint32_t number = heads.file.m_u32RecordKeyFrameSum;
    if (number >= kKeyFrameRecords) {
        return false;
    }
    const uint8_t type = is_virtual ? RECORD_KEY_FRAME_VIRTUAL : RECORD_KEY_FRAME_REAL;
    KeyFrameInfoHead_S record;
    AV_RecordKeyFrameInfoUpdate(&record, time, static_cast<uint32_t>(length), heads.section.m_u32RecordSize, type);
    const tm when = LocalTime(static_cast<time_t>(time));
    LOG_TRACE("%s %d: ##keyType = %d  KeyFrameTime. %04d-%02d-%02d %02d:%02d:%02d ##\n", type, when.tm_year + 1900,
              when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    const uint32_t offset = number * static_cast<uint32_t>(sizeof record);
    if (AV_RecordKeyFrameWrite(g_fd_KeyFrame, offset, &record, sizeof record) != static_cast<int>(sizeof record)) {
        return false;
    }
    ++g_stRecordInfoEx.m_u32KeyFrameNum;
    return true;
}

void Writer::UpdateHeads(const Frame& frame, bool is_indexed, int length, uint32_t time) {
    AVRecordHeads heads;
    {
        const HeadsGuard guard;
        RecordFileInfoHead_S* file = AV_RecordFileInfoHeadGet();
        RecordInfoHead_S* section = AV_RecordInfoHeadGet();
        const uint32_t bytes = static_cast<uint32_t>(length);
        AV_RecordSectionInfoHeadEndTimeFresh(section, time);
        AV_RecordSectionInfoHeadFileSizeFresh(section, bytes);
        AV_RecordSecitonInfoHeadKeyFrameFresh(section, is_indexed ? 1 : 0, frame.kind);
        AV_RecordFileInfoHeadFileLenthFresh(file, bytes);
        if (time >= file->m_u32RecordEndTime) {
            AV_RecordFileInfoHeadEndTimeFresh(file, time);
        }
        AV_RecodrFileInfoHeadKeyFrameFresh(file, is_indexed ? 1 : 0);
        heads = {*AV_RecordSystemInfoHeadGet(), *file, *section};
    }
    AV_RecordSectionInfoHeadWrite(g_Rec_Fd, &heads.file, &heads.section);
    AV_RecordFileInfoHeadWrite(g_Rec_Fd, &heads.system, &heads.file);
    AV_SystemInfoHeadWrite(g_Rec_Fd, &heads.system);
}

}  // namespace

int KQ_RecordInit(const RecordFileInfoHead_S* file, int channel) {
    return g_writer.Open(file, channel);
}
int KQ_RecordUninit(void) {
    return g_writer.Close();
}
int AVRecordFramesHold(void) {
    return g_writer.Hold();
}
int KQ_RecordOpen(const char* path) {
    return g_writer.OpenStream(path);
}
int KQ_RecordClose(void) {
    return g_writer.CloseStream();
}
int KQ_RecordStreamFdGet(void) {
    return g_writer.StreamDescriptor();
}

void AVRecordFrameCheckSet(AVRecordFrameCheck is_intact) {
    g_frame_check = is_intact;
}

int libAVRecordWriteFrame(int channel, int kind, const char* data, const AVDataInfoOpt* info) {
    return g_writer.Write(channel, kind, data, info);
}
