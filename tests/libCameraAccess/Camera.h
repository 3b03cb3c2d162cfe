// A camera to bind to: its system server and its configuration.
#pragma once

#include "support/BoundCamera.h"
#include "support/SystemServer.h"

class Camera : public testing::Test {
  protected:
    ~Camera() override {
        support::UnbindCamera();
        LogCleanup();
    }
    void Bind() { ASSERT_EQ(CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD), 0); }
    // The configuration, as the system server changes it.
    SysInfo& Config() { return *GetSysconfigData(); }
    bool Logged(const std::string& text) const { return log_.Has(text); }

    support::Captured log_;
    support::SystemServer server_;
};
