// Owning handles for FFmpeg's objects, and its errors as the card tool's.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

#include "text/Error.h"

namespace card {

struct FfmpegDeleter {
    void operator()(AVPacket* object) const { av_packet_free(&object); }
    void operator()(AVFrame* object) const { av_frame_free(&object); }
    void operator()(AVCodecContext* object) const { avcodec_free_context(&object); }
    void operator()(AVCodecParserContext* object) const { av_parser_close(object); }
    void operator()(SwsContext* object) const { sws_freeContext(object); }
    void operator()(AVFormatContext* object) const {  // of an output
        avio_closep(&object->pb);
        avformat_free_context(object);
    }
};

template <typename T>
using Owned = std::unique_ptr<T, FfmpegDeleter>;

// Returns `code`; throws CardError when it is negative.
inline int Require(int code, const std::string& what) {
    if (code >= 0) return code;
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    throw CardError(what + ": " + text);
}

// Returns `object`; throws CardError when FFmpeg could not make it.
template <typename T>
T* RequireObject(T* object, const std::string& what) {
    if (object == nullptr) throw CardError(what + ": FFmpeg has no such part, or no memory is left");
    return object;
}

}  // namespace card
