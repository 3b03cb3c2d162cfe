// The senders and the commands they send, in the order of their field codes, from 4096 on.
#pragma once

#include "support/Codes.h"

inline const support::Codes kSenderCodes = support::CodesOf(R"(
    0 SetIp SetNetMask 14 SetGateway 46 SetDns 271 SetIRLed 206 SetSysElectronicShutter SetSysExposureCtrl
    SetSysWideDynamicEable SetSysWideDynamicLevel SetSysNoiseFilterMode SetSysNoiseFilter2DStrength
    SetSysNoiseFilter3DStrength SetSysDefogEnable SetSysDefogMode SetSysDefogStrength SetSysRotateAngle
    SetSysSLInHiBition SetSysSLInHiBitionStreangth SetSysSLDarkAreaAscension 2 SetHttpPort 5 SetHttpsPort
    SetPelnixPort SetHkPrivatePort SetHkPrivateEnable SetXmPrivatePort SetXmPrivateEnable SetOnvifPrivateEnable
    3 SetRtspPort SetOnvifPort 65 SetTitle 13 SetOSDText 15 SetDhcpEnable SetSysFtpFqdn SetFtpUsername SetFtpPassword
    SetFtpFoldname SetFtpImageacount 24 SetSysFtpPort 23 SetFtpPid 28 SetSmtpServerIp SetSmtpServerPort
    SetSmtpAuthentication SetSmtpUsername SetSmtpPassword 240 Setsysweblanguage 33 SetSmtpSenderEmail
    SetSmtpReceiverEmail SetSmtpReceiverEmail1 SetSmtpReceiverEmail2 44 SetSmtpTest 38 SetSmtpCC2 SetSmtpSubject
    SetSmtpText SetSmtpAttachments SetSmtpView SetSmtpEnable 45 SetAttFileFormat 221 SetSysTimeFormat SetSysDaylight
    SetSysTimeZone SetSysTime SetSysHwClock SetSysNvrModifyTimeEnable 229 SetSysTimeAutomatic SetSysTimeInterval
    SetSysDstConfig SetSysAccessPointInfo 47 SetSntpEnable SetSntpServer 201 SetSysDayNight 197 SetSysWhiteBalance
    SetSysMwbRGain SetSysMwbGGain SetSysMwbBGain 195 SetSysBacklight 186 SetSysBrightness SetSysContrast
    SetSysSaturation SetSysSharpness SetSysClearSysLog 112 SetSysForceIframe1 SetSysForceIframe2 SetSysForceIframe3
    191 SetSysClearAccessLog SetSysAuthentication SetSysSnapShot 108 SetSysMirror 184 SetSyspmask SetSyspmaskopt
    49 SetSysAdvMode 53 SetSysDemoCfg 196 SetSysDynRange 66 SetSysVideoMode SetSysVideoEncodeingType1
    SetSysVideoEncodeingType2 SetSysVideoEncodeingType3 SetSysVideoCodecMode 64 SetSysImageSource 56 SetSysMPEG4Res
    SetSysMPEG42Res 54 SetSysSchedule DelSysSchedule 60 SetSysFtpAlarmEnable 26 SetFTPFileFormat
    61 SetSysSmtpAlarmEnable SetSysAlarmDuration SetASmtpAttach 25 SetRftpEnable 203 SetSysImage2A SetSysImage2AType
    202 SetSysBinning 194 SetSysBLC 356 SetSmartMotionEnable SetSmartMotionAlram SetSmartLowBitrate SetSmartAdvanceIsp
    177 SetMotionEnable SetMotionCEnable SetMotionLevel SetMotionCValue SetMotionBlock SetMotionBlockEx
    SetMotionStreamType 71 SetMPEG41Bitrate SetMPEG42Bitrate SetMPEG43Bitrate 246 SetImageDefault DoSysLogin
    SysAddUser SysDelUser SysModifyUser 364 SysModifyAcount 346 SetSysUpgrade SetSysPNGUpDate 245 SetSysRateControl
    74 SetSysFramerate1 SetSysFramerate2 SetSysFramerate3 254 SysDoBootProc 77 SetSysRateControl1 SetSysRateControl2
    SetSysRateControl3 SetSysStream1Width SetSysStream1Height SetSysStream2Width SetSysStream2Height
    SetSysStream3Width SetSysStream3Height SetSysEncoding1Enable SetSysEncoding2Enable SetSysEncoding3Enable
    SetSysVideoProfile1 SetSysVideoProfile2 SetSysVideoProfile3 SetSysDateFormat1 SetSysDateFormat2 SetSysDateFormat3
    SetSysTimeEnable1 SetSysTimeEnable2 SetSysTimeEnable3 SetSysTextEnable1 SetSysTextEnable2 SetSysTextEnable3
    SetSysTextPosition1 SetSysTextPosition2 SetSysTextPosition3 107 SetSysEncryptVideo 104 SetSysOverlayText1
    SetSysOverlayText2 SetSysOverlayText3 109 SetSysIpratio1 SetSysIpratio2 SetSysIpratio3 115 SetSysQPInit1
    SetSysQPInit2 SetSysQPInit3 SetSysQPMin1 37 SetSmtpCC 119 SetSysQPMin2 SetSysQPMin3 SetSysQPMax1 SetSysQPMax2
    SetSysQPMax3 SetSysMEConfig1 SetSysMEConfig2 SetSysMEConfig3 SetSysPacketSize1 SetSysPacketSize2 SetSysPacketSize3
    SetSysImageQuality1 SetSysImageQuality2 SetSysImageQuality3 145 SetSysROIEnable1 SetSysROIEnable2 SetSysROIEnable3
    SetSysROIBgFrameRate SetSysROIQpType1 SetSysROIQpType2 SetSysROIQpType3 SetSysROIQpValue1 SetSysROIQpValue2
    SetSysROIQpValue3 133 SetSysStr1X1 SetSysStr1Y1 SetSysStr1X2 SetSysStr1Y2 SetSysStr2X1 SetSysStr2Y1 SetSysStr2X2
    SetSysStr2Y2 SetSysStr3X1 SetSysStr3Y1 SetSysStr3X2 SetSysStr3Y2 155 SetSysRoi1X1 SetSysRoi1Y1 SetSysRoi1X2
    SetSysRoi1Y2 SetSysRoi2X1 SetSysRoi2Y1 SetSysRoi2X2 SetSysRoi2Y2 SetSysRoi3X1 SetSysRoi3Y1 SetSysRoi3X2
    SetSysRoi3Y2 SetAudioEnable 176 SetSysAudioServerIp 255 SetSysLinearWdr 241 SetSysIrisMode SetSysIrisOpen
    256 SetSysAGC 205 SetSysNoiseFilter 258 SetIrcutMode SetNight2day SetIrcutswitchtime SetImageParaDefault
    SetSysddnsenable SetSysddnstype SetSysddnsuser SetSysddnspwd SetSysddnssite SetSysaddhttpport SetSysdelhttpport
    SetSysaddvideoport SetSysdelvideoport 272 SetSysMac 343 SetUpdateInterval SetUpdateServer SetUpdatePort
    280 SetSysRTSPPassword SetSysRTSPEncrypt SetSysPelnixSslEncrypt SetSysPelnixPushImageEnable SetSysIoTLiveChannel
    273 SetSysStartFreeP2P SetSysFreeSerialNumber SetSysFreeP2PRegion SetSysViewType SetSysCenterXOffset
    SetSysCenterYOffset SetSysRatio 285 SetSysRebootEnalbe SetSysRebootDate SetSysRebootTime SetSysCloudStorageEnable
    SetSysCloudStorageFileFormat SetSysCloudStorageType SetSysPtzControl SetSysPtzCruise SetSysFocusMode
    341 SetSysHdrEnable 305 SetSysWifiDhcp SetSysWifiIp SetSysWifiNetMask SetSysWifiGateWay SetSysWifiDns
    SetSysWifiMac SetSysWifiStatus SetSysWifiMode SetAutoRebootEnable SetAutoRebootMode SetAutoRebootDay
    SetAutoRebootHour SetAutoRebootMinute SetAutoRebootSecond SetAutoRebootWeek SetP2PControl SetRecordEnable
    SetRecordMode SetRecordTime SetRecordStreamType 294 SetAperTureMode SetAperTureValue SetPtzSpeed SetPtzSerialAddr
    SetPtzSerialDataBit SetPtzSerialStopBit SetPtzSerialCheckType SetPtzSerialProtocol 350 SetSysVideoForceIFrame
    302 SetPtzSerialBaudRate SetPtzInfo SetPtz3DZoom 327 SetIOInputEnable SetIOInputLevel SetIOOutputEnable
    SetIOOutputLevel SetSDCardEnable SetSDCardFileFormat 334 SetSysVideoCodecConfig SetSysFishEyeConfig
    SetSysOsdConfigEx SetSysAlarmConfigEx SetSysVideoCoverAlarmConfig SetSysNetConfigEx SetSysAbnormalConfig
    348 SetSysPptpProperty 355 SetSysUpnpProperty 349 SetSysSmartEncEnable 351 SetSysSecuritySettings
    SetSysFillLightSettings SetSysALARMPERIPHERALs SetSysFuhanSmartIRStatus 360 SetSysVideoEncodingConfigPro
    SetSysWaterMark SetSysDistortionCorrectionEnable SetSysDistortionCorrectionStrength 366 SetSysPppoeProperty
    SetSysAlarmOutputProperty SetSysSnapshotProperty
)");
