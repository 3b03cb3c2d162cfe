// One record run: its start and its end.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "AlarmEvent.h"
#include "Clock.h"
#include "RecordCard.h"
#include "RecordState.h"
#include "RecorderStatus.h"
#include "RunWatch.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAVServerAccess.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr char kOperation[] = "StartRecord";  // for the log

constexpr int kAudioOff = 2;  // audio encoding of a run without audio

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
void Capture(RecordRun* run, const Settings& settings) {
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

void StartClocks(RecordRun* run, const SysInfo& config) {
    run->start_time = WallTime();
    run->start_uptime = KQ_COMMON_GetUptime();
    run->start_seconds = WallSeconds();
    run->codec_mode = config.lan_config.nVideocodecmode;
    run->width = config.stream_config[run->stream].width;
    run->height = config.stream_config[run->stream].height;
    run->rotation = config.lan_config.nRotateAngle;
}

// The section that was opened gets its number back when nothing was written into it: a file has only so many.
void TakeBackSection(const RecordRun& run) {
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
bool BeginRun(RecordRun* run, const Settings& settings, const SysInfo& config) {
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

void EndRun(const RecordRun& run) {
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
    static RecordRun run;  // of the control loop's thread; one that was left open goes on
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
    if (!StartAlarmThread() || WatchRun(run) == Look::NoConfiguration) {
        return -1;
    }
    EndRun(run);
    return 0;
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
