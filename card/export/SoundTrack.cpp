#include "export/SoundTrack.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace card {

namespace {

constexpr Ticks kDrift = kTicksPerSecond / 4;  // sound and picture may drift apart so far
constexpr int kAacSamples = 1024;              // of one AAC frame
constexpr std::array<int, 13> kFrequencies = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};

// Of ISO/IEC 14496-3, 1.6.2.1: AAC LC.
std::array<uint8_t, 2> AudioSpecificConfig(int sample_rate, int channels) {
    const auto found = std::find(kFrequencies.begin(), kFrequencies.end(), sample_rate);
    const auto index = static_cast<unsigned>(found == kFrequencies.end() ? 11 : found - kFrequencies.begin());
    return {static_cast<uint8_t>(2u << 3 | index >> 1), static_cast<uint8_t>((index & 1) << 7 | channels << 3)};
}

Owned<AVCodecContext> OpenDecoder(const SoundFormat& format) {
    const AVCodec* codec = RequireObject(avcodec_find_decoder(format.codec), "decoder of the sound");
    Owned<AVCodecContext> decoder(RequireObject(avcodec_alloc_context3(codec), codec->name));
    decoder->sample_rate = format.sample_rate;
    av_channel_layout_default(&decoder->ch_layout, format.channels);
    Require(avcodec_open2(decoder.get(), codec, nullptr), codec->name);
    return decoder;
}

Owned<AVCodecContext> OpenEncoder(const SoundFormat& format, bool global_headers) {
    const AVCodec* codec = RequireObject(avcodec_find_encoder(AV_CODEC_ID_AAC), "AAC encoder");
    Owned<AVCodecContext> encoder(RequireObject(avcodec_alloc_context3(codec), codec->name));
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = format.sample_rate;
    encoder->time_base = {1, format.sample_rate};
    encoder->bit_rate = int64_t{format.sample_rate} * 4 * format.channels;
    av_channel_layout_default(&encoder->ch_layout, format.channels);
    if (global_headers) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Require(avcodec_open2(encoder.get(), codec, nullptr), codec->name);
    return encoder;
}

}  // namespace

SoundFormat SoundFormatOf(const StreamParameters& parameters, ByteView first_payload) {
    SoundFormat format;
    format.sample_rate = parameters.sample_rate != 0 ? parameters.sample_rate : 8000;
    switch (parameters.audio_type) {
        case record_file::kStreamAac:
            format.codec = AV_CODEC_ID_AAC;
            break;
        case record_file::kStreamG711A:
            format.codec = AV_CODEC_ID_PCM_ALAW;
            break;
        case record_file::kStreamG711U:
            format.codec = AV_CODEC_ID_PCM_MULAW;
            break;
        default:
            return format;
    }
    if (format.codec != AV_CODEC_ID_AAC) return format;
    const std::optional<AacFrame> frame = FirstAacFrame(first_payload);
    if (frame && frame->frequency && *frame->frequency < kFrequencies.size()) {
        format.sample_rate = kFrequencies[*frame->frequency];
        format.channels = std::max<int>(*frame->channels, 1);
    }
    return format;
}

SoundTrack::SoundTrack(const SoundFormat& format, bool global_headers, bool to_aac, Sink sink)
    : format_(format),
      sink_(std::move(sink)),
      frame_(RequireObject(av_frame_alloc(), "sound")),
      packet_(RequireObject(av_packet_alloc(), "sound")) {
    if (!to_aac || format.codec == AV_CODEC_ID_AAC) return;
    decoder_ = OpenDecoder(format);
    encoder_ = OpenEncoder(format, global_headers);
}

void SoundTrack::Describe(AVCodecParameters* parameters) const {
    if (encoder_) {
        Require(avcodec_parameters_from_context(parameters, encoder_.get()), "AAC");
        return;
    }
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = format_.codec;
    parameters->sample_rate = format_.sample_rate;
    av_channel_layout_default(&parameters->ch_layout, format_.channels);
    if (format_.codec != AV_CODEC_ID_AAC) {
        parameters->format = AV_SAMPLE_FMT_S16;
        parameters->bits_per_coded_sample = 8;
        parameters->block_align = format_.channels;
        parameters->bit_rate = int64_t{format_.sample_rate} * 8 * format_.channels;
        return;
    }
    const auto config = AudioSpecificConfig(format_.sample_rate, format_.channels);
    parameters->frame_size = kAacSamples;
    parameters->extradata = static_cast<uint8_t*>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    RequireObject(parameters->extradata, "AAC");
    std::memcpy(parameters->extradata, config.data(), config.size());
    parameters->extradata_size = static_cast<int>(config.size());
}

