// The recorder: brings its modules up once, then runs one record run after the other for as long as the
// schedule and the card allow.
#include <csignal>
#include <cstdlib>
#include <initializer_list>

#include "AVRecordAccess.h"
#include "Clock.h"
#include "RecorderStatus.h"
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
    signal(SIGPIPE, SIG_IGN);  // whoever reads the log may leave; recording goes on
}

// What the recorder stands on, in the order in which it is brought up.
struct Module {
    const char* name;
    bool (*start)();  // true: it is up; may be called until then
    bool is_up;
};

Module g_modules[] = {
    {"camera access",
     [] {
         if (CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD) == 0) {
             return true;
         }
         CameraDeviceCleanup();  // else the next try would find it bound
         return false;
     },
     false},
    {"stream readers", [] { return StartAVStream(MSG_AV_TYPE_MSG5) == 0 && AVStreamsAreRunning() == 1; }, false},
    {"parameter-set table", [] { return libAVSpsPpsProcessInit() == 0; }, false},
    {"heartbeat", [] { return WatchDogStart() == 0 && WatchDogIsRunning() == 1; }, false},
    {"media server commands", [] { return AVServerAccessInit() == AVSERVER_OK; }, false},
    {"alarm board", [] { return libAlarmProcessInit() == 0; }, false},
};

// Tries each module that is not up.  What failed because memory, threads or a peer were missing for a moment must not
// stay away for the life of the process.
void StartMissingModules() {
    static bool is_first_try = true;
    for (Module& module : g_modules) {
        if (module.is_up) {
            continue;
        }
        module.is_up = module.start();
        if (module.is_up != is_first_try) {
            LOG_TRACE(": %s %s\n", module.name, is_first_try ? "did not start, is tried again" : "started");
        }
    }
    is_first_try = false;
}

[[noreturn]] void Exit() {
    RecorderStatusEnd();
    Command_System("sync");
    SleepMs(2000);
    LOG_TRACE_AS("main", " RecordStop AVRecord exit!!!\n");
    exit(0);
}

}  // namespace

int main() {
    InstallSignals();
    StartMissingModules();
    RecordChoreSet(StartMissingModules);
    int nStreamType = 0;
    int nDuration = 0;
    ReadCustomSettings(&nStreamType, &nDuration);
    while (true) {
        if (CheckRecordStart() != 0) {
            LOG_TRACE(" CheckRecordStart sleep\n");
            RecorderStatusPublish();
            SleepMs(1000);
            StartMissingModules();
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
        LOG_TRACE(" nStreamType = %d, nDuration = %d nVideocodecmode = %d \n", nStreamType, nDuration,
                  pSysInfo->lan_config.nVideocodecmode);
        LOG_TRACE(" StartRecord\n");
        if (StartRecord(nStreamType, nDuration) < 0) {
            RecorderStatusPublish();
            SleepMs(1000);  // what hindered it may last
        }
    }
}
