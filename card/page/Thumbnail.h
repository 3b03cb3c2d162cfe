// Small JPEG pictures of key frames.  One thread.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "export/Ffmpeg.h"
#include "stream/NalUnits.h"

namespace card {

class ThumbnailMaker {
  public:
    explicit ThumbnailMaker(int width) : width_(width) {}  // pixels

    // Decodes one access unit that begins with its parameter sets; nothing when it cannot be decoded.
    std::optional<std::vector<uint8_t>> Make(VideoCodec codec, ByteView key_unit);

  private:
    AVCodecContext& Decoder(VideoCodec codec);
    Owned<AVFrame> Decode(VideoCodec codec, ByteView key_unit);
    Owned<AVFrame> Shrink(const AVFrame& picture);

    int width_;
    std::map<VideoCodec, Owned<AVCodecContext>> decoders_;
};

}  // namespace card
