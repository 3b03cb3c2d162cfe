// What the recorder's modules stand on in a test: a card, a bound camera with its configuration, and a clock that the
// test holds in its hand.
#pragma once

#include <sys/shm.h>

#include <algorithm>
#include <filesystem>

#include "libCameraAccess.h"
#include "libOthers.h"
#include "support/Card.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace support {

// Binds a camera and gives its configuration plain values.
inline SysInfo& BindCamera() {
    CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD);
    SysInfo& config = *GetSysconfigData();
    config.stream_config[0].width = 1280;
    config.stream_config[0].height = 720;
    config.lan_config.nFrameRate1 = 25;
    config.lan_config.nBitrate1 = 2 << 20;
    config.audio_config.audioenable = 1;
    return config;
}
inline void UnbindCamera() {
    CameraDeviceCleanup();
    SysCtrlExit();
    SysconfigExit();
    shmctl(shmget(SYS_CONFIG_KEY, 0, 0), IPC_RMID, nullptr);
}

class BoundCamera : public LoggedTest, protected SteppedClock {
  protected:
    BoundCamera() { BindCamera(); }
    ~BoundCamera() override { UnbindCamera(); }
    static SysInfo& Config() { return *GetSysconfigData(); }

    // A run's last second is handed over beside us; false when a file of the card stays open.
    static bool AwaitNoOpenFile() {
        return WaitUntil([] { return !HasOpenFile(); });
    }

  private:
    static bool HasOpenFile() {
        return std::ranges::any_of(std::filesystem::directory_iterator("/proc/self/fd"), [](const auto& entry) {
            std::error_code gone;
            return std::filesystem::read_symlink(entry, gone).string().find("sdcard") != std::string::npos;
        });
    }
};

}  // namespace support
