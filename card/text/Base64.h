// Bytes as text that can stand in a page.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace card {

inline std::string Base64(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t left = bytes.size() - i;
        uint32_t group = uint32_t{bytes[i]} << 16;
        if (left > 1) group |= uint32_t{bytes[i + 1]} << 8;
        if (left > 2) group |= bytes[i + 2];
        for (size_t digit = 0; digit < 4; ++digit)
            text += digit <= left ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
    return text;
}

}  // namespace card
