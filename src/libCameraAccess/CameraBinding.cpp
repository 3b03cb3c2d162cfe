#include "CameraBinding.h"

#include <atomic>
#include <cstddef>

#include "libLog.h"

namespace {

// Written by CameraDeviceInit and CameraDeviceCleanup alone; the flag last, so that a reader who sees
// it sees the table too.
std::atomic<int> g_device{0};
std::atomic<const CameraCommonAccess*> g_table{nullptr};
std::atomic<bool> g_is_bound{false};

const CameraCommonAccess* TableOf(int device) {
    switch (device) {
        case CAMERA_DEV_SD_DOME:
            return Get_SD_CameraCommonAccess();
        case CAMERA_DEV_COMMON:
            return Get_Common_CameraCommonAccess();
        default:
            return nullptr;
    }
}

std::span<const CameraCommonAccess> BoundTable() {
    const CameraCommonAccess* table = g_table.load();
    const size_t slots = table == Get_SD_CameraCommonAccess() ? CAMERA_SD_SLOTS : CAMERA_COMMON_SLOTS;
    return {table, table == nullptr ? 0 : slots};
}

}  // namespace

int CheckSlot(std::span<const CameraCommonAccess> table, int command) {
    if (command < 0 || static_cast<size_t>(command) >= table.size()) {
        LogWarn("The Onvif cmd is not support now!\n");
        return CAMERA_ACCESS_UNSUPPORTED;
    }
    const CameraCommonAccess& slot = table[static_cast<size_t>(command)];
    if (slot.Camera_command != command) {
        LogWarn("Cmd not match!cmd = %d, pCameraAccess[%d].Camera_command = %d\n", command, command,
                static_cast<int>(slot.Camera_command));
        return CAMERA_ACCESS_MISMATCH;
    }
    if (slot.Camera_function == nullptr) {
        LogWarn("The Onvif cmd is not support now!\n");
        return CAMERA_ACCESS_UNSUPPORTED;
    }
    return 0;
}

int CheckParamValid(CameraCommand cmd) {
    if (!g_is_bound) {
        LogWarn("Camera dev is not initialize, initialize first!\n");
        return CAMERA_ACCESS_UNBOUND;
    }
    const auto table = BoundTable();
    if (table.empty()) {
        LogWarn("Unknown camera !\n");
        return CAMERA_ACCESS_NO_TABLE;
    }
    return CheckSlot(table, cmd);
}

int CallCommand(CameraCommand command, void* inData, void* outData) {
    if (const int refused = CheckParamValid(command); refused != 0) {
        return refused;
    }
    const auto table = BoundTable();  // empty when another thread unbinds right now
    return table.empty() ? CAMERA_ACCESS_NO_TABLE : table[command].Camera_function(inData, outData);
}

int CameraDeviceInit(Camera_device CameraDevice, ProcessDef Process) {
    if (g_is_bound) {
        return CAMERA_ACCESS_BOUND;
    }
    const int device = CameraDevice;
    if (device <= 0 || device >= CAMERA_DEV_END) {
        return CAMERA_ACCESS_FAIL;
    }
    const CameraCommonAccess* table = TableOf(device);
    if (table == nullptr) {
        LogWarn("Unknown camera !\n");
        return CAMERA_ACCESS_NO_TABLE;
    }
    g_table.store(table);
    g_device.store(device);
    g_is_bound = true;
    int process = Process;
    return CallCommand(CAMERA_COMMAND_INIT, &process, nullptr);
}

int CameraDeviceCleanup(void) {
    g_device.store(0);
    g_is_bound = false;
    g_table.store(nullptr);
    return 0;
}
