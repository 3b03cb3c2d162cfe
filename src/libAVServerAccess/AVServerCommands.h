/* The media server's commands: one row a command, in ascending order of its code.
 *
 *   PLAIN(function, code)                  no argument
 *   INDEX(function, code, type, argument)  the argument travels as the record's index
 *   DATA(function, code)                   16 bytes of argument travel as the record's data
 *
 * Codes are grouped by their high byte: 0x10 channel, audio, regions of interest, lens; 0x20 video run
 * and key frame; 0x30 text and watermark; 0x40 snapshot; 0x50 encoder; 0x51 privacy mask; 0x52
 * detection; 0x53 to 0x5F image; 0x60 to 0x6F other devices; 0x70 Wi-Fi mode; 0x80 time zone.
 */
#ifndef AV_SERVER_COMMANDS_H
#define AV_SERVER_COMMANDS_H

/* clang-format off */
#define AV_SERVER_COMMANDS(PLAIN, INDEX, DATA) \
    PLAIN(AVServerAVAccessInit, 0x1001) \
    PLAIN(AVServerAVAccessCleanup, 0x1002) \
    PLAIN(AVServerSetLdcProperty, 0x1040) \
    PLAIN(AVServerSetRoiProperty, 0x1042) \
    PLAIN(AVServerAudioEncodeStop, 0x1045) \
    PLAIN(AVServerAudioEncodeStart, 0x1046) \
    PLAIN(AVServerAudioEncodeParam, 0x1047) \
    INDEX(AVServerVideoStart, 0x2001, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoStop, 0x2002, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoRestart, 0x2003, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoForceIFrame, 0x2010, AVAccessVideoType, VideoType) \
    PLAIN(AVServerSetFillLight, 0x2020) \
    PLAIN(AVServerSetAlarmPeripheral, 0x2030) \
    PLAIN(AVServerSetFuhanSmartIRStatus, 0x2040) \
    INDEX(AVServerSetOsdText, 0x3001, AVAccessVideoType, VideoType) \
    PLAIN(AVServerOsdTimeStart, 0x3002) \
    PLAIN(AVServerOsdTimeStop, 0x3003) \
    PLAIN(AVServerSetWaterMarkConfig, 0x3010) \
    INDEX(AVServerGetSnapshot, 0x4001, AVAccessVideoType, VideoType) \
    PLAIN(AVServerSetVideoInversion, 0x5001) \
    INDEX(AVServerVideoChangeResolution, 0x5002, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoChangeBitrate, 0x5003, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoChangeBitrateControl, 0x5004, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoChangeFramerate, 0x5005, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoChangeIFrameInterval, 0x5006, AVAccessVideoType, VideoType) \
    INDEX(AVServerVideoChangeProfile, 0x5007, AVAccessVideoType, VideoType) \
    INDEX(AVServerSetSmartEncEnable, 0x5008, AVAccessVideoType, VideoType) \
    PLAIN(AVServerSetPrivacyMask, 0x5101) \
    PLAIN(AVServerClearPrivacyMask, 0x5102) \
    PLAIN(AVServerSetMotionDetectBlock, 0x5201) \
    PLAIN(AVServerClearMotionDetectBlock, 0x5202) \
    PLAIN(AVServerStartMotionDetect, 0x5203) \
    PLAIN(AVServerStopMotionDetect, 0x5204) \
    PLAIN(AVServerStartSmartMotionDetect, 0x5205) \
    PLAIN(AVServerStopSmartMotionDetect, 0x5206) \
    PLAIN(AVServerSetFaceDetectBlock, 0x5207) \
    PLAIN(AVServerClearFaceDetectBlock, 0x5208) \
    PLAIN(AVServerStartFaceDetect, 0x5209) \
    PLAIN(AVServerStopFaceDetect, 0x520A) \
    PLAIN(AVServerSetBrightness, 0x5301) \
    PLAIN(AVServerSetContrase, 0x5302) \
    PLAIN(AVServerSetSaturation, 0x5303) \
    PLAIN(AVServerSetSharpness, 0x5304) \
    PLAIN(AVServerSetIrcut, 0x5401) \
    PLAIN(AVServerSetIrcutSwitchTime, 0x5402) \
    PLAIN(AVServerSetGainControl, 0x5501) \
    PLAIN(AVServerSetNoiseFilter, 0x5601) \
    PLAIN(AVServerSetWhiteBalance, 0x5701) \
    PLAIN(AVServerSetBackLight, 0x5801) \
    PLAIN(AVServerSetFlickerControl, 0x5901) \
    PLAIN(AVServerSetIris, 0x5A01) \
    PLAIN(AVServerSetNight2Day, 0x5B01) \
    PLAIN(AVServerSetElectronicShutter, 0x5C01) \
    PLAIN(AVServerSetVideoStreamType, 0x5D01) \
    PLAIN(AVServerSetUpgrade, 0x5D02) \
    PLAIN(AVServerSetWideDynamic, 0x5E01) \
    PLAIN(AVServerSetExposureCtrl, 0x5F01) \
    PLAIN(AVServerSetDefogControl, 0x6001) \
    PLAIN(AVServerSetRotateAngle, 0x6101) \
    PLAIN(AVServerSetAlarmParam, 0x6201) \
    PLAIN(AVServerSetSlinHiBitionParam, 0x6301) \
    PLAIN(AVServerSetDistortionCorrectionConfig, 0x6310) \
    PLAIN(AVServerSetPNGUpdate, 0x6401) \
    PLAIN(AVServerSetHwClock, 0x6501) \
    INDEX(AVServerSetPtzControl, 0x6601, int, PtzControlCmd) \
    PLAIN(AVServerSetPtzFocusMode, 0x6602) \
    PLAIN(AVServerSetPtzApertureProperty, 0x6603) \
    PLAIN(AVServerSetPtzSerialProperty, 0x6604) \
    DATA(AVServerSetPtzControlEx, 0x6605) \
    PLAIN(AVServerSetPtz3DZoom, 0x6606) \
    PLAIN(AVServerSetHdrParam, 0x6701) \
    INDEX(AVServerSetP2pControl, 0x6801, int, P2pControlCmd) \
    PLAIN(AVServerSetP2pProperty, 0x6802) \
    PLAIN(AVServerSetIOProperty, 0x6901) \
    INDEX(AVServerSetWifiControl, 0x6A01, int, WifiControlCmd) \
    PLAIN(AVServerSetWifiProperty, 0x6A02) \
    PLAIN(AVServerSetFishEyeProperty, 0x6B01) \
    PLAIN(AVServerSetVideoCoverAlarmProperty, 0x6C01) \
    INDEX(AVServerSetAbnormalEventProperty, 0x6D01, AVAccessAbnormalEventType, Type) \
    PLAIN(AVServerSetElectronicAmtiShakeProperty, 0x6E01) \
    INDEX(AVServerSetPreviewModeConfig, 0x6F01, AVAccessVideoType, VideoType) \
    INDEX(AVServerSetWifiMode, 0x7001, int, WifiModeSwitch) \
    PLAIN(AVServerSetTimeZone, 0x8001)
/* clang-format on */

#endif
