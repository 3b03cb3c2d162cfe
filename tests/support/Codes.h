// Names and their codes, written down apart from the product's own tables.
#pragma once

#include <cctype>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace support {

using Codes = std::vector<std::pair<std::string, int>>;

// "17 One Two 40 Another": a code stands where it is not one more than the code before it.
inline Codes CodesOf(const char* table) {
    Codes codes;
    std::istringstream words(table);
    int code = 0;
    for (std::string word; words >> word;) {
        if (std::isdigit(word[0]) != 0) {
            code = std::stoi(word);
        } else {
            codes.emplace_back(word, code++);
        }
    }
    return codes;
}

}  // namespace support
