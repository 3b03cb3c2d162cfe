// One record run: its start, the watch for a reason to end it, its end.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "AlarmEvent.h"
#include "Clock.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "RecorderStatus.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAVServerAccess.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr char kOperation[] = "StartRecord";  // for the log

constexpr int kAudioOff = 2;  // audio encoding of a run without audio
constexpr int64_t kClockJumpSeconds = 5;
constexpr unsigned int kWatchMs = 20;

struct Run {                           // as it began
    int stream;                        // VideoId
    RecordFileInfoHead_S file_before;  // the record file's head without this run's section
    Camera_AudioProperty audio_property;
    int video_encoding;
    int frame_rate;
    int audio_enabled;
    int audio_encoding;
    int codec_mode;
    int width;
    int height;
    int rotation;
    timeval start_time;
    long start_uptime;
    time_t start_seconds;  // tmptime
};

struct Pass {  // as it is now
    const SysInfo& config;
    const Camera_VideoConfig& video;  // of the recorded stream
    const Camera_AudioConfig& audio;
    tm local;
};

// ---- Reasons to end a run, in the order they are asked; each logs itself ----

bool IsMotionJpeg(const Run&, const Pass& pass) {
    if (pass.video.iEncoding != CAMERA_ENCODING_MJPEG) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " This is MJPEG Stream, not support!\n");
    return true;
}

// Never true: the audio switch is read once a run, so that switching audio does not cut a recording.
bool AudioSwitched(const Run& run, const Pass&) {
    if (run.audio_property.ucEnable == run.audio_enabled) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Audio Enable Change!    %d change to %d \n", run.audio_enabled,
                 run.audio_property.ucEnable);
    return true;
}

bool AudioEncodingChanged(const Run& run, const Pass& pass) {
    if (run.audio_enabled == 0 || pass.audio.iEncoding == run.audio_encoding) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Audio Encoding Change!  %d change to %d \n", run.audio_encoding, pass.audio.iEncoding);
    return true;
}

bool VideoEncodingChanged(const Run& run, const Pass& pass) {
    if (pass.video.iEncoding == run.video_encoding) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Encoding Change!  %d change to %d \n", run.video_encoding, pass.video.iEncoding);
    return true;
}

bool FrameRateChanged(const Run& run, const Pass& pass) {
    if (pass.video.iFrameRate == run.frame_rate) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video FrameRate Change!  %d change to %d \n", run.frame_rate, pass.video.iFrameRate);
    return true;
}

bool StreamChanged(const Run& run, const Pass& pass) {
    const int stream = pass.config.Record_config.ucVideoStreamType;
    if (stream == run.stream) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Record StreamType Change ! ( %d != %d ) \n", run.stream, stream);
    return true;
}

bool ResolutionChanged(const Run& run, const Pass& pass) {
    const int width = pass.config.stream_config[run.stream].width;
    const int height = pass.config.stream_config[run.stream].height;
    if (width == run.width && height == run.height) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " StreamType[%d] Resolution Change ! ( W:%d != %d or H:%d != %d ) \n", run.stream,
                 run.width, width, run.height, height);
    return true;
}

bool RecordSwitchedOff(const Run&, const Pass& pass) {
    if (pass.config.Record_config.ucEnable != 0) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Record Enable close ! \n");
    return true;
}

bool CodecModeChanged(const Run& run, const Pass& pass) {
    const int mode = pass.config.lan_config.nVideocodecmode;
    if (mode == run.codec_mode) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video codec mode change !  %d change to %d \n", run.codec_mode, mode);
    return true;
}

bool RotationChanged(const Run& run, const Pass& pass) {
    const int angle = pass.config.lan_config.nRotateAngle;
    if (angle == run.rotation) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Rotate mode change !  %d change to %d (preRotate :%d  )\n", run.rotation, angle,
                 pass.config.lan_config.nPreRotateAngle);
    return true;
}

bool ScheduleEnded(const Run&, const Pass& pass) {
    const Day_Hour_Scope& day = pass.config.Record_config.weekScope.dayScope[pass.local.tm_wday];
    if (day.ucSocpeMode != TIME_SCOPE_DIFF) {
        return false;
    }
    if (DayRange::Of(RunRange(pass.config, pass.local)).Holds(MinuteOfDay(pass.local))) {
        return false;
    }
    LOG_TRACE_AS(kOperation, "  TIME_SCOPE_DIFF Record Time Over ! \n");
    return true;
}

