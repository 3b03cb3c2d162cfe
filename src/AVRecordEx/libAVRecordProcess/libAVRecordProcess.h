/* When to record: the schedule check, the record run, the alarm events of a run, the frame callback.
 *
 * Owns the process-wide flags (RecordState.h) and decides when a run begins and ends; the writer owns
 * the heads and the files.  Never touches a frame beyond its first two bytes, never formats a card.
 * Threads: the control loop calls CheckRecordStart and StartRecord from one thread; frames arrive on the
 * stream readers' threads; each run has one alarm-event thread, which ends with it.  StopRecord may be
 * called from a signal handler.
 * Invariants: a run lies in one section, one record file and one day; whatever goes wrong with alarm
 * events, recording goes on.
 */
#ifndef LIB_AV_RECORD_PROCESS_H
#define LIB_AV_RECORD_PROCESS_H

#include "AVFrame.h"
#include "libRecordFile.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Schedule and start check ------------------------------------------------------------------- */

/* 0: a run is due now, the card is there and the heads are loaded; -1: not now, ask again. */
int CheckRecordStart(void);

/* 1 when the mount table names an "mmc" device, else 0. */
int CheckSDcardMountStatus(void);

/* 0 when the card's device node is there, else -1 (logged).  `path` is ignored. */
int FileUtilsGetStorageStatus(const char* path);

/* Loads the heads when the card is new, and decides what a full file means: 0 when the store may be
 * written, -1 when it cannot be read or is full and `ucCoverType` is 0 (stop instead of overwriting). */
int AVRecordParamInit(unsigned char ucCoverType);

/* Sets up `pRecordInfoHead` as a new section that begins now, in the current record file or in a new one.
 * The heads' lock is taken here.  Returns 0, or -1 for a null head. */
int AV_RecordFileConfigParamGet(RecordSystemInfoHead_S* pSystemInfoHead, RecordFileInfoHead_S* pRecordFileInfoHead,
                                RecordInfoHead_S* pRecordInfoHead, unsigned char SmartEnable);

/* ---- Record run --------------------------------------------------------------------------------- */

/* Records stream `VideoId` (0..2) until something ends the run; `duration` is accepted and ignored.
 * Returns 0 after a run, and for motion JPEG, which is never recorded; -1 when it could not start or
 * the configuration went away. */
int StartRecord(int VideoId, int duration);

/* Asks the process to stop / takes that back / tells whether it was asked (1).  The first two return 0. */
int StopRecord(void);
int StartRecordSet(void);
int GetRecordStopFlag(void);

/* Has `chore` called about once a second while a run is on, on its thread; null: nothing. */
void RecordChoreSet(void (*chore)(void));

/* Writes `Message` with the local time to standard error.  Returns 0, -1 without a clock. */
int PrintTimeMessage(char* Message);

/* ---- Frames from the stream readers ------------------------------------------------------------- */

typedef void* VideoCallbackParam;

/* Starts the readers of streams 0 to 2 on message channel `type`, those that run are left alone / ends them.  Return
 * 0, also when a reader could not be started: AVStreamsAreRunning tells (1: all of them, on media server and all). */
int StartAVStream(int type);
int AVStreamsAreRunning(void);
int StopAVStream(void);

/* Hands a frame to the writer and returns its result; a JPEG picture is dropped with 0.  `iAVSource` is
 * AVFrameType; `VideoData` holds pDataInfo->AVDataLen bytes. */
int Mp4RecordVideoCallbackFunc(int iAVSource, int iVideoIndex, char* VideoData, AVDataInfo* pDataInfo);
int GetMp4RecordVideoTrasformStatue(int videoindex); /* always 1: frames are wanted */
int SetVideoCallback(VideoCallbackParam VideoParam); /* accepted and ignored; returns 0 */

#ifdef __cplusplus
}
#endif
#endif
