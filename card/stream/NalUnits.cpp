#include "stream/NalUnits.h"

#include <algorithm>
#include <cstring>

#include "NalTypes.h"

namespace card {

namespace {

constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};

int TypeOf(VideoCodec codec, ByteView nal) {
    if (nal.empty()) return -1;
    return codec == VideoCodec::H264 ? int{h264::TypeOf(nal[0])} : int{h265::TypeOf(nal[0])};
}

// Offset of the next 00 00 01 at or after `from`; the size when there is none.
size_t FindStartCode(ByteView stream, size_t from) {
    for (size_t at = from + 2; at < stream.size(); ++at) {
        const void* found = std::memchr(stream.data() + at, 1, stream.size() - at);
        if (found == nullptr) break;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - stream.data());
        if (stream[at - 1] == 0 && stream[at - 2] == 0) return at - 2;
    }
    return stream.size();
}

void Append(std::vector<uint8_t>& bytes, ByteView nal) {
    bytes.insert(bytes.end(), std::begin(kStartCode), std::end(kStartCode));
    bytes.insert(bytes.end(), nal.begin(), nal.end());
}

}  // namespace

void ForEachNal(ByteView stream, const std::function<void(ByteView nal)>& visit) {
    size_t start = FindStartCode(stream, 0);
    while (start < stream.size()) {
        const size_t begin = start + 3;
        start = FindStartCode(stream, begin);
        size_t end = start;
        while (end > begin && stream[end - 1] == 0) --end;
        if (end > begin) visit(stream.subspan(begin, end - begin));
    }
}

bool IsParameterSet(VideoCodec codec, ByteView nal) {
    const int type = TypeOf(codec, nal);
    return codec == VideoCodec::H264 ? type == h264::kSeqParameterSet || type == h264::kPicParameterSet
                                     : type >= h265::kVpsNut && type <= h265::kPpsNut;
}

bool IsRandomAccess(VideoCodec codec, ByteView unit) {
    bool found = false;
    ForEachNal(unit, [&](ByteView nal) {
        const int type = TypeOf(codec, nal);
        found = found ||
                (codec == VideoCodec::H264 ? type == h264::kCodedSliceIdr || type == h264::kSeqParameterSet
                                           : (type >= h265::kBlaWLp && type <= h265::kCraNut) || type == h265::kVpsNut);
    });
    return found;
}

SliceRole RoleOf(VideoCodec codec, ByteView unit) {
    SliceRole role = SliceRole::None;
    const bool is_h264 = codec == VideoCodec::H264;
    ForEachNal(unit, [&](ByteView nal) {
        const int type = TypeOf(codec, nal);
        const bool slice =
            is_h264 ? type >= h264::kCodedSliceNonIdr && type <= h264::kCodedSliceIdr : type < h265::kVpsNut;
        if (!slice || role != SliceRole::None) return;
        if (is_h264 ? type == h264::kCodedSliceIdr : type >= h265::kBlaWLp && type <= h265::kIdrNLp) {
            role = SliceRole::SequenceStart;
        } else if (!is_h264 && type >= h265::kRadlN && type <= h265::kRadlR) {
            role = SliceRole::DecodableLeading;
        } else {
            role = SliceRole::Other;
        }
    });
    return role;
}

std::vector<uint8_t> ParameterSets(VideoCodec codec, ByteView unit) {
    std::vector<uint8_t> bytes;
    std::vector<ByteView> taken;
    ForEachNal(unit, [&](ByteView nal) {
        if (!IsParameterSet(codec, nal)) return;
        for (const ByteView other : taken) {
            if (std::equal(other.begin(), other.end(), nal.begin(), nal.end())) return;
        }
        taken.push_back(nal);
        Append(bytes, nal);
    });
    return bytes;
}

std::vector<uint8_t> WithoutParameterSets(VideoCodec codec, ByteView unit) {
    std::vector<uint8_t> bytes;
    bytes.reserve(unit.size() + sizeof kStartCode);
    ForEachNal(unit, [&](ByteView nal) {
        if (!IsParameterSet(codec, nal)) Append(bytes, nal);
    });
    return bytes;
}

namespace {

// The bytes of a unit without the 03 that keeps start codes out of them.
std::vector<uint8_t> Unescaped(ByteView nal) {
    std::vector<uint8_t> bytes;
    size_t zeros = 0;
    for (const uint8_t byte : nal) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
    return bytes;
}

std::optional<DisplayOrientation> OrientationIn(ByteView message) {
    if (message.size() < 3 || (message[0] & 0x80) != 0) return std::nullopt;               // cancelled
    const uint32_t turn = (message[0] & 0x1Fu) << 11 | message[1] << 3 | message[2] >> 5;  // of 65536 a whole turn
    return DisplayOrientation{.anticlockwise = turn * 360.0 / 65536,
                              .flip_horizontally = (message[0] & 0x40) != 0,
                              .flip_vertically = (message[0] & 0x20) != 0};
}

// Messages of one SEI unit, each with its type and size in bytes of up to 255.
std::optional<DisplayOrientation> OrientationInSei(ByteView sei) {
    constexpr uint32_t kDisplayOrientation = 47;
    for (size_t at = 0; at + 2 < sei.size();) {
        uint32_t parts[2] = {0, 0};  // type, size
        for (uint32_t& part : parts) {
            while (at < sei.size() && sei[at] == 0xFF) part += sei[at++];
            if (at >= sei.size()) return std::nullopt;
            part += sei[at++];
        }
        if (parts[1] > sei.size() - at) return std::nullopt;
        if (parts[0] == kDisplayOrientation) return OrientationIn(sei.subspan(at, parts[1]));
        at += parts[1];
    }
    return std::nullopt;
}

}  // namespace

std::optional<DisplayOrientation> OrientationOf(VideoCodec codec, ByteView unit) {
    std::optional<DisplayOrientation> found;
    ForEachNal(unit, [&](ByteView nal) {
        const bool is_h264 = codec == VideoCodec::H264;
        const size_t header = is_h264 ? 1 : 2;
        const int sei = is_h264 ? int{h264::kSei} : int{h265::kPrefixSeiNut};
        if (found || TypeOf(codec, nal) != sei || nal.size() <= header) return;
        const std::vector<uint8_t> bytes = Unescaped(nal.subspan(header));
        found = OrientationInSei(bytes);
    });
    return found;
}

std::optional<AacFrame> FirstAacFrame(ByteView payload) {
    if (payload.empty()) return std::nullopt;
    const bool has_header = payload.size() >= 7 && payload[0] == 0xFF && (payload[1] & 0xF6) == 0xF0;
    if (!has_header) return AacFrame{payload, static_cast<uint32_t>(payload.size()), {}, {}, {}};
    const uint32_t header = (payload[1] & 1) != 0 ? 7 : 9;  // 9: with a check sum
    const uint32_t size = (payload[3] & 3u) << 11 | payload[4] << 3 | payload[5] >> 5;
    if (size <= header || size > payload.size()) return std::nullopt;
    AacFrame frame{payload.subspan(header, size - header), size, {}, {}, {}};
    frame.object = static_cast<uint8_t>((payload[2] >> 6) + 1);
    frame.frequency = static_cast<uint8_t>(payload[2] >> 2 & 0x0F);
    frame.channels = static_cast<uint8_t>((payload[2] & 1) << 2 | payload[3] >> 6);
    return frame;
}

}  // namespace card
