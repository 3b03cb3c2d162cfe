#include "Reader.h"

#include <algorithm>
#include <cstring>

namespace cuts {
namespace {

constexpr uint32_t kFrameMax = 614400;
constexpr uint32_t kKeyFrameAt = 0x100000;  // as SmallFiles.h has it
constexpr uint32_t kNotInOrder = 60;        // s that a frame's time may go back

uint32_t Word(const uint8_t* at) {
    return at[0] | at[1] << 8 | at[2] << 16 | static_cast<uint32_t>(at[3]) << 24;
}
uint32_t Half(const uint8_t* at) {
    return at[0] | static_cast<uint32_t>(at[1]) << 8;
}

bool IsStart(const uint8_t* at, uint8_t code) {
    return at[0] == 0 && at[1] == 0 && at[2] == 1 && at[3] == code;
}

bool IsPack(const uint8_t* at) {
    return IsStart(at, 0xBA) && std::memcmp(at + 10, "\x00\xA0\x03\xFC", 4) == 0;
}

// After the packet at `at`; 0: there is none.
uint32_t PacketEnd(const uint8_t* bytes, uint32_t at, uint32_t end, uint8_t code) {
    if (at + 14 > end || !IsStart(bytes + at, code)) return 0;
    const uint32_t length = bytes[at + 4] * 256u + bytes[at + 5];
    if (bytes[at + 6] != 0x80 || bytes[at + 7] != 0x80 || bytes[at + 8] != 5 || length < 8) return 0;
    const uint32_t behind = at + 6 + length;
    if (behind > end) return 0;
    const uint32_t last = std::min(behind + 17, end);  // byte of a pack header that begins inside
    for (uint32_t one = at + 14 + 2; one + 15 < last; ++one) {
        const void* const found = std::memchr(bytes + one, 1, last - 15 - one);
        if (found == nullptr) break;
        one = static_cast<uint32_t>(static_cast<const uint8_t*>(found) - bytes);
        if (IsPack(bytes + one - 2)) return 0;  // torn
    }
    return behind;
}

uint32_t TimeOf(const uint8_t* pack) {
    return Word(pack + 14);
}
uint64_t ClockOf(const uint8_t* pack) {
    const uint8_t* b = pack + 4;
    return static_cast<uint64_t>(b[0] >> 3 & 7) << 30 | static_cast<uint64_t>(b[0] & 3) << 28 |
           static_cast<uint64_t>(b[1]) << 20 | static_cast<uint64_t>(b[2] >> 3) << 15 |
           static_cast<uint64_t>(b[2] & 3) << 13 | static_cast<uint64_t>(b[3]) << 5 | b[4] >> 3;
}

struct Section {
    uint32_t start, position, size, first_key;
    uint32_t end;  // of its bytes, that of a later section which begins inside of it taken off
};

struct FileHead {
    uint32_t start, length, sections, key_frames;
};

// The tests of the heads.
bool Counts(const Section& section, bool is_last, const FileHead& file) {
    const uint64_t end = uint64_t{section.position} + section.size;
    if (end > uint64_t{file.length} + (is_last ? kKeyFrameAt : kFrameMax) || section.position > file.length ||
        section.start < file.start)
        return false;
    // Of a section that is ahead, or once was, the last records are the next one's, or nobody's.
    return section.first_key % 20 == 0 && section.first_key / 20 <= file.key_frames;
}

// The last one: the stream at its position.
bool IsThere(const Section& section, const uint8_t* stream) {
    const uint8_t* const head = stream + section.position;
    const uint8_t* const pack = head + kStreamHeadBytes;
    const auto is_key = [&](const uint8_t* at) {
        return IsPack(at) && IsStart(at + 18, 0xBB) && ClockOf(at) >= 3600 && TimeOf(at) >= section.start;
    };
    return is_key(head) || (IsStreamHead(head) && is_key(pack));
}

std::vector<Section> SectionsOf(const uint8_t* block, uint32_t n, const FileHead& file, const uint8_t* stream,
                                uint32_t& claimed) {
    std::vector<Section> found;
    for (uint32_t u = 1; u <= file.sections; ++u) {
        const uint8_t* const at = block + 64 * u;
        if (std::memcmp(at, "RIHF", 4) != 0 || Half(at + 12) != n || Half(at + 14) != u) continue;
        Section section{Word(at + 4), Word(at + 16), Word(at + 20), Word(at + 32), 0};
        if (!Counts(section, u == file.sections, file)) continue;
        section.end = section.position + section.size;
        claimed = std::max(claimed, section.end);
        if (!IsThere(section, stream)) continue;
        if (!found.empty() && section.position < found.back().end) {
            if (section.position < found.back().position) continue;
            found.back().end = section.position;  // the camera went on on the frame that its file head did not count
        }
        found.push_back(section);
    }
    return found;
}

// The frames of a section whose clock and time go on; behind damage the next pack header that fits.
void Walk(const Section& section, uint32_t n, const uint8_t* stream, std::vector<Listed>& frames) {
    uint64_t clock = 0;
    uint32_t time = section.start;
    bool sound_counts = false;
    const uint32_t head = IsStreamHead(stream + section.position) ? kStreamHeadBytes : 0;
    for (uint32_t at = section.position + head; at < section.end;) {
        const uint32_t length = FrameLength(stream, at, section.end);
        if (length == 0) {
            sound_counts = false;
            ++at;
            continue;
        }
        const bool is_video = IsPack(stream + at);
        bool counts = sound_counts;
        if (is_video) {
            const uint64_t now = ClockOf(stream + at);
            counts = now > clock && TimeOf(stream + at) + kNotInOrder >= time;
            if (counts) clock = now, time = TimeOf(stream + at);
            sound_counts = counts;
        }
        if (counts) frames.push_back({n, at, length});
        at += length;
    }
}

}  // namespace

bool IsStreamHead(const uint8_t* at) {
    static constexpr uint8_t kHead[kStreamHeadBytes] = {'I', 'M', 'K',  'H', 1,    2,    0,    0, 2, 0, 0,
                                                        1,   1,   0x20, 1,   0x10, 0x80, 0xBB, 0, 0, 0, 0xFA};
    return std::memcmp(at, kHead, sizeof kHead) == 0;
}

uint32_t FrameLength(const uint8_t* bytes, uint32_t at, uint32_t end) {
    const uint32_t begin = at;
    if (at + 4 > end) return 0;
    if (const uint32_t behind = PacketEnd(bytes, at, end, 0xC0); behind != 0) return behind - begin;
    if (at + 18 > end || !IsPack(bytes + at)) return 0;
    at += 18;
    if (at + 66 <= end && IsStart(bytes + at, 0xBB)) {
        if (!IsStart(bytes + at + 18, 0xBC)) return 0;
        at += 66;
    }
    const uint32_t packets = at;
    for (uint32_t behind; (behind = PacketEnd(bytes, at, end, 0xE0)) != 0;) at = behind;
    // A packet that is cut off is damage of its frame.
    const bool is_cut = at + 4 <= end && IsStart(bytes + at, 0xE0);
    return at > packets && !is_cut ? at - begin : 0;
}

uint32_t Listing::LengthAt(uint32_t file, uint32_t offset) const {
    const auto at = std::lower_bound(frames.begin(), frames.end(), Listed{file, offset, 0});
    return at != frames.end() && at->file == file && at->offset == offset ? at->length : 0;
}

Listing ReadCard(const Medium& medium) {
    const uint8_t* const index = medium.File(kIndex).data();
    Listing listing;
    const uint32_t count = Word(index + 20);
    listing.is_card = std::memcmp(index, "SIHF", 4) == 0 && Word(index + 4) == 1 && count == medium.RecordFiles();
    listing.current = Word(index + 28);
    listing.claimed.resize(medium.RecordFiles());
    if (!listing.is_card) return listing;
    for (uint32_t n = 0; n < count; ++n) {
        const uint8_t* const at = index + 1024 + 48 * n;
        const FileHead file{Word(at + 8), Word(at + 16), Word(at + 24), Word(at + 28)};
        if (std::memcmp(at, "RFHF", 4) != 0 || Word(at + 4) != n || file.length > kKeyFrameAt || file.sections < 1 ||
            file.sections > 251) {
            continue;
        }
        const uint8_t* const stream = medium.File(kRecord + static_cast<int>(n)).data();
        listing.claimed[n] = file.length;
        for (const Section& section : SectionsOf(index + 131072 + 16384 * n, n, file, stream, listing.claimed[n])) {
            Walk(section, n, stream, listing.frames);
        }
    }
    return listing;
}

}  // namespace cuts
