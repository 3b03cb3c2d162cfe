// The senders and the commands they send, written down apart from the product's own table, in the order of their field
// codes, from 4096 on.
#pragma once

// clang-format off
#define SENDER_CODES(X) \
    X(SetIp, 0) X(SetNetMask, 1) X(SetGateway, 14) X(SetDns, 46) X(SetIRLed, 271) X(SetSysElectronicShutter, 206) \
    X(SetSysExposureCtrl, 207) X(SetSysWideDynamicEable, 208) X(SetSysWideDynamicLevel, 209) \
    X(SetSysNoiseFilterMode, 210) X(SetSysNoiseFilter2DStrength, 211) X(SetSysNoiseFilter3DStrength, 212) \
    X(SetSysDefogEnable, 213) X(SetSysDefogMode, 214) X(SetSysDefogStrength, 215) X(SetSysRotateAngle, 216) \
    X(SetSysSLInHiBition, 217) X(SetSysSLInHiBitionStreangth, 218) X(SetSysSLDarkAreaAscension, 219) X(SetHttpPort, 2) \
    X(SetHttpsPort, 5) X(SetPelnixPort, 6) X(SetHkPrivatePort, 7) X(SetHkPrivateEnable, 8) X(SetXmPrivatePort, 9) \
    X(SetXmPrivateEnable, 10) X(SetOnvifPrivateEnable, 11) X(SetRtspPort, 3) X(SetOnvifPort, 4) X(SetTitle, 65) \
    X(SetOSDText, 13) X(SetDhcpEnable, 15) X(SetSysFtpFqdn, 16) X(SetFtpUsername, 17) X(SetFtpPassword, 18) \
    X(SetFtpFoldname, 19) X(SetFtpImageacount, 20) X(SetSysFtpPort, 24) X(SetFtpPid, 23) X(SetSmtpServerIp, 28) \
    X(SetSmtpServerPort, 29) X(SetSmtpAuthentication, 30) X(SetSmtpUsername, 31) X(SetSmtpPassword, 32) \
    X(Setsysweblanguage, 240) X(SetSmtpSenderEmail, 33) X(SetSmtpReceiverEmail, 34) X(SetSmtpReceiverEmail1, 35) \
    X(SetSmtpReceiverEmail2, 36) X(SetSmtpTest, 44) X(SetSmtpCC2, 38) X(SetSmtpSubject, 39) X(SetSmtpText, 40) \
    X(SetSmtpAttachments, 41) X(SetSmtpView, 42) X(SetSmtpEnable, 43) X(SetAttFileFormat, 45) X(SetSysTimeFormat, 221) \
    X(SetSysDaylight, 222) X(SetSysTimeZone, 223) X(SetSysTime, 224) X(SetSysHwClock, 225) \
    X(SetSysNvrModifyTimeEnable, 226) X(SetSysTimeAutomatic, 229) X(SetSysTimeInterval, 230) X(SetSysDstConfig, 231) \
    X(SetSysAccessPointInfo, 232) X(SetSntpEnable, 47) X(SetSntpServer, 48) X(SetSysDayNight, 201) \
    X(SetSysWhiteBalance, 197) X(SetSysMwbRGain, 198) X(SetSysMwbGGain, 199) X(SetSysMwbBGain, 200) \
    X(SetSysBacklight, 195) X(SetSysBrightness, 186) X(SetSysContrast, 187) X(SetSysSaturation, 188) \
    X(SetSysSharpness, 189) X(SetSysClearSysLog, 190) X(SetSysForceIframe1, 112) X(SetSysForceIframe2, 113) \
    X(SetSysForceIframe3, 114) X(SetSysClearAccessLog, 191) X(SetSysAuthentication, 192) X(SetSysSnapShot, 193) \
    X(SetSysMirror, 108) X(SetSyspmask, 184) X(SetSyspmaskopt, 185) X(SetSysAdvMode, 49) X(SetSysDemoCfg, 53) \
    X(SetSysDynRange, 196) X(SetSysVideoMode, 66) X(SetSysVideoEncodeingType1, 67) X(SetSysVideoEncodeingType2, 68) \
    X(SetSysVideoEncodeingType3, 69) X(SetSysVideoCodecMode, 70) X(SetSysImageSource, 64) X(SetSysMPEG4Res, 56) \
    X(SetSysMPEG42Res, 57) X(SetSysSchedule, 54) X(DelSysSchedule, 55) X(SetSysFtpAlarmEnable, 60) \
    X(SetFTPFileFormat, 26) X(SetSysSmtpAlarmEnable, 61) X(SetSysAlarmDuration, 62) X(SetASmtpAttach, 63) \
    X(SetRftpEnable, 25) X(SetSysImage2A, 203) X(SetSysImage2AType, 204) X(SetSysBinning, 202) X(SetSysBLC, 194) \
    X(SetSmartMotionEnable, 356) X(SetSmartMotionAlram, 357) X(SetSmartLowBitrate, 358) X(SetSmartAdvanceIsp, 359) \
    X(SetMotionEnable, 177) X(SetMotionCEnable, 178) X(SetMotionLevel, 179) X(SetMotionCValue, 180) \
    X(SetMotionBlock, 181) X(SetMotionBlockEx, 182) X(SetMotionStreamType, 183) X(SetMPEG41Bitrate, 71) \
    X(SetMPEG42Bitrate, 72) X(SetMPEG43Bitrate, 73) X(SetImageDefault, 246) X(DoSysLogin, 247) X(SysAddUser, 248) \
    X(SysDelUser, 249) X(SysModifyUser, 250) X(SysModifyAcount, 364) X(SetSysUpgrade, 346) X(SetSysPNGUpDate, 347) \
    X(SetSysRateControl, 245) X(SetSysFramerate1, 74) X(SetSysFramerate2, 75) X(SetSysFramerate3, 76) \
    X(SysDoBootProc, 254) X(SetSysRateControl1, 77) X(SetSysRateControl2, 78) X(SetSysRateControl3, 79) \
    X(SetSysStream1Width, 80) X(SetSysStream1Height, 81) X(SetSysStream2Width, 82) X(SetSysStream2Height, 83) \
    X(SetSysStream3Width, 84) X(SetSysStream3Height, 85) X(SetSysEncoding1Enable, 86) X(SetSysEncoding2Enable, 87) \
    X(SetSysEncoding3Enable, 88) X(SetSysVideoProfile1, 89) X(SetSysVideoProfile2, 90) X(SetSysVideoProfile3, 91) \
    X(SetSysDateFormat1, 92) X(SetSysDateFormat2, 93) X(SetSysDateFormat3, 94) X(SetSysTimeEnable1, 95) \
    X(SetSysTimeEnable2, 96) X(SetSysTimeEnable3, 97) X(SetSysTextEnable1, 98) X(SetSysTextEnable2, 99) \
    X(SetSysTextEnable3, 100) X(SetSysTextPosition1, 101) X(SetSysTextPosition2, 102) X(SetSysTextPosition3, 103) \
    X(SetSysEncryptVideo, 107) X(SetSysOverlayText1, 104) X(SetSysOverlayText2, 105) X(SetSysOverlayText3, 106) \
    X(SetSysIpratio1, 109) X(SetSysIpratio2, 110) X(SetSysIpratio3, 111) X(SetSysQPInit1, 115) X(SetSysQPInit2, 116) \
    X(SetSysQPInit3, 117) X(SetSysQPMin1, 118) X(SetSmtpCC, 37) X(SetSysQPMin2, 119) X(SetSysQPMin3, 120) \
    X(SetSysQPMax1, 121) X(SetSysQPMax2, 122) X(SetSysQPMax3, 123) X(SetSysMEConfig1, 124) X(SetSysMEConfig2, 125) \
    X(SetSysMEConfig3, 126) X(SetSysPacketSize1, 127) X(SetSysPacketSize2, 128) X(SetSysPacketSize3, 129) \
    X(SetSysImageQuality1, 130) X(SetSysImageQuality2, 131) X(SetSysImageQuality3, 132) X(SetSysROIEnable1, 145) \
    X(SetSysROIEnable2, 146) X(SetSysROIEnable3, 147) X(SetSysROIBgFrameRate, 148) X(SetSysROIQpType1, 149) \
    X(SetSysROIQpType2, 150) X(SetSysROIQpType3, 151) X(SetSysROIQpValue1, 152) X(SetSysROIQpValue2, 153) \
    X(SetSysROIQpValue3, 154) X(SetSysStr1X1, 133) X(SetSysStr1Y1, 134) X(SetSysStr1X2, 135) X(SetSysStr1Y2, 136) \
    X(SetSysStr2X1, 137) X(SetSysStr2Y1, 138) X(SetSysStr2X2, 139) X(SetSysStr2Y2, 140) X(SetSysStr3X1, 141) \
    X(SetSysStr3Y1, 142) X(SetSysStr3X2, 143) X(SetSysStr3Y2, 144) X(SetSysRoi1X1, 155) X(SetSysRoi1Y1, 156) \
    X(SetSysRoi1X2, 157) X(SetSysRoi1Y2, 158) X(SetSysRoi2X1, 159) X(SetSysRoi2Y1, 160) X(SetSysRoi2X2, 161) \
    X(SetSysRoi2Y2, 162) X(SetSysRoi3X1, 163) X(SetSysRoi3Y1, 164) X(SetSysRoi3X2, 165) X(SetSysRoi3Y2, 166) \
    X(SetAudioEnable, 167) X(SetSysAudioServerIp, 176) X(SetSysLinearWdr, 255) X(SetSysIrisMode, 241) \
    X(SetSysIrisOpen, 242) X(SetSysAGC, 256) X(SetSysNoiseFilter, 205) X(SetIrcutMode, 258) X(SetNight2day, 259) \
    X(SetIrcutswitchtime, 260) X(SetImageParaDefault, 261) X(SetSysddnsenable, 262) X(SetSysddnstype, 263) \
    X(SetSysddnsuser, 264) X(SetSysddnspwd, 265) X(SetSysddnssite, 266) X(SetSysaddhttpport, 267) \
    X(SetSysdelhttpport, 268) X(SetSysaddvideoport, 269) X(SetSysdelvideoport, 270) X(SetSysMac, 272) \
    X(SetUpdateInterval, 343) X(SetUpdateServer, 344) X(SetUpdatePort, 345) X(SetSysRTSPPassword, 280) \
    X(SetSysRTSPEncrypt, 281) X(SetSysPelnixSslEncrypt, 282) X(SetSysPelnixPushImageEnable, 283) \
    X(SetSysIoTLiveChannel, 284) X(SetSysStartFreeP2P, 273) X(SetSysFreeSerialNumber, 274) X(SetSysFreeP2PRegion, 275) \
    X(SetSysViewType, 276) X(SetSysCenterXOffset, 277) X(SetSysCenterYOffset, 278) X(SetSysRatio, 279) \
    X(SetSysRebootEnalbe, 285) X(SetSysRebootDate, 286) X(SetSysRebootTime, 287) X(SetSysCloudStorageEnable, 288) \
    X(SetSysCloudStorageFileFormat, 289) X(SetSysCloudStorageType, 290) X(SetSysPtzControl, 291) \
    X(SetSysPtzCruise, 292) X(SetSysFocusMode, 293) X(SetSysHdrEnable, 341) X(SetSysWifiDhcp, 305) \
    X(SetSysWifiIp, 306) X(SetSysWifiNetMask, 307) X(SetSysWifiGateWay, 308) X(SetSysWifiDns, 309) \
    X(SetSysWifiMac, 310) X(SetSysWifiStatus, 311) X(SetSysWifiMode, 312) X(SetAutoRebootEnable, 313) \
    X(SetAutoRebootMode, 314) X(SetAutoRebootDay, 315) X(SetAutoRebootHour, 316) X(SetAutoRebootMinute, 317) \
    X(SetAutoRebootSecond, 318) X(SetAutoRebootWeek, 319) X(SetP2PControl, 320) X(SetRecordEnable, 321) \
    X(SetRecordMode, 322) X(SetRecordTime, 323) X(SetRecordStreamType, 324) X(SetAperTureMode, 294) \
    X(SetAperTureValue, 295) X(SetPtzSpeed, 296) X(SetPtzSerialAddr, 297) X(SetPtzSerialDataBit, 298) \
    X(SetPtzSerialStopBit, 299) X(SetPtzSerialCheckType, 300) X(SetPtzSerialProtocol, 301) \
    X(SetSysVideoForceIFrame, 350) X(SetPtzSerialBaudRate, 302) X(SetPtzInfo, 303) X(SetPtz3DZoom, 304) \
    X(SetIOInputEnable, 327) X(SetIOInputLevel, 328) X(SetIOOutputEnable, 329) X(SetIOOutputLevel, 330) \
    X(SetSDCardEnable, 331) X(SetSDCardFileFormat, 332) X(SetSysVideoCodecConfig, 334) X(SetSysFishEyeConfig, 335) \
    X(SetSysOsdConfigEx, 336) X(SetSysAlarmConfigEx, 337) X(SetSysVideoCoverAlarmConfig, 338) \
    X(SetSysNetConfigEx, 339) X(SetSysAbnormalConfig, 340) X(SetSysPptpProperty, 348) X(SetSysUpnpProperty, 355) \
    X(SetSysSmartEncEnable, 349) X(SetSysSecuritySettings, 351) X(SetSysFillLightSettings, 352) \
    X(SetSysALARMPERIPHERALs, 353) X(SetSysFuhanSmartIRStatus, 354) X(SetSysVideoEncodingConfigPro, 360) \
    X(SetSysWaterMark, 361) X(SetSysDistortionCorrectionEnable, 362) X(SetSysDistortionCorrectionStrength, 363) \
    X(SetSysPppoeProperty, 366) X(SetSysAlarmOutputProperty, 367) X(SetSysSnapshotProperty, 368)
// clang-format on
