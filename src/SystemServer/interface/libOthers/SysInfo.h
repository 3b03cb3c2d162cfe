/* The camera's configuration record, as the system server keeps it in its shared segment.
 *
 * The record is a wire format of 106,816 bytes at the start of a segment of 147,456; all numbers are
 * little-endian.  Only the system server writes it.  Readers take one member at a time and tolerate
 * a value that is just being changed.
 *
 * Members marked "ours" have no fixed place in the format; they lie in free bytes of their record and
 * are agreed between the recorder and the system server through this header alone.  Opaque records
 * belong to other services of the camera and are carried as bytes.
 */
#ifndef SYS_INFO_H
#define SYS_INFO_H

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

/* clang-format off */
#define SYS_CONFIG_KEY 12930021         /* 0xC54BE5, the configuration segment            */
#define SYS_SEGMENT_SIZE 147456         /* bytes of the configuration segment and of the
                                           system server's transfer segment                */

/* A record of another service: `bytes` bytes without meaning here. */
#define SYS_OPAQUE_RECORD(type, bytes)     \
    typedef struct type {                  \
        uint8_t ucOpaque[bytes];           \
    } type;                                \
    RECORD_SIZE(type, bytes)

SYS_OPAQUE_RECORD(Network_Config_Data, 208);
SYS_OPAQUE_RECORD(Factory_config_Data, 192);
SYS_OPAQUE_RECORD(Motion_Config_Data, 140);
SYS_OPAQUE_RECORD(PrivacyMask_Config_Data, 196);
SYS_OPAQUE_RECORD(Ftp_Config_Data, 248);
SYS_OPAQUE_RECORD(Smtp_Config_Data, 1380);
SYS_OPAQUE_RECORD(LogEntry_t, 144);
SYS_OPAQUE_RECORD(AutoReboot_Config_Data, 32);
SYS_OPAQUE_RECORD(Ddns_Config_Data, 104);
SYS_OPAQUE_RECORD(Http_Config_Data, 12);
SYS_OPAQUE_RECORD(P2P_Config_Data, 624);
SYS_OPAQUE_RECORD(AutoMainTain_Config_Data, 6);
SYS_OPAQUE_RECORD(Alarm_Config_Data, 264);
SYS_OPAQUE_RECORD(ROI_Config_data, 180);
SYS_OPAQUE_RECORD(LDC_Config_data, 16);
SYS_OPAQUE_RECORD(CloudStorage_Config_Data, 35);
SYS_OPAQUE_RECORD(Ptz_Config_Data, 64);
SYS_OPAQUE_RECORD(DST_Config_Data, 61);
SYS_OPAQUE_RECORD(FILL_LIGHT_SETTINGS_Data, 36);
SYS_OPAQUE_RECORD(ALARM_PeripheralS_Data, 16);
SYS_OPAQUE_RECORD(KQ_FUHAN_SMARTIR_SETTINGS_Data, 36);
SYS_OPAQUE_RECORD(Ivp_Config_Data, 20);
SYS_OPAQUE_RECORD(Face_Detect_Config_Data, 140);
SYS_OPAQUE_RECORD(Modify_Acount_t, 72);
SYS_OPAQUE_RECORD(PPPOE_Config_Data, 68);
SYS_OPAQUE_RECORD(Net_Config_Data_Ex, 284);
SYS_OPAQUE_RECORD(VideoCover_Alarm_Config_Data, 512);
SYS_OPAQUE_RECORD(Abnormal_Event_Config_Data, 64);
SYS_OPAQUE_RECORD(Pptp_Config_Data, 904);
SYS_OPAQUE_RECORD(Security_Settings_Data, 504);
SYS_OPAQUE_RECORD(AccessPoint_Config_Data, 448);
SYS_OPAQUE_RECORD(Alarm_Output_Config_Data, 516);
SYS_OPAQUE_RECORD(Snapshot_Config_Data, 52);
SYS_OPAQUE_RECORD(Upnp_Config_Data, 1024);
SYS_OPAQUE_RECORD(Encoding_Config_Data, 256);
SYS_OPAQUE_RECORD(FishEye_Config_Data, 64);
SYS_OPAQUE_RECORD(Ptz_Config_Data_Ex, 32852);

typedef struct Acount_t {
    char    user[32];                 /*   0  zero-terminated                                 */
    char    password[32];             /*  32  zero-terminated                                 */
    int32_t authority;                /*  64                                                  */
} Acount_t;
RECORD_SIZE(Acount_t, 68);

typedef struct Lancam_Config_Data {   /* image and encoder settings; s = 1, 2, 3 names streams 0, 1, 2 */
    uint8_t  nBrightness;             /*   0                                                  */
    uint8_t  ucImage1[3];             /*   1                                                  */
    uint8_t  ircutswitchtime;         /*   4                                                  */
    uint8_t  ucImage2[11];            /*   5                                                  */
    uint8_t  ircutmode;               /*  16                                                  */
    uint8_t  ucImage3;                /*  17                                                  */
    uint8_t  irled;                   /*  18                                                  */
    uint8_t  nElectronicShutter;      /*  19                                                  */
    uint8_t  ucImage4[10];            /*  20                                                  */
    uint8_t  nRotateAngle;            /*  30  rotation of the picture                         */
    uint8_t  ucImage5;                /*  31                                                  */
    uint8_t  nSLInhibitionStreangth;  /*  32                                                  */
    uint8_t  nStreamType;             /*  33                                                  */
    uint8_t  nVideocodecmode;         /*  34  codec mode                                      */
    uint8_t  nEncodingType1;          /*  35  codec of stream 0; 4: motion JPEG               */
    uint8_t  nEncodingType2;          /*  36  codec of stream 1                               */
    uint8_t  nEncodingType3;          /*  37  codec of stream 2 (ours)                        */
    uint8_t  nFrameRate1;             /*  38  frames a second (ours, as all up to 66)         */
    uint8_t  nFrameRate2;             /*  39                                                  */
    uint8_t  nFrameRate3;             /*  40                                                  */
    uint8_t  nRateControl1;           /*  41  kind of bit rate control                        */
    uint8_t  nRateControl2;           /*  42                                                  */
    uint8_t  nRateControl3;           /*  43                                                  */
    uint8_t  nImageQuality1;          /*  44  0..99                                           */
    uint8_t  nImageQuality2;          /*  45                                                  */
    uint8_t  nImageQuality3;          /*  46                                                  */
    uint8_t  nProfile1;               /*  47  encoder profile                                 */
    uint8_t  nProfile2;               /*  48                                                  */
    uint8_t  nProfile3;               /*  49                                                  */
    uint8_t  nPreRotateAngle;         /*  50  rotation before the last change                 */
    uint8_t  ucEncoder1;              /*  51                                                  */
    int32_t  nBitrate1;               /*  52  bit/s                                           */
    int32_t  nBitrate2;               /*  56                                                  */
    int32_t  nBitrate3;               /*  60                                                  */
    uint8_t  ucEncoder2[3];           /*  64                                                  */
    uint8_t  mirror;                  /*  67                                                  */
    uint8_t  ucEncoder3[12];          /*  68                                                  */
    uint8_t  giooutenable;            /*  80                                                  */
    uint8_t  ucDevice1[2];            /*  81                                                  */
    uint8_t  aviduration;             /*  83                                                  */
    uint8_t  aviformat;               /*  84                                                  */
    uint8_t  ucDevice2[17];           /*  85                                                  */
    uint8_t  ucSmartEncEnable;        /* 102  smart encoding of all streams                   */
    uint8_t  ucDevice3[3];            /* 103                                                  */
    uint8_t  nAGCEnable;              /* 106                                                  */
    uint8_t  reserve[505];            /* 107                                                  */
} Lancam_Config_Data;
RECORD_SIZE(Lancam_Config_Data, 612);
RECORD_MEMBER(Lancam_Config_Data, ircutswitchtime, 4);
RECORD_MEMBER(Lancam_Config_Data, ircutmode, 16);
RECORD_MEMBER(Lancam_Config_Data, irled, 18);
RECORD_MEMBER(Lancam_Config_Data, nElectronicShutter, 19);
RECORD_MEMBER(Lancam_Config_Data, nRotateAngle, 30);
RECORD_MEMBER(Lancam_Config_Data, nSLInhibitionStreangth, 32);
RECORD_MEMBER(Lancam_Config_Data, nStreamType, 33);
RECORD_MEMBER(Lancam_Config_Data, nVideocodecmode, 34);
RECORD_MEMBER(Lancam_Config_Data, nEncodingType1, 35);
RECORD_MEMBER(Lancam_Config_Data, nEncodingType2, 36);
RECORD_MEMBER(Lancam_Config_Data, nBitrate1, 52);
RECORD_MEMBER(Lancam_Config_Data, mirror, 67);
RECORD_MEMBER(Lancam_Config_Data, giooutenable, 80);
RECORD_MEMBER(Lancam_Config_Data, aviduration, 83);
RECORD_MEMBER(Lancam_Config_Data, aviformat, 84);
RECORD_MEMBER(Lancam_Config_Data, ucSmartEncEnable, 102);
RECORD_MEMBER(Lancam_Config_Data, nAGCEnable, 106);
RECORD_MEMBER(Lancam_Config_Data, reserve, 107);

