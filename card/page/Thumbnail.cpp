#include "page/Thumbnail.h"

#include <algorithm>
#include <cstring>

namespace card {

namespace {

constexpr int kQuality = 6;  // of the JPEG encoder: 2 is best, 31 worst
constexpr int kSideMax = 16384;

std::optional<std::vector<uint8_t>> EncodeJpeg(const AVFrame& picture) {
    const AVCodec* codec = RequireObject(avcodec_find_encoder(AV_CODEC_ID_MJPEG), "JPEG encoder");
    Owned<AVCodecContext> encoder(RequireObject(avcodec_alloc_context3(codec), codec->name));
    encoder->width = picture.width;
    encoder->height = picture.height;
    encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
    encoder->time_base = {1, 25};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = kQuality * FF_QP2LAMBDA;
    Require(avcodec_open2(encoder.get(), codec, nullptr), codec->name);
    Owned<AVPacket> packet(RequireObject(av_packet_alloc(), codec->name));
    if (avcodec_send_frame(encoder.get(), &picture) < 0) return std::nullopt;
    if (avcodec_receive_packet(encoder.get(), packet.get()) < 0) return std::nullopt;
    return std::vector<uint8_t>(packet->data, packet->data + packet->size);
}

}  // namespace

AVCodecContext& ThumbnailMaker::Decoder(VideoCodec codec) {
    Owned<AVCodecContext>& decoder = decoders_[codec];
    if (!decoder) {
        const AVCodecID id = codec == VideoCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
        const AVCodec* found = RequireObject(avcodec_find_decoder(id), "decoder of the video");
        decoder.reset(RequireObject(avcodec_alloc_context3(found), found->name));
        decoder->thread_count = 1;
        Require(avcodec_open2(decoder.get(), found, nullptr), found->name);
    }
    avcodec_flush_buffers(decoder.get());
    return *decoder;
}

Owned<AVFrame> ThumbnailMaker::Decode(VideoCodec codec, ByteView key_unit) {
    AVCodecContext& decoder = Decoder(codec);
    Owned<AVPacket> packet(RequireObject(av_packet_alloc(), "picture"));
    Require(av_new_packet(packet.get(), static_cast<int>(key_unit.size())), "picture");
    std::memcpy(packet->data, key_unit.data(), key_unit.size());
    Owned<AVFrame> frame(RequireObject(av_frame_alloc(), "picture"));
    if (avcodec_send_packet(&decoder, packet.get()) < 0) return nullptr;
    avcodec_send_packet(&decoder, nullptr);  // there is no second one to wait for
    if (avcodec_receive_frame(&decoder, frame.get()) < 0) return nullptr;
    return frame;
}

Owned<AVFrame> ThumbnailMaker::Shrink(const AVFrame& picture) {
    if (picture.width <= 0 || picture.height <= 0 || picture.width > kSideMax || picture.height > kSideMax)
        return nullptr;
    Owned<AVFrame> small(RequireObject(av_frame_alloc(), "picture"));
    small->format = AV_PIX_FMT_YUVJ420P;
    small->width = width_;
    small->height = std::clamp(width_ * picture.height / picture.width, 2, 4 * width_) & ~1;
    Require(av_frame_get_buffer(small.get(), 0), "picture");
    const Owned<SwsContext> scaler(
        sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), small->width,
                       small->height, AV_PIX_FMT_YUVJ420P, SWS_AREA, nullptr, nullptr, nullptr));
    if (!scaler) return nullptr;
    sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, small->data, small->linesize);
    return small;
}

std::optional<std::vector<uint8_t>> ThumbnailMaker::Make(VideoCodec codec, ByteView key_unit) {
    const Owned<AVFrame> picture = Decode(codec, key_unit);
    if (!picture) return std::nullopt;
    const Owned<AVFrame> small = Shrink(*picture);
    if (!small) return std::nullopt;
    return EncodeJpeg(*small);
}

}  // namespace card
