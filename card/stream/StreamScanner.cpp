#include "stream/StreamScanner.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace card {

namespace {

using record_file::kStreamHead;
using record_file::kStreamHeadSize;

constexpr size_t kBufferSize = 1u << 20;
constexpr uint8_t kPackCode = 0xBA;
constexpr uint8_t kSystemCode = 0xBB;
constexpr uint8_t kMapCode = 0xBC;
constexpr uint8_t kVideoId = 0xE0;
constexpr uint8_t kAudioId = 0xC0;

constexpr uint8_t kPackMark[] = {0, 0, 1, kPackCode};
constexpr uint8_t kSystemHeader[PS_SYSTEM_HEADER_SIZE] = {0x00, 0x00, 0x01, 0xBB, 0x00, 0x0C, 0x82, 0x73, 0x31,
                                                          0x04, 0xE1, 0x7F, 0xE0, 0xE0, 0x80, 0xC0, 0xC0, 0x08};

bool HasCode(const uint8_t* at, uint8_t code) {
    return at[0] == 0 && at[1] == 0 && at[2] == 1 && at[3] == code;
}

uint32_t Little16(const uint8_t* at) {
    return at[0] | at[1] << 8;
}
uint32_t Big16(const uint8_t* at) {
    return at[0] << 8 | at[1];
}
uint32_t Little32(const uint8_t* at) {
    return Little16(at) | Little16(at + 2) << 16;
}

bool GoodPack(const uint8_t* at) {
    return HasCode(at, kPackCode) && (at[4] & 0xC4) == 0x44 && (at[6] & 0x04) != 0 && (at[8] & 0x07) == 0x04 &&
           at[9] == 0x01 && at[10] == 0x00 && at[11] == 0xA0 && at[12] == 0x03 && at[13] == 0xFC;
}

uint64_t PackClock(const uint8_t* at) {
    return uint64_t{at[4] & 0x38u} << 27 | uint64_t{at[4] & 0x03u} << 28 | uint64_t{at[5]} << 20 |
           uint64_t{at[6] & 0xF8u} << 12 | uint64_t{at[6] & 0x03u} << 13 | uint64_t{at[7]} << 5 | at[8] >> 3;
}

bool GoodPacket(const uint8_t* at, uint8_t stream_id) {
    const uint32_t length = Big16(at + 4);
    return HasCode(at, stream_id) && (length == 0 || length >= 8) && at[6] == 0x80 && at[7] == 0x80 && at[8] == 5 &&
           (at[9] & 0xF1) == 0x21 && (at[11] & 0x01) != 0 && (at[13] & 0x01) != 0;
}

uint64_t PacketClock(const uint8_t* at) {
    return uint64_t{at[9] & 0x0Eu} << 29 | uint64_t{at[10]} << 22 | uint64_t{at[11] & 0xFEu} << 14 |
           uint64_t{at[12]} << 7 | at[13] >> 1;
}

// The constant bytes of a program stream map, with the parameters' places blanked.
bool GoodMap(const uint8_t* at) {
    static constexpr uint8_t kVideoTail[5] = {0x08, 0x1F, 0xFE, 0xF0, 0x87};
    static constexpr uint8_t kAudioTail[12] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x05, 0x07, 0x08};
    static constexpr uint8_t kFront[8] = {0x00, 0x2A, 0xE1, 0xFF, 0x00, 0x00, 0x00, 0x20};
    return HasCode(at, kMapCode) && std::memcmp(at + 4, kFront, sizeof kFront) == 0 &&
           (at[12] == record_file::kStreamH264 || at[12] == record_file::kStreamH265) && at[13] == kVideoId &&
           Big16(at + 14) == 12 && std::memcmp(at + 23, kVideoTail, sizeof kVideoTail) == 0 && at[29] == kAudioId &&
           Big16(at + 30) == 12 && std::memcmp(at + 36, kAudioTail, sizeof kAudioTail) == 0;
}

