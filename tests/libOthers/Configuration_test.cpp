#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>
#include <string>

#include "libOthers.h"
#include "support/Capabilities.h"
#include "support/Stderr.h"

namespace {

// Places inside nested members, counted from the start of the record.
static_assert(offsetof(SysInfo, acounts[15].authority) == 4 + 15 * 68 + 64);
static_assert(offsetof(SysInfo, lan_config.mirror) == 1300 + 67);
static_assert(offsetof(SysInfo, osd_config[2].overlaytext) == 2652 + 2 * 261 + 5);
static_assert(offsetof(SysInfo, Record_config.ucVideoStreamType) == 7074);
static_assert(offsetof(SysInfo, Record_config.weekScope.dayScope[6].hourScope[5].endHour.ucType) ==
              7068 + 16 + 6 * 52 + 4 + 5 * 8 + 7);
static_assert(offsetof(SysInfo, Alarm_Config_Ex[1].timeSocpeTab[6][7]) == 9020 + 560 + 32 + 55 * 8);
static_assert(offsetof(SysInfo, Alarm_Config_Ex[1].process.ucAlarmRecordEnable) == 9020 + 560 + 480 + 3);
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
    server[1300 + 34] = 77;
    EXPECT_EQ(GetSysconfigData()->Record_config.ucVideoStreamType, 2);
    EXPECT_EQ(GetSysconfigData()->lan_config.nVideocodecmode, 77);
    shmdt(server);

    EXPECT_EQ(SysconfigExit(), 0);
    EXPECT_EQ(GetSysconfigData(), nullptr);
    EXPECT_EQ(Status().shm_nattch, 0u);
    EXPECT_EQ(SysconfigExit(), 0);
}

TEST_F(Configuration, OfAnotherSizeIsTakenAndAShortOneEndsInZeros) {
    for (const size_t size : {size_t{4096}, size_t{5000}, size_t{200000}}) {
        const int id = shmget(12930021, size, IPC_CREAT | 0660);
        ASSERT_GE(id, 0);
        auto* server = static_cast<uint8_t*>(shmat(id, nullptr, 0));
        server[1300 + 33] = 9;
        shmdt(server);
        ASSERT_EQ(SysConfigInit(), 0) << size;
        const SysInfo* config = GetSysconfigData();
        EXPECT_EQ(config->lan_config.nStreamType, 9);
        EXPECT_EQ(config->relUniqueId2, 0u);
        EXPECT_EQ(config->reRes14[5119], 0);
        EXPECT_EQ(Status().shm_nattch, 1u);
        SysconfigExit();
        EXPECT_EQ(Status().shm_nattch, 0u);
        shmctl(id, IPC_RMID, nullptr);
    }
}

TEST_F(Configuration, ThatCannotBeHadIsAFailure) {
    const int id = shmget(12930021, 147456, IPC_CREAT);
    ASSERT_GE(id, 0);
    {
        const support::WithoutIpcRights weak;
        EXPECT_EQ(SysConfigInit(), -1);
    }
    EXPECT_EQ(GetSysconfigData(), nullptr);
    EXPECT_EQ(SysConfigInit(), 0);
}

}  // namespace
