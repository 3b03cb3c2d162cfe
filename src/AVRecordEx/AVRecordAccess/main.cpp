// The recorder: brings its modules up once, then runs one record run after the other for as long as the
// schedule and the card allow.
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "AVRecordAccess.h"
#include "Clock.h"
#include "libAVRecordProcess.h"
#include "libAVServerAccess.h"
#include "libAVSpsPpsProcess.h"
#include "libAlarmProcess.h"
#include "libCameraAccess.h"
#include "libGetAVStream.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

void InstallSignals() {
    for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        signal(signo, SignalProcess);
    }
}

void StartModules() {
    CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD);
    StartAVStream(MSG_AV_TYPE_MSG5);
    libAVSpsPpsProcessInit();
    WatchDogStart();
    AVServerAccessInit();
    libAlarmProcessInit();
}

[[noreturn]] void Exit() {
    Command_System("sync");
    SleepMs(2000);
    LOG_TRACE("%s %d RecordStop AVRecord exit!!!\n");
    exit(0);
}

}  // namespace

int main() {
    InstallSignals();
    StartModules();
    int nStreamType = 0;
    int nDuration = 0;
    ReadCustomSettings(&nStreamType, &nDuration);
    while (true) {
        if (CheckRecordStart() != 0) {
            LOG_TRACE("%s %d CheckRecordStart sleep\n");
            SleepMs(1000);
            continue;
        }
        if (GetRecordStopFlag() == 1) {
            Exit();
        }
        const SysInfo* const pSysInfo = GetSysconfigData();
        if (pSysInfo == nullptr) {
            return -1;
        }
        nStreamType = pSysInfo->Record_config.ucVideoStreamType;
        LOG_TRACE("%s %d nStreamType = %d, nDuration = %d nVideocodecmode = %d \n", nStreamType, nDuration,
                  pSysInfo->lan_config.nVideocodecmode);
        LOG_TRACE("%s %d StartRecord\n");
        if (StartRecord(nStreamType, nDuration) < 0) {
            SleepMs(1000);  // a card that cannot be written stays so, and every try forces a key frame
        }
    }
}