// No section spans two days; one that has just begun is let over, for DayChanged to end.
bool MidnightComes(const Run&, const Pass& pass) {
    const tm& now = pass.local;
    if (!IsLastSecond(now)) {
        return false;
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    if (uint64_t{heads.section.m_u32RecordStartTime} + 1 >= heads.section.m_u32RecordEndTime) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": %02d:%02d:%02d\n", now.tm_hour, now.tm_min, now.tm_sec);
    LOG_TRACE_AS(kOperation, "  m_u32RecordEndTime = %d  \n", static_cast<int>(heads.section.m_u32RecordEndTime));
    g_control.ended_at_midnight = true;
    return true;
}

bool ClockWasSet(const Run& run, const Pass&) {
    const int64_t SinceBootDuration = KQ_COMMON_GetUptime() - run.start_uptime;
    const int64_t CurrentDuration = static_cast<int64_t>(WallSeconds()) - run.start_seconds;
    const int64_t jump = CurrentDuration - SinceBootDuration;
    if (jump >= -kClockJumpSeconds && jump <= kClockJumpSeconds) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": ret = %d, Changed the time: SinceBootDuration = %lu, CurrentDuration = %lu\n",
                 static_cast<int>(jump), static_cast<unsigned long>(SinceBootDuration),
                 static_cast<unsigned long>(CurrentDuration));
    return true;
}

bool FileIsFull(const Run&, const Pass&) {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    if (heads.file.m_u32RecordFileSumLenth < RECORD_STREAM_LIMIT) {
        return false;
    }
    LOG_TRACE_AS(kOperation, "  File size  lager  over! \n");
    return true;
}

bool StopRequested(const Run&, const Pass&) {
    if (!g_flags.stop_requested) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Stop Record\n");
    return true;
}

// The section began just before midnight, or the last look of its day came too late.
bool DayChanged(const Run&, const Pass& pass) {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const tm start = LocalTime(static_cast<time_t>(heads.section.m_u32RecordStartTime));
    const tm& now = pass.local;
    if (start.tm_year > now.tm_year || (start.tm_year == now.tm_year && start.tm_yday >= now.tm_yday)) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": another day\n");
    return true;
}

// A card that turned read-only or takes nothing any more.  Other than a pulled one it may recover where it is.
bool CardFails(const Run&, const Pass&) {
    if (AVRecordCardFailing() == 0) {
        return false;
    }
    LOG_ERROR_AS(kOperation, ": the card takes no data\n");
    return true;
}

using EndReason = bool (*)(const Run&, const Pass&);
constexpr EndReason kEndReasons[] = {
    IsMotionJpeg,      AudioSwitched,     AudioEncodingChanged, VideoEncodingChanged, FrameRateChanged, StreamChanged,
    ResolutionChanged, RecordSwitchedOff, CodecModeChanged,     RotationChanged,      ScheduleEnded,    MidnightComes,
    ClockWasSet,       FileIsFull,        StopRequested,        DayChanged,           CardFails,
};

// ---- The run ----

struct Settings {  // as the run found them
    Camera_VideoConfig video[CAMERA_VIDEO_STREAMS];
    Camera_AudioProperty audio_property;
    Camera_AudioConfig audio;
};

Settings ReadSettings() {
    Settings settings{};
    CameraGetVideoConfig(settings.video);
    CameraGetAudioProperty(&settings.audio_property);
    CameraGetAudioConfig(&settings.audio);
    return settings;
}

// Takes what the run is watched against.
void Capture(Run* run, const Settings& settings) {
    const int stream = run->stream;
    const Camera_VideoConfig& video = settings.video[stream];
    run->audio_property = settings.audio_property;
    run->video_encoding = video.iEncoding;
    run->frame_rate = video.iFrameRate;
    LOG_TRACE_AS(kOperation, " VideoConfig[%d].iEncoding       %d\n", stream, video.iEncoding);
    LOG_TRACE_AS(kOperation, " VideoConfig[%d].iSmartEncEnable %d\n", stream, video.iSmartEncEnable);
    run->audio_encoding = settings.audio_property.ucEnable == 0 ? kAudioOff : settings.audio.iEncoding;
    run->audio_enabled = settings.audio_property.ucEnable;
}

void ForceKeyFrame(int stream) {
    LOG_TRACE_AS(kOperation, ": CameraSetVideoForceIFrame, VideoId %d\n", stream);
    AVServerVideoForceIFrame(static_cast<AVAccessVideoType>(stream));
    LOG_TRACE_AS(kOperation, ": CameraSetVideoForceIFrame\n");
}