// Where sound and picture have drifted apart, puts silence in; false when the sound has to wait for the picture.
bool SoundTrack::Align(Ticks at) {
    const int64_t wanted = av_rescale(std::max<Ticks>(at, 0), format_.sample_rate, kTicksPerSecond);
    const int64_t drift = av_rescale(kDrift, format_.sample_rate, kTicksPerSecond);
    const int64_t reached = position_ + static_cast<int64_t>(waiting_.size());
    if (wanted < reached - drift) return false;
    if (started_ && wanted <= reached + drift) return true;
    if (encoder_) {
        EncodeSilence(wanted - reached);
    } else {
        position_ = wanted;  // the file shows a hole
    }
    started_ = true;
    return true;
}

void SoundTrack::EncodeSilence(int64_t samples) {
    while (samples > 0) {
        const int64_t piece = std::min<int64_t>(samples, kAacSamples);
        waiting_.resize(waiting_.size() + static_cast<size_t>(piece), 0.0f);
        if (waiting_.size() >= kAacSamples) EncodeFrame(kAacSamples);
        samples -= piece;
    }
}

void SoundTrack::Add(ByteView payload, Ticks at) {
    if (!Align(at)) return;
    if (encoder_) {
        Encode(payload);
    } else if (format_.codec == AV_CODEC_ID_AAC) {
        AddAac(payload);
    } else {
        AddPlain(payload, static_cast<int64_t>(payload.size()) / format_.channels);
    }
}

void SoundTrack::AddAac(ByteView payload) {
    while (const std::optional<AacFrame> frame = FirstAacFrame(payload)) {
        AddPlain(frame->raw, kAacSamples);
        payload = payload.subspan(frame->size);
    }
}

void SoundTrack::AddPlain(ByteView payload, int64_t samples) {
    Require(av_new_packet(packet_.get(), static_cast<int>(payload.size())), "sound");
    std::memcpy(packet_->data, payload.data(), payload.size());
    packet_->pts = packet_->dts = position_;
    packet_->duration = samples;
    packet_->flags |= AV_PKT_FLAG_KEY;
    position_ += samples;
    sink_(packet_.get());
}

void SoundTrack::Encode(ByteView payload) {
    Require(av_new_packet(packet_.get(), static_cast<int>(payload.size())), "sound");
    std::memcpy(packet_->data, payload.data(), payload.size());
    Require(avcodec_send_packet(decoder_.get(), packet_.get()), "decoding sound");
    av_packet_unref(packet_.get());
    while (avcodec_receive_frame(decoder_.get(), frame_.get()) >= 0) {
        const auto* samples = reinterpret_cast<const int16_t*>(frame_->data[0]);
        for (int i = 0; i < frame_->nb_samples; ++i) waiting_.push_back(static_cast<float>(samples[i]) / 32768);
        av_frame_unref(frame_.get());
    }
    while (waiting_.size() >= kAacSamples) EncodeFrame(kAacSamples);
}

void SoundTrack::EncodeFrame(int samples) {
    frame_->format = encoder_->sample_fmt;
    frame_->sample_rate = encoder_->sample_rate;
    frame_->nb_samples = samples;
    Require(av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout), "sound");
    Require(av_frame_get_buffer(frame_.get(), 0), "sound");
    std::copy_n(waiting_.begin(), samples, reinterpret_cast<float*>(frame_->data[0]));
    waiting_.erase(waiting_.begin(), waiting_.begin() + samples);
    frame_->pts = position_;
    position_ += samples;
    Require(avcodec_send_frame(encoder_.get(), frame_.get()), "encoding sound");
    av_frame_unref(frame_.get());
    TakePackets();
}

void SoundTrack::TakePackets() {
    while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) sink_(packet_.get());
}

void SoundTrack::Finish() {
    if (!encoder_) return;
    if (!waiting_.empty()) EncodeFrame(static_cast<int>(waiting_.size()));
    Require(avcodec_send_frame(encoder_.get(), nullptr), "encoding sound");
    TakePackets();
}

}  // namespace card
