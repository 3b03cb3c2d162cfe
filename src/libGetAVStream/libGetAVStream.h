/* The recorder's frame input: follows the media server's shared-memory rings and hands every
 * complete frame to a callback, without copying it.
 *
 * Owns the connection (segment ids, request queue), one reader thread per client type and stream,
 * and the callbacks; never creates frames and never frees a segment.  Writes to a ring only where
 * the media server asks for it (AVDATA_END_RESTART).
 * Every function may be called from any thread.  Callbacks run on the reader's thread; with several
 * readers they run at the same time.
 * Nothing read from a ring or a reply is believed: positions and lengths are checked against the
 * attached segment before a byte is touched.
 */
#ifndef LIB_GET_AV_STREAM_H
#define LIB_GET_AV_STREAM_H

#include <pthread.h>

#include "AVFrame.h"
#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- rings and queues, shared with the media server ---- */

#define AVSTREAM_MAX 4 /* stream indexes 0..3: main, sub, third (has no ring), voice talk */

/* A ring holds frame records (AVDataInfo, then its payload, unaligned) from byte 0; positions stay
 * below the ring size, and the segment is one header longer. */
#define AVSTREAM_MAIN_RING_KEY 0x61766C79
#define AVSTREAM_MAIN_RING_SIZE 614400
#define AVSTREAM_SUB_RING_KEY 0x61766C7A
#define AVSTREAM_SUB_RING_SIZE 131072
#define AVSTREAM_THIRD_RING_SIZE 131072
#define AVSTREAM_VOICE_TALK_RING_KEY 0x61766D79
#define AVSTREAM_VOICE_TALK_RING_SIZE 8192
#define AVSTREAM_SEGMENT_SIZE(ring_size) ((ring_size) + (int)sizeof(struct AVDataInfo))

#define AVSTREAM_QUEUE_KEY 0x61766C79            /* requests about streams 0..2 */
#define AVSTREAM_VOICE_TALK_QUEUE_KEY 0x61766D79 /* requests about stream 3     */

/* Kinds of frame that a media server may put into AVDataInfo.AVSource. */
enum { VIDEO_TYPE_H264 = 0, VIDEO_TYPE_H265 = 1, AUDIO_TYPE_G711A = 6, AUDIO_TYPE_G711U = 7 };

/* Client types: the message type under which a client of the media server receives its replies.
 * 1 is the media server itself. */
typedef enum MsgAVType {
    MSG_AV_TYPE_SERVER = 1,
    MSG_AV_TYPE_MSG2 = 2,
    MSG_AV_TYPE_MSG3 = 3,
    MSG_AV_TYPE_MSG4 = 4,
    MSG_AV_TYPE_MSG5 = 5, /* the recorder */
    MSG_AV_TYPE_MSG6 = 6,
    MSG_AV_TYPE_MSG7 = 7,
    MSG_AV_TYPE_MSG8 = 8,
    MSG_AV_TYPE_MSG9 = 9,
    MSG_AV_TYPE_MSG10 = 10,
    MSG_AV_TYPE_MSG11 = 11,
    MSG_AV_TYPE_MSG12 = 12,
    MSG_AV_TYPE_MSG13 = 13,
    MSG_AV_TYPE_MSG14 = 14,
    MSG_AV_TYPE_MSG15 = 15,
    MSG_AV_TYPE_MSG16 = 16,
    MSG_AV_TYPE_END = 17
} MsgAVType;

typedef enum AVStreamCommand {
    AVSTREAM_CMD_LOCK = 0x1001,           /* lock a range             -> msg_ret   */
    AVSTREAM_CMD_UNLOCK = 0x1002,         /* unlock a range           -> msg_ret   */
    AVSTREAM_CMD_CURRENT_FRAME = 0x2001,  /* current write position   -> video_pos */
    AVSTREAM_CMD_LAST_I_FRAME = 0x2002,   /* last key frame           -> video_pos */
    AVSTREAM_CMD_RECORD_I_FRAME = 0x2003, /* key frame for recording  -> video_pos */
    AVSTREAM_CMD_REAL_FRAME_RATE = 0x4001 /* real frame rate          -> whole reply */
} AVStreamCommand;

