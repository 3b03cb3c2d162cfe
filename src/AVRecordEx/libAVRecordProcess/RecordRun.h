// A record run as it began, and the look for a reason to end it.
#pragma once

#include <sys/time.h>

#include <ctime>

#include "libCameraAccess.h"
#include "libRecordFile.h"

struct RecordRun {
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

enum class Look { GoOn, Over, NoConfiguration };

// One pass of the watch: asks each reason in its order, and logs the one that ends the run.
Look LookForEnd(const RecordRun& run);
