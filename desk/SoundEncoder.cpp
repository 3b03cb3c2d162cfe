#include <algorithm>

#include "Encoder.h"
#include "Source.h"

namespace desk {
namespace {

AVCodecID CodecId(AVCodeType code) {
    switch (code) {
        case CODE_AUDIO_AAC:
            return AV_CODEC_ID_AAC;
        case CODE_AUDIO_G711A:
            return AV_CODEC_ID_PCM_ALAW;
        case CODE_AUDIO_PCM:
            return AV_CODEC_ID_PCM_S16LE;
        default:
            return AV_CODEC_ID_PCM_MULAW;
    }
}

}  // namespace

AVCodeType SoundCodec(int codectype) {
    if (codectype == 1) return CODE_AUDIO_G711A;
    if (codectype >= CODE_AUDIO_AAC && codectype <= CODE_AUDIO_PCM) return static_cast<AVCodeType>(codectype);
    return CODE_AUDIO_G711U;
}

SoundEncoder::SoundEncoder(AVCodeType code) : code_(code) {
    const AVCodec* codec = RequireObject(avcodec_find_encoder(CodecId(code)), "sound encoder");
    codec_.reset(RequireObject(avcodec_alloc_context3(codec), "sound encoder"));
    codec_->sample_fmt = codec->sample_fmts[0];
    codec_->sample_rate = kSoundRate;
    codec_->time_base = {1, kSoundRate};
    codec_->bit_rate = 32000;
    av_channel_layout_default(&codec_->ch_layout, 1);
    Require(avcodec_open2(codec_.get(), codec, nullptr), codec->name);
}

// AAC LC as the encoder configured it, one channel, one raw block.
Bytes SoundEncoder::WithAdtsHeader(View frame) const {
    constexpr uint8_t kIndexOf8000 = 11, kChannels = 1;
    constexpr size_t kHeader = 7;
    const size_t length = kHeader + frame.size();
    const uint8_t header[kHeader] = {0xFF,
                                     0xF1,
                                     static_cast<uint8_t>(1 << 6 | kIndexOf8000 << 2),
                                     static_cast<uint8_t>(kChannels << 6 | length >> 11),
                                     static_cast<uint8_t>(length >> 3),
                                     static_cast<uint8_t>((length & 7) << 5 | 0x1F),
                                     0xFC};
    Bytes bytes(length);
    std::copy(std::begin(header), std::end(header), bytes.begin());
    std::copy(frame.begin(), frame.end(), bytes.begin() + kHeader);
    return bytes;
}

std::vector<Bytes> SoundEncoder::Encode(const std::vector<int16_t>& samples) {
    waiting_.insert(waiting_.end(), samples.begin(), samples.end());
    const size_t frame_samples = codec_->frame_size > 0 ? static_cast<size_t>(codec_->frame_size) : kSoundFrameSamples;
    std::vector<Bytes> frames;
    while (waiting_.size() >= frame_samples) {
        const Frame frame(RequireObject(av_frame_alloc(), "frame"));
        frame->nb_samples = static_cast<int>(frame_samples);
        frame->format = codec_->sample_fmt;
        frame->sample_rate = kSoundRate;
        av_channel_layout_copy(&frame->ch_layout, &codec_->ch_layout);
        Require(av_frame_get_buffer(frame.get(), 0), "frame");
        if (codec_->sample_fmt == AV_SAMPLE_FMT_FLTP) {
            auto* out = reinterpret_cast<float*>(frame->data[0]);
            std::transform(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(frame_samples), out,
                           [](int16_t sample) { return static_cast<float>(sample) / 32768.0F; });
        } else {
            std::copy_n(waiting_.begin(), frame_samples, reinterpret_cast<int16_t*>(frame->data[0]));
        }
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(frame_samples));
        frame->pts = samples_;
        samples_ += static_cast<int64_t>(frame_samples);
        Require(avcodec_send_frame(codec_.get(), frame.get()), "sound encoder");
        const Packet packet(RequireObject(av_packet_alloc(), "packet"));
        while (avcodec_receive_packet(codec_.get(), packet.get()) >= 0) {
            const View data(packet->data, static_cast<size_t>(packet->size));
            frames.push_back(code_ == CODE_AUDIO_AAC ? WithAdtsHeader(data) : Bytes(data.begin(), data.end()));
        }
    }
    return frames;
}

}  // namespace desk