typedef struct Audio_Config_Data {    /* places are ours                                      */
    uint8_t  audioenable;             /*   0  1: audio on                                     */
    uint8_t  audioinvolume;           /*   1                                                  */
    uint8_t  audiooutvolume;          /*   2                                                  */
    uint8_t  audioInputMode;          /*   3                                                  */
    uint8_t  audioOutputMode;         /*   4                                                  */
    uint8_t  ucRes1[3];               /*   5                                                  */
    int32_t  codectype;               /*   8  AVCodeType, CODE_AUDIO_*                        */
    int32_t  samplerate;              /*  12  Hz                                              */
    int32_t  bitrate;                 /*  16                                                  */
    int32_t  bitrateValue;            /*  20  bit/s                                           */
    uint8_t  ucRes2[188];             /*  24                                                  */
} Audio_Config_Data;
RECORD_SIZE(Audio_Config_Data, 212);

typedef struct OSD_config {           /* one per stream                                       */
    uint8_t  dateformat;              /*   0                                                  */
    uint8_t  nTimeEnable;             /*   1                                                  */
    uint8_t  nTimePosition;           /*   2                                                  */
    uint8_t  nTextEnable;             /*   3                                                  */
    uint8_t  nTextPosition;           /*   4                                                  */
    char     overlaytext[256];        /*   5  zero-terminated unless full                     */
} OSD_config;
RECORD_SIZE(OSD_config, 261);

typedef struct CodecAdvParam {        /* one per stream; places are ours                      */
    int32_t  ipRatio;                 /*   0  frames from one key frame to the next           */
    uint8_t  ucRes[8];                /*   4                                                  */
} CodecAdvParam;
RECORD_SIZE(CodecAdvParam, 12);

typedef struct StreamParam {          /* one per stream; places are ours                      */
    uint16_t width;                   /*   0  pixels                                          */
    uint16_t height;                  /*   2  pixels                                          */
    uint8_t  iEnable;                 /*   4  1: the stream is encoded                        */
    uint8_t  ucRes[153];              /*   5                                                  */
} StreamParam;
RECORD_SIZE(StreamParam, 158);

typedef struct Sdcard_Config_Data {
    uint8_t  sdfileformat;            /*   0                                                  */
    uint8_t  sdrenable;               /*   1                                                  */
    uint8_t  sdformatenable;          /*   2                                                  */
    uint8_t  sdstrategy;              /*   3                                                  */
    uint8_t  sdmaxsize;               /*   4                                                  */
} Sdcard_Config_Data;
RECORD_SIZE(Sdcard_Config_Data, 5);

typedef struct Hour_Info {            /* local time of day                                    */
    uint8_t  ucHour;                  /*   0  0..23                                           */
    uint8_t  ucMinute;                /*   1  0..59                                           */
    uint8_t  ucSecond;                /*   2  0..59                                           */
    uint8_t  ucType;                  /*   3                                                  */
} Hour_Info;
RECORD_SIZE(Hour_Info, 4);

