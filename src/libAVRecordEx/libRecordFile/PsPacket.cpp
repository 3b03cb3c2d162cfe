// Wraps frames as program stream packets, into the caller's buffer.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>

#include "PsFields.h"
#include "libLog.h"
#include "libRecordFile.h"

using namespace record_file;

namespace {

constexpr uint32_t kMuxRate = 10240;
constexpr uint32_t kRateBound = 80280;
constexpr uint16_t kVideoBufferBound = 128;
constexpr uint16_t kAudioBufferBound = 8;
constexpr int kLargeFrame = 65536;  // a frame of this size or more is worth a line in the log

enum StreamId : uint8_t { kVideoStream = 0xE0, kAudioStream = 0xC0 };

static_assert(PS_KEY_FRAME_HEADERS == sizeof(PS_HEADER_tag) + sizeof(Ps_System_Header_tag) + sizeof(PSM_tag));
static_assert(PS_PES_HEADER_SIZE == sizeof(PES_HEADER_tag) + sizeof(PTS_tag));
static_assert(PS_AUDIO_PAYLOAD_MAX + kPesLengthBase == UINT16_MAX);

// 90 kHz.  Single precision on purpose: the players of this format form the same value.
uint64_t Clock(uint32_t frame_index) {
    const float a_frame = static_cast<float>(90000.0 / 25);
    return static_cast<uint64_t>(a_frame * static_cast<float>(frame_index));
}

// ---- Headers as values.  Each Get/Set pair walks the one field list of PsFields.h.

PackHeader Unpack(const PS_HEADER_tag& raw) {
    PackHeader header;
    BitReader bits(&raw);
    WalkPackHeader(bits, header);
    return header;
}

SystemHeader Unpack(const Ps_System_Header_tag& raw) {
    SystemHeader header;
    BitReader bits(&raw);
    WalkSystemHeader(bits, header);
    return header;
}

PresentationTime Unpack(const PTS_tag& raw) {
    PresentationTime time;
    BitReader bits(&raw);
    WalkPresentationTime(bits, time);
    return time;
}

void Pack(void* out, const PackHeader& header) {
    BitWriter bits(out);
    WalkPackHeader(bits, header);
}

void Pack(void* out, const SystemHeader& header) {
    BitWriter bits(out);
    WalkSystemHeader(bits, header);
}

void Pack(void* out, const StreamMap& map) {
    BitWriter bits(out);
    WalkStreamMap(bits, map);
}

void Pack(void* out, const PesHeader& header) {
    BitWriter bits(out);
    WalkPesHeader(bits, header);
}

void Pack(void* out, const PresentationTime& time) {
    BitWriter bits(out);
    WalkPresentationTime(bits, time);
}

template <class Raw, class Change>
void Modify(Raw* raw, Change change) {
    auto header = Unpack(*raw);
    change(header);
    Pack(raw, header);
}

template <class Raw, class Header>
int Init(Raw* raw) {
    if (raw == nullptr) {
        return -1;
    }
    Pack(raw, Header{});
    return 0;
}

uint8_t AudioStreamType(uint16_t codec) {
    switch (codec) {
        case CODE_AUDIO_AAC:
            return 0x0F;
        case CODE_AUDIO_G711U:
            return 0x91;
        case CODE_AUDIO_G711A:
            return 0x90;
        default:
            return 0;
    }
}

// ---- Frames

// Packed size of `length` payload bytes, cut into packets.
constexpr int64_t PacketsSize(int length) {
    const int64_t packets = (int64_t{length} + PS_PES_PAYLOAD_MAX - 1) / PS_PES_PAYLOAD_MAX;
    return length + packets * PS_PES_HEADER_SIZE;
}

// What a key frame is cut into: up to three stretches of it, each beginning with a start code.
struct Pieces {
    std::array<int, 4> border{};  // piece i is [border[i], border[i + 1])
    int count = 0;
};

Pieces CutKeyFrame(const uint8_t* frame, int length) {
    constexpr int kStartCode = 4;  // 00 00 00 01
    Pieces pieces;
    const uint8_t* const end = frame + std::max(length - 1, 0);  // a code's last byte lies before this
    const uint8_t* at = frame + std::min(kStartCode - 1, length);
    while (pieces.count < 3 && at < end) {
        at = static_cast<const uint8_t*>(std::memchr(at, 1, static_cast<size_t>(end - at)));
        if (at == nullptr) {
            break;
        }
        if (at[-1] == 0 && at[-2] == 0 && at[-3] == 0) {
            pieces.border[pieces.count++] = static_cast<int>(at - frame) - (kStartCode - 1);
        }
        ++at;
    }
    pieces.border[pieces.count] = length;
    return pieces;
}

int64_t PiecesSize(const Pieces& pieces) {
    int64_t size = PS_KEY_FRAME_HEADERS;
    for (int i = 0; i < pieces.count; ++i) {
        size += PacketsSize(pieces.border[i + 1] - pieces.border[i]);
    }
    return size;
}

int MakePackets(const void* payload, int length, void* out, uint32_t frame_index, int kind) {
    if (payload == nullptr || out == nullptr || length < 0 || PacketsSize(length) > INT_MAX) {
        return -1;
    }
    const auto* from = static_cast<const uint8_t*>(payload);
    auto* const begin = static_cast<uint8_t*>(out);
    auto* to = begin;
    for (int left = length; left > 0;) {
        const int piece = std::min(left, PS_PES_PAYLOAD_MAX);
        const int header = make_pes_packet_header(to, frame_index, kind, 0, piece);
        if (header < 0) {
            return -1;
        }
        std::memcpy(to + header, from, static_cast<size_t>(piece));
        to += header + piece;
        from += piece;
        left -= piece;
    }
    return static_cast<int>(to - begin);
}

}  // namespace