void StartClocks(Run* run, const SysInfo& config) {
    run->start_time = WallTime();
    run->start_uptime = KQ_COMMON_GetUptime();
    run->start_seconds = WallSeconds();
    run->codec_mode = config.lan_config.nVideocodecmode;
    run->width = config.stream_config[run->stream].width;
    run->height = config.stream_config[run->stream].height;
    run->rotation = config.lan_config.nRotateAngle;
}

// The section that was opened gets its number back when nothing was written into it: a file has only so many.
void TakeBackSection(const Run& run) {
    AVRecordHeadsLock();
    *AV_RecordFileInfoHeadGet() = run.file_before;
    AVRecordHeadsUnlock();
}

// Whether the card takes what a run would write; asked before a section is opened and a key frame forced.
bool CardIsReady() {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const bool is_in_use = heads.file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG;
    const uint32_t number = is_in_use ? heads.file.m_u32FileInfoHeadNo : heads.system.m_u32RecordFileNo;
    if (AVRecordStoreIsWritable(number) < 0) {
        return false;
    }
    const CardMatch match = CardMatchHeads();
    g_control.heads_loaded = match != CardMatch::Other;
    return match == CardMatch::Ours;
}

// Opens the section and the writer; false when the run cannot begin, and then nothing was opened or counted.
bool BeginRun(Run* run, const Settings& settings, const SysInfo& config) {
    AVRecordFramesHold();
    RecorderStatusActivity("card cannot be written");
    if (!CardIsReady()) {
        return false;
    }
    const uint32_t end_to_join = g_control.last_end;
    RecordFileInfoHead_S* file = AV_RecordFileInfoHeadGet();
    run->file_before = *file;  // no frame is taken: nobody changes it
    if (AV_RecordFileConfigParamGet(AV_RecordSystemInfoHeadGet(), file, AV_RecordInfoHeadGet(),
                                    config.lan_config.ucSmartEncEnable) < 0) {
        return false;
    }
    Capture(run, settings);
    AVRecordReadAhead(file);
    ForceKeyFrame(run->stream);
    if (KQ_RecordInit(file, run->stream) < 0) {
        TakeBackSection(*run);
        g_control.last_end = end_to_join;
        return false;
    }
    StartClocks(run, config);
    RecorderStatusActivity("recording");
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    RecorderStatusPlace(heads.file.m_u32FileInfoHeadNo, heads.section.m_u16RecordUseNo);
    return true;
}

// Without the thread the writer stays open: what can be recorded is recorded, and the next start goes on with the run.
bool StartAlarmThread() {
    g_flags.run_is_on = true;
    const int error = AlarmEventStart();
    if (error != 0) {
        LOG_TRACE_AS(kOperation, " errno %s\n", std::strerror(error));
    }
    g_control.run_left_open = error != 0;
    return error == 0;
}

enum class Look { GoOn, Over, NoConfiguration };

// One pass of the watch.
Look LookForEnd(const Run& run) {
    if (CardWasPulled()) {
        StopRecord();
    }
    const tm local = LocalTime(WallSeconds());
    Camera_VideoConfig videos[CAMERA_VIDEO_STREAMS]{};
    Camera_AudioConfig audio{};
    CameraGetVideoConfig(videos);
    CameraGetAudioConfig(&audio);
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        return Look::NoConfiguration;
    }
    const Pass pass{*config, videos[run.stream], audio, local};
    for (const EndReason is_over : kEndReasons) {
        if (is_over(run, pass)) {
            return Look::Over;
        }
    }
    return Look::GoOn;
}

void (*g_chore)() = nullptr;

// Returns when the run is over: 0, or -1 when the configuration went away.
int Watch(const Run& run) {
    long last_second = run.start_uptime;
    AlarmWatch alarms;
    while (true) {
        if (const long second = KQ_COMMON_GetUptime(); second != last_second) {
            last_second = second;
            CardRetryRefused();
            if (g_chore != nullptr) {
                g_chore();
            }
        }
        RecorderStatusPublish();
        const Look look = LookForEnd(run);
        if (look != Look::GoOn) {
            return look == Look::Over ? 0 : -1;
        }
        alarms.Pass();
        SleepMs(kWatchMs);
    }
}

