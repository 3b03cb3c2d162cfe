/* What the recorder tells other programs about itself: the text file "/tmp/AVRecordAccess.state".
 *
 * Owns the figures below and that file.  Never waits, never follows a link, and is never needed for recording:
 * a state file that cannot be written costs one line in the log.
 * Threads: the setters and counters may be called by any thread, between frames too: each is one atomic access.
 * RecorderStatusPublish belongs to the main thread.
 * The lines of the file are described in docs/state-file.md.
 */
#ifndef COMMON_RECORDER_STATUS_H
#define COMMON_RECORDER_STATUS_H

#include <cstdint>

#define RECORDER_STATE_FILE "/tmp/AVRecordAccess.state"

struct RecorderStatus {
    const char* activity = "starting"; /* what it does, or why it does not record                    */
    uint32_t file = 0;                 /* number of the record file                                  */
    uint32_t section = 0;              /* section in it, from 1; 0: none was opened yet              */
    uint32_t last_frame = 0;           /* s since 1970 UTC, the newest frame on the card; 0: none yet */
    uint32_t failed_writes = 0;        /* writes to the card that failed or came short               */
    uint32_t longest_write_ms = 0;     /* the longest single write to the card                       */
    uint32_t dropped_frames = 0;       /* delivered, and could not be recorded                       */
    uint32_t torn_frames = 0;          /* delivered, and overwritten before they were recorded       */
    uint32_t resynchronisations = 0;   /* a reader lost its place in a ring and looked for a key frame */

    bool operator==(const RecorderStatus&) const = default;
};

/* What the recorder does now: a string literal, one line ("recording", "no card", ...). */
void RecorderStatusActivity(const char* activity);
/* The section that is being written. */
void RecorderStatusPlace(uint32_t file, uint32_t section);
/* A frame of `time` is on the card. */
void RecorderStatusFrame(uint32_t time);
/* A write to the card took so long. */
void RecorderStatusWriteTook(uint32_t milliseconds);

/* One more of each. */
void RecorderStatusWriteFailed();
void RecorderStatusFrameDropped();
void RecorderStatusFrameTorn();
void RecorderStatusResynchronised();

/* The figures as they are; each is whole, together they need not be of one moment. */
RecorderStatus RecorderStatusGet();

/* Writes the state file when a figure changed since it was last written, at most once in a second of the clock;
 * one that could not be written is tried again a second later.  Main thread only; costs a few loads when nothing
 * changed, so call it in every pass of a loop. */
void RecorderStatusPublish();
/* The recorder ends: the last figures, in whatever second the file was last written. */
void RecorderStatusEnd();

#endif