// ---- header records

int PS_HEADER_tag_Init(PS_HEADER_tag* header) {
    return Init<PS_HEADER_tag, PackHeader>(header);
}
int Ps_System_Header_tag_Init(Ps_System_Header_tag* header) {
    return Init<Ps_System_Header_tag, SystemHeader>(header);
}
int PES_HEADER_tag_Init(PES_HEADER_tag* header) {
    return Init<PES_HEADER_tag, PesHeader>(header);
}
int PTS_tag_Init(PTS_tag* pts) {
    return Init<PTS_tag, PresentationTime>(pts);
}

int PSM_tag_Init(PSM_tag* map, const AVStreamParam* param) {
    if (map == nullptr || param == nullptr) {
        return -1;
    }
    StreamMap made;
    made.video_stream_type = param->m_u8VedioCodeType == CODE_VIDEO_H265 ? 0x24 : 0x1B;
    made.vedio_width = param->m_u16VedioWidth;
    made.vedio_height = param->m_u16VedioHeight;
    made.vedio_Bit_rate = param->m_u16VedioBitRate;
    made.vedio_frame_rate = static_cast<uint8_t>(param->m_u16VedioFrame);
    made.audio_stream_type = AudioStreamType(param->m_u8AudioCodeType);
    made.audio_samplerate = param->m_u16AudioSampleRate;
    made.audio_bitrate = param->m_u16AudioBitRate;
    Pack(map, made);
    return 0;
}

uint64_t PS_HEADER_tag_GetSystem_clock_reference_base(const PS_HEADER_tag* header) {
    return Unpack(*header).system_clock_reference_base;
}

void PS_HEADER_tag_SetSystem_clock_reference_base(PS_HEADER_tag* header, uint64_t base) {
    Modify(header, [base](PackHeader& h) { h.system_clock_reference_base = base; });
}

uint32_t PS_HEADER_tag_GetProgram_mux_rate(const PS_HEADER_tag* header) {
    return Unpack(*header).program_mux_rate;
}

void PS_HEADER_tag_SetProgram_mux_rate(PS_HEADER_tag* header, uint32_t rate) {
    Modify(header, [rate](PackHeader& h) { h.program_mux_rate = rate; });
}

uint32_t Ps_System_Header_tag_GetRateBound(const Ps_System_Header_tag* header) {
    return Unpack(*header).rate_bound;
}

void Ps_System_Header_tag_SetRateBound(Ps_System_Header_tag* header, uint32_t bound) {
    Modify(header, [bound](SystemHeader& h) { h.rate_bound = bound; });
}

void Ps_System_Header_tag_SetPstdBufSizeBound1(Ps_System_Header_tag* header, uint32_t bound) {
    Modify(header, [bound](SystemHeader& h) { h.video_buffer_size_bound = static_cast<uint16_t>(bound); });
}

void Ps_System_Header_tag_SetPstdBufSizeBound2(Ps_System_Header_tag* header, uint32_t bound) {
    Modify(header, [bound](SystemHeader& h) { h.audio_buffer_size_bound = static_cast<uint16_t>(bound); });
}

uint64_t PTS_Tag_GetPTS(const PTS_tag* pts) {
    return Unpack(*pts).PTS;
}

void PTS_Tag_SetPTS(PTS_tag* pts, uint64_t value) {
    Modify(pts, [value](PresentationTime& time) { time.PTS = value; });
}

// ---- single headers in the stream

int make_ps_packet_header(void* out, uint32_t frame_index, int, uint32_t time) {
    if (out == nullptr) {
        return -1;
    }
    PackHeader header;
    header.system_clock_reference_base = Clock(frame_index);
    header.program_mux_rate = kMuxRate;
    header.frame_time = time;
    Pack(out, header);
    return PS_PACK_HEADER_SIZE;
}

int make_sys_packet_header(void* out) {
    if (out == nullptr) {
        return -1;
    }
    SystemHeader header;
    header.rate_bound = kRateBound;
    header.video_buffer_size_bound = kVideoBufferBound;
    header.audio_buffer_size_bound = kAudioBufferBound;
    Pack(out, header);
    return PS_SYSTEM_HEADER_SIZE;
}

int make_pes_packet_header(void* out, uint32_t frame_index, int kind, int, int payload_length) {
    if (out == nullptr || payload_length < 0 || payload_length > PS_AUDIO_PAYLOAD_MAX ||
        (kind != AV_FRAME_TYPE_VIDEO && kind != AV_FRAME_TYPE_AUDIO)) {
        return -1;
    }
    PesHeader header;
    header.stream_id = kind == AV_FRAME_TYPE_VIDEO ? kVideoStream : kAudioStream;
    header.PES_packet_length = static_cast<uint16_t>(payload_length == 0 ? 0 : payload_length + kPesLengthBase);
    Pack(out, header);
    PresentationTime time;
    time.PTS = Clock(frame_index);
    Pack(static_cast<uint8_t*>(out) + sizeof(PES_HEADER_tag), time);
    return PS_PES_HEADER_SIZE;
}

// ---- frames

int make_iframe_pes_packet(const void* payload, int length, void* out, uint32_t frame_index, int kind) {
    return MakePackets(payload, length, out, frame_index, kind);
}

int make_Pframe_pes_packet(const void* payload, int length, void* out, uint32_t frame_index, int kind) {
    return MakePackets(payload, length, out, frame_index, kind);
}

int makeIFrameHeader(const void* frame, int length, void* out, uint32_t frame_index, int kind,
                     const AVStreamParam* param, uint32_t time) {
    if (frame == nullptr || out == nullptr) {
        printf("%s %d NULL\n", __func__, __LINE__);
        return -1;
    }
    if (length < 0 || param == nullptr) {
        return -1;
    }
    const auto* const from = static_cast<const uint8_t*>(frame);
    const Pieces pieces = CutKeyFrame(from, length);
    if (PiecesSize(pieces) > INT_MAX) {
        return -1;
    }
    auto* const begin = static_cast<uint8_t*>(out);
    auto* to = begin;
    to += make_ps_packet_header(to, frame_index, 0, time);
    to += make_sys_packet_header(to);
    PSM_tag map;
    PSM_tag_Init(&map, param);
    std::memcpy(to, &map, sizeof map);  // `to` is aligned for nothing
    to += sizeof map;
    for (int i = 0; i < pieces.count; ++i) {
        const int border = pieces.border[i];
        const int packets = make_iframe_pes_packet(from + border, pieces.border[i + 1] - border, to, frame_index, kind);
        if (packets < 0) {
            return -1;
        }
        to += packets;
    }
    return static_cast<int>(to - begin);
}

int makePFrameHeader(const void* frame, int length, void* out, uint32_t frame_index, int kind, uint32_t time) {
    if (frame == nullptr || out == nullptr) {
        printf("%s %d NULL\n", __func__, __LINE__);
        return -1;
    }
    if (PackedVideoSize(false, frame, length) < 0) {
        return -1;
    }
    if (length >= kLargeFrame) {
        LOG_TRACE(" ####################################################### uiDataLen =  %d\n", length);
    }
    auto* const begin = static_cast<uint8_t*>(out);
    const int head = make_ps_packet_header(begin, frame_index, 0, time);
    const int packets = make_Pframe_pes_packet(frame, length, begin + head, frame_index, kind);
    return packets < 0 ? -1 : head + packets;
}

int makePFrameHeader2(void* out, uint32_t frame_index, int kind, int payload_length, uint32_t time) {
    const int head = make_ps_packet_header(out, frame_index, 0, time);
    if (head < 0) {
        return -1;
    }
    const int packet = make_pes_packet_header(static_cast<uint8_t*>(out) + head, frame_index, kind, 0, payload_length);
    return packet < 0 ? -1 : head + packet;
}

int makeAudioFrameHeader(void* out, uint32_t frame_index, int kind, int payload_length) {
    return make_pes_packet_header(out, frame_index, kind, 0, payload_length);
}

int libAVRecordVideoPsStreamWrite(int is_key, const void* frame, int length, void* out, uint32_t frame_index,
                                  const AVStreamParam* param, uint32_t time) {
    if (frame == nullptr || out == nullptr) {
        return -1;
    }
    return is_key != 0 ? makeIFrameHeader(frame, length, out, frame_index, AV_FRAME_TYPE_VIDEO, param, time)
                       : makePFrameHeader(frame, length, out, frame_index, AV_FRAME_TYPE_VIDEO, time);
}

int libAVRecordAudioPsStreamWrite(const void* payload, int length, void* out, uint32_t frame_index) {
    if (payload == nullptr || out == nullptr) {
        return -1;
    }
    const int head = makeAudioFrameHeader(out, frame_index + 1, AV_FRAME_TYPE_AUDIO, length);
    if (head < 0) {
        return -1;
    }
    std::memcpy(static_cast<uint8_t*>(out) + head, payload, static_cast<size_t>(length));
    return head + length;
}

int64_t PackedVideoSize(bool is_key, const void* frame, int length) {
    if (frame == nullptr || length < 0) {
        return -1;
    }
    const int64_t size = is_key ? PiecesSize(CutKeyFrame(static_cast<const uint8_t*>(frame), length))
                                : PS_PACK_HEADER_SIZE + PacketsSize(length);
    return size <= INT_MAX ? size : -1;
}

int64_t PackedAudioSize(int length) {
    return length < 0 || length > PS_AUDIO_PAYLOAD_MAX ? -1 : int64_t{PS_PES_HEADER_SIZE} + length;
}