void LogEndTime(time_t seconds) {
    const tm end = UtcTime(seconds);
    LogTrace("############### PlayTime End Time. %04d-%02d-%02d %02d:%02d:%02d ##\n", end.tm_year + 1900,
             end.tm_mon + 1, end.tm_mday, end.tm_hour, end.tm_min, end.tm_sec);
}

// Goes on to the next file when this one is full; the writer has named it on the card already, unless that was refused.
void FinishFile() {
    AVRecordHeadsLock();
    AVRecordNameNextFile();
    AVRecordHeadsUnlock();
    CardRememberHeads();
    if (CardMatchHeads() == CardMatch::Other) {
        g_control.heads_loaded = false;
    }
}

bool FileFails() {
    return AVRecordCardFailing() != 0 && AVRecordFileFails() != 0;
}

void LeaveFile() {
    if (CardLeaveFile()) {
        g_control.heads_loaded = false;
    }
}

// The next section begins in the new day, and the schedule is asked about that day.  Bounded: a clock that was set
// back to before midnight again is no reason to wait for long.
void AwaitNewDay() {
    constexpr unsigned int kStepMs = 50;
    constexpr int kSteps = 2000 / kStepMs;
    SleepMs(500);
    for (int step = 0; step < kSteps && !g_flags.stop_requested && IsLastSecond(LocalTime(WallSeconds())); ++step) {
        SleepMs(kStepMs);
    }
}

void EndRun(const Run& run) {
    LOG_TRACE_AS(kOperation, ": #########Record Over !!!!!!!!!!!!#######\n");
    const bool file_failed = FileFails();
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    LogEndTime(run.start_time.tv_sec + (KQ_COMMON_GetUptime() - run.start_uptime));
    LogEndTime(static_cast<time_t>(heads.section.m_u32RecordEndTime));
    g_flags.run_is_on = false;
    g_control.run_left_open = false;
    KQ_RecordUninit();
    AVRecordHeadsCopy(&heads);  // a frame may have arrived until the writer closed
    g_control.last_end = heads.section.m_u32RecordEndTime;
    SleepMs(100);
    if (heads.section.m_u32RecordSize == 0) {
        TakeBackSection(run);
    } else {
        FinishFile();
    }
    if (file_failed) {
        LeaveFile();
    }
    if (g_control.ended_at_midnight) {
        AwaitNewDay();
        g_control.ended_at_midnight = false;
    }
}

}  // namespace

int StartRecord(int VideoId, int duration) {
    (void)duration;
    if (VideoId < 0 || VideoId >= CAMERA_VIDEO_STREAMS) {
        LOG_ERROR(": no stream %d\n", VideoId);
        return -1;
    }
    const Settings settings = ReadSettings();
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        return -1;
    }
    static Run run;  // of the control loop's thread; one that was left open goes on
    if (g_control.run_left_open) {
        if (LookForEnd(run) == Look::Over) {
            EndRun(run);
            return 0;
        }
    } else {
        if (settings.video[VideoId].iEncoding == CAMERA_ENCODING_MJPEG) {
            g_flags.run_is_on = false;
            RecorderStatusActivity("motion JPEG is not recorded");
            RecorderStatusPublish();
            SleepMs(3000);
            LOG_TRACE(" This is Mjpeg Stream, not support\n");
            return 0;
        }
        run = {};
        run.stream = VideoId;
        g_flags.stream = VideoId;
        if (!BeginRun(&run, settings, *config)) {
            if (FileFails()) {
                LeaveFile();
            }
            return -1;
        }
    }
    if (!StartAlarmThread() || Watch(run) < 0) {
        return -1;
    }
    EndRun(run);
    return 0;
}

void RecordChoreSet(void (*chore)(void)) {
    g_chore = chore;
}

int StopRecord(void) {
    LOG_TRACE(" \n");
    g_flags.stop_requested = true;
    return 0;
}

int StartRecordSet(void) {
    LOG_TRACE(" \n");
    g_flags.stop_requested = false;
    return 0;
}

int GetRecordStopFlag(void) {
    return g_flags.stop_requested ? 1 : 0;
}

int PrintTimeMessage(char* Message) {
    const timeval now = WallTime();
    char text[32];
    const tm local = LocalTime(now.tv_sec);
    if (std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) == 0) {
        return -1;
    }
    std::fprintf(stderr, "..................[%s.%06lu ] %s\n", text, static_cast<unsigned long>(now.tv_usec),
                 Message != nullptr ? Message : "");
    return 0;
}
