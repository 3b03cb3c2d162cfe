/* Frame records that cross from the stream reader to the record writer.
 *
 * AVDataInfo stands in front of every frame in the media server's rings; the writer receives the
 * reader's copy of it as AVDataInfoOpt.  Code values are shared with the card's section heads.
 */
#ifndef COMMON_AV_FRAME_H
#define COMMON_AV_FRAME_H

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AVDATA_CHECK_WORD 0x12345678 /* AVDataInfo.AVDataCheck of a valid header */

/* clang-format off */
struct AVDataInfo {              /* 64 bytes, followed at once by AVDataLen payload bytes    */
    int32_t  AVDataCheck;        /*  0  AVDATA_CHECK_WORD                                    */
    uint32_t SerialNumber;       /*  4  frame counter of the stream, rises by 1 a frame      */
    int32_t  AVDataLen;          /*  8  bytes of payload                                     */
    int32_t  AVDataPos;          /* 12  the media server's own; readers do not use it        */
    int32_t  AVSource;           /* 16  kind of frame, AVFrameType                           */
    int32_t  EndFlag;            /* 20  AVDataEndFlag; any other value: not ready            */
    uint32_t TimeStamp;          /* 24  frame time stamp of the media server                 */
    uint8_t  iVirtualIFrame;     /* 28  non-zero: random-access point of smart encoding      */
    uint8_t  ucRes[35];          /* 29                                                       */
};
/* clang-format on */
typedef struct AVDataInfo AVDataInfo;
typedef struct AVDataInfo AVDataInfoOpt;

RECORD_SIZE(AVDataInfo, 64);
RECORD_MEMBER(AVDataInfo, AVSource, 16);
RECORD_MEMBER(AVDataInfo, TimeStamp, 24);
RECORD_MEMBER(AVDataInfo, iVirtualIFrame, 28);

enum AVDataEndFlag {
    AVDATA_END_RESTART = 253, /* end of ring: go back to position 0, the media server restarts there */
    AVDATA_END_FRAME = 254,   /* a complete frame                                                    */
    AVDATA_END_RING = 255     /* end of ring: go back to position 0                                  */
};

typedef enum AVFrameType { AV_FRAME_TYPE_VIDEO = 0, AV_FRAME_TYPE_AUDIO = 1, AV_FRAME_TYPE_END = 2 } AVFrameType;

typedef enum AVCodeType {
    CODE_VIDEO_H264 = 4096,
    CODE_VIDEO_H265 = 4097,
    CODE_AUDIO_NULL = 8192,
    CODE_AUDIO_AAC = 8193,
    CODE_AUDIO_G711U = 8194,
    CODE_AUDIO_G711A = 8195,
    CODE_AUDIO_PCM = 8196,
    CODE_TYPE_END = 8197
} AVCodeType;

#ifdef __cplusplus
}
#endif
#endif
