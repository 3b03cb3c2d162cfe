#include "core/DecoderConfig.h"

#include <cstdio>

#include "clip/SequenceParameters.h"

namespace viewer {

namespace {

using card::ByteView;
using card::SequenceParameters;
using card::VideoCodec;
using Units = std::vector<ByteView>;

void Put16(std::vector<uint8_t>& bytes, size_t value) {
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

void PutUnits(std::vector<uint8_t>& bytes, const Units& units) {
    for (const ByteView unit : units) {
        Put16(bytes, unit.size());
        bytes.insert(bytes.end(), unit.begin(), unit.end());
    }
}

std::string Hex(const char* format, uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

void DescribeH264(const SequenceParameters& set, const Units& sequences, const Units& pictures, DecoderConfig& config) {
    std::vector<uint8_t>& bytes = config.record;
    const auto& [profile, constraints, level] = set.avc_profile;
    bytes = {1, profile, constraints, level, 0xFF, static_cast<uint8_t>(0xE0 | sequences.size())};
    PutUnits(bytes, sequences);
    bytes.push_back(static_cast<uint8_t>(pictures.size()));
    PutUnits(bytes, pictures);
    if (profile != 66 && profile != 77 && profile != 88) {
        bytes.push_back(static_cast<uint8_t>(0xFC | set.chroma));
        bytes.push_back(static_cast<uint8_t>(0xF8 | (set.luma_depth - 8)));
        bytes.push_back(static_cast<uint8_t>(0xF8 | (set.chroma_depth - 8)));
        bytes.push_back(0);
    }
    config.codec = "avc1." + Hex("%06x", uint32_t{profile} << 16 | uint32_t{constraints} << 8 | level);
}

// ISO/IEC 14496-15, E.3: profile space and number, compatibility flags backwards, tier and level, constraints.
std::string H265Name(const SequenceParameters& set) {
    const auto& general = set.hevc_profile;
    static constexpr const char* kSpaces[] = {"", "A", "B", "C"};
    uint32_t compatible = 0;
    for (int i = 0; i < 32; ++i) compatible |= uint32_t{(general[1 + i / 8] >> (7 - i % 8) & 1u)} << i;
    std::string name = std::string("hvc1.") + kSpaces[general[0] >> 6] + std::to_string(general[0] & 31) + "." +
                       Hex("%x", compatible) + ((general[0] & 32) != 0 ? ".H" : ".L") + std::to_string(general[11]);
    size_t last = 10;
    while (last > 4 && general[last] == 0) --last;
    for (size_t i = 5; i <= last; ++i) name += "." + Hex("%x", general[i]);
    return name;
}

void DescribeH265(const SequenceParameters& set, const std::vector<Units>& arrays, DecoderConfig& config) {
    std::vector<uint8_t>& bytes = config.record;
    bytes = {1};
    bytes.insert(bytes.end(), set.hevc_profile.begin(), set.hevc_profile.end());
    Put16(bytes, 0xF000);
    bytes.push_back(0xFC);
    bytes.push_back(static_cast<uint8_t>(0xFC | set.chroma));
    bytes.push_back(static_cast<uint8_t>(0xF8 | (set.luma_depth - 8)));
    bytes.push_back(static_cast<uint8_t>(0xF8 | (set.chroma_depth - 8)));
    Put16(bytes, 0);
    bytes.push_back(static_cast<uint8_t>(set.sub_layers << 3 | (set.nested ? 4 : 0) | 3));
    bytes.push_back(static_cast<uint8_t>(arrays.size()));
    for (const Units& units : arrays) {
        bytes.push_back(static_cast<uint8_t>(0x80 | card::NalType(VideoCodec::H265, units[0])));
        Put16(bytes, units.size());
        PutUnits(bytes, units);
    }
    config.codec = H265Name(set);
}

}  // namespace

std::optional<DecoderConfig> MakeDecoderConfig(VideoCodec codec, ByteView sets) {
    Units sequences;
    Units pictures;
    Units others;  // H.265: video parameter sets
    card::ForEachNal(sets, [&](ByteView nal) {
        const bool sequence = card::IsSequenceParameters(codec, nal);
        (sequence ? sequences : card::IsPictureParameters(codec, nal) ? pictures : others).push_back(nal);
    });
    const bool h264 = codec == VideoCodec::H264;
    if (sequences.empty() || pictures.empty() || sequences.size() > 31 || pictures.size() > 255) return std::nullopt;
    if (!h264 && others.empty()) return std::nullopt;
    const auto set = card::ReadSequenceParameters(codec, sequences[0]);
    if (!set) return std::nullopt;
    DecoderConfig config;
    config.width = set->width;
    config.height = set->height;
    if (h264) {
        DescribeH264(*set, sequences, pictures, config);
    } else {
        DescribeH265(*set, {others, sequences, pictures}, config);
    }
    return config;
}

void AppendSample(VideoCodec codec, ByteView unit, bool without_sets, std::vector<uint8_t>& bytes) {
    card::ForEachNal(unit, [&](ByteView nal) {
        if (without_sets && card::IsParameterSet(codec, nal)) return;
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(nal.size() >> shift));
        bytes.insert(bytes.end(), nal.begin(), nal.end());
    });
}

}  // namespace viewer
