#include <sys/ipc.h>
#include <sys/sem.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"

namespace {

using Callback = int (*)(void* data);

// Slots for services that want to be called back; this camera's entries fill none of them.
std::array<std::atomic<Callback>, 11> g_alarm_callbacks{};
std::array<std::atomic<Callback>, 11> g_video_callbacks{};
std::atomic<int> g_semaphores{-1};  // the semaphore set; -1: not created yet

struct ProcessRow {
    int process;  // ProcessDef
    const char* name;
    int number;  // at the system server
};

constexpr ProcessRow kProcesses[] = {
    {PROCESS_BOA, "PROCESS_BOA", 2},           {PROCESS_DEVICESEARCH, "PROCESS_DEVICESEARCH", 4},
    {PROCESS_FREEIP, "PROCESS_FREEIP", 3},     {PROCESS_HIKSERVER, "PROCESS_HIKSERVER", 6},
    {PROCESS_XIONGMAI, "PROCESS_XIONGMAI", 7}, {PROCESS_AVRECORD, "PROCESS_AVRECORD", 5},
};
constexpr int kNumberOfOthers = 12;

int NumberAtSystemServer(int process, const char* operation) {
    const auto* row = std::find_if(std::begin(kProcesses), std::end(kProcesses),
                                   [process](const ProcessRow& each) { return each.process == process; });
    if (row == std::end(kProcesses)) {
        return kNumberOfOthers;
    }
    LOG_TRACE_AS(operation, " %s\n", row->name);
    return row->number;
}

void ForgetCallbacks() {
    for (auto& slot : g_alarm_callbacks) {
        slot.store(nullptr);
    }
    for (auto& slot : g_video_callbacks) {
        slot.store(nullptr);
    }
}

}  // namespace

int Common_Init(int* pProcess, void*) {
    char label[] = "OnvifAccess";
    LogInit(label, LOG_MODE_ALL);
    if (pProcess == nullptr) {
        return -1;
    }
    ForgetCallbacks();
    LOG_TRACE(" #####################value %d\n", *pProcess);
    // Neither is given up when it fails: the next request tries the one again, the next look at the settings the other.
    const bool has_channel = SysCtrlInit(NumberAtSystemServer(*pProcess, __func__)) == 0;
    const bool has_configuration = SysConfigInit() == 0;
    if (!has_channel || !has_configuration) {
        return -1;
    }
    if (g_semaphores.load() < 0) {
        g_semaphores.store(Semaphore_Init(CAMERA_SEMAPHORE_KEY));
    }
    return 0;
}

int Common_Set_Video_Force_IFrame(void* inData, void*) {
    auto* param = static_cast<Camera_VideoParam*>(inData);
    if (param == nullptr) {
        return -1;
    }
    for (int mark = 0; mark < 4; ++mark) {
        LOG_TRACE(":################\n");
    }
    LOG_TRACE(":index = %d value = %d\n", param->index, param->value);
    ControlSystemData(SFIELD_SET_Video_Force_IFrame, param, sizeof param->index);
    return 0;
}

int Semaphore_Init(int key) {
    const int created = semget(key, 1, IPC_CREAT | IPC_EXCL | 0666);
    if (created < 0) {
        const int existing = semget(key, 0, 0);
        return existing < 0 ? -1 : existing;
    }
    union {  // the caller of semctl defines it
        int val;
        struct semid_ds* buf;
    } free_for_one{.val = 1};
    return semctl(created, 0, SETVAL, free_for_one) == 0 ? created : -1;
}