StreamParameters ParametersOf(const uint8_t* map) {
    StreamParameters parameters;
    parameters.video_type = map[12];
    parameters.width = static_cast<uint16_t>(Little16(map + 16));
    parameters.height = static_cast<uint16_t>(Little16(map + 18));
    parameters.video_bit_rate = static_cast<uint16_t>(Little16(map + 20));
    parameters.frame_rate = map[22];
    parameters.audio_type = map[28];
    parameters.sample_rate = static_cast<uint16_t>(Little16(map + 32));
    parameters.audio_bit_rate = static_cast<uint16_t>(Little16(map + 34));
    return parameters;
}

// First place in `bytes` of a mark's first four; `length` when there is none.  The last of them is looked for first:
// zeros, of which an unused file consists, are passed at memory's speed.
size_t FindMark(const uint8_t* bytes, size_t length, const uint8_t* mark) {
    for (size_t at = 3; at < length; ++at) {
        const void* found = std::memchr(bytes + at, mark[3], length - at);
        if (found == nullptr) return length;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes);
        if (std::memcmp(bytes + at - 3, mark, 4) == 0) return at - 3;
    }
    return length;
}

// A header of this stream begins in a payload: neither coded pictures (their start codes are followed by smaller
// values) nor sound can hold one by chance.  `readable`: bytes that may be looked at, `length` of them the payload.
bool HasHeaderInside(const uint8_t* bytes, size_t length, size_t readable) {
    if (readable < PS_PACK_HEADER_SIZE) return false;
    const uint8_t* const end = bytes + std::min(length, readable - PS_PACK_HEADER_SIZE + 1);  // of where one may begin
    for (const uint8_t* one = bytes + 2; one < end + 2; ++one) {  // a start code's last byte is rarer than its zeros
        one = static_cast<const uint8_t*>(std::memchr(one, 1, static_cast<size_t>(end + 2 - one)));
        if (one == nullptr) return false;
        if (GoodPack(one - 2) || GoodPacket(one - 2, kVideoId) || GoodPacket(one - 2, kAudioId)) return true;
    }
    return false;
}

}  // namespace

std::optional<uint32_t> PictureTimeAt(const uint8_t* bytes, size_t length) {
    if (length < PS_PACK_HEADER_SIZE + 4 || !GoodPack(bytes)) return std::nullopt;
    const uint8_t* next = bytes + PS_PACK_HEADER_SIZE;
    if (!HasCode(next, kSystemCode) && !HasCode(next, kVideoId)) return std::nullopt;
    return Little32(bytes + 14);
}

uint64_t StreamFrame::PayloadSize() const {
    uint64_t sum = 0;
    for (const Payload& piece : payload) sum += piece.length;
    return sum;
}

const char* GarbageText(Garbage::Reason reason) {
    switch (reason) {
        case Garbage::Reason::NoHeader:
            return "no frame begins here";
        case Garbage::Reason::BadPack:
            return "the pack header is damaged";
        case Garbage::Reason::BadSystem:
            return "the key frame's system header or stream map is damaged";
        case Garbage::Reason::BadPacket:
            return "a packet header is damaged";
        case Garbage::Reason::MixedClock:
            return "the packets of one frame disagree about its clock";
        case Garbage::Reason::CutOff:
            return "the frame is cut off";
        case Garbage::Reason::Torn:
            return "the frame is torn, and another one shows inside of it";
    }
    return "";
}

StreamScanner::StreamScanner(ReadAtFunction read, uint64_t begin, uint64_t end)
    : read_(std::move(read)), end_(end), position_(std::min(begin, end)) {}

void StreamScanner::Seek(uint64_t position) {
    position_ = std::min(position, end_);
    time_ = 0;
}

// The bytes at `offset`, read ahead as far as the buffer goes; null when the source or range ends before.
const uint8_t* StreamScanner::Bytes(uint64_t offset, size_t length) {
    if (offset > end_ || length > end_ - offset) return nullptr;
    if (offset < buffer_offset_ || offset + length > buffer_offset_ + buffer_length_) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(kBufferSize, end_ - offset));
        if (buffer_.size() < wanted) buffer_.resize(wanted);
        buffer_offset_ = offset;
        buffer_length_ = read_(offset, buffer_.data(), wanted);
        if (buffer_length_ < wanted) end_ = offset + buffer_length_;  // the source is shorter than the range
        if (length > buffer_length_) return nullptr;
    }
    return buffer_.data() + (offset - buffer_offset_);
}

