/* The client side of the media server's command queue: one request and answer a command.
 *
 * Tells the media server to act (a key frame, above all) or that a setting changed and is to be read
 * again.  Owns the queue's id, not the queue: nothing is removed or closed.
 * Commands may be called from any thread; those of one process go one at a time, since all answers
 * arrive as one message type.  A media server that does not answer keeps its caller for 4 s at most, and
 * for 2 s while it goes on like that.
 */
#ifndef LIB_AV_SERVER_ACCESS_H
#define LIB_AV_SERVER_ACCESS_H

#include "AVServerCommands.h"
#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AVACCESS_MSG_KEY 0x61766C8A /* the command queue */

/* Message types of the queue. */
typedef enum MSG_AVACCESS_TYPE {
    MSG_AVACCESS_TYPE_START = 0,
    MSG_AVACCESS_TYPE_MSG1 = 1, /* requests to the media server */
    MSG_AVACCESS_TYPE_MSG2 = 2, /* answers to this client       */
    MSG_AVACCESS_TYPE_MSG3 = 3,
    MSG_AVACCESS_TYPE_MSG4 = 4,
    MSG_AVACCESS_TYPE_MSG5 = 5,
    MSG_AVACCESS_TYPE_MSG6 = 6,
    MSG_AVACCESS_TYPE_MSG7 = 7,
    MSG_AVACCESS_TYPE_MSG8 = 8,
    MSG_AVACCESS_TYPE_END = 9
} MSG_AVACCESS_TYPE;

/* clang-format off */
typedef struct AVAccessMsgBuf { /* 36 bytes, 32 of them travel after the message type       */
    int32_t des;                /*  0  message type: MSG_AVACCESS_TYPE_MSG1 in requests     */
    int32_t src;                /*  4  message type of the answer: MSG_AVACCESS_TYPE_MSG2   */
    int32_t cmd;                /*  8  command code                                         */
    int32_t index;              /* 12  stream or small argument, else 0                     */
    int32_t ret;                /* 16  0; in the answer the media server's result           */
    char    data[16];           /* 20  argument of AVServerSetPtzControlEx, else zero       */
} AVAccessMsgBuf;
/* clang-format on */
RECORD_SIZE(AVAccessMsgBuf, 36);
RECORD_MEMBER(AVAccessMsgBuf, ret, 16);
RECORD_MEMBER(AVAccessMsgBuf, data, 20);

typedef enum AVAccessVideoType {
    AVACCESS_1ST_STREAM = 0,
    AVACCESS_2ND_STREAM = 1,
    AVACCESS_3RD_STREAM = 2,
    AVACCESS_MAX_VIDEO_STREAM = 3
} AVAccessVideoType;

typedef enum AVAccessAbnormalEventType {
    AVACCESS_ABNORMAL_EVNENT_NULL = 0,
    AVACCESS_ABNORMAL_EVNENT_NETLINKDOWN = 1,
    AVACCESS_ABNORMAL_EVNENT_IPCONFLICT = 2
} AVAccessAbnormalEventType;

enum tagEnumAVServer_ErrorCode {
    AVSERVER_OK = 0,
    AVSERVER_UNKNOWN = 101,
    AVSERVER_PARAM_ERROR = 102,
    AVSERVER_SHAREMEMORY_INIT_FAIL = 103,
    AVSERVER_MESSAGE_INIT_FAIL = 104,
    AVSERVER_SEM_INIT_FAIL = 105,
    AVSERVER_PARAM_NULL = 106,
    AVSERVER_ERRORCODE_END = 107
};

/* Opens the command queue, creating it when missing.  Returns 0, also when it is open already, or
 * AVSERVER_MESSAGE_INIT_FAIL. */
int AVServerAccessInit(void);

/* Forgets the queue, which stays.  Returns 0. */
int AVServerAccessCleanup(void);

/* The commands.  Each opens the queue if it is not open, throws away what waits for this client, sends its
 * code and waits for the answer to it.  One that finds the queue removed is sent again to the new one.
 * Returns the media server's result, or AVSERVER_MESSAGE_INIT_FAIL; 0 when it cannot be sent or has no
 * answer in time.
 * AVServerSetPtzControlEx carries the 16 bytes at `inData`; null gives AVSERVER_PARAM_ERROR. */
#define AVSERVER_PLAIN_PROTOTYPE(function, code) int function(void);
#define AVSERVER_INDEX_PROTOTYPE(function, code, type, argument) int function(type argument);
#define AVSERVER_DATA_PROTOTYPE(function, code) int function(void* inData);
AV_SERVER_COMMANDS(AVSERVER_PLAIN_PROTOTYPE, AVSERVER_INDEX_PROTOTYPE, AVSERVER_DATA_PROTOTYPE)
#undef AVSERVER_PLAIN_PROTOTYPE
#undef AVSERVER_INDEX_PROTOTYPE
#undef AVSERVER_DATA_PROTOTYPE

#ifdef __cplusplus
}
#endif
#endif
