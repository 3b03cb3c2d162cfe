/* The records that the camera access interface fills for its callers, in the caller's memory. */
#ifndef CAMERA_RECORDS_H
#define CAMERA_RECORDS_H

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

/* clang-format off */
typedef enum TIME_SCOPE_MODE {
    TIME_SCOPE_NULL = 0, /* no recording on this day */
    TIME_SCOPE_ALL = 1,  /* the whole day            */
    TIME_SCOPE_SAME = 2, /* as TIME_SCOPE_NULL       */
    TIME_SCOPE_DIFF = 3  /* up to six ranges         */
} TIME_SCOPE_MODE;

typedef struct TIME_HOUR_INFO {       /* local time of day                                */
    uint8_t ucHour;                   /*   0  0..23                                       */
    uint8_t ucMinute;                 /*   1  0..59                                       */
    uint8_t ucSecond;                 /*   2  0..59                                       */
    uint8_t ucType;                   /*   3                                              */
} TIME_HOUR_INFO;
RECORD_SIZE(TIME_HOUR_INFO, 4);

typedef struct TIME_HOUR_SCOPE {
    TIME_HOUR_INFO beginHour;         /*   0                                              */
    TIME_HOUR_INFO endHour;           /*   4  first moment after the range                */
} TIME_HOUR_SCOPE;
RECORD_SIZE(TIME_HOUR_SCOPE, 8);

typedef struct TIME_DAY_HOUR_SCOPE {
    uint8_t ucSocpeMode;              /*   0  TIME_SCOPE_MODE                             */
    uint8_t ucRes1[3];                /*   1                                              */
    TIME_HOUR_SCOPE hourScope[6];     /*   4                                              */
    uint8_t ucRes2[16];               /*  52                                              */
} TIME_DAY_HOUR_SCOPE;
RECORD_SIZE(TIME_DAY_HOUR_SCOPE, 68);
RECORD_MEMBER(TIME_DAY_HOUR_SCOPE, hourScope, 4);

typedef struct TIME_WEEK_SCOPE {
    uint8_t ucScopeModel;             /*   0  TIME_SCOPE_MODE                             */
    uint8_t ucRes1[3];                /*   1                                              */
    TIME_DAY_HOUR_SCOPE dayScope[7];  /*   4  by weekday, Sunday first                    */
    uint8_t ucRes2[16];               /* 480                                              */
} TIME_WEEK_SCOPE;
RECORD_SIZE(TIME_WEEK_SCOPE, 496);
RECORD_MEMBER(TIME_WEEK_SCOPE, dayScope, 4);

typedef struct STREAM_RECORD_PROPERTY {
    uint8_t ucEnable;                 /*   0  1: scheduled recording is on                */
    uint8_t ucStorageType;            /*   1                                              */
    uint8_t ucVideoStreamType;        /*   2  stream that is recorded, 0..2               */
    uint8_t ucAudioStreamType;        /*   3                                              */
    uint8_t ucValidWeek;              /*   4                                              */
    uint8_t ucDuration;               /*   5                                              */
    uint8_t ucRes[18];                /*   6                                              */
} STREAM_RECORD_PROPERTY;
RECORD_SIZE(STREAM_RECORD_PROPERTY, 24);

typedef struct REGULAR_RECORD_PROPERTY { /* the weekly record schedule                    */
    uint8_t ucCh;                     /*   0  channel                                     */
    uint8_t ucRes1[3];                /*   1                                              */
    STREAM_RECORD_PROPERTY videoRecord; /* 4  what is recorded                            */
    TIME_WEEK_SCOPE weekScop;         /*  28  when it is recorded                         */
    uint8_t ucRes2[16];               /* 524                                              */
} REGULAR_RECORD_PROPERTY;
RECORD_SIZE(REGULAR_RECORD_PROPERTY, 540);
RECORD_MEMBER(REGULAR_RECORD_PROPERTY, videoRecord, 4);
RECORD_MEMBER(REGULAR_RECORD_PROPERTY, weekScop, 28);
RECORD_MEMBER(REGULAR_RECORD_PROPERTY, ucRes2, 524);

typedef struct Camera_AudioConfig {
    int32_t iEncoding;                /*   0  audio_config.codectype of the configuration */
    int32_t iBitrateMin;              /*   4  bit/s                                       */
    int32_t iBitrateMax;              /*   8                                              */
    int32_t iBitrate;                 /*  12                                              */
    int32_t iSamplerateMin;           /*  16  Hz                                          */
    int32_t iSamplerateMax;           /*  20                                              */
    int32_t iSamplerate;              /*  24                                              */
} Camera_AudioConfig;
RECORD_SIZE(Camera_AudioConfig, 28);

