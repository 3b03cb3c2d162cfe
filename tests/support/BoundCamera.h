// What the recorder's modules stand on in a test: a card, a bound camera with its configuration, and a
// clock that the test holds in its hand.
#pragma once

#include <gtest/gtest.h>
#include <sys/shm.h>

#include <atomic>
#include <filesystem>

#include "Clock.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"
#include "support/Card.h"
#include "support/Stderr.h"
#include "support/WaitUntil.h"

namespace support {

class BoundCamera : public testing::Test {
  protected:
    BoundCamera() {
        wall = 1700000000;
        uptime = 1000;
        ReplaceClock(&kClock);
        CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD);
        SysInfo& config = Config();
        config.stream_config[0].width = 1280;
        config.stream_config[0].height = 720;
        config.lan_config.nFrameRate1 = 25;
        config.lan_config.nBitrate1 = 2 << 20;
        config.audio_config.audioenable = 1;
    }
    ~BoundCamera() override {
        CameraDeviceCleanup();
        SysCtrlExit();
        SysconfigExit();
        shmctl(shmget(SYS_CONFIG_KEY, 0, 0), IPC_RMID, nullptr);
        ReplaceClock(nullptr);
        LogCleanup();
    }
    static SysInfo& Config() { return *GetSysconfigData(); }
    bool Logged(const std::string& text) const { return log_.Text().find(text) != std::string::npos; }

    // A run's last second is handed over beside us; false when a file of the card stays open.
    static bool AwaitNoOpenFile() {
        return support::WaitUntil([] { return !HasOpenFile(); });
    }

    static inline std::atomic<int64_t> wall;  // s since 1970 UTC
    static inline std::atomic<long> uptime;   // s since boot

  private:
    static bool HasOpenFile() {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry, gone).string().find("sdcard") != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    static constexpr ClockSource kClock{[] {
                                            return timeval{static_cast<time_t>(wall.load()), 0};
                                        },
                                        [] { return uptime.load(); }, [](unsigned int) {}};
    Captured log_;
};

}  // namespace support
