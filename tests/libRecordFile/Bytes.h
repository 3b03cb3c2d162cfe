// Bytes as a test writes them down, and those of a record.
#pragma once

#include <string>

namespace test {

// "49 4D 4b" -> the bytes.
inline std::string Hex(std::string text) {
    std::erase(text, ' ');
    std::string bytes;
    for (size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

template <class Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

}  // namespace test
