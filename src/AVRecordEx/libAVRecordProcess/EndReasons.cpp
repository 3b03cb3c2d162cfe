// Why a run ends.
#include "RecordRun.h"

#include "RecordCard.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

constexpr char kOperation[] = "StartRecord";  // for the log

constexpr int64_t kClockJumpSeconds = 5;

struct Pass {  // as it is now
    const SysInfo& config;
    const Camera_VideoConfig& video;  // of the recorded stream
    const Camera_AudioConfig& audio;
    time_t seconds;
    tm local;
    AVRecordHeads heads;
};

// ---- Reasons to end a run, in the order they are asked; each logs itself ----

bool IsMotionJpeg(const RecordRun&, const Pass& pass) {
    if (pass.video.iEncoding != CAMERA_ENCODING_MJPEG) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " This is MJPEG Stream, not support!\n");
    return true;
}

// Never true: the audio switch is read once a run, so that switching audio does not cut a recording.
bool AudioSwitched(const RecordRun& run, const Pass&) {
    if (run.audio_property.ucEnable == run.audio_enabled) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Audio Enable Change!    %d change to %d \n", run.audio_enabled,
                 run.audio_property.ucEnable);
    return true;
}

bool AudioEncodingChanged(const RecordRun& run, const Pass& pass) {
    if (run.audio_enabled == 0 || pass.audio.iEncoding == run.audio_encoding) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Audio Encoding Change!  %d change to %d \n", run.audio_encoding, pass.audio.iEncoding);
    return true;
}

bool VideoEncodingChanged(const RecordRun& run, const Pass& pass) {
    if (pass.video.iEncoding == run.video_encoding) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Encoding Change!  %d change to %d \n", run.video_encoding, pass.video.iEncoding);
    return true;
}

bool FrameRateChanged(const RecordRun& run, const Pass& pass) {
    if (pass.video.iFrameRate == run.frame_rate) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video FrameRate Change!  %d change to %d \n", run.frame_rate, pass.video.iFrameRate);
    return true;
}

bool StreamChanged(const RecordRun& run, const Pass& pass) {
    const int stream = pass.config.Record_config.ucVideoStreamType;
    if (stream == run.stream) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Record StreamType Change ! ( %d != %d ) \n", run.stream, stream);
    return true;
}

bool ResolutionChanged(const RecordRun& run, const Pass& pass) {
    const int width = pass.config.stream_config[run.stream].width;
    const int height = pass.config.stream_config[run.stream].height;
    if (width == run.width && height == run.height) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " StreamType[%d] Resolution Change ! ( W:%d != %d or H:%d != %d ) \n", run.stream,
                 run.width, width, run.height, height);
    return true;
}

bool RecordSwitchedOff(const RecordRun&, const Pass& pass) {
    if (pass.config.Record_config.ucEnable != 0) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Record Enable close ! \n");
    return true;
}

bool CodecModeChanged(const RecordRun& run, const Pass& pass) {
    const int mode = pass.config.lan_config.nVideocodecmode;
    if (mode == run.codec_mode) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video codec mode change !  %d change to %d \n", run.codec_mode, mode);
    return true;
}

bool RotationChanged(const RecordRun& run, const Pass& pass) {
    const int angle = pass.config.lan_config.nRotateAngle;
    if (angle == run.rotation) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Video Rotate mode change !  %d change to %d (preRotate :%d  )\n", run.rotation, angle,
                 pass.config.lan_config.nPreRotateAngle);
    return true;
}

bool ScheduleEnded(const RecordRun&, const Pass& pass) {
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
bool MidnightComes(const RecordRun&, const Pass& pass) {
    const tm& now = pass.local;
    if (!IsLastSecond(now)) {
        return false;
    }
    const RecordInfoHead_S& section = pass.heads.section;
    if (uint64_t{section.m_u32RecordStartTime} + 1 >= section.m_u32RecordEndTime) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": %02d:%02d:%02d\n", now.tm_hour, now.tm_min, now.tm_sec);
    LOG_TRACE_AS(kOperation, "  m_u32RecordEndTime = %d  \n", static_cast<int>(section.m_u32RecordEndTime));
    g_control.ended_at_midnight = true;
    return true;
}

bool ClockWasSet(const RecordRun& run, const Pass& pass) {
    const int64_t SinceBootDuration = KQ_COMMON_GetUptime() - run.start_uptime;
    const int64_t CurrentDuration = int64_t{pass.seconds} - run.start_seconds;
    const int64_t jump = CurrentDuration - SinceBootDuration;
    if (jump >= -kClockJumpSeconds && jump <= kClockJumpSeconds) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": ret = %d, Changed the time: SinceBootDuration = %lu, CurrentDuration = %lu\n",
                 static_cast<int>(jump), static_cast<unsigned long>(SinceBootDuration),
                 static_cast<unsigned long>(CurrentDuration));
    return true;
}

bool FileIsFull(const RecordRun&, const Pass& pass) {
    if (pass.heads.file.m_u32RecordFileSumLenth < RECORD_STREAM_LIMIT) {
        return false;
    }
    LOG_TRACE_AS(kOperation, "  File size  lager  over! \n");
    return true;
}

bool StopRequested(const RecordRun&, const Pass&) {
    if (!g_flags.stop_requested) {
        return false;
    }
    LOG_TRACE_AS(kOperation, " Stop Record\n");
    return true;
}

// The section began just before midnight, or the last look of its day came too late.
bool DayChanged(const RecordRun&, const Pass& pass) {
    const tm start = LocalTime(static_cast<time_t>(pass.heads.section.m_u32RecordStartTime));
    const tm& now = pass.local;
    if (start.tm_year > now.tm_year || (start.tm_year == now.tm_year && start.tm_yday >= now.tm_yday)) {
        return false;
    }
    LOG_TRACE_AS(kOperation, ": another day\n");
    return true;
}

// A card that turned read-only or takes nothing any more.  Other than a pulled one it may recover where it is.
bool CardFails(const RecordRun&, const Pass&) {
    if (AVRecordCardFailing() == 0) {
        return false;
    }
    LOG_ERROR_AS(kOperation, ": the card takes no data\n");
    return true;
}

using EndReason = bool (*)(const RecordRun&, const Pass&);
constexpr EndReason kEndReasons[] = {
    IsMotionJpeg,      AudioSwitched,     AudioEncodingChanged, VideoEncodingChanged, FrameRateChanged, StreamChanged,
    ResolutionChanged, RecordSwitchedOff, CodecModeChanged,     RotationChanged,      ScheduleEnded,    MidnightComes,
    ClockWasSet,       FileIsFull,        StopRequested,        DayChanged,           CardFails,
};

}  // namespace

Look LookForEnd(const RecordRun& run) {
    if (CardWasPulled()) {
        StopRecord();
    }
    Camera_VideoConfig videos[CAMERA_VIDEO_STREAMS]{};
    Camera_AudioConfig audio{};
    CameraGetVideoConfig(videos);
    CameraGetAudioConfig(&audio);
    const SysInfo* config = GetSysconfigData();
    if (config == nullptr) {
        return Look::NoConfiguration;
    }
    const time_t seconds = WallSeconds();
    Pass pass{*config, videos[run.stream], audio, seconds, LocalTime(seconds), {}};
    AVRecordHeadsCopy(&pass.heads);
    for (const EndReason is_over : kEndReasons) {
        if (is_over(run, pass)) {
            return Look::Over;
        }
    }
    return Look::GoOn;
}