/* A request to the media server and its reply. */
/* clang-format off */
struct AVMsgBuf {             /* 48 bytes, of which 44 travel after the message type             */
    int32_t  des;             /*  0  message type: MSG_AV_TYPE_SERVER; in a reply the client type */
    int32_t  src;             /*  4  client type, 2..16                                           */
    int32_t  cmd;             /*  8  AVStreamCommand                                              */
    int32_t  video_index;     /* 12  0..3                                                         */
    uint32_t video_pos;       /* 16  byte in the ring: start of a range, or the answer            */
    int32_t  video_len;       /* 20  bytes of a locked range                                      */
    int32_t  video_offset;    /* 24  not used                                                     */
    int32_t  msg_ret;         /* 28  result, in a reply                                           */
    int32_t  reserve[4];      /* 32  zero                                                         */
};
/* clang-format on */
typedef struct AVMsgBuf AVMsgBuf;
RECORD_SIZE(AVMsgBuf, 48);
RECORD_MEMBER(AVMsgBuf, video_pos, 16);
RECORD_MEMBER(AVMsgBuf, reserve, 32);

/* ---- results ---- */

enum tagEnumAVStream_ErrorCode {
    AVSTREAM_OK = 0,
    AVSTREAM_UNKNOWN = 101,
    AVSTREAM_PARAM_ERROR = 102,
    AVSTREAM_SHAREMEMORY_INIT_FAIL = 103,
    AVSTREAM_MESSAGE_INIT_FAIL = 104,
    AVSTREAM_SEM_INIT_FAIL = 105,
    AVSTREAM_PARAM_NULL = 106,
    AVSTREAM_ERRORCODE_END = 107
};

/* ---- reading ---- */

/* Takes one frame.  `VideoData`: its AVDataLen payload bytes, in the ring; `pDataInfo`: the reader's
 * own copy of the header.  Both are valid only during the call.  The result is ignored. */
typedef int (*AVStreamCallback)(int iAVSource, int iVideoIndex, char* VideoData, AVDataInfo* pDataInfo);

/* Says whether frames of a stream are wanted now; below 1: the reader pauses and later goes on at
 * the media server's write position. */
typedef int (*AVTransformStatus)(int videoindex);

/* Stores the callbacks of client type `MsgAVType` (either may be null) and, the first time, connects
 * to the media server and drops the answers that an earlier process of that type left.  Returns 0, or the error of
 * the connection (103, 104). */
int GetAVStreamInit(int MsgAVType, AVStreamCallback AVStreamFunc, AVTransformStatus TransFormStatusFunc);
/* The same for voice talk (stream 3). */
int GetVoiceTalkAVStreamInit(int MsgAVType, AVStreamCallback AVStreamFunc, AVTransformStatus TransFormStatusFunc);

/* Whether somebody waits for a stream's frames now: others are handed over up to 80 ms late.  Asked by the stream's
 * reader before it sleeps. */
typedef int (*AVStreamUrgency)(int videoindex);

/* Stores who answers that for client type `MsgAVType`; null, as at the start: every stream is waited for. */
void AVStreamUrgencySet(int MsgAVType, AVStreamUrgency IsUrgent);

/* Starts the reader of a stream unless it runs; takes 500 ms when it had to be started.  A reader that found no ring
 * has ended by itself, and is started again by a call after the ring could be had; one of a stream without a ring
 * (2) is not.  Returns 0; 102 for a stream outside 0..3 or a client type outside 2..16; 101 without a thread: call
 * again. */
int AVStreamGetAVData(int MsgAVType, int VideoIndex);

