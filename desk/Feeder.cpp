#include "Feeder.h"

#include <algorithm>

namespace desk {
namespace {

using std::chrono::microseconds;

constexpr microseconds kLatest{1000000};       // later than this, lost time is let go instead of caught up
constexpr microseconds kLongestWait{5000000};  // a longer one is a jump in the input's time stamps
constexpr int64_t kSoundFrame_us = 1000000LL * kSoundFrameSamples / kSoundRate;

VideoCodec CodecOf(int encoding_type) {
    return encoding_type == 1 ? VideoCodec::kH265 : encoding_type == 4 ? VideoCodec::kJpeg : VideoCodec::kH264;
}

VideoEncoding EncodingOf(const SysInfo& record, int stream, uint32_t ring_size) {
    const Lancam_Config_Data& lan = record.lan_config;
    const bool main = stream == 0;
    VideoEncoding encoding;
    encoding.codec = CodecOf(main ? lan.nEncodingType1 : lan.nEncodingType2);
    encoding.width = record.stream_config[stream].width & ~1;
    encoding.height = record.stream_config[stream].height & ~1;
    encoding.frame_rate = std::max<int>(1, main ? lan.nFrameRate1 : lan.nFrameRate2);
    encoding.bit_rate = main ? lan.nBitrate1 : lan.nBitrate2;
    encoding.gop = record.codec_advconfig[stream].ipRatio;
    encoding.burst_bits = int64_t{ring_size} * 8 / 3;
    encoding.rotation = static_cast<Rotation>(lan.nRotateAngle & 3);
    return encoding;
}

// Whether readers must be told that the encoder started anew: what they hold of it is of no use any more.
bool IsAnotherPicture(const VideoEncoding& a, const VideoEncoding& b) {
    return a.codec != b.codec || a.width != b.width || a.height != b.height || a.rotation != b.rotation;
}

TestPictureSize TestPictureOf(const SysInfo& record) {
    const StreamParam& stream = record.stream_config[0];
    return {stream.width & ~1, stream.height & ~1, std::max<int>(1, record.lan_config.nFrameRate1)};
}

}  // namespace

Feeder::Feeder(const Feed& feed, SystemServer& system, MediaServer& media)
    : feed_(feed), system_(system), media_(media) {
    if (!feed_.input.empty()) {
        source_ = OpenInput(feed_.input, feed_.loop, stop_);
        if (const auto facts = source_->PassThrough()) TellRecord(*facts);
    }
    start_ = std::chrono::steady_clock::now();
    thread_ = std::thread(&Feeder::Run, this);
}

Feeder::~Feeder() {
    stop_ = true;
    { const std::lock_guard lock(mutex_); }  // a wait that has just found the flag clear has begun by now
    stopped_.notify_all();
    thread_.join();
}

std::string Feeder::Failure() const {
    const std::lock_guard lock(mutex_);
    return failure_;
}

void Feeder::TellRecord(const VideoFacts& facts) {
    system_.Change([&](SysInfo& record) {
        Lancam_Config_Data& lan = record.lan_config;
        lan.nEncodingType1 = lan.nEncodingType2 = facts.codec == VideoCodec::kH265 ? 1 : 0;
        lan.nFrameRate1 = lan.nFrameRate2 = static_cast<uint8_t>(facts.frame_rate);
        lan.nRotateAngle = 0;
        for (int stream = 0; stream < MediaServer::kStreams; ++stream) {
            record.stream_config[stream].width = static_cast<uint16_t>(facts.width);
            record.stream_config[stream].height = static_cast<uint16_t>(facts.height);
        }
    });
}

void Feeder::Run() {
    try {
        Publish();
    } catch (const std::exception& error) {
        const std::lock_guard lock(mutex_);
        failure_ = error.what();
    }
    ended_ = true;
}

void Feeder::Publish() {
    while (!stop_) {
        if (feed_.input.empty()) FollowRecord(system_.Snapshot());
        auto item = source_->Next();
        if (!item) return;
        const int64_t time_us = source_begin_us_ + item->time_us;
        if (item->kind != Item::Kind::kSound) last_picture_us_ = time_us;
        if (!source_->HasSound() && !PublishSilence(time_us)) return;
        if (!WaitUntil(time_us)) return;
        switch (item->kind) {
            case Item::Kind::kAccessUnit:
                PublishUnit(item->unit, time_us);
                break;
            case Item::Kind::kPicture:
                PublishPicture(*item->picture, time_us);
                break;
            case Item::Kind::kSound:
                PublishSound(item->sound, time_us);
                break;
        }
    }
}

void Feeder::FollowRecord(const SysInfo& record) {
    const TestPictureSize wanted = TestPictureOf(record);
    if (source_ && wanted == test_picture_) return;
    if (source_) source_begin_us_ = last_picture_us_ + 1000000 / test_picture_.frame_rate;
    source_ = MakeTestPicture(wanted);
    test_picture_ = wanted;
}

// False: the feeder is to stop.
bool Feeder::WaitUntil(int64_t time_us) {
    const microseconds at(static_cast<int64_t>(static_cast<double>(time_us) / feed_.speed));
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ > at + kLatest || now - start_ < at - kLongestWait) start_ = now - at;
    std::unique_lock lock(mutex_);
    return !stopped_.wait_until(lock, start_ + at, [this] { return stop_.load(); });
}

