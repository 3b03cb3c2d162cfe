// A camera to bind to: its system server and its configuration.
#pragma once

#include "support/BoundCamera.h"
#include "support/SystemServer.h"

class Camera : public support::LoggedTest {
  protected:
    Camera() { LogCleanup(); }  // a start turns it on
    ~Camera() override { support::UnbindCamera(); }
    void Bind() { ASSERT_EQ(CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD), 0); }
    // The configuration, as the system server changes it.
    SysInfo& Config() { return *GetSysconfigData(); }

    support::SystemServer server_;
};
