// A file that a clip is written into.  One thread; a writer that was not finished leaves half a file, which
// is its maker's to remove.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clip/FrameClock.h"
#include "export/SoundTrack.h"
#include "stream/NalUnits.h"

namespace card {

enum class Container { Mp4, Matroska, H264, H265, ProgramStream };

// By the ending of `path`; throws CardError (kUsage) for one that is not known.
Container ContainerOf(const std::string& path);

// What has to stay the same in one file.
struct ClipShape {
    VideoCodec codec = VideoCodec::H264;
    std::vector<uint8_t> parameter_sets;  // as of ParameterSets()
    std::optional<SoundFormat> sound;
};

struct ClipDetails {
    uint32_t start_time = 0;    // s since 1970 UTC, of the first picture
    uint32_t steady_rate = 0;   // frames a second, 0: they vary
    uint64_t stream_bytes = 0;  // about to be written, at most
};

// Counted from the start of the file.
struct PictureTimes {
    Ticks decoded = 0;  // rising; negative where decoding has to begin ahead of the first picture shown
    Ticks shown = 0;    // not before it is decoded
    Ticks duration = 0;
};

class ClipWriter {
  public:
    virtual ~ClipWriter() = default;

    // In the order of decoding.  The first picture is a key frame.
    virtual void Picture(ByteView unit, bool key, const PictureTimes& times) = 0;
    virtual void Sound(ByteView payload, Ticks at) = 0;
    // What follows was recorded at another time than what stands before; `title` says when.
    virtual void Chapter(Ticks at, const std::string& title) = 0;
    virtual void Finish() = 0;
};

// A file can begin with this key frame: its parameter sets can be read.
bool CanBegin(VideoCodec codec, ByteView key_unit);

// Mp4 or Matroska.  `key_unit`: the first picture.  Throws CardError, as every function of a writer.
std::unique_ptr<ClipWriter> OpenMuxWriter(const std::string& path, Container container, const ClipShape& shape,
                                          const ClipDetails& details, ByteView key_unit);
// `head`, and then the bytes of pictures (and of sounds, when they are given) one after the other.
std::unique_ptr<ClipWriter> OpenRawWriter(const std::string& path, ByteView head);

}  // namespace card
