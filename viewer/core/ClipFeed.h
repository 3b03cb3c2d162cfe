// Stretches of the card, piece by piece, as samples that go into an MP4: for playing and for saving.
//
// Cuts a clip into parts by the rules of `recordcard export`: one part has one set of parameter sets and one kind of
// sound, gaps of more than two seconds are left out.  Pictures are never changed.  One thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "clip/Clip.h"
#include "clip/ClipTimeline.h"
#include "core/DecoderConfig.h"

namespace viewer {

enum class SoundKind { None, Aac, G711A, G711U };

struct SoundFormat {
    SoundKind kind = SoundKind::None;
    int rate = 0;  // Hz
    int channels = 1;
    int object = 2;  // AAC: audio object type

    bool operator==(const SoundFormat&) const = default;
};

struct Picture {
    uint32_t bytes = 0;
    bool key = false;
    card::Ticks decoded = 0;  // since the start of the part
    card::Ticks shown = 0;
    card::Ticks real = 0;  // when it was recorded, since 1970 UTC
};

struct Sound {
    uint32_t bytes = 0;
    card::Ticks at = 0;  // since the start of the part
};

// A run of samples of one part.
struct Piece {
    uint32_t part = 0;         // from 1
    bool first = false;        // of its part
    SoundFormat sound;         // of this stretch
    card::Ticks duration = 0;  // of its last picture
    std::vector<Picture> pictures;
    std::vector<uint8_t> video;  // their bytes: units after their lengths
    std::vector<Sound> sounds;
    std::vector<uint8_t> audio;  // their bytes; AAC without its headers, one frame each
};

class ClipFeed {
  public:
    // `index` outlives it.
    ClipFeed(const card::CardIndex& index, card::Selection selection);

    // The next samples, some `limit` bytes of them; false when there are no more.  Throws CardError.
    bool Next(size_t limit, Piece& piece);

    const DecoderConfig& Config() const { return config_; }  // of the present part
    uint64_t BytesDone() const { return bytes_done_; }       // of the stretches' bytes
    uint64_t BytesAll() const { return selection_.StreamBytes(); }
    uint64_t Damaged() const { return damaged_; }  // bytes left out, or of an earlier lap

  private:
    bool EnterStretch();
    bool TakePicture(const card::ClipFrame& frame, Piece& piece);
    void TakeSound(const card::ClipFrame& frame, Piece& piece);
    bool NeedsNewPart(card::VideoCodec codec, const std::vector<uint8_t>& sets) const;
    SoundFormat FormatOf(const card::ClipFrame& frame);

    const card::CardIndex& index_;
    card::Selection selection_;
    size_t entered_ = 0;  // stretches begun
    std::unique_ptr<card::ClipReader> reader_;
    card::ClipStretch listed_;
    size_t next_ = 0;  // of listed_.frames
    card::VideoCodec codec_ = card::VideoCodec::H264;
    SoundFormat sound_;  // of the present stretch

    uint32_t part_ = 0;  // 0: none yet
    card::VideoCodec part_codec_ = card::VideoCodec::H264;
    std::vector<uint8_t> part_sets_;
    SoundFormat part_sound_;
    DecoderConfig config_;
    card::ClipTimeline timeline_;
    card::Ticks next_decoded_ = INT64_MIN;  // earliest, in the part
    uint64_t bytes_done_ = 0;
    uint64_t damaged_ = 0;
};

}  // namespace viewer