StreamScanner::Found StreamScanner::Next() {
    if (position_ >= end_) return Found::End;
    const uint8_t* at = Bytes(position_, 4);
    if (at == nullptr) return position_ >= end_ ? Found::End : SkipGarbage(Garbage::Reason::CutOff);
    if (HasCode(at, kPackCode) || HasCode(at, kAudioId)) return TakeFrame();
    if (std::memcmp(at, kStreamHead, 4) == 0) {
        const uint8_t* head = Bytes(position_, kStreamHeadSize);
        if (head == nullptr) return SkipGarbage(Garbage::Reason::CutOff);
        if (std::memcmp(head, kStreamHead, kStreamHeadSize) == 0) {
            stream_head_ = position_;
            position_ += kStreamHeadSize;
            return Found::StreamHead;
        }
    }
    return SkipGarbage(Garbage::Reason::NoHeader);
}

StreamScanner::Found StreamScanner::TakeFrame() {
    std::vector<Payload> payload = std::move(frame_.payload);  // keeps its room
    payload.clear();
    frame_ = StreamFrame{};
    frame_.payload = std::move(payload);
    frame_.offset = position_;
    const bool video = Bytes(position_, 4)[3] == kPackCode;
    frame_.kind = video ? StreamFrame::Kind::Video : StreamFrame::Kind::Audio;
    if (const auto reason = video ? TakeVideo() : TakeAudio()) return SkipGarbage(*reason);
    time_ = frame_.time;
    position_ = frame_.End();
    return Found::Frame;
}

std::optional<Garbage::Reason> StreamScanner::TakeVideo() {
    const uint8_t* pack = Bytes(position_, PS_PACK_HEADER_SIZE);
    if (pack == nullptr) return Garbage::Reason::CutOff;
    if (!GoodPack(pack)) return Garbage::Reason::BadPack;
    frame_.time = Little32(pack + 14);
    const uint64_t clock = PackClock(pack);
    uint64_t at = position_ + PS_PACK_HEADER_SIZE;
    const uint8_t* next = Bytes(at, 4);
    if (next == nullptr) return Garbage::Reason::CutOff;
    frame_.key = HasCode(next, kSystemCode);
    if (frame_.key) {
        if (const auto reason = TakeKeyHeaders(at)) return reason;
    } else if (!HasCode(next, kVideoId)) {
        // An access unit without a byte, as an early recorder wrote it, is a pack header alone.
        const bool alone = HasCode(next, kPackCode) || HasCode(next, kAudioId) ||
                           std::memcmp(next, kStreamHead, sizeof(uint32_t)) == 0;
        if (!alone) return Garbage::Reason::BadPacket;
    }
    frame_.pts = clock;
    if (const auto reason = TakePackets(kVideoId, at, false)) return reason;
    frame_.size = at - position_;
    if (frame_.payload.empty()) frame_.pts = 0;
    return std::nullopt;
}

std::optional<Garbage::Reason> StreamScanner::TakeKeyHeaders(uint64_t& at) {
    const uint8_t* headers = Bytes(at, PS_SYSTEM_HEADER_SIZE + PS_MAP_SIZE);
    if (headers == nullptr) return Garbage::Reason::CutOff;
    const uint8_t* map = headers + PS_SYSTEM_HEADER_SIZE;
    if (std::memcmp(headers, kSystemHeader, sizeof kSystemHeader) != 0 || !GoodMap(map)) {
        return Garbage::Reason::BadSystem;
    }
    frame_.parameters = ParametersOf(map);
    at += PS_SYSTEM_HEADER_SIZE + PS_MAP_SIZE;
    return std::nullopt;
}

