/* The alarm board: one shared segment in which the camera's detectors publish, per alarm source,
 * whether it is on and when that was last written.
 *
 * Owns this process's copy of the board and of the face rectangle.  Never waits for an alarm:
 * readers poll.  Any thread may call any function.
 * A segment that was removed is exchanged for the one that its key has then; one that could not be
 * had is tried again at each call.
 * A process that writes the board writes all of it, so one process writes all sources.
 */
#ifndef LIB_ALARM_PROCESS_H
#define LIB_ALARM_PROCESS_H

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ALARM_BOARD_KEY 0x61788C7C
#define ALARM_BOARD_SIZE 448 /* bytes of the segment; the board is its first 384 */

typedef enum AlarmSourceDef {
    ALARM_SOURCE_DEF_IO_0 = 0,
    ALARM_SOURCE_DEF_IO_1 = 1,
    ALARM_SOURCE_DEF_MOTION = 2,
    ALARM_SOURCE_DEF_VIDEOCOVER_ALARM = 3,
    ALARM_SOURCE_DEF_NET_LOST = 4,
    ALARM_SOURCE_DEF_IPCONFLICT = 5,
    ALARM_SOURCE_DEF_PIR = 6,
    ALARM_SOURCE_DEF_MQ2 = 7,
    ALARM_SOURCE_DEF_AUDIOUT = 8,
    ALARM_SOURCE_DEF_CROSSBORDER = 9,
    ALARM_SOURCE_DEF_INTRUSION = 10,
    ALARM_SOURCE_DEF_FACEALARM = 11,
    ALARM_SOURCE_DEF_PEOPLE_STAY = 12,
    ALARM_SOURCE_DEF_PEOPLE_GATHERING = 13,
    ALARM_SOURCE_DEF_IO_MOTION = 14,
    ALARM_SOURCE_DEF_IO_OUTPUT = 15,
    ALARM_SOURCE_DEF_NUMS = 16 /* count, not a source */
} AlarmSourceDef;

typedef enum AlarmStatusDef { ALARM_STATUS_DEF_OFF = 0, ALARM_STATUS_DEF_ON = 1 } AlarmStatusDef;

/* clang-format off */
struct AlarmInfo {     /* 24 bytes, one source                                    */
    int32_t  status;   /*  0  AlarmStatusDef                                      */
    int32_t  time;     /*  4  s since 1970-01-01 UTC of the last write            */
    uint32_t u32X;     /*  8  region of the alarm; its meaning is the detector's  */
    uint32_t u32Y;     /* 12                                                      */
    uint32_t u32W;     /* 16                                                      */
    uint32_t u32H;     /* 20                                                      */
};
/* clang-format on */
typedef struct AlarmInfo AlarmInfo;

struct AlarmData {                                 /* 384 bytes, the board        */
    struct AlarmInfo alarm[ALARM_SOURCE_DEF_NUMS]; /*  0  by AlarmSourceDef       */
};
typedef struct AlarmData AlarmData;

struct Face_Alarm_Ret { /* 16 bytes */
    uint32_t u32X;      /*  0       */
    uint32_t u32Y;      /*  4       */
    uint32_t u32W;      /*  8       */
    uint32_t u32H;      /* 12       */
};
typedef struct Face_Alarm_Ret Face_Alarm_Ret;

RECORD_SIZE(AlarmInfo, 24);
RECORD_MEMBER(AlarmInfo, time, 4);
RECORD_MEMBER(AlarmInfo, u32H, 20);
RECORD_SIZE(AlarmData, 384);
RECORD_SIZE(Face_Alarm_Ret, 16);

/* Takes or creates the segment; its content is not read.  Returns 0 (also when already done), or -1. */
int libAlarmProcessInit(void);

/* Lets go of the segment; the shared board keeps its content.  Returns 0. */
int libAlarmProcessCleanup(void);

/* Sets state and time (now) of `source` (AlarmSourceDef) to `status` (AlarmStatusDef) and publishes
 * this process's whole board.  Returns 0, or -1 (logged) for a bad argument, before init, or
 * while there is no segment. */
int AlarmDataWrite(int source, int status);

/* Copies the shared board.  Returns 0, or -1 for null and (logged) before init or while there
 * is no segment.  An entry may be torn between state and time while its writer is at work. */
int AlarmDataRead(AlarmData* Data);

/* This process's face rectangle; no other process sees it.  Return 0, -1 for null. */
int libGetFaceAlarmInfo(Face_Alarm_Ret* Ret);
int libSetFaceAlarmInfo(Face_Alarm_Ret* Ret);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif
