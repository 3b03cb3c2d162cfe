/* The parameter-set table: a shared segment with the latest sequence and picture parameter sets of
 * up to 24 streams, so that other processes can start a decoder without waiting for a key frame.
 *
 * Owns this process's copy of the table and one recursive lock a slot.  Never parses the bytes.
 * Any thread may write or read; init and cleanup run while nobody does.
 * A segment that was removed is exchanged for the one that its key has then; one that could not be
 * had is tried again at each call.
 * A published table is always whole: no slot in it is half of one write and half of another.
 */
#ifndef LIB_AV_SPS_PPS_PROCESS_H
#define LIB_AV_SPS_PPS_PROCESS_H

#include <pthread.h>

#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

#define AV_SPS_PPS_KEY 0x62788C7C
#define AV_SPS_PPS_SIZE 24832 /* bytes of the segment; the table is its first 24768 */
#define AV_SPS_PPS_SLOTS 24
#define AV_SPS_PPS_MAX 1024 /* bytes a slot holds */

/* clang-format off */
struct AVSpsPpsInfo {                /* 1032 bytes, one stream                             */
    uint8_t  buffer[AV_SPS_PPS_MAX]; /*    0  the parameter sets as they came              */
    uint32_t length;                 /* 1024  bytes valid in buffer                        */
    int32_t  flag;                   /* 1028  1 once written                               */
};
/* clang-format on */
typedef struct AVSpsPpsInfo AVSpsPpsInfo;

struct AVSpsPpsData {                                 /* 24768 bytes                       */
    struct AVSpsPpsInfo SpsPpsInfo[AV_SPS_PPS_SLOTS]; /*     0  slot i at 1032 * i         */
};
typedef struct AVSpsPpsData AVSpsPpsData;

RECORD_SIZE(AVSpsPpsInfo, 1032);
RECORD_MEMBER(AVSpsPpsInfo, length, 1024);
RECORD_SIZE(AVSpsPpsData, 24768);

/* Takes or creates the segment.  Returns 0 (also when already done), or -1. */
int libAVSpsPpsProcessInit(void);

/* Lets go of the segment, whose content stays.  Returns 0. */
int libAVSpsPpsProcessCleanup(void);

/* Keeps `length` bytes (0..1024) as the parameter sets of slot `index` (0..23) and publishes the
 * whole table.  Returns 0, or -1 for null, a bad length or slot, before init, or while there is no
 * segment (logged but null). */
int AVSpsPpsDataWrite(int index, const void* data, uint32_t length);

/* Copies the shared table.  Returns 0, or -1 for null and (logged) before init or while there
 * is no segment. */
int AVSpsPpsDataRead(AVSpsPpsData* data);

/* Recursive mutex operations.  Return 0, or -1. */
int KQ_CreateLock(pthread_mutex_t* mutex);
int KQ_DestroyLock(pthread_mutex_t* mutex);
int KQ_Lock(pthread_mutex_t* mutex);
int KQ_Unlock(pthread_mutex_t* mutex);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif
