// Takes pictures and sound from a source, encodes them as the configuration record says, and publishes them at
// their times.
//
// Owns the source, the encoders and the one thread that writes into the rings.  Follows the record frame by frame:
// a changed size, rate or codec means a new encoder from the next frame on.  A passed-through source is published
// as it comes, and the record is told its codec, size and rate instead.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Encoder.h"
#include "MediaServer.h"
#include "Source.h"
#include "SystemServer.h"

namespace desk {

struct Feed {
    std::string input;  // empty: a test picture
    bool loop = false;
    double speed = 1.0;  // times real time
};

class Feeder {
  public:
    // Opens the input (throws FfmpegError) and begins to publish.
    Feeder(const Feed& feed, SystemServer& system, MediaServer& media);
    ~Feeder();
    Feeder(const Feeder&) = delete;
    Feeder& operator=(const Feeder&) = delete;

    bool Ended() const { return ended_; }  // the input is at its end, or failed
    std::string Failure() const;           // why it failed; empty when it did not

  private:
    void Run();
    void Publish();
    void FollowRecord(const SysInfo& record);
    void TellRecord(const VideoFacts& facts);
    bool WaitUntil(int64_t time_us);
    bool PublishSilence(int64_t until_us);
    void PublishPicture(const AVFrame& picture, int64_t time_us);
    void PublishUnit(const AccessUnit& unit, int64_t time_us);
    void PublishSound(const std::vector<int16_t>& sound, int64_t time_us);

    Feed feed_;
    SystemServer& system_;
    MediaServer& media_;
    std::unique_ptr<Source> source_;
    TestPictureSize test_picture_{};  // of the source, when it is one
    int64_t source_begin_us_ = 0;     // of the present test picture
    int64_t last_picture_us_ = 0;
    int64_t silence_us_ = 0;  // silence is published up to here
    std::array<std::unique_ptr<VideoEncoder>, MediaServer::kStreams> encoders_;
    std::unique_ptr<SoundEncoder> sound_encoder_;

    std::chrono::steady_clock::time_point start_;
    std::atomic<bool> stop_{false}, ended_{false};
    mutable std::mutex mutex_;  // for the two below
    std::condition_variable stopped_;
    std::string failure_;
    std::thread thread_;
};

}  // namespace desk