typedef struct Camera_AudioProperty {
    uint8_t ucCn;                     /*   0  channel, the caller's                       */
    uint8_t ucEnable;                 /*   1  audio on                                    */
    uint8_t ucOutputVolume;           /*   2                                              */
    uint8_t ucInputVolume;            /*   3                                              */
    uint8_t ucInputModel;             /*   4                                              */
    uint8_t ucOutputModel;            /*   5                                              */
} Camera_AudioProperty;
RECORD_SIZE(Camera_AudioProperty, 6);

typedef struct Camera_DISPLAYPROPERTY {
    uint8_t ucCH;                     /*   0  channel, the caller's                       */
    uint8_t ucMirrorMode;             /*   1                                              */
    uint8_t ulElectronicShutter;      /*   2                                              */
    uint8_t ucIRLEDEnable;            /*   3                                              */
    uint8_t ucIRCutMode;              /*   4                                              */
    uint8_t ucIRCutSwitchTime;        /*   5                                              */
    uint8_t ucRes;                    /*   6                                              */
    uint8_t ucOSDVisiable;            /*   7  the caller's                                */
    uint8_t ucOSDPostion;             /*   8                                              */
    uint8_t ucDateVisiable;           /*   9                                              */
    uint8_t ucDateFormat;             /*  10                                              */
    uint8_t ucIPCNameVisiable;        /*  11                                              */
    char    ucOSDText[200];           /*  12  zero-terminated                             */
    uint8_t ucRotateAngle;            /* 212  rotation of the picture                     */
    uint8_t ulRes[15];                /* 213                                              */
} Camera_DISPLAYPROPERTY;
RECORD_SIZE(Camera_DISPLAYPROPERTY, 228);
RECORD_MEMBER(Camera_DISPLAYPROPERTY, ucOSDVisiable, 7);
RECORD_MEMBER(Camera_DISPLAYPROPERTY, ucOSDText, 12);
RECORD_MEMBER(Camera_DISPLAYPROPERTY, ucRotateAngle, 212);

#define CAMERA_VIDEO_STREAMS 3  /* encoder streams, 0..2 */
#define CAMERA_ENCODING_MJPEG 4 /* iEncoding             */

typedef struct Camera_VideoConfig {   /* one encoder stream                               */
    int32_t iFrameRateMin;            /*   0  frames a second                             */
    int32_t iFrameRateMax;            /*   4  of stream 0's picture size; 0 for stream 2  */
    int32_t iFrameRate;               /*   8                                              */
    int32_t iVideoWidth;              /*  12  pixels                                      */
    int32_t iVideoHeight;             /*  16  pixels                                      */
    int32_t iQualityMin;              /*  20                                              */
    int32_t iQualityMax;              /*  24                                              */
    int32_t iQuality;                 /*  28                                              */
    int32_t iEncoding;                /*  32  codec; 4: motion JPEG                       */
    int32_t iBitrateMin;              /*  36  kibit/s                                     */
    int32_t iBitrateMax;              /*  40                                              */
    int32_t iBitrate;                 /*  44                                              */
    int32_t iBitrateControl;          /*  48                                              */
    int32_t iGovLengthMin;            /*  52  frames from one key frame to the next       */
    int32_t iGovLengthMax;            /*  56                                              */
    int32_t iGovLength;               /*  60                                              */
    int32_t iEnable;                  /*  64                                              */
    int32_t iProfile;                 /*  68                                              */
    int32_t iSmartEncEnable;          /*  72  one switch for all streams                  */
} Camera_VideoConfig;
RECORD_SIZE(Camera_VideoConfig, 76);
RECORD_MEMBER(Camera_VideoConfig, iEncoding, 32);
RECORD_MEMBER(Camera_VideoConfig, iSmartEncEnable, 72);

typedef struct Camera_VideoParam {    /* argument of a forced key frame                   */
    int32_t index;                    /*   0  stream, 0..2                                */
    int32_t value;                    /*   4                                              */
    int32_t iRes[16];                 /*   8                                              */
} Camera_VideoParam;
RECORD_SIZE(Camera_VideoParam, 72);
/* clang-format on */

#ifdef __cplusplus
}
#endif
#endif
