// Follows one ring frame by frame on its own thread; see AVStreamGetAVDataThread.
//
// Keeps its place by position and serial number.  What it cannot read as the next frame it waits for,
// a bounded number of times, and then goes on at the media server's last key frame.
#pragma once

#include <atomic>
#include <optional>

#include "Connection.h"
#include "Ring.h"

class FrameReader {
  public:
    // `arguments`: src and video_index tell client type and stream.  Runs while `run` is set.
    FrameReader(const AVMsgBuf& arguments, const std::atomic<int>& run)
        : type_(arguments.src), index_(arguments.video_index), run_(run) {}

    // Returns when the run flag clears, or at once when there is nothing to follow.
    void Follow();

  private:
    struct Counts {
        int bad_check = 0;
        int not_ready = 0;
        int behind = 0;
        int gap = 0;
    };

    bool Running() const { return run_.load() != 0; }
    bool ArgumentsInRange() const;
    void Step();
    bool Paused();
    bool FollowsNewRing();
    void AskWritePosition();
    bool CheckOutOfPos(int position) const;
    bool PlaceIsReadable(uint32_t old_serial) const;
    int GetLastIFrame(uint32_t old_serial);
    bool TakesKeyFrame(int position, uint32_t old_serial, uint32_t& refused);
    void Resynchronise();

    void ReadRecord();
    void Garbage(int check_word);
    void NotReady(int& count, int end_flag);
    void RestartRing(const AVDataInfo& header);
    void TakeFrame(AVDataInfo& header);
    void Repeated(const AVDataInfo& header);
    bool GapAccepted(const AVDataInfo& header);
    void Deliver(AVDataInfo& header);
    int64_t Next(const AVDataInfo& header) const;

    const int type_;
    const int index_;
    const std::atomic<int>& run_;
    Ring ring_;
    int64_t VideoPos_ = -1;         // -1: unknown
    uint32_t oldSerialNumber_ = 0;  // 0: none yet
    bool restart_seen_ = false;     // the last record read was a ring restart
    Counts counts_;
    unsigned pauses_ = 0;
};

// Callbacks of a client type; null when it has none.
AVStreamCallback FrameCallback(int type);
AVTransformStatus StatusCallback(int type);
