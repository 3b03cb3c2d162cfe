#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "libOthers.h"
#include "support/Stderr.h"
#include "support/SteppedClock.h"

namespace {

// Places inside nested members, counted from the start of the record.
static_assert(offsetof(SysInfo, acounts[15].authority) == 4 + 15 * 68 + 64);
static_assert(offsetof(SysInfo, lan_config.mirror) == 1300 + 67);
static_assert(offsetof(SysInfo, osd_config[2].overlaytext) == 2652 + 2 * 261 + 5);
static_assert(offsetof(SysInfo, Record_config.weekScope.dayScope[6].hourScope[5].endHour.ucType) ==
              7068 + 16 + 6 * 52 + 4 + 5 * 8 + 7);
static_assert(offsetof(SysInfo, Alarm_Config_Ex[1].timeSocpeTab[6][7]) == 9020 + 560 + 32 + 55 * 8);
static_assert(offsetof(SysInfo, WaterMarkConfig.mark[3].markText) == 14604 + 3 * 256 + 1);
static_assert(offsetof(SysInfo, Video_Encoding_Config[3][4]) == 57836 + 19 * 256);
static_assert(offsetof(SysInfo, Osd_Config_Ex[4].ucOsdText) == 62956 + 4 * 128 + 64);

class Configuration : public testing::Test {
  protected:
    ~Configuration() override {
        SysconfigExit();
        shmctl(Id(), IPC_RMID, nullptr);
    }
    static int Id() { return shmget(12930021, 0, 0); }
    static shmid_ds Status() {
        shmid_ds status{};
        EXPECT_EQ(shmctl(Id(), IPC_STAT, &status), 0);
        return status;
    }

    support::SteppedClock clock_;
};

TEST_F(Configuration, IsReadInPlace) {
    EXPECT_EQ(GetSysconfigData(), nullptr);
    const support::Captured log;
    ASSERT_EQ(SysConfigInit(), 0);
    EXPECT_EQ(Status().shm_segsz, 147456u);
    EXPECT_EQ(Status().shm_perm.mode & 0777, 0660);
    char address[64];
    std::snprintf(address, sizeof address, "pSysConfig:%p\n", static_cast<void*>(GetSysconfigData()));
    EXPECT_EQ(log.Text(), "shared memory size 147456\nshared memory id:" + std::to_string(Id()) + "\n" + address);

    const SysInfo* before = GetSysconfigData();
    EXPECT_EQ(SysConfigInit(), 0);
    EXPECT_EQ(GetSysconfigData(), before) << "attached once";
    EXPECT_EQ(Status().shm_dtime, 0) << "and not given up in between";
    EXPECT_EQ(Status().shm_nattch, 1u);

    auto* server = static_cast<uint8_t*>(shmat(Id(), nullptr, 0));
    server[7068 + 6] = 2;
    EXPECT_EQ(GetSysconfigData()->Record_config.ucVideoStreamType, 2);
    shmdt(server);

    EXPECT_EQ(SysconfigExit(), 0);
    EXPECT_EQ(GetSysconfigData(), nullptr);
    EXPECT_EQ(Status().shm_nattch, 0u);
}

TEST_F(Configuration, ThatCannotBeHadIsAFailure) {
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
    // Of mode 0: found, and attached by nobody but who may attach all.
    ASSERT_EQ(shmget(12930021, 147456, IPC_CREAT), 0) << "the first id of fresh namespaces, as good as any other";
    __user_cap_header_struct own{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[2];
    ASSERT_EQ(syscall(SYS_capget, &own, rights), 0);
    rights[0].effective ^= 1u << CAP_IPC_OWNER;
    ASSERT_EQ(syscall(SYS_capset, &own, rights), 0);
    EXPECT_EQ(SysConfigInit(), -1);
    rights[0].effective ^= 1u << CAP_IPC_OWNER;
    ASSERT_EQ(syscall(SYS_capset, &own, rights), 0);
    EXPECT_EQ(GetSysconfigData(), nullptr);
    clock_.uptime += 1;
    EXPECT_NE(GetSysconfigData(), nullptr) << "tried again each second";
    EXPECT_EQ(SysConfigInit(), 0);
    SysconfigExit();
    clock_.uptime += 1;
    EXPECT_EQ(GetSysconfigData(), nullptr) << "and not once it was given up";
}

TEST_F(Configuration, MadeAnewIsFoundAtTheSameAddressOnceItIsFilled) {
    ASSERT_EQ(SysConfigInit(), 0);
    SysInfo* const config = GetSysconfigData();
    const auto look = [&](int times) {
        for (; times > 0; --times) {
            clock_.uptime += 1;
            EXPECT_EQ(GetSysconfigData(), config);
        }
    };
    config->Record_config.ucEnable = 1;
    for (const size_t size : {size_t{147456}, size_t{5000}, size_t{200000}, size_t{12000}}) {
        config->reRes14[5119] = 9;
        const int old = Id();
        shmctl(old, IPC_RMID, nullptr);
        look(2);
        EXPECT_EQ(config->Record_config.ucEnable, 1) << "the last settings while the server is gone";
        ASSERT_EQ(Id(), -1) << "and its segment is the server's to create";

        const int id = shmget(12930021, size, IPC_CREAT | 0660);
        auto* server = static_cast<SysInfo*>(shmat(id, nullptr, 0));
        look(2);
        EXPECT_EQ(config->Record_config.ucEnable, 1) << "and while it has not written its settings";
        server->lan_config.nStreamType = 77;
        look(1);
        EXPECT_NE(config->lan_config.nStreamType, 77) << "nor when it may still be at it";
        look(1);
        EXPECT_EQ(config->lan_config.nStreamType, 77) << size;
        EXPECT_EQ(config->Record_config.ucEnable, 0);
        EXPECT_EQ(config->reRes14[5119], 0);
        server->Record_config.ucEnable = 1;
        server->lan_config.nStreamType = 0;
        shmdt(server);
        EXPECT_EQ(config->Record_config.ucEnable, 1) << "read in place";
        EXPECT_EQ(Status().shm_nattch, 1u);
        struct shmid_ds gone {};
        EXPECT_EQ(shmctl(old, IPC_STAT, &gone), -1) << "nothing keeps the old one";
    }
}

TEST_F(Configuration, IsReadableAtEveryMomentWhileItIsMadeAnew) {
    ASSERT_EQ(SysConfigInit(), 0);
    const SysInfo* const config = GetSysconfigData();
    const std::jthread reader([config](const std::stop_token& over) {
        for (uint32_t sum = 0; !over.stop_requested(); sum += config->relUniqueId + config->relUniqueId2) {
            EXPECT_LE(config->relUniqueId, 100u);
        }
    });
    for (uint32_t round = 1; round <= 100; ++round) {
        shmctl(Id(), IPC_RMID, nullptr);
        auto* server = static_cast<SysInfo*>(shmat(shmget(12930021, 147456, IPC_CREAT | 0660), nullptr, 0));
        server->relUniqueId = round;
        shmdt(server);
        for (int look = 0; look < 2; ++look) {
            clock_.uptime += 1;
            GetSysconfigData();
        }
        EXPECT_EQ(config->relUniqueId, round);
    }
}

}  // namespace
