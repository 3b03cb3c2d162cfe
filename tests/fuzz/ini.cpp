// Profile files of any text: what is found lies in the text, and what is written is read back.
#include <cctype>

#include "Fuzz.h"
#include "libIniFile.h"

namespace {

// A name or value as a caller passes it, made of what the input has; never empty.
std::string Name(fuzz::Input& in, bool plain) {
    const fuzz::Bytes bytes = in.Take(in.Byte() % 12);
    std::string name(bytes.begin(), bytes.end());
    for (char& c : name) {
        if (c == '\0' || (plain && std::isalnum(static_cast<unsigned char>(c)) == 0)) {
            c = static_cast<char>('a' + (c & 15));
        }
    }
    return name.empty() ? "k" : name;
}

// Every header of the text has its end, so that what is added after the last one is seen as a body.
bool HeadersEnd(const std::string& text) {
    const size_t open = text.rfind('[');
    return open == std::string::npos || text.find(']', open) != std::string::npos;
}

void Parse(const std::string& text, const std::string& section, const std::string& key) {
    int at[6];
    const int found =
        parse_file(section.c_str(), key.c_str(), text.c_str(), &at[0], &at[1], &at[2], &at[3], &at[4], &at[5]);
    const int end = static_cast<int>(text.size());
    for (const int position : at) MUST(position >= -1 && position <= end);
    MUST((at[0] < 0) == (at[1] < 0) && at[0] <= at[1]);
    MUST((found == 1) == (at[2] >= 0));
    if (found == 1) {
        MUST(at[0] >= 1 && text[static_cast<size_t>(at[0]) - 1] == '[');
        MUST(at[1] <= at[2] && at[2] <= at[3] && at[3] + 2 == at[4] && at[4] <= at[5]);
        MUST(text[static_cast<size_t>(at[4]) - 1] == '=');
        MUST(key.compare(0, static_cast<size_t>(at[3] - at[2] + 1), text, static_cast<size_t>(at[2]),
                         static_cast<size_t>(at[3] - at[2] + 1)) == 0);
    }
}

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile file;
    const bool plain = in.Byte() % 4 != 0;
    const std::string section = Name(in, plain);
    const std::string key = Name(in, plain);
    const std::string value = Name(in, plain);
    const uint8_t repeat = in.Byte();  // brings a text near the largest that a file may have
    const Bytes rest = in.Rest();
    std::string text(rest.begin(), rest.end());
    for (int i = 0; i < repeat % 64 && repeat >= 248 && !rest.empty(); ++i) {
        text.append(rest.begin(), rest.end());
    }
    text.resize(std::min<size_t>(text.size(), INI_FILE_MAX - 1));
    const std::string whole = text;
    text.resize(std::min({text.size(), text.find('\xFF'), text.find('\0')}));
    Parse(text, section, key);
    if (repeat % 4 != 0) {
        return;  // most inputs are for the parser alone, which is far faster than the files around it
    }
    file.Clear();
    file.Write(0, whole.data(), whole.size());
    char read[16];
    std::memset(read, '~', sizeof read);
    const int had = read_profile_string(section.c_str(), key.c_str(), read, sizeof read, nullptr, file.Path().c_str());
    MUST(had == 1 ? std::memchr(read, 0, sizeof read) != nullptr : read[0] == '~' && read[15] == '~');
    read_profile_int(section.c_str(), key.c_str(), -1, file.Path().c_str());
    if (write_profile_string(section.c_str(), key.c_str(), value.c_str(), file.Path().c_str()) == 0) {
        return;  // too long
    }
    MUST(file.Size() < INI_FILE_MAX);
    if (plain && HeadersEnd(text)) {
        MUST(read_profile_string(section.c_str(), key.c_str(), read, sizeof read, nullptr, file.Path().c_str()) == 1);
        MUST(value == read);
    }
}