// A camera's microphone is never still: readers rely on a record coming every now and then.
bool Feeder::PublishSilence(int64_t until_us) {
    for (; silence_us_ < until_us; silence_us_ += kSoundFrame_us) {
        if (until_us - silence_us_ > kLongestWait.count()) silence_us_ = until_us - kSoundFrame_us;
        if (!WaitUntil(silence_us_)) return false;
        PublishSound(std::vector<int16_t>(kSoundFrameSamples), silence_us_);
    }
    return true;
}

void Feeder::PublishUnit(const AccessUnit& unit, int64_t time_us) {
    const SysInfo record = system_.Snapshot();
    for (int stream = 0; stream < MediaServer::kStreams; ++stream) {
        if (record.stream_config[stream].iEnable == 0) continue;
        const auto turn = media_.BeginFrame(stream);
        media_.PublishVideo(stream, unit, static_cast<uint32_t>(time_us / 1000));
    }
}

void Feeder::PublishPicture(const AVFrame& picture, int64_t time_us) {
    const SysInfo record = system_.Snapshot();
    for (int stream = 0; stream < MediaServer::kStreams; ++stream) {
        auto& encoder = encoders_[static_cast<size_t>(stream)];
        if (record.stream_config[stream].iEnable == 0) {
            encoder.reset();
            continue;
        }
        const VideoEncoding encoding = EncodingOf(record, stream, media_.Ring(stream).RingSize());
        if (!encoder || encoder->Encoding() != encoding) {
            if (encoder && IsAnotherPicture(encoder->Encoding(), encoding)) media_.RequestRestart(stream);
            encoder = std::make_unique<VideoEncoder>(encoding);
        }
        if (!encoder->IsDue(time_us)) continue;
        const auto turn = media_.BeginFrame(stream);
        media_.PublishVideo(stream, encoder->Encode(picture, turn.key_wanted), static_cast<uint32_t>(time_us / 1000));
    }
}

void Feeder::PublishSound(const std::vector<int16_t>& sound, int64_t time_us) {
    const SysInfo record = system_.Snapshot();
    if (record.audio_config.audioenable == 0) return;
    const AVCodeType codec = SoundCodec(record.audio_config.codectype);
    if (!sound_encoder_ || sound_encoder_->Codec() != codec) sound_encoder_ = std::make_unique<SoundEncoder>(codec);
    for (const Bytes& frame : sound_encoder_->Encode(sound)) {
        media_.PublishSound(frame, static_cast<uint32_t>(time_us / 1000));
    }
}

}  // namespace desk