typedef struct Hour_Scope {
    Hour_Info beginHour;              /*   0                                                  */
    Hour_Info endHour;                /*   4  first moment after the range                    */
} Hour_Scope;
RECORD_SIZE(Hour_Scope, 8);

typedef struct Day_Hour_Scope {
    uint8_t    ucSocpeMode;           /*   0  0 off, 1 all day, 2 same, 3 the six ranges      */
    uint8_t    ucRes1[3];             /*   1                                                  */
    Hour_Scope hourScope[6];          /*   4                                                  */
} Day_Hour_Scope;
RECORD_SIZE(Day_Hour_Scope, 52);
RECORD_MEMBER(Day_Hour_Scope, hourScope, 4);

typedef struct Week_Scope {
    Day_Hour_Scope dayScope[7];       /*   0  by weekday, Sunday first                        */
} Week_Scope;
RECORD_SIZE(Week_Scope, 364);

typedef struct Record_Config_Data {
    uint8_t  ucEnable;                /*   0  1: scheduled recording is on                    */
    uint8_t  ucStorageType;           /*   1  storage target                                  */
    uint8_t  ucPackingModel;          /*   2  how record files are cut                        */
    uint8_t  ucPackingTime;           /*   3  file length in time                             */
    uint8_t  ucPackingSize;           /*   4  file length in size                             */
    uint8_t  ucLackSpaceModel;        /*   5  card full: 0 stop, else overwrite the oldest    */
    uint8_t  ucVideoStreamType;       /*   6  stream that is recorded, 0..2                   */
    uint8_t  ucMDVideoStreamType;     /*   7  stream recorded on motion                       */
    uint8_t  ucpreRecordTime;         /*   8  s an event reaches back before its alarm        */
    uint8_t  ucrecordDelay;           /*   9  s an event goes on after its alarm              */
    uint8_t  ucRes1[6];               /*  10                                                  */
    Week_Scope weekScope;             /*  16                                                  */
} Record_Config_Data;
RECORD_SIZE(Record_Config_Data, 380);
RECORD_MEMBER(Record_Config_Data, ucLackSpaceModel, 5);
RECORD_MEMBER(Record_Config_Data, ucrecordDelay, 9);
RECORD_MEMBER(Record_Config_Data, weekScope, 16);

typedef struct Alarm_Process {
    uint8_t  ucAlarmSmtpEnable;       /*   0                                                  */
    uint8_t  ucAlarmFtpEnable;        /*   1                                                  */
    uint8_t  ucAlarmCloudEnalbe;      /*   2                                                  */
    uint8_t  ucAlarmRecordEnable;     /*   3                                                  */
    uint8_t  ucAlarmIOEnable;         /*   4                                                  */
    uint8_t  ucAlarmFlashEnable;      /*   5                                                  */
    uint8_t  ucAlarmSoundEnable;      /*   6                                                  */
    uint8_t  ucAlarmToCenter;         /*   7                                                  */
    uint8_t  ucAlarmFlashAllEnable;   /*   8                                                  */
    uint8_t  ucRes[7];                /*   9                                                  */
} Alarm_Process;
RECORD_SIZE(Alarm_Process, 16);

typedef struct Alarm_Config_Data_Ex {
    uint8_t  ucCh;                    /*   0                                                  */
    uint8_t  ucAlarmType;             /*   1                                                  */
    uint8_t  ucAlarmLinkScope;        /*   2                                                  */
    uint8_t  ucIoStatus;              /*   3                                                  */
    uint8_t  ucEnable;                /*   4                                                  */
    uint8_t  ucAlarmFreqLevel;        /*   5                                                  */
    uint8_t  ucRes1[26];              /*   6                                                  */
    Hour_Scope timeSocpeTab[7][8];    /*  32  per weekday, when the alarm is armed            */
    Alarm_Process process;            /* 480                                                  */
    uint8_t  ucRes3[64];              /* 496                                                  */
} Alarm_Config_Data_Ex;
RECORD_SIZE(Alarm_Config_Data_Ex, 560);
RECORD_MEMBER(Alarm_Config_Data_Ex, timeSocpeTab, 32);
RECORD_MEMBER(Alarm_Config_Data_Ex, process, 480);