std::optional<Garbage::Reason> StreamScanner::TakeAudio() {
    const uint8_t* packet = Bytes(position_, PS_PES_HEADER_SIZE);
    if (packet == nullptr) return Garbage::Reason::CutOff;
    if (!GoodPacket(packet, kAudioId)) return Garbage::Reason::BadPacket;
    frame_.pts = PacketClock(packet);
    frame_.time = time_;
    uint64_t at = position_;
    if (const auto reason = TakePackets(kAudioId, at, true)) return reason;
    frame_.size = at - position_;
    return std::nullopt;
}

// Takes the packets of `stream_id` from `at` on, one or all; every one must carry the frame's clock.
std::optional<Garbage::Reason> StreamScanner::TakePackets(uint8_t stream_id, uint64_t& at, bool one) {
    do {
        const uint8_t* code = Bytes(at, 4);
        if (code == nullptr || !HasCode(code, stream_id)) return std::nullopt;
        const uint8_t* packet = Bytes(at, PS_PES_HEADER_SIZE);
        if (packet == nullptr) return Garbage::Reason::CutOff;
        if (!GoodPacket(packet, stream_id)) return Garbage::Reason::BadPacket;
        if (PacketClock(packet) != frame_.pts) return Garbage::Reason::MixedClock;
        const uint32_t length = Big16(packet + 4) == 0 ? 0 : Big16(packet + 4) - 8;
        const uint64_t begin = at + PS_PES_HEADER_SIZE;
        if (length > end_ - begin) return Garbage::Reason::CutOff;
        const size_t readable = static_cast<size_t>(std::min<uint64_t>(length + PS_PACK_HEADER_SIZE, end_ - begin));
        const uint8_t* payload = Bytes(begin, readable);
        if (payload == nullptr) return Garbage::Reason::CutOff;
        if (HasHeaderInside(payload, length, readable)) return Garbage::Reason::Torn;
        frame_.payload.push_back({begin, length});
        at = begin + length;
    } while (!one);
    return std::nullopt;
}

bool StreamScanner::PlausibleStart(uint64_t offset) {
    if (const uint8_t* head = Bytes(offset, kStreamHeadSize)) {
        if (std::memcmp(head, kStreamHead, kStreamHeadSize) == 0) return true;
    }
    const uint8_t* pack = Bytes(offset, PS_PACK_HEADER_SIZE + 4);
    return pack != nullptr && GoodPack(pack) &&
           (HasCode(pack + PS_PACK_HEADER_SIZE, kSystemCode) || HasCode(pack + PS_PACK_HEADER_SIZE, kVideoId));
}

// The next place at or after `from` where a run or video frame plausibly begins; the end when none does.
uint64_t StreamScanner::NextStart(uint64_t from) {
    while (from < end_) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(kBufferSize, end_ - from));
        if (Bytes(from, 1) == nullptr) break;
        const uint8_t* bytes = buffer_.data() + (from - buffer_offset_);
        const size_t length = std::min<size_t>(wanted, buffer_length_ - static_cast<size_t>(from - buffer_offset_));
        const size_t pack = FindMark(bytes, length, kPackMark);
        const size_t start = std::min(pack, FindMark(bytes, std::min(length, pack + 4), kStreamHead));
        if (start < length) {
            if (PlausibleStart(from + start)) return from + start;
            from += start + 1;
        } else {
            from += length > 3 && from + length < end_ ? length - 3 : length;  // a start code may lie across
        }
    }
    return end_;
}

StreamScanner::Found StreamScanner::SkipGarbage(Garbage::Reason reason) {
    const uint64_t next = NextStart(position_ + 1);
    garbage_ = {position_, next - position_, reason};
    position_ = next;
    return Found::Garbage;
}

bool StreamScanner::ReadPayload(const StreamFrame& frame, std::vector<uint8_t>& bytes, size_t limit) const {
    bytes.resize(static_cast<size_t>(std::min<uint64_t>(frame.PayloadSize(), limit)));
    size_t done = 0;
    for (const Payload& piece : frame.payload) {
        const size_t length = std::min<size_t>(piece.length, bytes.size() - done);
        if (length == 0) break;
        if (read_(piece.offset, bytes.data() + done, length) != length) return false;
        done += length;
    }
    return true;
}

}  // namespace card
