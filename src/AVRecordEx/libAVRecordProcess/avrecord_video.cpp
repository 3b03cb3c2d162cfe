// Frames from the stream readers to the writer.
#include "RecordState.h"
#include "RunWatch.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libGetAVStream.h"
#include "libOthers.h"

namespace {

bool g_are_running = false;  // of the control loop's thread

// The stream that a run records, and the one that the next run will: it must be followed closely before it begins.
int IsRecorded(int stream) {
    if (stream == g_flags.stream) {
        return 1;
    }
    const SysInfo* const config = GetSysconfigData();
    return config == nullptr || stream == config->Record_config.ucVideoStreamType ? 1 : 0;
}

int TakeFrame(int source, int stream, char* data, AVDataInfo* info) {
    const int result = Mp4RecordVideoCallbackFunc(source, stream, data, info);
    if (source == AV_FRAME_TYPE_VIDEO && stream == g_flags.stream) {
        WatchWithPicture();
    }
    return result;
}

}  // namespace

int StartAVStream(int type) {
    AVRecordFrameCheckSet(AVStreamFrameIntact);
    AVStreamUrgencySet(type, IsRecorded);
    g_are_running = GetAVStreamInit(type, TakeFrame, GetMp4RecordVideoTrasformStatue) == AVSTREAM_OK;
    if (!g_are_running) {
        return 0;  // a reader without a ring ends at once, and counts as started from then on
    }
    for (int stream = 0; stream < 3; ++stream) {
        g_are_running = AVStreamGetAVData(type, stream) == AVSTREAM_OK && g_are_running;
    }
    return 0;
}

int AVStreamsAreRunning(void) {
    return g_are_running ? 1 : 0;
}

int StopAVStream(void) {
    g_are_running = false;
    GetAVStreamCleanup();
    return 0;
}

int Mp4RecordVideoCallbackFunc(int iAVSource, int iVideoIndex, char* VideoData, AVDataInfo* pDataInfo) {
    if (VideoData == nullptr || pDataInfo == nullptr) {
        return -1;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(VideoData);
    if (pDataInfo->AVDataLen >= 2 && bytes[0] == 0xFF && bytes[1] == 0xD8) {
        return 0;  // a JPEG picture
    }
    return libAVRecordWriteFrame(iVideoIndex, iAVSource, VideoData, pDataInfo);
}

int GetMp4RecordVideoTrasformStatue(int videoindex) {
    (void)videoindex;
    return 1;
}

int SetVideoCallback(VideoCallbackParam VideoParam) {
    (void)VideoParam;
    return 0;
}
