// The desk camera as a whole: settings, alarms, commands and heartbeat while it publishes its test picture.
#include <gmock/gmock.h>

#include <cstring>

#include "Support.h"
#include "libAVServerAccess.h"
#include "libAlarmProcess.h"
#include "libOthers.h"
#include "support/Stderr.h"

using namespace desk;
using namespace desk_test;
using testing::HasSubstr;

namespace {

constexpr char kControl[] = "/tmp/deskcamera.control";

std::string Say(const std::string& line) {
    return AskDeskCamera(kControl, line);
}

AlarmData Board() {
    AlarmData board{};
    EXPECT_EQ(AlarmDataRead(&board), 0);
    return board;
}

TEST(DeskCamera, AForcedKeyFrameIsTheNextFrame) {
    Running camera;
    for (int round = 0; round < 6; ++round) {
        const int stream = round % 2;
        Running::WaitForVideo(stream, 3 + static_cast<size_t>(round));
        const size_t before = Running::Video(stream).size();
        ASSERT_EQ(AVServerVideoForceIFrame(static_cast<AVAccessVideoType>(stream)), 0);
        const size_t after = Running::Video(stream).size();
        Running::WaitForVideo(stream, 3);
        const auto video = Running::Video(stream);
        size_t key = before;
        while (key < video.size() && !video[key].key) ++key;
        EXPECT_LE(key, after) << "the answer came with frame " << after;
        EXPECT_LE(key, before + 1) << "one frame was in the making";
    }
    EXPECT_EQ(Say("keyframe 1"), "ok\n");
    EXPECT_THAT(Say("keyframe 2"), HasSubstr("error"));
}

TEST(DeskCamera, ReadsItsSettingsAgainWhenTheyChange) {
    Running camera;
    const support::Captured said;
    const std::string changed = Running::Small() + "lan_config.nFrameRate1 = 10\n";
    WriteText(Running::kSettings,
              changed + "lan_config.nBitrate1 = plenty\nno_such.member = 1\nschedule.monday = 9-10\n");
    ASSERT_TRUE(WaitUntil([&] { return camera->System().Snapshot().lan_config.nFrameRate1 == 10; }));
    EXPECT_TRUE(WaitUntil([&] { return said.Has("line 10"); })) << said.Text();
    EXPECT_THAT(said.Text(), HasSubstr("line 8: lan_config.nBitrate1 takes a whole number"));
    EXPECT_THAT(said.Text(), HasSubstr("line 9: there is no setting \"no_such.member\""));
    EXPECT_TRUE(WaitUntil([&] { return camera->Media().FrameRate(0) == 10; }));

    // A change made elsewhere lasts until its own line changes.
    EXPECT_EQ(Say("set lan_config.nFrameRate1 = 12"), "ok\n");
    WriteText(Running::kSettings,
              changed + "schedule.daily = off\nschedule.monday = 08:00-12:00 motion, 13:00-18:30 io\n");
    ASSERT_TRUE(WaitUntil([&] {
        return camera->System().Snapshot().Record_config.weekScope.dayScope[1].hourScope[1].endHour.ucMinute == 30;
    }));
    const SysInfo record = camera->System().Snapshot();
    EXPECT_EQ(record.lan_config.nFrameRate1, 12);
    const auto& days = record.Record_config.weekScope.dayScope;
    EXPECT_EQ(days[0].ucSocpeMode, 0);
    EXPECT_EQ(days[1].ucSocpeMode, 3);
    EXPECT_EQ(days[1].hourScope[0].endHour.ucType, 1);
    EXPECT_EQ(days[1].hourScope[1].endHour.ucType, 2);
}

TEST(DeskCamera, RequestsToTheSystemServerChangeTheRecord) {
    Running camera;
    ASSERT_EQ(SysConfigInit(), 0);
    ASSERT_EQ(SysDrvInit(5), 0);
    int rate = 17, angle = 2, stream = 0;
    EXPECT_EQ(SetSysFramerate1(&rate, sizeof rate), 4);
    EXPECT_EQ(SetSysRotateAngle(&angle, 1), 1);
    EXPECT_EQ(GetSysconfigData()->lan_config.nFrameRate1, 17);
    EXPECT_EQ(GetSysconfigData()->lan_config.nRotateAngle, 2);
    rate = 1000;  // out of bounds: answered, and nothing changed
    EXPECT_EQ(SetSysFramerate1(&rate, sizeof rate), 4);
    EXPECT_EQ(GetSysconfigData()->lan_config.nFrameRate1, 17);

    Running::WaitForVideo(0, 3);
    const size_t before = Running::Video(0).size();
    EXPECT_EQ(SetSysVideoForceIFrame(&stream, 4), 4);
    Running::WaitForVideo(0, 3);
    EXPECT_TRUE(Running::Video(0)[before].key || Running::Video(0)[before + 1].key);
    SysDrvExit();
    SysconfigExit();
}

TEST(DeskCamera, RaisesAndClearsTimedAlarms) {
    DeskCameraOptions options;
    options.alarms = "/tmp/desk_test.alarms";
    WriteText(options.alarms,
              "# sorted by time, whatever the order of the lines\n"
              "at 0.9s motion off\nat 0.6s io on   # both\nat 0.3s motion on\n"
              "at 0m1.2s io off\nat 1.2s set Record_config.ucrecordDelay = 8\nat 1.5s crossborder on\nat 1.5s "
              "io+motion on\n");
    Running camera(options);
    EXPECT_TRUE(WaitUntil([] { return Board().alarm[9].status == 1 && Board().alarm[14].status == 1; }));
    for (const int over : {0, 2}) {
        EXPECT_EQ(Board().alarm[over].status, 0) << over;
        EXPECT_NEAR(Board().alarm[over].time, time(nullptr), 60) << over;
    }
    EXPECT_EQ(camera->System().Snapshot().Record_config.ucrecordDelay, 8);

    EXPECT_EQ(Say("alarm face on"), "ok\n");
    EXPECT_EQ(Board().alarm[11].status, 1);
    EXPECT_THAT(Say("status"), HasSubstr("alarms: crossborder, face, io_motion"));
    EXPECT_THAT(Say("set Record_config.ucEnable = 7"), HasSubstr("takes 0 to 1"));
    for (const char* wrong : {"alarm thunder on", "alarm motion maybe", "sing"}) {
        EXPECT_THAT(Say(wrong), HasSubstr("error"));
    }
}

TEST(AlarmScript, NamesTheLineThatIsWrong) {
    for (const char* line : {"motion on", "at 5 motion on", "at 5s motion", "at 5s motion on off", "at 5s thunder on",
                             "at -1s motion on", "at 5s set x"}) {
        EXPECT_THAT([=] { ParseAlarmScript(std::string("at 1s motion on\n\n") + line); },
                    testing::ThrowsMessage<std::runtime_error>(HasSubstr("line 3")))
            << line;
    }
}

TEST(Settings, WrittenOnesReadBackAsTheStandardRecord) {
    SysInfo standard{}, read{};
    ApplyStandardSettings(standard);
    WriteText(Running::kSettings, StandardSettingsText());
    SettingsFile file(Running::kSettings);
    EXPECT_TRUE(file.Read(read).empty());
    EXPECT_EQ(std::memcmp(&standard, &read, sizeof read), 0);
    EXPECT_FALSE(file.Changed());
    EXPECT_NE(StandardSettingsText().find("schedule.saturday"), std::string::npos);
}

TEST(Settings, AScheduleIsTakenWholeOrNotAtAll) {
    SysInfo record{};
    ApplySetting(record, "schedule.daily", "all");
    const SysInfo before = record;
    for (const char* value :
         {"", "sometimes", "08:00-07:00", "08:00-24:01", "08:60-09:00", "22:00-02:00", "08:00-09:00 rain",
          "1:00-2:00,3:00-4:00,5:00-6:00,7:00-8:00,9:00-10:00,11:00-12:00,13:00-14:00"}) {
        EXPECT_THROW(ApplySetting(record, "schedule.friday", value), std::runtime_error) << value;
        EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0) << value;
    }
    EXPECT_THROW(ApplySetting(record, "schedule.someday", "all"), std::runtime_error);
}

}  // namespace
