#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "Camera.h"

namespace {

class Query : public Camera {
  protected:
    Query() { Bind(); }

    // Three streams as a camera has them.
    void Configure() {
        Lancam_Config_Data& lan = Config().lan_config;
        lan.nEncodingType1 = 1, lan.nEncodingType2 = 2, lan.nEncodingType3 = 3;
        lan.nFrameRate1 = 25, lan.nFrameRate2 = 12, lan.nFrameRate3 = 5;
        lan.nBitrate1 = 2048 * 1024 + 1023, lan.nBitrate2 = 512 * 1024, lan.nBitrate3 = 1023;
        lan.nRateControl1 = 1, lan.nRateControl2 = 2, lan.nRateControl3 = 3;
        lan.nImageQuality1 = 90, lan.nImageQuality2 = 60, lan.nImageQuality3 = 30;
        lan.nProfile1 = 4, lan.nProfile2 = 5, lan.nProfile3 = 6;
        lan.ucSmartEncEnable = 1;
        const int sizes[3][2] = {{1920, 1080}, {640, 360}, {320, 240}};
        for (int stream = 0; stream < 3; ++stream) {
            StreamParam& param = Config().stream_config[stream];
            param.width = static_cast<uint16_t>(sizes[stream][0]);
            param.height = static_cast<uint16_t>(sizes[stream][1]);
            param.iEnable = static_cast<uint8_t>(stream != 2);
            Config().codec_advconfig[stream].ipRatio = 50 + stream;
        }
    }
    // The answer to a video query, in which the third member of each record is the frame rate.
    const Camera_VideoConfig* Video() {
        std::memset(video_, 0xEE, sizeof video_);
        EXPECT_EQ(CameraGetVideoConfig(video_), 0);
        return video_;
    }

