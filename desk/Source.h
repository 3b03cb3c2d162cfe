// Where the desk camera's pictures and sound come from: a file, an address, a device, or a generated test picture.
//
// A source hands out one item at a time in the order of their times: an encoded access unit to pass through, a
// picture to encode, or 8000 Hz mono sound.  Owns FFmpeg's demuxer, decoders and filters.  One thread; Stop() may
// come from any.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AccessUnit.h"
#include "Ffmpeg.h"

namespace desk {

inline constexpr int kSoundRate = 8000;         // samples a second, mono
inline constexpr int kSoundFrameSamples = 320;  // of one audio record: 40 ms

struct Item {
    enum class Kind { kAccessUnit, kPicture, kSound };
    Kind kind;
    int64_t time_us;             // since the source's first item
    AccessUnit unit;             // kAccessUnit
    Frame picture;               // kPicture
    std::vector<int16_t> sound;  // kSound: kSoundFrameSamples samples
};

// What an encoded source tells about its video.
struct VideoFacts {
    VideoCodec codec;
    int width;
    int height;
    int frame_rate;
    bool operator==(const VideoFacts&) const = default;
};

class Source {
  public:
    virtual ~Source() = default;

    // The next item; nothing at the end, or after Stop().  Throws FfmpegError when the input fails.
    virtual std::optional<Item> Next() = 0;

    // Set when the video is passed through as it comes.
    virtual std::optional<VideoFacts> PassThrough() const { return std::nullopt; }

    virtual bool HasSound() const = 0;
};

struct TestPictureSize {
    int width;
    int height;
    int frame_rate;
    bool operator==(const TestPictureSize&) const = default;
};

// A moving test picture with a clock and a frame number, and a tone.
std::unique_ptr<Source> MakeTestPicture(const TestPictureSize& size);

// Anything FFmpeg opens; a path below "/dev/video" is opened as a capture device.  `loop`: starts again at its end.
// `stop` ends a blocking read.
std::unique_ptr<Source> OpenInput(const std::string& url, bool loop, const std::atomic<bool>& stop);

}  // namespace desk
