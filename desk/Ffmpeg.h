// Owning handles for FFmpeg's objects and its errors as exceptions.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <stdexcept>
#include <string>

namespace desk {

struct FfmpegDeleter {
    void operator()(AVPacket* object) const { av_packet_free(&object); }
    void operator()(AVFrame* object) const { av_frame_free(&object); }
    void operator()(AVCodecContext* object) const { avcodec_free_context(&object); }
    void operator()(AVFormatContext* object) const { avformat_close_input(&object); }
    void operator()(AVFilterGraph* object) const { avfilter_graph_free(&object); }
    void operator()(AVFilterInOut* object) const { avfilter_inout_free(&object); }
    void operator()(SwrContext* object) const { swr_free(&object); }
    void operator()(SwsContext* object) const { sws_freeContext(object); }
};

template <typename T>
using Owned = std::unique_ptr<T, FfmpegDeleter>;

using Packet = Owned<AVPacket>;
using Frame = Owned<AVFrame>;

class FfmpegError : public std::runtime_error {
  public:
    FfmpegError(const std::string& what, int code) : std::runtime_error(what + ": " + Text(code)), code_(code) {}
    int Code() const { return code_; }

  private:
    static std::string Text(int code) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(code, text, sizeof text);
        return text;
    }

    int code_;
};

// Returns `code`; throws FfmpegError when it is negative.
inline int Require(int code, const std::string& what) {
    if (code < 0) throw FfmpegError(what, code);
    return code;
}

// Returns `object`; throws when FFmpeg could not make it.
template <typename T>
T* RequireObject(T* object, const std::string& what) {
    if (object == nullptr) throw FfmpegError(what, AVERROR(ENOMEM));
    return object;
}

}  // namespace desk
