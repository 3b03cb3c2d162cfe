// Takes the right to open other owners' queues and segments away, so that a queue or segment of mode 0 cannot be had
// even by the superuser: one that is found and cannot be attached.
#pragma once

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {

class WithoutIpcRights {
  public:
    WithoutIpcRights() {
        EXPECT_EQ(syscall(SYS_capget, &header_, before_), 0);
        __user_cap_data_struct less[2] = {before_[0], before_[1]};
        less[0].effective &= ~(1u << CAP_IPC_OWNER);
        EXPECT_EQ(syscall(SYS_capset, &header_, less), 0);
    }
    ~WithoutIpcRights() { syscall(SYS_capset, &header_, before_); }
    WithoutIpcRights(const WithoutIpcRights&) = delete;
    WithoutIpcRights& operator=(const WithoutIpcRights&) = delete;

  private:
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct before_[2]{};
};

}  // namespace support
