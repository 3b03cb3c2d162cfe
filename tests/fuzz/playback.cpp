// The playback reader on a record file of any bytes: it stays in its buffer, always moves on, and changes nothing
// when it refuses.
#include <memory>

#include "Stream.h"

namespace {

constexpr int kFramesMax = 256;

void ReadFrom(const fuzz::MemoryFile& file, uint64_t size, uint32_t offset, uint8_t* buffer) {
    for (int frame = 0; frame < kFramesMax; ++frame) {
        const uint32_t before = offset;
        int kind = -7;
        uint32_t length = 77;
        uint32_t time = 777;
        uint32_t pts = 7777;
        if (libAVRecordPlayBackGetPSFrame(file.fd(), &offset, &kind, buffer, &length, &time, &pts) != 0) {
            MUST(offset == before && kind == -7 && length == 77 && time == 777 && pts == 7777);
            return;
        }
        MUST(kind == AV_FRAME_TYPE_VIDEO || kind == AV_FRAME_TYPE_AUDIO);
        MUST(length <= PLAYBACK_BUFFER_SIZE);
        MUST(offset > before && (offset <= size || offset - before == PS_KEY_FRAME_HEADERS));
        MUST(kind == AV_FRAME_TYPE_VIDEO || time == 777);
        const uint32_t head = offset - before - length;  // what is no payload
        const auto packets_behind = [head](uint32_t first) {
            return head >= first && (head - first) % PS_PES_HEADER_SIZE == 0;
        };
        MUST(kind == AV_FRAME_TYPE_AUDIO ? head == PS_PES_HEADER_SIZE
                                         : packets_behind(PS_PACK_HEADER_SIZE) || packets_behind(PS_KEY_FRAME_HEADERS));
        const bool one_packet = head == PS_PES_HEADER_SIZE || head == PS_PACK_HEADER_SIZE + PS_PES_HEADER_SIZE ||
                                head == PS_KEY_FRAME_HEADERS + PS_PES_HEADER_SIZE;
        uint8_t last = 0;  // byte of it: no later packet, which may be empty, has another
        MUST(!one_packet || length == 0 || (file.Read(offset - 1, &last, 1) == 1 && last == buffer[length - 1]));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    static const std::unique_ptr<uint8_t[]> buffer(new uint8_t[PLAYBACK_BUFFER_SIZE]);
    fuzz::Input in(data, size);
    const uint32_t start = in.Byte();
    const std::vector<uint8_t>& stream = fuzz::LayStream(in);
    file.Replace(stream);
    ReadFrom(file, stream.size(), 0, buffer.get());
    ReadFrom(file, stream.size(), start, buffer.get());
    return 0;
}
