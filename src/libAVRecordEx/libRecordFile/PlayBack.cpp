// Reads one frame at a time back out of a record file.
//
// Every byte read may be garbage.  What bounds the work: a packet moves the position on by at least a
// header, positions end where a file's do, and a packet is taken only while it fits the buffer.
#include <cstring>

#include "PsFields.h"
#include "libLog.h"
#include "libRecordFile.h"

using namespace record_file;

namespace {

constexpr char kOperation[] = "libAVRecordPlayBackGetPSFrame";  // for the log

enum StartCode : uint32_t {
    kPack = 0x000001BA,
    kSystemHeader = 0x000001BB,
    kVideo = 0x000001E0,
    kAudio = 0x000001C0,
    kAnyCode = 0x00000100,
};

struct Frame {
    uint8_t* buffer;      // PLAYBACK_BUFFER_SIZE bytes, the caller's
    uint32_t next;        // offset of the next unread byte of the file
    uint32_t length = 0;  // payload bytes in `buffer`
    uint32_t pts = 0;
    uint32_t gather_max = PLAYBACK_BUFFER_SIZE;  // payload bytes that further packets may follow
};

struct Packet {
    uint32_t start_code = 0;
    int payload = 0;  // bytes; negative when the packet's length does not cover its own header
    uint32_t pts = 0;
};

uint32_t BigEndian32(const uint8_t* at) {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}

Packet ParsePacket(const uint8_t* raw) {
    PesHeader header;
    PresentationTime time;
    BitReader bits(raw);
    WalkPesHeader(bits, header);
    WalkPresentationTime(bits, time);
    return {header.packet_start_code_prefix << 8 | header.stream_id, header.PES_packet_length - kPesLengthBase,
            static_cast<uint32_t>(time.PTS)};
}

// Appends the packet whose header lies at `frame.next`.
int TakePacket(int fd, const Packet& packet, Frame& frame) {
    if (packet.payload < 0 || frame.length > frame.gather_max ||
        packet.payload > static_cast<int>(PLAYBACK_BUFFER_SIZE - frame.length)) {
        LOG_ERROR_AS(kOperation, " : lenth %d error!\n",
                     packet.payload < 0 ? packet.payload : static_cast<int>(frame.length));
        return -1;
    }
    const uint32_t payload_at = frame.next + PS_PES_HEADER_SIZE;
    if (packet.payload > 0 &&
        AV_RecordStreamInfoRead(fd, payload_at, frame.buffer + frame.length, packet.payload) < 0) {
        return -1;
    }
    frame.next = payload_at + static_cast<uint32_t>(packet.payload);
    frame.length += static_cast<uint32_t>(packet.payload);
    frame.pts = packet.pts;
    return 0;
}

// Where the packets of the video frame at `offset` begin, told by what follows its pack header; -1 when
// that is nothing of ours.
int FirstPacket(int fd, uint32_t offset, uint32_t* first) {
    uint8_t databuf[4];
    const bool got = AV_RecordStreamInfoRead(fd, offset + PS_PACK_HEADER_SIZE, databuf, sizeof databuf) >= 0;
    const uint32_t code = got ? BigEndian32(databuf) : 0;
    if (code == kSystemHeader || code == kVideo) {
        *first = offset + (code == kSystemHeader ? PS_KEY_FRAME_HEADERS : PS_PACK_HEADER_SIZE);
        return 0;
    }
    if ((code & 0xFFFFFF00) == kAnyCode) {
        LOG_TRACE_AS(kOperation, " Read Data Error databuf = %#x %#x %#x %#x !!!!\n", databuf[0], databuf[1],
                     databuf[2], databuf[3]);
    } else {
        LOG_TRACE_AS(kOperation, " AV_RecordStreamInfoRead System Head Fail \n");
    }
    return -1;
}

int ReadVideo(int fd, uint32_t offset, Frame& frame) {
    if (FirstPacket(fd, offset, &frame.next) < 0) {
        return -1;
    }
    const bool is_key = frame.next == offset + PS_KEY_FRAME_HEADERS;
    if (is_key) {
        frame.gather_max = PLAYBACK_GATHER_MAX;
    }
    uint8_t raw[PS_PES_HEADER_SIZE];
    // The file's end ends a frame like any other bytes that are no packet of it.
    while (AV_RecordStreamInfoRead(fd, frame.next, raw, sizeof raw) >= 0) {
        const Packet packet = ParsePacket(raw);
        if (packet.start_code != kVideo) {
            break;
        }
        if (TakePacket(fd, packet, frame) < 0) {
            return -1;
        }
    }
    if (frame.next > INT32_MAX) {  // a position that no later call could read at
        if (is_key) {
            LOG_TRACE_AS(kOperation, " FileOffset Error!!!!\n");
        } else {
            LOG_TRACE_AS(kOperation, " FileOffset Error FileOffset = %d \n", static_cast<int>(frame.next));
        }
        return -1;
    }
    return 0;
}

int ReadAudio(int fd, const uint8_t* raw, uint32_t offset, Frame& frame) {
    frame.next = offset;
    if (TakePacket(fd, ParsePacket(raw), frame) < 0) {
        return -1;
    }
    if (frame.next > INT32_MAX) {
        LOG_TRACE_AS(kOperation, " Audio FileOffset Error Error!!!!\n");
        return -1;
    }
    return 0;
}

}  // namespace

int libAVRecordPlayBackGetPSFrame(int fd, uint32_t* offset, int* kind, void* buffer, uint32_t* length, uint32_t* time,
                                  uint32_t* pts) {
    if (fd < 0 || offset == nullptr || kind == nullptr || buffer == nullptr || length == nullptr || time == nullptr ||
        pts == nullptr) {
        return -1;
    }
    uint8_t raw[PS_PACK_HEADER_SIZE];
    if (AV_RecordStreamInfoRead(fd, *offset, raw, sizeof raw) < 0) {
        LOG_TRACE(" Read Data Error FileOffset = %d \n", static_cast<int>(*offset));
        return -1;
    }
    const uint32_t code = BigEndian32(raw);
    if ((code & 0xFFFFFF00) != kAnyCode) {
        LOG_TRACE(" :pack_start_code Error FileOffset = %d \n", static_cast<int>(*offset));
        return -1;
    }
    if (code != kPack && code != kAudio) {
        LOG_TRACE(" : data error \n");
        return -1;
    }
    Frame frame{static_cast<uint8_t*>(buffer), *offset};
    if ((code == kPack ? ReadVideo(fd, *offset, frame) : ReadAudio(fd, raw, *offset, frame)) < 0) {
        return -1;
    }
    if (code == kPack) {
        PackHeader pack;
        BitReader bits(raw);
        WalkPackHeader(bits, pack);
        *time = pack.frame_time;
    }
    *kind = code == kPack ? AV_FRAME_TYPE_VIDEO : AV_FRAME_TYPE_AUDIO;
    *length = frame.length;
    *pts = frame.pts;
    *offset = frame.next;
    return 0;
}

int libAVRecordFileDataSeek(int fd, uint32_t offset) {
    return offset > INT32_MAX ? -1 : AVFileSeek(fd, static_cast<int>(offset), SEEKMODE_BEGIN);
}

int libAVRecordFileDataRead(int fd, void* buffer, int length) {
    return AVFileRead(fd, buffer, length);
}
