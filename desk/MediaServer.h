// The camera's media server as its clients meet it: frame rings of streams 0 and 1, the queue on which readers ask
// for positions, and the queue that takes commands.
//
// Owns the rings, both queues (removed at its end) and two threads that answer.  Frames come from one thread, the
// feeder.  A command that forces a key frame is answered after the frame in the making has been published, so the
// next record of that stream is the key frame.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "FrameRing.h"
#include "Hostility.h"
#include "Journal.h"
#include "libAVServerAccess.h"
#include "libGetAVStream.h"

namespace desk {

class MediaServer {
  public:
    static constexpr int kStreams = 2;

    // `hostility` may be null; both outlive the server.
    MediaServer(Journal& journal, Hostility* hostility);
    ~MediaServer();
    MediaServer(const MediaServer&) = delete;
    MediaServer& operator=(const MediaServer&) = delete;

    // One video frame of a stream in the making; keep it until the frame is published.
    struct Turn {
        std::unique_lock<std::mutex> lock;
        bool key_wanted;  // the frame must be a key frame
    };
    Turn BeginFrame(int stream);

    // Puts a record into the stream's ring; a frame too large for it is dropped, and so is all video up to the next
    // key frame, which no reader could decode.
    void PublishVideo(int stream, const AccessUnit& unit, uint32_t time_ms);
    void PublishSound(View frame, uint32_t time_ms);

    // Both ignore streams that there are not.
    void ForceKeyFrame(int stream);
    // The encoder starts anew: before the next frame readers are sent to the ring's beginning.
    void RequestRestart(int stream);

    uint32_t Published(int stream) const { return published_[Index(stream)]; }
    uint32_t Dropped(int stream) const { return dropped_[Index(stream)]; }
    uint32_t FrameRate(int stream) const;  // of the last second of media time
    FrameRing& Ring(int stream) { return *rings_[Index(stream)]; }

    // Answers, as the threads give them.
    AVMsgBuf Answer(AVMsgBuf request);
    AVAccessMsgBuf Answer(AVAccessMsgBuf command);

  private:
    static size_t Index(int stream) { return static_cast<size_t>(stream); }
    static bool Known(int stream) { return stream >= 0 && stream < kStreams; }
    void AnswerRequests();
    void AnswerCommands();
    void CountFrame(int stream, uint32_t time_ms);

    struct Stream {
        std::mutex turn;          // held while a frame is made
        bool key_wanted = false;  // under turn
        std::atomic<bool> restart_wanted{false};
        std::atomic<bool> stopped{false};
        bool waits_for_key = true;    // feeder
        bool told_too_large = false;  // feeder
        mutable std::mutex rate;
        std::deque<uint32_t> last_second_ms;  // under rate: time stamps of its frames
    };

    Journal& journal_;
    Hostility* hostility_;
    std::array<std::unique_ptr<FrameRing>, kStreams> rings_;
    std::array<Stream, kStreams> streams_;
    std::array<std::atomic<uint32_t>, kStreams> published_{}, dropped_{};
    int request_queue_ = -1;
    int command_queue_ = -1;
    std::thread request_thread_, command_thread_;
};

}  // namespace desk
