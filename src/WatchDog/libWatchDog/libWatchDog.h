/* The client's side of the watchdog table: a shared segment with one slot a daemon, in which each
 * writes the present time so that the watchdog service sees it alive.
 *
 * Owns this process's copy of the table.  Never writes a slot other than the one named: the other
 * slots belong to the other daemons.  Any thread may call any function.
 * A segment that was removed is exchanged for the one that its key has then; one that could not be
 * had is tried again at each call.
 */
#ifndef LIB_WATCH_DOG_H
#define LIB_WATCH_DOG_H

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WATCH_DOG_KEY 0x61788C7D
#define WATCH_DOG_SIZE 200 /* bytes of the segment; the table is its first 136 */

typedef enum WatchDogSource {
    WATCH_DOG_SOURCE_AVSERVER = 0,
    WATCH_DOG_SOURCE_SYSTEMSERVER = 1,
    WATCH_DOG_SOURCE_BOA = 2,
    WATCH_DOG_SOURCE_DEVICESEARCH = 3,
    WATCH_DOG_SOURCE_FREE_P2P = 4,
    WATCH_DOG_SOURCE_NEW_P2P = 5,
    WATCH_DOG_SOURCE_IVIDEON = 6,
    WATCH_DOG_SOURCE_AVRECORD = 7, /* this program */
    WATCH_DOG_SOURCE_LETV_CLOUD = 8,
    WATCH_DOG_SOURCE_QQ_CLOUD = 9,
    WATCH_DOG_SOURCE_ALI_CLOUD = 10,
    WATCH_DOG_SOURCE_HIK_PROTOCOL = 11,
    WATCH_DOG_SOURCE_WPASERVER = 12,
    WATCH_DOG_STATUS_IVIDEON = 13,
    WATCH_DOG_STATUS_DDNS = 14,
    WATCH_DOG_STATUS_FREEIP_P2P = 15,
    WATCH_DOG_SOURCE_XM = 16,
    WATCH_DOG_SOURCE_DEF_NUMS = 17 /* count, not a slot */
} WatchDogSource;

struct WatchDogInfo { /* 8 bytes, one slot                                  */
    int32_t time;     /*  0  s since 1970-01-01 UTC of the last heartbeat   */
    int32_t status;   /*  4  written by WatchDogStatusWrite only            */
};
typedef struct WatchDogInfo WatchDogInfo;

struct WatchDogData {                                        /* 136 bytes             */
    struct WatchDogInfo WatchDog[WATCH_DOG_SOURCE_DEF_NUMS]; /*  0  by WatchDogSource */
};
typedef struct WatchDogData WatchDogData;

RECORD_SIZE(WatchDogInfo, 8);
RECORD_SIZE(WatchDogData, 136);

/* Takes or creates the segment.  Returns 0 (also when already done), or -1. */
int libWatchDogInit(void);

/* Lets go of the segment, whose content stays.  Returns 0. */
int libWatchDogCleanup(void);

/* Writes the present time, and with WatchDogStatusWrite a status word, into the slot of `source`
 * (WatchDogSource).  Return 0, or -1 (logged) for a bad source, before init, or while there
 * is no segment. */
int WatchDogDataWrite(int source);
int WatchDogStatusWrite(int source, int status);

/* Copies the shared table and prints its times on standard output.  Returns 0, or -1 for null,
 * before init, or while there is no segment. */
int WatchDogDataRead(WatchDogData* Data);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif
