#include <sys/sem.h>

#include <set>

#include "Camera.h"
#include "CameraBinding.h"

namespace {

// The command numbers that are agreed with other services.
static_assert(CAMERA_COMMAND_START == 0 && CAMERA_COMMAND_INIT == 1 && CAMERA_COMMAND_END == 207);
static_assert(CAMERA_COMMAND_GETVIDEOCONFIG == 15 && CAMERA_COMMAND_GETAUDIOCONFIG == 27);
static_assert(CAMERA_COMMAND_GETAUDIOPROPERTY == 80 && CAMERA_COMMAND_GETDISPLAYPROPERTY == 84);
static_assert(CAMERA_COMMAND_SETREGULARRECORDPROPERTY == 114 && CAMERA_COMMAND_GETREGULARRECORDPROPERTY == 115);
static_assert(CAMERA_COMMAND_SETAUDIOCONFIG == 127 && CAMERA_COMMAND_SETVIDEOFORCEIFRAME == 175);
static_assert(CAMERA_COMMAND_SETKQVTLEDSTATUS == 200 && CAMERA_COMMAND_SETP2PLIVECHAMMEL == 206);

struct Entry {
    const char* name;
    int (*call)(void*, void*);  // null: has a signature of its own
    int command;
};
#define ENTRY(function, command, number) {#function, function, command},
#define QUERY(function, command, number, implementation) {#function, nullptr, command},
constexpr Entry kEntries[] = {CAMERA_ENTRIES(ENTRY, QUERY)};
#undef ENTRY
#undef QUERY

TEST_F(Camera, EntriesAndTablesKnowTheirCommandsWithoutAGap) {
    std::set<int> numbers;
    std::set<std::string> names;
    for (const Entry& entry : kEntries) {
        numbers.insert(entry.command);
        names.insert(entry.name);
    }
    EXPECT_EQ(names.size(), 205u);
    EXPECT_EQ(numbers.size(), 205u);
    EXPECT_EQ(*numbers.begin(), 2);
    EXPECT_EQ(*numbers.rbegin(), 206);

    const std::set<int> served = {1, 15, 27, 80, 84, 115, 175};
    for (int slot = 0; slot < 208; ++slot) {
        const CameraCommonAccess& common = Get_Common_CameraCommonAccess()[slot];
        EXPECT_EQ(common.Camera_command, slot);
        EXPECT_EQ(common.Camera_function != nullptr, served.count(slot) == 1) << slot;
        EXPECT_TRUE(slot >= 72 || Get_SD_CameraCommonAccess()[slot].Camera_command == slot);
    }
    EXPECT_EQ(CAMERA_COMMON_SLOTS, 208);
    EXPECT_EQ(CAMERA_SD_SLOTS, 72);
}

TEST_F(Camera, EveryEntryAnswersByTheSamePattern) {
    int in = 0, out = 0;
    for (const bool is_bound : {false, true}) {
        for (const Entry& entry : kEntries) {
            if (entry.call != nullptr) {
                ASSERT_EQ(entry.call(&in, &out), is_bound ? -5 : -3) << entry.name;
                ASSERT_EQ(entry.call(&in, nullptr), -1) << entry.name;
                ASSERT_EQ(entry.call(nullptr, &out), -1) << entry.name;
            }
        }
        if (!is_bound) {
            EXPECT_EQ(log_.Text(), "") << "the log is off before the start";
            Bind();
        }
    }
    const std::string log = log_.Text();
    for (const Entry& entry : kEntries) {
        EXPECT_EQ(log.find(std::string("[Trace]: ") + entry.name + ",") != std::string::npos, entry.call != nullptr);
    }
    EXPECT_TRUE(Logged("[Warn]: The Onvif cmd is not support now!\n"));
    EXPECT_EQ(server_.Count(), 0u);
}

TEST_F(Camera, QueriesRefuseNullAndTheUnboundCamera) {
    REGULAR_RECORD_PROPERTY schedule{};
    Camera_VideoConfig video[3]{};
    Camera_AudioConfig audio{};
    Camera_AudioProperty property{};
    Camera_DISPLAYPROPERTY display{};
    const auto expect_all = [&](int expected) {  // and null is refused before all else
        EXPECT_EQ(CameraGetRegularRecordProperty(&schedule, &schedule), expected);
        EXPECT_EQ(CameraGetVideoConfig(video), expected);
        EXPECT_EQ(CameraGetAudioConfig(&audio), expected);
        EXPECT_EQ(CameraGetAudioProperty(&property), expected);
        EXPECT_EQ(CameraGetDisplayProperty(&display), expected);
        EXPECT_EQ(CameraGetRegularRecordProperty(nullptr, &schedule), -1);
        EXPECT_EQ(CameraGetRegularRecordProperty(&schedule, nullptr), -1);
        EXPECT_EQ(CameraGetVideoConfig(nullptr), -1);
        EXPECT_EQ(CameraGetAudioConfig(nullptr), -1);
        EXPECT_EQ(CameraGetAudioProperty(nullptr), -1);
        EXPECT_EQ(CameraGetDisplayProperty(nullptr), -1);
    };
    expect_all(-3);
    EXPECT_EQ(CameraSetVideoForceIFrame(0, 0), -3);
    Bind();
    expect_all(0);
    SysconfigExit();
    expect_all(-1);
    EXPECT_EQ(CameraSetVideoForceIFrame(0, 0), 0) << "needs no configuration";
    EXPECT_EQ(Common_Set_Video_Force_IFrame(nullptr, nullptr), -1);
}

TEST_F(Camera, IsBoundOnceAndOnlyToAKnownKind) {
    for (int device : {0, 4, 7}) {
        EXPECT_EQ(CameraDeviceInit(static_cast<Camera_device>(device), PROCESS_AVRECORD), -1);
    }
    LogInit(nullptr, LOG_MODE_ALL);
    EXPECT_EQ(CameraDeviceInit(CAMERA_DEV_HD_DOME, PROCESS_AVRECORD), -4);
    EXPECT_TRUE(Logged("[Warn]: Unknown camera !\n"));
    EXPECT_EQ(CheckParamValid(CAMERA_COMMAND_GETVIDEOCONFIG), -3);
    EXPECT_TRUE(Logged("[Warn]: Camera dev is not initialize, initialize first!\n"));

    EXPECT_EQ(CameraDeviceInit(CAMERA_DEV_SD_DOME, PROCESS_AVRECORD), -5) << "the dome has no start of its own";
    EXPECT_EQ(CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD), -2) << "and yet is bound";
    EXPECT_EQ(CheckParamValid(CAMERA_COMMAND_GETREGULARRECORDPROPERTY), -5) << "after the dome's table";
    EXPECT_EQ(CameraDeviceCleanup(), 0);
    Bind();
    EXPECT_EQ(CheckParamValid(CAMERA_COMMAND_GETREGULARRECORDPROPERTY), 0);
    EXPECT_EQ(CheckParamValid(CAMERA_COMMAND_START), -5);
    EXPECT_EQ(CheckParamValid(static_cast<CameraCommand>(208)), -5);
    EXPECT_EQ(CheckSlot({Get_Common_CameraCommonAccess(), 3}, -1), -5);

    CameraCommonAccess table[2] = {};
    table[1] = {CAMERA_COMMAND_SETDHCPSTATUE, Common_GetAudioConfig};
    EXPECT_EQ(CheckSlot(table, 1), -7);
    EXPECT_TRUE(Logged("[Warn]: Cmd not match!cmd = 1, pCameraAccess[1].Camera_command = 2\n"));
}

TEST_F(Camera, RegistersEachProcessUnderItsNumber) {
    struct {
        const char* name;
        int number;
    } const processes[] = {{"", 12},         {"BOA", 2},      {"DEVICESEARCH", 4}, {"FREEIP", 3},
                           {"HIKSERVER", 6}, {"XIONGMAI", 7}, {"AVRECORD", 5},     {"", 12}};
    int process = 0;
    for (const auto& [name, number] : processes) {
        const int before = log_.Count(" PROCESS_");
        ASSERT_EQ(CameraDeviceInit(CAMERA_DEV_COMMON, static_cast<ProcessDef>(process)), 0);
        EXPECT_TRUE(Logged(" #####################value " + std::to_string(process++) + "\n"));
        EXPECT_EQ(log_.Count(" PROCESS_") - before, *name == '\0' ? 0 : 1);
        EXPECT_TRUE(*name == '\0' || Logged(std::string(" PROCESS_") + name + "\n")) << name;
        ASSERT_EQ(CameraSetVideoForceIFrame(0, 0), 0);
        EXPECT_EQ(server_.Last().src, number);
        EXPECT_GE(semget(0xC54BD5, 0, 0), 0) << "the services' semaphore set";
        CameraDeviceCleanup();
    }
    const int known = Semaphore_Init(0x5A5A0020);
    ASSERT_GE(known, 0);
    EXPECT_EQ(semctl(known, 0, GETVAL), 1) << "free for one";
    EXPECT_EQ(Semaphore_Init(0x5A5A0020), known);
}

}  // namespace
