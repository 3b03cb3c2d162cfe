// A camera to bind to: its system server and its configuration.
#pragma once

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <string>

#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"
#include "support/Stderr.h"
#include "support/SystemServer.h"

class Camera : public testing::Test {
  protected:
    ~Camera() override {
        CameraDeviceCleanup();
        SysCtrlExit();
        SysconfigExit();
        shmctl(shmget(SYS_CONFIG_KEY, 0, 0), IPC_RMID, nullptr);
        LogCleanup();
    }
    void Bind() { ASSERT_EQ(CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD), 0); }
    // The configuration, as the system server changes it.
    SysInfo& Config() { return *GetSysconfigData(); }
    bool Logged(const std::string& text) const { return log_.Has(text); }

    support::Captured log_;
    support::SystemServer server_;
};