    Camera_VideoConfig video_[4];
};

TEST_F(Query, VideoFillsThreeRecords) {
    Configure();
    Video();
    const int max = KQ_COMMON_GetMaxFrameRateByResolution(1920, 1080, -1);
    const int32_t expected[3][19] = {
        {1, max, 25, 1920, 1080, 0, 99, 90, 1, 64, 12288, 2048, 1, 25, 125, 50, 1, 4, 1},
        {1, max, 12, 640, 360, 0, 99, 60, 2, 64, 12288, 512, 2, 12, 60, 51, 1, 5, 1},
        {1, 0, 0, 320, 240, 0, 99, 30, 3, 64, 12288, 0, 3, 0, 0, 0, 0, 6, 1},
    };
    for (int stream = 0; stream < 3; ++stream) {
        std::array<int32_t, 19> got;
        std::memcpy(got.data(), &video_[stream], sizeof got);
        EXPECT_THAT(got, testing::ElementsAreArray(expected[stream])) << "stream " << stream;
    }
    EXPECT_EQ(video_[3].iFrameRateMin, static_cast<int32_t>(0xEEEEEEEE)) << "after the third record";
}

TEST_F(Query, VideoRatesEndAtTheLimitOfTheMainStream) {
    Configure();
    Config().stream_config[0].width = Config().stream_config[0].height = 8192;
    Config().lan_config.nFrameRate2 = 3;
    Config().lan_config.nFrameRate3 = 0;
    Video();
    EXPECT_EQ(video_[0].iFrameRateMax, 3);
    EXPECT_EQ(video_[0].iFrameRate, 3) << "configured: 25";
    EXPECT_EQ(video_[0].iGovLength, 3);
    EXPECT_EQ(video_[0].iGovLengthMax, 15);
    EXPECT_EQ(video_[1].iFrameRate, 3);
    EXPECT_EQ(video_[1].iGovLength, 51) << "a rate at the limit keeps its key frame distance";
    EXPECT_EQ(video_[2].iFrameRate, 0);
    EXPECT_EQ(video_[2].iGovLength, 52) << "no rate configured, none refused";
}

TEST_F(Query, VideoBitrateLimitFollowsTheMainStreamsCodecAlone) {
    Config().lan_config.nEncodingType2 = 4;
    EXPECT_EQ(Video()[1].iBitrateMax, 12288);
    Config().lan_config.nEncodingType1 = 4;
    EXPECT_EQ(Video()[0].iBitrateMax, 16384);
    EXPECT_EQ(Video()[2].iBitrateMax, 16384);
}

TEST_F(Query, FrameRateLimitAllowsRealCamerasAndBoundsWhatIsTooLarge) {
    EXPECT_GE(KQ_COMMON_GetMaxFrameRateByResolution(3840, 2160, -1), 30);
    EXPECT_EQ(KQ_COMMON_GetMaxFrameRateByResolution(2, 2, -1), 120);
    EXPECT_EQ(KQ_COMMON_GetMaxFrameRateByResolution(0, 1080, -1), 120);
    EXPECT_EQ(KQ_COMMON_GetMaxFrameRateByResolution(INT32_MAX, INT32_MAX, -1), 1);
}

TEST_F(Query, ScheduleIsCopiedAndAllElseIsZero) {
    auto* raw = reinterpret_cast<uint8_t*>(&Config().Record_config);
    for (size_t i = 0; i < sizeof(Record_Config_Data); ++i) {
        raw[i] = static_cast<uint8_t>(i % 251 + 1);
    }
    REGULAR_RECORD_PROPERTY in{}, out;
    std::memset(&out, 0xEE, sizeof out);
    ASSERT_EQ(CameraGetRegularRecordProperty(&in, &out), 0);

    uint8_t expected[540] = {};
    expected[4] = raw[0];  // enabled
    expected[6] = raw[6];  // stream
    for (size_t day = 0; day < 7; ++day) {
        const uint8_t* from = raw + 16 + day * 52;
        uint8_t* to = expected + 28 + 4 + day * 68;
        to[0] = from[0];
        std::copy_n(from + 4, 48, to + 4);
    }
    EXPECT_EQ(std::memcmp(&out, expected, sizeof out), 0);
    ASSERT_EQ(CameraGetRegularRecordProperty(&out, &out), 0);
    EXPECT_EQ(std::memcmp(&out, expected, sizeof out), 0) << "one record as both";
    EXPECT_TRUE(Logged("[Trace]: Common_GetRegularRecordProperty,"));
}

TEST_F(Query, AudioHasTheConfiguredCodecAndFixedRates) {
    Config().audio_config.samplerate = 48000;
    Config().audio_config.bitrateValue = 128000;
    Config().audio_config.codectype = 8195;
    Camera_AudioConfig audio;
    std::memset(&audio, 0xEE, sizeof audio);
    ASSERT_EQ(CameraGetAudioConfig(&audio), 0);
    const Camera_AudioConfig expected{8195, 0, 64000, 8000, 0, 64000, 8000};
    EXPECT_EQ(std::memcmp(&audio, &expected, sizeof audio), 0);
}

TEST_F(Query, AudioPropertyKeepsTheCallersChannel) {
    Audio_Config_Data& audio = Config().audio_config;
    audio.audioenable = 1, audio.audioinvolume = 20, audio.audiooutvolume = 30;
    audio.audioInputMode = 4, audio.audioOutputMode = 5;
    Camera_AudioProperty property{9, 9, 9, 9, 9, 9};
    ASSERT_EQ(CameraGetAudioProperty(&property), 0);
    const Camera_AudioProperty expected{9, 1, 30, 20, 4, 5};
    EXPECT_EQ(std::memcmp(&property, &expected, sizeof property), 0);
}

TEST_F(Query, DisplayKeepsTheCallersBytesAndEndsItsText) {
    auto* raw = reinterpret_cast<uint8_t*>(&Config());
    raw[1300 + 67] = 1;   // mirror
    raw[1300 + 19] = 2;   // shutter
    raw[1300 + 18] = 3;   // infrared light
    raw[1300 + 16] = 4;   // cut filter
    raw[1300 + 4] = 5;    // its switch time
    raw[1300 + 30] = 90;  // rotation
    OSD_config& osd = Config().osd_config[0];
    osd.dateformat = 6;
    osd.nTimeEnable = 7;
    osd.nTextEnable = 8;
    osd.nTextPosition = 10;
    std::strcpy(osd.overlaytext, "Hof 2");
    std::strcpy(Config().osd_config[1].overlaytext, "another stream's");

    Camera_DISPLAYPROPERTY display;
    std::memset(&display, 0xEE, sizeof display);
    ASSERT_EQ(CameraGetDisplayProperty(&display), 0);
    const uint8_t head[12] = {0xEE, 1, 2, 3, 4, 5, 0xEE, 0xEE, 10, 7, 6, 8};
    EXPECT_EQ(std::memcmp(&display, head, sizeof head), 0);
    EXPECT_STREQ(display.ucOSDText, "Hof 2");
    EXPECT_EQ(display.ucRotateAngle, 90);
    EXPECT_EQ(std::count(display.ulRes, display.ulRes + 15, 0xEE), 15);

    std::memset(osd.overlaytext, 'x', sizeof osd.overlaytext);  // full, and not terminated
    ASSERT_EQ(CameraGetDisplayProperty(&display), 0);
    EXPECT_EQ(std::string(display.ucOSDText), std::string(199, 'x'));
    EXPECT_EQ(display.ucRotateAngle, 90);
}

TEST_F(Query, ForcedKeyFrameSendsItsStreamAloneAndIgnoresTheVerdict) {
    ASSERT_EQ(CameraSetVideoForceIFrame(2, 0x11223344), 0);
    const auto request = server_.Last();
    EXPECT_EQ(request.cmd, 350);
    EXPECT_EQ(request.src, 5);
    EXPECT_EQ(request.offset, 3 * 12288);
    EXPECT_EQ(request.payload, (std::vector<uint8_t>{2, 0, 0, 0}));
    EXPECT_EQ(server_.Segment()[3 * 12288 + 4], 0) << "the value stays here";
    EXPECT_EQ(log_.Count(":################\n"), 4);
    EXPECT_TRUE(Logged(":index = 2 value = 287454020\n"));
    server_.Queue().Leave();
    EXPECT_EQ(CameraSetVideoForceIFrame(0, 1), 0) << "whatever the server says";
}

}  // namespace
