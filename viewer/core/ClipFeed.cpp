#include "core/ClipFeed.h"

#include <algorithm>
#include <array>
#include <utility>

#include "clip/PictureOrder.h"
#include "clip/SliceOrder.h"

namespace viewer {

namespace {

using card::ByteView;
using card::ClipFrame;
using card::Ticks;
using card::VideoCodec;

constexpr int kTelephoneRate = 8000;  // Hz
constexpr std::array<int, 13> kFrequencies = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                              22050, 16000, 12000, 11025, 8000,  7350};

const card::BytesDone kNobody = [](uint64_t) {};

SoundKind KindOf(uint8_t audio_type) {
    switch (audio_type) {
        case record_file::kStreamAac:
            return SoundKind::Aac;
        case record_file::kStreamG711A:
            return SoundKind::G711A;
        case record_file::kStreamG711U:
            return SoundKind::G711U;
        default:
            return SoundKind::None;
    }
}

}  // namespace

ClipFeed::ClipFeed(const card::CardIndex& index, card::Selection selection)
    : index_(index), selection_(std::move(selection)) {}

bool ClipFeed::Next(size_t limit, Piece& piece) {
    piece = Piece{};
    while (piece.pictures.empty() && piece.sounds.empty()) {
        if (next_ == listed_.frames.size() && !EnterStretch()) return false;
        while (next_ < listed_.frames.size() && piece.video.size() < limit) {
            const ClipFrame& frame = listed_.frames[next_];
            if (frame.video) {
                if (!TakePicture(frame, piece)) break;  // it begins the next part
            } else if (part_ != 0) {
                TakeSound(frame, piece);
            }
            bytes_done_ += frame.size;
            ++next_;
        }
    }
    piece.part = part_;
    piece.sound = sound_;
    piece.duration = listed_.frame_duration;
    return true;
}

// Goes on to the next stretch that has a picture; false when there is none.
bool ClipFeed::EnterStretch() {
    while (entered_ < selection_.stretches.size()) {
        reader_ = std::make_unique<card::ClipReader>(index_, selection_.stretches[entered_++], selection_.from);
        listed_ = reader_->List(kNobody);
        next_ = 0;
        damaged_ += listed_.damaged_bytes;
        if (listed_.frames.empty()) continue;
        codec_ = listed_.parameters.video_type == record_file::kStreamH265 ? VideoCodec::H265 : VideoCodec::H264;
        card::TimePictures(*reader_, codec_, listed_, card::SliceOrder(codec_), kNobody);
        const auto sound =
            std::find_if(listed_.frames.begin(), listed_.frames.end(), [](const ClipFrame& f) { return !f.video; });
        sound_ = sound == listed_.frames.end() ? SoundFormat{} : FormatOf(*sound);
        timeline_.Enter(listed_.frames.front().at);
        return true;
    }
    listed_ = {};
    next_ = 0;
    return false;
}

// False when the picture begins a new part and the piece holds samples of the one before.
bool ClipFeed::TakePicture(const ClipFrame& frame, Piece& piece) {
    const std::optional<ByteView> given = reader_->Payload(frame);
    if (!given) {
        damaged_ += frame.size;
        return true;
    }
    const ByteView unit = *given;
    const bool key = frame.key && card::IsRandomAccess(codec_, unit);
    if (key) {
        std::vector<uint8_t> sets = card::ParameterSets(codec_, unit);
        if (NeedsNewPart(codec_, sets)) {
            const auto config = MakeDecoderConfig(codec_, sets);
            if (config && !(piece.pictures.empty() && piece.sounds.empty())) return false;
            if (config) {
                ++part_;
                part_codec_ = codec_;
                part_sets_ = std::move(sets);
                part_sound_ = sound_;
                config_ = *config;
                timeline_.StartFile(frame.at);
                next_decoded_ = INT64_MIN;
                piece.first = true;
            }
        } else if (part_sound_.kind == SoundKind::None) {
            part_sound_ = sound_;
        }
    }
    if (part_ == 0) return true;  // no file can begin with this picture
    const size_t before = piece.video.size();
    AppendSample(codec_, unit, key, piece.video);
    timeline_.Shown(frame.at, listed_.frame_duration);
    if (piece.video.size() == before) return true;
    Picture picture{.bytes = static_cast<uint32_t>(piece.video.size() - before), .key = key, .real = frame.shown};
    picture.decoded = std::max(next_decoded_, timeline_.Place(frame.decoded));
    picture.shown = std::max(picture.decoded, timeline_.Place(frame.shown));
    next_decoded_ = picture.decoded + 1;
    piece.pictures.push_back(picture);
    return true;
}

void ClipFeed::TakeSound(const ClipFrame& frame, Piece& piece) {
    if (sound_.kind == SoundKind::None) return;
    const std::optional<ByteView> given = reader_->Payload(frame);
    if (!given) {
        damaged_ += frame.size;
        return;
    }
    ByteView payload = *given;
    const Ticks at = timeline_.Place(frame.at);
    const auto add = [&](ByteView bytes) {
        piece.sounds.push_back({static_cast<uint32_t>(bytes.size()), at});
        piece.audio.insert(piece.audio.end(), bytes.begin(), bytes.end());
    };
    if (sound_.kind != SoundKind::Aac) return add(payload);
    while (const auto aac = card::FirstAacFrame(payload)) {
        add(aac->raw);
        payload = payload.subspan(aac->size);
    }
}

bool ClipFeed::NeedsNewPart(VideoCodec codec, const std::vector<uint8_t>& sets) const {
    if (part_ == 0 || codec != part_codec_) return true;
    if (!sets.empty() && sets != part_sets_) return true;
    return sound_.kind != SoundKind::None && part_sound_.kind != SoundKind::None && sound_ != part_sound_;
}

// An ADTS header knows more than the stream's parameters.
SoundFormat ClipFeed::FormatOf(const ClipFrame& frame) {
    SoundFormat format{.kind = KindOf(listed_.parameters.audio_type), .rate = listed_.parameters.sample_rate};
    if (format.kind == SoundKind::None) return {};
    if (format.rate == 0) format.rate = kTelephoneRate;
    if (format.kind != SoundKind::Aac) return format;
    const auto aac = card::FirstAacFrame(reader_->Payload(frame).value_or(ByteView()));
    if (aac && aac->frequency && *aac->frequency < kFrequencies.size()) {
        format.rate = kFrequencies[*aac->frequency];
        format.channels = std::max<int>(*aac->channels, 1);
        format.object = *aac->object;
    }
    return format;
}

}  // namespace viewer
