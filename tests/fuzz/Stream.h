// Streams for the fuzzers that read one: laid out piece by piece from the input, mostly as the recorder writes them.
// Payloads are made up, so that a short input reaches frames of every size.
#pragma once

#include <vector>

#include "Fuzz.h"
#include "RecordFormat.h"

namespace fuzz {

// What an input is made of, a byte in front of each piece; a seed is made of them, too.
enum class Piece : uint8_t {
    Rest,         // all that is left, as it is
    Bytes,        // so many bytes (8 bits), as they are
    StreamHead,   // and the clock begins anew
    KeyFrame,     // of so many bytes (16 bits)
    Frame,        // any other picture, of so many bytes (16 bits)
    Sound,        // of so many bytes (16 bits)
    VideoPacket,  // one packet more, of so many bytes (16 bits)
    Jump,         // clock (16 bits) and time (signed 8 bits) go on from elsewhere
    Patch,        // a byte, so far (8 bits) back
    kCount
};

class StreamLayer {
  public:
    // `bytes` keeps its room from input to input: new memory costs more than all else.
    StreamLayer(Input& in, std::vector<uint8_t>& bytes) : bytes_(bytes) {
        bytes_.clear();
        constexpr size_t kPiecesMax = 96;
        constexpr size_t kBytesMax = 1u << 20;
        for (size_t i = 0; i < kPiecesMax && !in.Empty() && bytes_.size() < kBytesMax; ++i) {
            Add(static_cast<Piece>(in.Byte() % static_cast<uint8_t>(Piece::kCount)), in);
        }
    }

  private:
    uint8_t* Room(size_t count) {
        bytes_.resize(bytes_.size() + count);
        return bytes_.data() + bytes_.size() - count;
    }
    void Copy(Bytes bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

    // Most are short, for speed; of the others there are enough to fill a packet or a frame.
    static int Length(Input& in) {
        const int length = in.Half();
        return length % 64 == 63 ? length : length % 256;
    }

    void Video(bool key, int length) {
        static constexpr uint8_t kStartCode[] = {0, 0, 0, 1, 0x67};
        static constexpr AVStreamParam kParameters{CODE_VIDEO_H264, CODE_AUDIO_G711A, 640, 480, 512, 25, 8000, 64};
        static uint8_t frame[UINT16_MAX];
        std::memcpy(frame, kStartCode, sizeof kStartCode);
        uint8_t* const out = Room(static_cast<size_t>(PackedVideoSize(key, frame, length)));
        libAVRecordVideoPsStreamWrite(key ? 1 : 0, frame, length, out, ++clock_, &kParameters, time_);
        time_ += clock_ % 25 == 0 ? 1 : 0;
    }

    void Add(Piece piece, Input& in) {
        switch (piece) {
            case Piece::Rest:
                return Copy(in.Rest());
            case Piece::Bytes:
                return Copy(in.Take(in.Byte()));
            case Piece::StreamHead:
                clock_ = 0;
                return Copy(record_file::kStreamHead);
            case Piece::KeyFrame:
            case Piece::Frame:
                return Video(piece == Piece::KeyFrame, Length(in));
            case Piece::Sound: {
                const uint8_t silence[256] = {};
                const int length = Length(in) % static_cast<int>(sizeof silence);
                libAVRecordAudioPsStreamWrite(silence, length, Room(static_cast<size_t>(PackedAudioSize(length))),
                                              clock_ + 1);
                return;
            }
            case Piece::VideoPacket: {
                const int length = std::min(Length(in), PS_AUDIO_PAYLOAD_MAX);
                make_pes_packet_header(Room(static_cast<size_t>(PS_PES_HEADER_SIZE + length)), clock_,
                                       AV_FRAME_TYPE_VIDEO, 0, length);
                return;
            }
            case Piece::Jump:
                clock_ += in.Half();
                time_ += static_cast<uint32_t>(static_cast<int8_t>(in.Byte()));
                return;
            case Piece::Patch:
            case Piece::kCount:
                if (!bytes_.empty()) {
                    const size_t back = std::min<size_t>(in.Byte(), bytes_.size() - 1);
                    bytes_[bytes_.size() - 1 - back] = in.Byte();
                }
                return;
        }
    }

    std::vector<uint8_t>& bytes_;
    uint32_t clock_ = 0;
    uint32_t time_ = kTime;
};

// Valid until the next call.
inline const std::vector<uint8_t>& LayStream(Input& in) {
    static std::vector<uint8_t> bytes;
    StreamLayer(in, bytes);
    return bytes;
}

// How the card tool reads it.
inline auto ReaderOf(const std::vector<uint8_t>& stream) {
    return [&stream](uint64_t at, void* to, size_t length) -> size_t {
        if (at >= stream.size()) return 0;
        length = std::min(length, stream.size() - static_cast<size_t>(at));
        std::memcpy(to, stream.data() + at, length);
        return length;
    };
}

}  // namespace fuzz
