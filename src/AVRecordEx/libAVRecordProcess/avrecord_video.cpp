// Frames from the stream readers to the writer.
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libGetAVStream.h"

int StartAVStream(int type) {
    GetAVStreamInit(type, Mp4RecordVideoCallbackFunc, GetMp4RecordVideoTrasformStatue);
    for (int stream = 0; stream < 3; ++stream) {
        AVStreamGetAVData(type, stream);
    }
    return 0;
}

int StopAVStream(void) {
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