typedef struct WaterMark_Config_Item {
    uint8_t  ucMarkEnable;            /*   0                                                  */
    uint8_t  markText[255];           /*   1                                                  */
} WaterMark_Config_Item;
RECORD_SIZE(WaterMark_Config_Item, 256);

typedef struct WaterMark_Config {
    WaterMark_Config_Item mark[4];    /*   0                                                  */
} WaterMark_Config;
RECORD_SIZE(WaterMark_Config, 1024);

typedef struct OSD_Config_Ex {
    uint8_t  ucCh;                    /*   0                                                  */
    uint8_t  ucOsdNameVisiable;       /*   1                                                  */
    uint8_t  ucOsdDateVisiable;       /*   2                                                  */
    uint8_t  ucOsdWeekVisiable;       /*   3                                                  */
    uint8_t  ucOsdTimeFormat;         /*   4                                                  */
    uint8_t  ucOsdDateFormat;         /*   5                                                  */
    uint8_t  ucOsdDisplayMode;        /*   6                                                  */
    uint8_t  ucOsdFontSizeMode;       /*   7                                                  */
    uint8_t  ucOsdFontSizeScope;      /*   8                                                  */
    uint8_t  ucOsdTime_X_Coordinate;  /*   9                                                  */
    uint8_t  ucOsdTime_Y_Coordinate;  /*  10                                                  */
    uint8_t  ucOsdText_X_Coordinate;  /*  11                                                  */
    uint8_t  ucOsdText_Y_Coordinate;  /*  12                                                  */
    uint8_t  ucRes[51];               /*  13                                                  */
    uint8_t  ucOsdText[64];           /*  64                                                  */
} OSD_Config_Ex;
RECORD_SIZE(OSD_Config_Ex, 128);
RECORD_MEMBER(OSD_Config_Ex, ucOsdText, 64);