/* Stops the reader and waits for its end, at most for one callback and one sleep of the reader; never
 * for the media server.  From inside the reader's callback it does not wait.  Returns 0, or 102. */
int AVStreamGetAVDataStop(int MsgAVType, int VideoIndex);

/* For a client that took its copy of a frame: 1 when the media server has not begun to write over the frame
 * meanwhile, so that the copy is whole; 0 when it has, or when `VideoData` is not the frame in hand.  `pDataInfo` is
 * the header as the callback got it.  Only inside the frame callback, on its thread. */
int AVStreamFrameIntact(const char* VideoData, const AVDataInfo* pDataInfo);

int GetgAlarmIsEndFrame(void);
int SetgAllDayIsEndFrame(int iFlag);  /* logs only, returns 0 */
int SetgAlarmIsFirstFrame(int iFlag); /* logs only, returns 0 */

/* Local time as "YYYY-MM-DD hh:mm:ss", valid until this thread calls it again. */
char* GetNowTime(void);

/* ---- connection ---- */

/* State of the connection.  Only RunFlag, StreamSharememID and AVMsgQid are used, the rest stays
 * zero; they may change under a reader of this record. */
typedef struct AVStreamSysInfo {
    int RunFlag; /* 1: connected */
    int StreamSharememID[AVSTREAM_MAX];
    char* StreamSharememAddr[AVSTREAM_MAX];
    int WritePos[AVSTREAM_MAX];
    int LastWritePos[AVSTREAM_MAX];
    int ReadPos[AVSTREAM_MAX];
    int RingBufferLen[AVSTREAM_MAX];
    pthread_mutex_t RingBufferLock[AVSTREAM_MAX];
    int AVMsgQid;
    int MsgAVType;
    int WriteLockPos[AVSTREAM_MAX];
    int WriteLockSize[AVSTREAM_MAX];
    int ReadLockPos[AVSTREAM_MAX][MSG_AV_TYPE_END];
    int ReadLockSize[AVSTREAM_MAX][MSG_AV_TYPE_END];
    int IFrameWPos[AVSTREAM_MAX];
    int IFramePos[AVSTREAM_MAX][5];
    int RealFrameRate[AVSTREAM_MAX];
} AVStreamSysInfo;

AVStreamSysInfo* GetGetAVStreamSysInfo(void);

/* Gets the rings of streams 0 and 1 and the request queue; does nothing while connected.
 * Returns 0, 103 (a ring failed: nothing is kept) or 104 (the queue failed). */
int GetAVControlInit(void);
/* The same for voice talk's ring and its own queue; the other streams are left alone. */
int GetAVControlVoiceTalkInit(void);
/* Forget the connection; segments and queues stay, running readers keep their ring.  Return 0. */
int GetAVControlCleanup(void);
int GetAVStreamCleanup(void);
/* Opens the request queue again if it is not open.  Returns 0. */
int CheckMsgID(AVStreamSysInfo* pSysInfo);

/* ---- requests ----
 * Send one request and wait, without limit, for the first reply to the client type that is not a reader's of it.
 * Queries fill `pMsg` with the reply and return 0 (without a reply it holds the request, video_pos
 * 0); 102 for a bad stream or client type, 106 for a null `pMsg`. */
int AVStreamGetCurrentFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int AVStreamGetLastIFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int AVStreamGetRecordIFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int AVStreamGetRealFrameRate(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
/* Return the media server's `msg_ret`, or 102. */
int AVStreamResourceLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen);
int AVStreamResourceUnLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen);

/* The same operations under the names clients use. */
int GetAVStreamCurrentFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int GetAVStreamLastIFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int GetAVStreamRecordIFrame(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int GetAVStreamRealFrameRate(int MsgAVType, int VideoIndex, AVMsgBuf* pMsg);
int AVStreamLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen);
int AVStreamUnLock(int MsgAVType, int VideoIndex, unsigned int VideoPos, int VideoLen);

#ifdef __cplusplus
}
#endif
#endif
