// What a run's frames leave in the index: their key-frame records and the three heads, in memory and on the card.
//
// Owns the key-frame records that the card has refused so far.  Every function is called by the writer, under its lock;
// a frame is added after its bytes are on the card.
#pragma once

#include "Frame.h"
#include "libRecordFile.h"

class HeadsGuard {  // the heads' lock, for a stretch without access to the card
  public:
    HeadsGuard();
    ~HeadsGuard();
    HeadsGuard(const HeadsGuard&) = delete;
    HeadsGuard& operator=(const HeadsGuard&) = delete;
};

struct WrittenFrame {
    const Frame& frame;
    uint32_t length;  // bytes in the stream
    uint32_t time;    // s since 1970 UTC
};

class RunIndex {
  public:
    // A writer was opened, or closed.
    void Reset() { waiting_count_ = 0; }

    // The run begins: puts the stream's parameters into the section head.
    static void Begin(const AVStreamParam& parameters);

    // Adds the frame's key-frame record, if it gets one, counts the frame in the heads and writes them: section, file,
    // system.  A write that fails is told by the door to the card; the next frame tries it again, heads and records.
    // Returns the file's key-frame records.
    uint32_t Add(int index_fd, int stream_fd, const WrittenFrame& written, const AVStreamParam& parameters);

    // The run is over: tries the records once more that the card refused.  Returns the file's key-frame records.
    uint32_t Finish(int index_fd, int stream_fd);

  private:
    void Wait(const WrittenFrame& written);
    uint32_t WriteWaiting(int stream_fd);

    static constexpr uint32_t kWaitingMax = 32;
    KeyFrameInfoHead_S waiting_[kWaitingMax]{};
    uint32_t waiting_count_ = 0;
};
