// Hands what was recorded to the card steadily: a power cut then costs what one interval holds, not half a minute.
//
// A thread a run, beside the writer and never in a frame's way: the writer leaves two figures, the thread makes the
// system write what they name and waits for that, on descriptors of its own.  Stream data goes before the heads that
// name it.  It also reads in advance what the writer is about to write into in part, since such a write would wait
// until the card was read: the next key-frame records, and the next file before this one is full.  Owns its
// descriptors. Never writes a byte itself, never keeps a run from beginning or ending: when a card hangs, the thread is
// left to it. Threads: Start and Stop by the one that opens and closes the writer, the others by the one that writes a
// frame; the writer's lock keeps them apart.
#pragma once

#include <cstdint>

#include "Descriptor.h"
#include "Immortal.h"

class HandOver {
  public:
    struct Begin {  // of a run
        int index_fd;
        int stream_fd;
        uint32_t next_file_no;
        uint32_t stream_end;   // bytes in the file: the first one that is not written
        uint32_t key_records;  // in the file
    };

    // False when there can be no thread for this run (logged): it is recorded all the same, and reaches the card when
    // the system writes it back.
    bool Start(const Begin& begin);

    // Of each frame the stream is told before its heads are written, so that no head reaches the card before it.
    void StreamWritten(uint32_t stream_end);
    // The heads were written; they count so many key-frame records.
    void HeadsWritten(uint32_t key_records);

    // Lets the thread hand over the rest, close its descriptors and end.  Not waited for: the next run begins
    // meanwhile, and a frame that comes in between is lost.
    void Stop();

  private:
    struct Job;
    struct Jobs;
    static Immortal<Jobs> jobs_;
    static Job* FreeJob();
    static void* Thread(void* job);

    Job* job_ = nullptr;  // of the run; null: none
};
