// What a player is told of a stream before its first picture: the records of ISO/IEC 14496-15 ("avcC", "hvcC") and the
// codec's name of RFC 6381.  Holds no state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "stream/NalUnits.h"

namespace viewer {

struct DecoderConfig {
    std::string codec;            // "avc1.640028", "hvc1.1.6.L93.B0"
    std::vector<uint8_t> record;  // of an "avcC" or "hvcC" box
    int width = 0;                // pixels, as shown
    int height = 0;
};

// `sets`: as of card::ParameterSets().  Nothing when one is missing or cannot be read.
std::optional<DecoderConfig> MakeDecoderConfig(card::VideoCodec codec, card::ByteView sets);

// Appends the units of an Annex B stream, each after its length in four bytes, parameter sets left out.
void AppendSample(card::VideoCodec codec, card::ByteView unit, bool without_sets, std::vector<uint8_t>& bytes);

}  // namespace viewer
