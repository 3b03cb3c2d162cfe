// The packer: what is asked for as room is what is written, and the playback reader gets back what went in.
#include <sanitizer/asan_interface.h>

#include <vector>

#include "Played.h"

namespace {

constexpr uint32_t kIndexExact = (1u << 24) / 225;  // up to here the clock is exact

// Bytes of an exact size: one read or written in front of them or after them is seen.
class Frame {
  public:
    Frame(std::vector<uint8_t>& room, size_t length)
        : size(static_cast<int>(length)), bytes(room.data() + room.size() - length), front_(bytes - kFence) {
        MUST(length + kFence <= room.size());
        ASAN_POISON_MEMORY_REGION(front_, kFence);
    }
    ~Frame() { ASAN_UNPOISON_MEMORY_REGION(front_, kFence); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    const int size;
    uint8_t* const bytes;

  private:
    static constexpr size_t kFence = 64;
    uint8_t* const front_;
};

std::vector<uint8_t> g_frame(1u << 20);
std::vector<uint8_t> g_packed(1u << 20);

// The input's bytes, for a few inputs amid others, up to and over the borders at which frames are cut into packets.
size_t FrameLength(uint8_t packets, uint8_t more, size_t given) {
    constexpr uint8_t kLarge = 248;  // and above
    return packets < kLarge ? given : (packets - kLarge + 1u) * PS_PES_PAYLOAD_MAX + more + given - 128;
}

void Fill(const Frame& frame, fuzz::Bytes given) {
    const size_t length = static_cast<size_t>(frame.size);
    std::memset(frame.bytes, 0x55, length);
    std::memcpy(frame.bytes + (length - given.size()) / 2, given.data(), given.size());
}

// What of it is recorded: a key frame from its first start code on.
fuzz::Bytes Recorded(const Frame& frame, bool key) {
    static constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    const fuzz::Bytes all(frame.bytes, static_cast<size_t>(frame.size));
    if (!key || all.empty()) return all;
    // A start code that ends the frame has no unit.
    const auto* const first = static_cast<uint8_t*>(memmem(frame.bytes, all.size() - 1, kStartCode, sizeof kStartCode));
    return first == nullptr ? fuzz::Bytes{} : fuzz::Bytes(first, all.data() + all.size());
}

struct Said {
    int kind;
    uint32_t index;
    uint32_t time;
};

void MustReadBack(fuzz::Bytes packed, fuzz::Bytes payload, const Said& said) {
    static fuzz::MemoryFile file;
    file.Clear(RECORD_FILE_SIZE);
    file.Write(0, packed);
    uint32_t offset = 0;
    fuzz::Played played;
    MUST(played.Read(file, offset));
    MUST(offset == packed.size() && played.kind == said.kind && played.length == payload.size());
    MUST(std::equal(payload.begin(), payload.end(), played.Payload()));
    MUST(played.kind == AV_FRAME_TYPE_AUDIO || played.time == said.time);
    MUST(payload.empty() || said.index >= kIndexExact || played.pts == 3600 * said.index);
}

void PackVideo(const Frame& frame, bool key, const AVStreamParam& parameters, const Said& said) {
    const int64_t room = PackedVideoSize(key, frame.bytes, frame.size);
    MUST(room > 0);
    const Frame out(g_packed, static_cast<size_t>(room));
    MUST(libAVRecordVideoPsStreamWrite(key ? 1 : 0, frame.bytes, frame.size, out.bytes, said.index, &parameters,
                                       said.time) == room);
    const fuzz::Bytes payload = Recorded(frame, key);
    const bool readable = (key || !payload.empty()) && payload.size() <= PLAYBACK_GATHER_MAX;
    if (readable) MustReadBack({out.bytes, static_cast<size_t>(room)}, payload, said);
}

void PackSound(const Frame& frame, const Said& said) {
    const int64_t room = PackedAudioSize(frame.size);
    MUST((room < 0) == (frame.size > PS_AUDIO_PAYLOAD_MAX));
    const Frame out(g_packed, static_cast<size_t>(std::max<int64_t>(room, 1)));
    MUST(libAVRecordAudioPsStreamWrite(frame.bytes, frame.size, out.bytes, said.index) == room);
    if (room >= 0 && frame.size > 0) {
        MustReadBack({out.bytes, static_cast<size_t>(room)}, Recorded(frame, false),
                     {AV_FRAME_TYPE_AUDIO, said.index + 1, 0});
    }
}

}  // namespace

void fuzz::Feed(Input& in) {
    const uint8_t kind = in.Byte();
    const Said said{AV_FRAME_TYPE_VIDEO, in.Word(), in.Word()};
    const auto parameters = in.Get<AVStreamParam>();
    const uint8_t packets = in.Byte();
    const uint8_t more = in.Byte();
    const Bytes given = in.Take(PS_PES_PAYLOAD_MAX);
    const Frame frame(g_frame, FrameLength(packets, more, given.size()));
    Fill(frame, given);
    if (kind % 4 == 3) return PackSound(frame, said);
    PackVideo(frame, kind % 4 != 0, parameters, said);
}