typedef struct SysInfo {
    uint32_t relUniqueId;                                   /*      0 */
    Acount_t acounts[16];                                   /*      4 */
    Network_Config_Data net;                                /*   1092 */
    Lancam_Config_Data lan_config;                          /*   1300 */
    Factory_config_Data factory_config;                     /*   1912 */
    Motion_Config_Data motion_config;                       /*   2104 */
    PrivacyMask_Config_Data privacy_mask_config;            /*   2244 */
    Audio_Config_Data audio_config;                         /*   2440 */
    OSD_config osd_config[3];                               /*   2652 */
    uint8_t ucAlign0;                                       /*   3435 */
    CodecAdvParam codec_advconfig[3];                       /*   3436 */
    StreamParam stream_config[3];                           /*   3472 */
    uint8_t ucAlign1[2];                                    /*   3946 */
    Ftp_Config_Data ftp_config;                             /*   3948 */
    Smtp_Config_Data smtp_config;                           /*   4196 */
    LogEntry_t tCurLog;                                     /*   5576 */
    AutoReboot_Config_Data autoreboot_config;               /*   5720 */
    Ddns_Config_Data ddns_config;                           /*   5752 */
    Http_Config_Data http_config;                           /*   5856 */
    P2P_Config_Data p2p_config;                             /*   5868 */
    AutoMainTain_Config_Data AutoMainTain_config;           /*   6492 */
    Alarm_Config_Data alarm_config;                         /*   6498 */
    char reserve0[3];                                       /*   6762 */
    uint8_t ucAlign2[3];                                    /*   6765 */
    ROI_Config_data Roi_config;                             /*   6768 */
    LDC_Config_data Ldc_config;                             /*   6948 */
    Sdcard_Config_Data sdcard_config;                       /*   6964 */
    CloudStorage_Config_Data cloudstorage_config;           /*   6969 */
    Ptz_Config_Data Ptz_config;                             /*   7004 */
    Record_Config_Data Record_config;                       /*   7068 */
    DST_Config_Data DST_config;                             /*   7448 */
    char reserve1[3];                                       /*   7509 */
    FILL_LIGHT_SETTINGS_Data fill_light_config;             /*   7512 */
    ALARM_PeripheralS_Data alarm_peripherals_config;        /*   7548 */
    KQ_FUHAN_SMARTIR_SETTINGS_Data fuhan_smartir_status;    /*   7564 */
    Ivp_Config_Data ivp_config;                             /*   7600 */
    Face_Detect_Config_Data face_config;                    /*   7620 */
    Modify_Acount_t modify_acounts;                         /*   7760 */
    PPPOE_Config_Data pppoe_config;                         /*   7832 */
    char reserve[96];                                       /*   7900 */
    uint32_t relUniqueId1;                                  /*   7996 */
    Net_Config_Data_Ex Net_Config_Ex;                       /*   8000 */
    char reRes0[72];                                        /*   8284 */
    VideoCover_Alarm_Config_Data VideoCoverAlarm_Config;    /*   8356 */
    char reRes1[152];                                       /*   8868 */
    Alarm_Config_Data_Ex Alarm_Config_Ex[2];                /*   9020 */
    Abnormal_Event_Config_Data Abnormal_Config[4];          /*  10140 */
    char reRes2[112];                                       /*  10396 */
    Pptp_Config_Data Pptp_Config;                           /*  10508 */
    char reRes3[120];                                       /*  11412 */
    Security_Settings_Data Security_Settings;               /*  11532 */
    uint8_t ucAlarmFlashEnable;                             /*  12036 */
    uint8_t ucAlarmSoundEnable;                             /*  12037 */
    char reRes4[518];                                       /*  12038 */
    AccessPoint_Config_Data AccessPoint_Config;             /*  12556 */
    Alarm_Output_Config_Data Alarm_Output_config;           /*  13004 */
    Snapshot_Config_Data Snapshot_config;                   /*  13520 */
    char reRes6[8];                                         /*  13572 */
    Upnp_Config_Data Upnp_Config;                           /*  13580 */
    WaterMark_Config WaterMarkConfig;                       /*  14604 */
    char reRes7[1244];                                      /*  15628 */
    char reRes[8192];                                       /*  16872 */
    char reserver3[32768];                                  /*  25064 */
    uint32_t relUniqueId2;                                  /*  57832 */
    Encoding_Config_Data Video_Encoding_Config[4][5];       /*  57836 */
    OSD_Config_Ex Osd_Config_Ex[5];                         /*  62956 */
    FishEye_Config_Data FishEye_Config;                     /*  63596 */
    char reRes11[320];                                      /*  63660 */
    char reRes12[4096];                                     /*  63980 */
    char Platform_fun;                                      /*  68076 */
    char reRes13[767];                                      /*  68077 */
    Ptz_Config_Data_Ex Ptz_Config_Ex;                       /*  68844 */
    char reRes14[5120];                                     /* 101696 */
} SysInfo;
RECORD_SIZE(SysInfo, 106816);
RECORD_MEMBER(SysInfo, relUniqueId, 0);
RECORD_MEMBER(SysInfo, acounts, 4);
RECORD_MEMBER(SysInfo, net, 1092);
RECORD_MEMBER(SysInfo, lan_config, 1300);
RECORD_MEMBER(SysInfo, factory_config, 1912);
RECORD_MEMBER(SysInfo, motion_config, 2104);
RECORD_MEMBER(SysInfo, privacy_mask_config, 2244);
RECORD_MEMBER(SysInfo, audio_config, 2440);
RECORD_MEMBER(SysInfo, osd_config, 2652);
RECORD_MEMBER(SysInfo, codec_advconfig, 3436);
RECORD_MEMBER(SysInfo, stream_config, 3472);
RECORD_MEMBER(SysInfo, ftp_config, 3948);
RECORD_MEMBER(SysInfo, smtp_config, 4196);
RECORD_MEMBER(SysInfo, tCurLog, 5576);
RECORD_MEMBER(SysInfo, autoreboot_config, 5720);
RECORD_MEMBER(SysInfo, ddns_config, 5752);
RECORD_MEMBER(SysInfo, http_config, 5856);
RECORD_MEMBER(SysInfo, p2p_config, 5868);
RECORD_MEMBER(SysInfo, AutoMainTain_config, 6492);
RECORD_MEMBER(SysInfo, alarm_config, 6498);
RECORD_MEMBER(SysInfo, reserve0, 6762);
RECORD_MEMBER(SysInfo, Roi_config, 6768);
RECORD_MEMBER(SysInfo, Ldc_config, 6948);
RECORD_MEMBER(SysInfo, sdcard_config, 6964);
RECORD_MEMBER(SysInfo, cloudstorage_config, 6969);
RECORD_MEMBER(SysInfo, Ptz_config, 7004);
RECORD_MEMBER(SysInfo, Record_config, 7068);
RECORD_MEMBER(SysInfo, DST_config, 7448);
RECORD_MEMBER(SysInfo, reserve1, 7509);
RECORD_MEMBER(SysInfo, fill_light_config, 7512);
RECORD_MEMBER(SysInfo, alarm_peripherals_config, 7548);
RECORD_MEMBER(SysInfo, fuhan_smartir_status, 7564);
RECORD_MEMBER(SysInfo, ivp_config, 7600);
RECORD_MEMBER(SysInfo, face_config, 7620);
RECORD_MEMBER(SysInfo, modify_acounts, 7760);
RECORD_MEMBER(SysInfo, pppoe_config, 7832);
RECORD_MEMBER(SysInfo, reserve, 7900);
RECORD_MEMBER(SysInfo, relUniqueId1, 7996);
RECORD_MEMBER(SysInfo, Net_Config_Ex, 8000);
RECORD_MEMBER(SysInfo, reRes0, 8284);
RECORD_MEMBER(SysInfo, VideoCoverAlarm_Config, 8356);
RECORD_MEMBER(SysInfo, reRes1, 8868);
RECORD_MEMBER(SysInfo, Alarm_Config_Ex, 9020);
RECORD_MEMBER(SysInfo, Abnormal_Config, 10140);
RECORD_MEMBER(SysInfo, reRes2, 10396);
RECORD_MEMBER(SysInfo, Pptp_Config, 10508);
RECORD_MEMBER(SysInfo, reRes3, 11412);
RECORD_MEMBER(SysInfo, Security_Settings, 11532);
RECORD_MEMBER(SysInfo, ucAlarmFlashEnable, 12036);
RECORD_MEMBER(SysInfo, ucAlarmSoundEnable, 12037);
RECORD_MEMBER(SysInfo, reRes4, 12038);
RECORD_MEMBER(SysInfo, AccessPoint_Config, 12556);
RECORD_MEMBER(SysInfo, Alarm_Output_config, 13004);
RECORD_MEMBER(SysInfo, Snapshot_config, 13520);
RECORD_MEMBER(SysInfo, reRes6, 13572);
RECORD_MEMBER(SysInfo, Upnp_Config, 13580);
RECORD_MEMBER(SysInfo, WaterMarkConfig, 14604);
RECORD_MEMBER(SysInfo, reRes7, 15628);
RECORD_MEMBER(SysInfo, reRes, 16872);
RECORD_MEMBER(SysInfo, reserver3, 25064);
RECORD_MEMBER(SysInfo, relUniqueId2, 57832);
RECORD_MEMBER(SysInfo, Video_Encoding_Config, 57836);
RECORD_MEMBER(SysInfo, Osd_Config_Ex, 62956);
RECORD_MEMBER(SysInfo, FishEye_Config, 63596);
RECORD_MEMBER(SysInfo, reRes11, 63660);
RECORD_MEMBER(SysInfo, reRes12, 63980);
RECORD_MEMBER(SysInfo, Platform_fun, 68076);
RECORD_MEMBER(SysInfo, reRes13, 68077);
RECORD_MEMBER(SysInfo, Ptz_Config_Ex, 68844);
RECORD_MEMBER(SysInfo, reRes14, 101696);
/* clang-format on */

#undef SYS_OPAQUE_RECORD

#ifdef __cplusplus
}
#endif
#endif
