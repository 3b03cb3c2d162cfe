// CRC-32 as zlib and IEEE 802.3 count it, for the journal: it tells records apart without keeping them.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace desk {

constexpr std::array<uint32_t, 256> MakeCrcTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = value & 1 ? value >> 1 ^ 0xEDB88320u : value >> 1;
        table[byte] = value;
    }
    return table;
}

inline uint32_t Crc32(std::span<const uint8_t> data) {
    static constexpr auto kTable = MakeCrcTable();
    uint32_t crc = ~0u;
    for (const uint8_t byte : data) crc = crc >> 8 ^ kTable[(crc ^ byte) & 0xFF];
    return ~crc;
}

}  // namespace desk
