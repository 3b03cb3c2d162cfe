// Follows one ring frame by frame on its own thread; see AVStreamGetAVDataThread.
//
// Keeps its place by position and serial number.  What it cannot read as the next frame it waits for, a bounded number
// of times, and then searches: for the media server's last key frame, and for the frame it waited for all the while.
// Every pass sleeps or hands over a frame newer than the last, or is one of a bounded number in a row.
#pragma once

#include <atomic>
#include <optional>

#include "Connection.h"
#include "Recount.h"
#include "Rhythm.h"
#include "Ring.h"

class FrameReader {
  public:
    // `arguments`: src and video_index tell client type and stream.  Runs while `run` is set.
    FrameReader(const AVMsgBuf& arguments, const std::atomic<int>& run)
        : type_(arguments.src), index_(arguments.video_index), run_(run) {}

    // Returns when the run flag clears, or at once when there is nothing to follow.
    void Follow();

  private:
    struct Counts {  // of passes in a row without a frame, each of kWriterWaitMs
        int bad_check = 0;
        int not_ready = 0;
        int behind = 0;
        int gap = 0;
        int ring_ends = 0;
    };
    enum class Found { kNothing, kPlace, kKeyFrame };
    static constexpr int kWanted = 1;  // transform status from which on frames are wanted
    using Serial = std::optional<uint32_t>;

    bool Running() const { return run_.load() != 0; }
    int TransformStatus() const;
    bool Wanted() const { return Running() && TransformStatus() >= kWanted; }
    bool ArgumentsInRange() const;
    void Step();
    bool Paused();
    bool FollowsNewRing();
    void SleepInSilence();
    void AskWritePosition();
    bool CheckOutOfPos(int64_t position) const;

    // The search, in KeyFrameSearch.cpp.
    void Resynchronise();
    Found GetLastIFrame(Serial newer_than, int64_t& position);
    bool TakesKeyFrame(int64_t position, Serial newer_than);
    bool PlaceGoesOn();
    bool GoesOnAt(int64_t place) const;
    bool NextFrameIsAt(int64_t place) const;

    void ReadRecord();
    bool AwaitsWriter(int& passes, int limit);
    void Garbage(int check_word);
    void NotReady(int& count, int end_flag);
    void EndOfRing(const AVDataInfo& header);
    void RestartRing(const AVDataInfo& header);
    void TakeFrame(AVDataInfo& header);
    void Repeated(const AVDataInfo& header);
    bool RepeatIsFollowed(int64_t next) const;
    void Gap(const AVDataInfo& header);
    void Deliver(AVDataInfo& header);

    const int type_;
    const int index_;
    const std::atomic<int>& run_;
    Ring ring_;
    int64_t position_ = -1;  // VideoPos; -1: unknown
    Serial last_serial_;     // oldSerialNumber: of the frame that the next one is compared with
    Serial delivered_;       // of the last frame handed over from this ring
    int64_t ring_end_ = -1;  // where the ring's end stood that led here; -1: a frame was read since
    int restarts_ = 0;       // ring restarts read in a row
    Counts counts_;
    Recount recount_;
    Rhythm rhythm_;
    unsigned silence_ms_ = 0;  // since the media server's last answer
    unsigned pauses_ = 0;
};

// Callbacks of a client type; null when it has none.
AVStreamCallback FrameCallback(int type);
AVTransformStatus StatusCallback(int type);
bool IsUrgent(int type, int video_index);

inline constexpr uint32_t kGapAccepted = 30;  // serial numbers from one frame to the next
inline constexpr unsigned kWriterWaitMs = 2;
// Between looks at a stream whose frames nobody waits for; its ring holds 230 ms at 4.5 Mbit/s.
inline constexpr unsigned kIdleMs = 160;
