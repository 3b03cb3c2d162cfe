// The queries, each read from the configuration in place.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "CameraBinding.h"
#include "libCameraAccess.h"
#include "libOthers.h"

namespace {

// What the configuration keeps of one stream under names of its own.
struct StreamSettings {
    int encoding_type, bitrate, rate_control, quality, profile, frame_rate;
};

StreamSettings SettingsOf(const Lancam_Config_Data& lan, int stream) {
    switch (stream) {
        case 0:
            return {lan.nEncodingType1, lan.nBitrate1, lan.nRateControl1,
                    lan.nImageQuality1, lan.nProfile1, lan.nFrameRate1};
        case 1:
            return {lan.nEncodingType2, lan.nBitrate2, lan.nRateControl2,
                    lan.nImageQuality2, lan.nProfile2, lan.nFrameRate2};
        default:
            return {lan.nEncodingType3, lan.nBitrate3, lan.nRateControl3,
                    lan.nImageQuality3, lan.nProfile3, lan.nFrameRate3};
    }
}

// The frame rate is bounded by its maximum, and the key frame distance with it.
void FillRates(Camera_VideoConfig& video, int frame_rate, int key_frame_distance) {
    const bool possible = video.iFrameRateMax >= frame_rate;
    video.iFrameRate = possible ? frame_rate : video.iFrameRateMax;
    video.iGovLength = possible ? key_frame_distance : video.iFrameRateMax;
    video.iGovLengthMin = video.iFrameRate;
    video.iGovLengthMax = 5 * video.iFrameRate;
}

void FillStream(Camera_VideoConfig& video, const SysInfo& config, int stream) {
    const StreamSettings settings = SettingsOf(config.lan_config, stream);
    video.iEnable = config.stream_config[stream].iEnable;
    video.iFrameRateMin = 1;
    video.iVideoWidth = config.stream_config[stream].width;
    video.iVideoHeight = config.stream_config[stream].height;
    video.iEncoding = settings.encoding_type;
    video.iBitrateMin = 64;
    video.iBitrate = settings.bitrate / 1024;
    video.iBitrateControl = settings.rate_control;
    video.iQualityMin = 0;
    video.iQualityMax = 99;
    video.iQuality = settings.quality;
    video.iProfile = settings.profile;
    video.iSmartEncEnable = config.lan_config.ucSmartEncEnable;
    FillRates(video, settings.frame_rate, config.codec_advconfig[stream].ipRatio);
}

}  // namespace

int Common_GetVideoConfig(void*, void* outData) {
    auto* video = static_cast<Camera_VideoConfig*>(outData);
    const SysInfo* config = GetSysconfigData();
    if (video == nullptr || config == nullptr) {
        return -1;
    }
    std::fill_n(video, CAMERA_VIDEO_STREAMS, Camera_VideoConfig{});
    const StreamParam& main_stream = config->stream_config[0];
    // Stream 1 shares the limit of stream 0; stream 2 has none and so reports no rate.
    video[0].iFrameRateMax = KQ_COMMON_GetMaxFrameRateByResolution(main_stream.width, main_stream.height, -1);
    video[1].iFrameRateMax = video[0].iFrameRateMax;
    const int bitrate_max = config->lan_config.nEncodingType1 == CAMERA_ENCODING_MJPEG ? 16384 : 12288;
    for (int stream = 0; stream < CAMERA_VIDEO_STREAMS; ++stream) {
        video[stream].iBitrateMax = bitrate_max;
        FillStream(video[stream], *config, stream);
    }
    return 0;
}

int Common_GetRegularRecordProperty(void* inData, void* outData) {
    LOG_ENTRY();
    const SysInfo* config = GetSysconfigData();
    if (inData == nullptr || outData == nullptr || config == nullptr) {
        return -1;
    }
    auto& schedule = *static_cast<REGULAR_RECORD_PROPERTY*>(outData);
    const Record_Config_Data& record = config->Record_config;
    schedule = {};
    schedule.videoRecord.ucEnable = record.ucEnable;
    schedule.videoRecord.ucVideoStreamType = record.ucVideoStreamType;
    for (size_t day = 0; day < std::size(record.weekScope.dayScope); ++day) {
        const Day_Hour_Scope& from = record.weekScope.dayScope[day];
        TIME_DAY_HOUR_SCOPE& to = schedule.weekScop.dayScope[day];
        to.ucSocpeMode = from.ucSocpeMode;
        static_assert(sizeof to.hourScope == sizeof from.hourScope);
        std::memcpy(to.hourScope, from.hourScope, sizeof to.hourScope);
    }
    return 0;
}

int Common_GetAudioConfig(void*, void* outData) {
    const SysInfo* config = GetSysconfigData();
    if (outData == nullptr || config == nullptr) {
        return -1;
    }
    auto& audio = *static_cast<Camera_AudioConfig*>(outData);
    audio = {};
    audio.iEncoding = config->audio_config.codectype;
    audio.iBitrateMax = 64000;  // one codec, one rate: the configured ones are not consulted
    audio.iBitrate = 8000;
    audio.iSamplerateMax = 64000;
    audio.iSamplerate = 8000;
    return 0;
}

int Common_GetAudioProperty(void*, void* outData) {
    const SysInfo* config = GetSysconfigData();
    if (outData == nullptr || config == nullptr) {
        return -1;
    }
    auto& property = *static_cast<Camera_AudioProperty*>(outData);
    const Audio_Config_Data& audio = config->audio_config;
    property.ucEnable = audio.audioenable;
    property.ucOutputVolume = audio.audiooutvolume;
    property.ucInputVolume = audio.audioinvolume;
    property.ucInputModel = audio.audioInputMode;
    property.ucOutputModel = audio.audioOutputMode;
    return 0;
}

int Common_GetDisplayProperty(void*, void* outData) {
    const SysInfo* config = GetSysconfigData();
    if (outData == nullptr || config == nullptr) {
        return -1;
    }
    auto& display = *static_cast<Camera_DISPLAYPROPERTY*>(outData);
    const Lancam_Config_Data& lan = config->lan_config;
    display.ucMirrorMode = lan.mirror;
    display.ulElectronicShutter = lan.nElectronicShutter;
    display.ucIRLEDEnable = lan.irled;
    display.ucIRCutMode = lan.ircutmode;
    display.ucIRCutSwitchTime = lan.ircutswitchtime;

    const OSD_config& osd = config->osd_config[0];
    display.ucDateFormat = osd.dateformat;
    display.ucDateVisiable = osd.nTimeEnable;
    display.ucIPCNameVisiable = osd.nTextEnable;
    display.ucOSDPostion = osd.nTextPosition;
    // The configured text may be longer than the record's, and need not be terminated.
    const size_t length = strnlen(osd.overlaytext, sizeof display.ucOSDText - 1);
    std::memcpy(display.ucOSDText, osd.overlaytext, length);
    display.ucOSDText[length] = '\0';

    display.ucRotateAngle = lan.nRotateAngle;
    return 0;
}
