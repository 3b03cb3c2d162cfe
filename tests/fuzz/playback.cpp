// The playback reader on a record file of any bytes: it stays in its buffer, always moves on, and changes nothing
// when it refuses.
#include "Played.h"
#include "Stream.h"

namespace {

constexpr int kFramesMax = 256;

void ReadFrom(const fuzz::MemoryFile& file, uint64_t size, uint32_t offset) {
    for (int frame = 0; frame < kFramesMax; ++frame) {
        const uint32_t before = offset;
        fuzz::Played played;
        if (!played.Read(file, offset)) {
            MUST(offset == before && played == fuzz::Played());
            return;
        }
        const bool is_sound = played.kind == AV_FRAME_TYPE_AUDIO;
        MUST(is_sound ? played.time == fuzz::Played().time : played.kind == AV_FRAME_TYPE_VIDEO);
        MUST(played.length <= PLAYBACK_BUFFER_SIZE);
        MUST(offset > before && (offset <= size || offset - before == PS_KEY_FRAME_HEADERS));
        const uint32_t head = offset - before - played.length;  // what is no payload
        const auto packets_after = [head](uint32_t first) {
            return head >= first && (head - first) % PS_PES_HEADER_SIZE == 0;
        };
        MUST(is_sound ? head == PS_PES_HEADER_SIZE
                      : packets_after(PS_PACK_HEADER_SIZE) || packets_after(PS_KEY_FRAME_HEADERS));
        const bool one_packet = head == PS_PES_HEADER_SIZE || head == PS_PACK_HEADER_SIZE + PS_PES_HEADER_SIZE ||
                                head == PS_KEY_FRAME_HEADERS + PS_PES_HEADER_SIZE;
        uint8_t last = 0;  // byte of it: no later packet, which may be empty, has another
        MUST(!one_packet || played.length == 0 ||
             (file.Read(offset - 1, &last, 1) == 1 && last == played.Payload()[played.length - 1]));
    }
}

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile file;
    const uint32_t start = in.Byte();
    const std::vector<uint8_t>& stream = LayStream(in);
    file.Replace(stream);
    ReadFrom(file, stream.size(), 0);
    ReadFrom(file, stream.size(), start);
}
