/* The record writer: one encoded frame at a time into the current record file and its index.
 *
 * For the record loop, the frame callback and the alarm thread.  Owns the in-memory system, file and
 * section head, the descriptors of the index and the record file, and the write position.
 * Never decides when to record, never allocates for a frame, never writes outside the pre-stored files.
 * Threads: every function may be called from any thread.  Opening, closing and writing exclude each
 * other, so a close waits for the frame in flight; frames of other channels never wait.  The heads have
 * a lock of their own that is never held across an access to the card.
 * Invariants: stream bytes reach the card before the heads that name them; a run begins with a key frame; stream data
 * stays below RECORD_KEY_FRAME_BASE and key-frame records below RECORD_FILE_SIZE.
 */
#ifndef LIB_AV_RECORD_H
#define LIB_AV_RECORD_H

#include <pthread.h>

#include "AVFrame.h"
#include "libRecordFile.h"

#ifdef __cplusplus
extern "C" {
#endif

#define RECORD_PACK_BUFFER_SIZE 614400 /* bytes, a packed frame with its headers is at most so long  */
#define RECORD_STREAM_HEAD_SIZE 40     /* bytes in front of a run's first frame, "IMKH"              */

/* ---- The in-memory heads ------------------------------------------------------------------------ */

/* The current system, file and section head; valid for the life of the process.  They change while
 * frames are written: whoever reads or writes through these pointers then holds the heads' lock. */
RecordSystemInfoHead_S* AV_RecordSystemInfoHeadGet(void);
RecordFileInfoHead_S* AV_RecordFileInfoHeadGet(void);
RecordInfoHead_S* AV_RecordInfoHeadGet(void);

/* The heads' lock: short stretches, no file access, not twice by one thread. */
void AVRecordHeadsLock(void);
void AVRecordHeadsUnlock(void);

typedef struct AVRecordHeads {
    RecordSystemInfoHead_S system;
    RecordFileInfoHead_S file;
    RecordInfoHead_S section;
} AVRecordHeads;

/* When the current file is full and still the system head's current one: counts it as used and names the next file.
 * Returns 1 then, else 0.  To be called under the heads' lock. */
int AVRecordNameNextFile(void);

/* Copies all three as of one moment. */
void AVRecordHeadsCopy(AVRecordHeads* heads);

/* ---- Opening and closing ------------------------------------------------------------------------ */

/* Opens the index file and the record file that `file` names, which must be there, and takes frames of stream
 * `channel` (0..2) from `file`'s length on.  A writer that is open is closed first.  Returns 0, or -1 (nothing
 * stays open). */
int KQ_RecordInit(const RecordFileInfoHead_S* file, int channel);

/* Closes both files after the frame in flight; frames are ignored from now on.  Returns 0. */
int KQ_RecordUninit(void);

/* Takes no further frame until the next KQ_RecordInit, although the files stay open.  To be called before
 * the heads are set up for another section.  Returns 0. */
int AVRecordFramesHold(void);

/* How often what was recorded is handed to the card, in milliseconds, from the next KQ_RecordInit on: what a power cut
 * costs.  A value out of range is brought into it.  Returns 0. */
#define RECORD_HAND_OVER_MS 1000
#define RECORD_HAND_OVER_MIN_MS 200
#define RECORD_HAND_OVER_MAX_MS 60000
int AVRecordHandOverSet(int milliseconds);

/* Reads those places of the index and of `file`'s record file that a run beginning there will write into in part, so
 * that its first frames do not wait for them.  Waits for the card.  Returns 0, or -1 when they cannot be opened. */
int AVRecordReadAhead(const RecordFileInfoHead_S* file);

/* The current record file alone: open `path` read/write (created when missing), close it, its descriptor (-1:
 * none). Open returns 0 or -1; close the result of closing, -1 when none is open. */
int KQ_RecordOpen(const char* path);
int KQ_RecordClose(void);
int KQ_RecordStreamFdGet(void);

/* 0 when the card carries a prepared store, else -1. */
int KQ_RecordConfigGet(void);

/* 0 when the index and record file `file_no` are there and can be opened for writing, else -1 with errno; what
 * fails is logged by the door to the card.  To be asked before a run changes a count or forces a key frame. */
int AVRecordStoreIsWritable(uint32_t file_no);

/* 1 when the card has turned read-only, is gone, has refused what it was handed for 3 s, or every write for 10 s: a
 * reason to end a run.  Ends with a write that works, or with the next KQ_RecordInit, which tries again. */
int AVRecordCardFailing(void);

/* 1 when record files refuse what is written while the file system takes it, else 0.  Says so once, until a record file
 * has taken something. */
int AVRecordFileFails(void);

/* ---- Frames ------------------------------------------------------------------------------------- */

/* Writes one frame.  `kind` is AVFrameType; `data` holds info->AVDataLen bytes and, for video, begins
 * with a four-byte start code (ISO/IEC 14496-10 and 23008-2, Annex B).  Keeps neither pointer.
 * Returns 0 (written; also: closed, another channel, the card took nothing) or -1: waiting for the first
 * key frame, a video frame of less than 5 bytes, sound of none, a frame that cannot be packed or does not fit, one that
 * was overwritten while it was packed, a failed write. */
int libAVRecordWriteFrame(int channel, int kind, const char* data, const AVDataInfoOpt* info);

/* Asked once more between packing a frame and writing it: 0 when `data` or the header in front of it is no longer
 * what `info` was copied with.  Such a frame is dropped whole and counted as torn; nothing of it is written. */
typedef int (*AVRecordFrameCheck)(const char* data, const AVDataInfoOpt* info);

/* Sets the check for all frames from now on; null: none. */
void AVRecordFrameCheckSet(AVRecordFrameCheck is_intact);

/* ---- Helpers ------------------------------------------------------------------------------------ */

/* Recursive mutexes.  Return 0, or -1. */
int AVRecordCreateLock(pthread_mutex_t* lock);
int AVRecordDestroyLock(pthread_mutex_t* lock);
int AVRecordLock(pthread_mutex_t* lock);
int AVRecordUnlock(pthread_mutex_t* lock);

/* The zone's offset from UTC in hours, -11 to 12; minutes are dropped.  Returns 0, -1 for null. */
int GetTimeZone(int* hours);

/* AudioSpecificConfig of AAC LC (ISO/IEC 14496-3, 1.6.2.1) into 2 bytes at `dsi`.  Returns 0, -1 for null. */
int make_dsi(unsigned int sampling_index, unsigned int channels, unsigned char* dsi);

/* samplingFrequencyIndex of a rate in Hz (ISO/IEC 14496-3, table 1.18); 0 for a rate not known. */
int get_sr_index(unsigned int rate);

#ifdef __cplusplus
}
#endif
#endif
