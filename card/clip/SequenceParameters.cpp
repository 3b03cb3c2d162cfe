#include "clip/SequenceParameters.h"

#include "clip/BitReader.h"

namespace card {

namespace {

constexpr int kSideMax = 1 << 15;  // pixels
constexpr uint32_t kReferenceCycleMax = 255;
constexpr int kH264Header = 8;  // bits
constexpr int kH265Header = 16;

constexpr int kH264Sps = 7;
constexpr int kH264Pps = 8;
constexpr int kH265Sps = 33;
constexpr int kH265Pps = 34;

// The profiles whose sets tell their chroma format.
bool HasChromaFormat(uint32_t profile) {
    for (const uint32_t known : {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u}) {
        if (profile == known) return true;
    }
    return false;
}

void SkipScalingList(BitReader& bits, int size) {
    int32_t last = 8;
    int32_t next = 8;
    for (int i = 0; i < size && bits.Ok(); ++i) {
        if (next != 0) next = (last + bits.Signed()) & 0xFF;
        if (next != 0) last = next;
    }
}

void ReadChroma(BitReader& bits, SequenceParameters& set) {
    set.chroma = static_cast<int>(bits.Unsigned());
    if (set.chroma == 3) set.separate_planes = bits.Bit() != 0;
    set.luma_depth = static_cast<int>(bits.Unsigned()) + 8;
    set.chroma_depth = static_cast<int>(bits.Unsigned()) + 8;
    bits.Skip(1);
    if (bits.Bit() == 0) return;
    for (int list = 0; list < (set.chroma == 3 ? 12 : 8); ++list) {
        if (bits.Bit() != 0) SkipScalingList(bits, list < 6 ? 16 : 64);
    }
}

void ReadOrderType(BitReader& bits, SequenceParameters& set) {
    set.order_type = static_cast<int>(bits.Unsigned());
    if (set.order_type == 0) {
        set.order_bits = static_cast<int>(bits.Unsigned()) + 4;
    } else if (set.order_type == 1) {
        set.delta_always_zero = bits.Bit() != 0;
        set.offset_for_non_reference = bits.Signed();
        set.offset_top_to_bottom = bits.Signed();
        const uint32_t count = bits.Unsigned();
        for (uint32_t i = 0; i < count && i < kReferenceCycleMax && bits.Ok(); ++i) {
            set.offsets_for_reference.push_back(bits.Signed());
        }
    }
}

bool Plausible(const BitReader& bits, const SequenceParameters& set) {
    return bits.Ok() && set.width > 0 && set.height > 0 && set.width <= kSideMax && set.height <= kSideMax &&
           set.chroma <= 3 && set.order_bits <= 16 && set.frame_number_bits <= 16 && set.luma_depth <= 16 &&
           set.chroma_depth <= 16;
}

// Crops `crop` units off the sides: left, right, top, bottom.
void Crop(BitReader& bits, SequenceParameters& set, int unit_x, int unit_y) {
    const auto left = static_cast<int64_t>(bits.Unsigned());
    const auto right = static_cast<int64_t>(bits.Unsigned());
    const auto top = static_cast<int64_t>(bits.Unsigned());
    const auto bottom = static_cast<int64_t>(bits.Unsigned());
    const int64_t width = set.width - (left + right) * unit_x;
    const int64_t height = set.height - (top + bottom) * unit_y;
    set.width = width > 0 ? static_cast<int>(width) : 0;
    set.height = height > 0 ? static_cast<int>(height) : 0;
}

int Side(uint64_t units, int unit) {
    return units * static_cast<uint64_t>(unit) > kSideMax ? 0 : static_cast<int>(units) * unit;
}

std::optional<SequenceParameters> ReadH264(BitReader& bits) {
    SequenceParameters set;
    for (uint8_t& byte : set.avc_profile) byte = static_cast<uint8_t>(bits.Bits(8));
    set.id = bits.Unsigned();
    if (HasChromaFormat(set.avc_profile[0])) ReadChroma(bits, set);
    set.frame_number_bits = static_cast<int>(bits.Unsigned()) + 4;
    ReadOrderType(bits, set);
    bits.Unsigned();  // reference frames
    bits.Skip(1);
    set.width = Side(uint64_t{bits.Unsigned()} + 1, 16);
    const uint64_t map_units = uint64_t{bits.Unsigned()} + 1;
    set.frames_only = bits.Bit() != 0;
    set.height = Side(map_units, set.frames_only ? 16 : 32);
    if (!set.frames_only) bits.Skip(1);
    bits.Skip(1);
    if (bits.Bit() != 0) {
        const bool planes = set.chroma == 0 || set.separate_planes;
        const int unit_x = !planes && set.chroma < 3 ? 2 : 1;
        const int unit_y = (!planes && set.chroma == 1 ? 2 : 1) * (set.frames_only ? 1 : 2);
        Crop(bits, set, unit_x, unit_y);
    }
    if (!Plausible(bits, set) || set.order_type > 2) return std::nullopt;
    return set;
}

// Of the sub-layers' profiles and levels only the place matters.
void SkipSubLayers(BitReader& bits, int count) {
    uint32_t profiles = 0;
    uint32_t levels = 0;
    for (int i = 0; i < count; ++i) {
        profiles = profiles << 1 | bits.Bit();
        levels = levels << 1 | bits.Bit();
    }
    if (count > 0) bits.Skip(2 * (8 - count));
    for (int i = count - 1; i >= 0; --i) {
        if ((profiles >> i & 1) != 0) bits.Skip(88);
        if ((levels >> i & 1) != 0) bits.Skip(8);
    }
}

std::optional<SequenceParameters> ReadH265(BitReader& bits) {
    SequenceParameters set;
    bits.Skip(4);
    set.sub_layers = static_cast<int>(bits.Bits(3)) + 1;
    set.nested = bits.Bit() != 0;
    for (uint8_t& byte : set.hevc_profile) byte = static_cast<uint8_t>(bits.Bits(8));
    SkipSubLayers(bits, set.sub_layers - 1);
    set.id = bits.Unsigned();
    set.chroma = static_cast<int>(bits.Unsigned());
    if (set.chroma == 3) set.separate_planes = bits.Bit() != 0;
    set.width = Side(bits.Unsigned(), 1);
    set.height = Side(bits.Unsigned(), 1);
    if (bits.Bit() != 0) {
        const int unit_x = set.chroma == 1 || set.chroma == 2 ? 2 : 1;
        Crop(bits, set, unit_x, set.chroma == 1 ? 2 : 1);
    }
    set.luma_depth = static_cast<int>(bits.Unsigned()) + 8;
    set.chroma_depth = static_cast<int>(bits.Unsigned()) + 8;
    set.order_bits = static_cast<int>(bits.Unsigned()) + 4;
    if (!Plausible(bits, set)) return std::nullopt;
    return set;
}

}  // namespace

int NalType(VideoCodec codec, ByteView nal) {
    if (nal.empty()) return -1;
    return codec == VideoCodec::H264 ? nal[0] & 0x1F : nal[0] >> 1 & 0x3F;
}

bool IsSequenceParameters(VideoCodec codec, ByteView nal) {
    return NalType(codec, nal) == (codec == VideoCodec::H264 ? kH264Sps : kH265Sps);
}

bool IsPictureParameters(VideoCodec codec, ByteView nal) {
    return NalType(codec, nal) == (codec == VideoCodec::H264 ? kH264Pps : kH265Pps);
}

std::optional<SequenceParameters> ReadSequenceParameters(VideoCodec codec, ByteView nal) {
    BitReader bits(nal);
    const bool h264 = codec == VideoCodec::H264;
    bits.Skip(h264 ? kH264Header : kH265Header);
    return h264 ? ReadH264(bits) : ReadH265(bits);
}

std::optional<PictureParameters> ReadPictureParameters(VideoCodec codec, ByteView nal) {
    BitReader bits(nal);
    const bool h264 = codec == VideoCodec::H264;
    bits.Skip(h264 ? kH264Header : kH265Header);
    PictureParameters set;
    set.id = bits.Unsigned();
    set.sequence = bits.Unsigned();
    if (h264) {
        bits.Skip(1);
        set.bottom_order = bits.Bit() != 0;
    } else {
        bits.Skip(1);
        set.output_flag = bits.Bit() != 0;
        set.extra_slice_bits = static_cast<int>(bits.Bits(3));
    }
    if (!bits.Ok()) return std::nullopt;
    return set;
}

}  // namespace card
