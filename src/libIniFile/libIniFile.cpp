#include "libIniFile.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "IniText.h"

namespace {

[[noreturn]] void AssertionFailed(const char* function, int line, const char* condition) {
    std::fprintf(stderr, "libIniFile:%d: %s: Assertion `%s' failed.\n", line, function, condition);
    std::abort();
}

// Holds in every build, unlike assert(): the callers' mistakes caught here would corrupt a settings file.
#define REQUIRE(condition, text) ((condition) ? void() : AssertionFailed(__func__, __LINE__, text))

bool IsName(const char* name) {
    return name != nullptr && *name != '\0';
}

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool StartsLine(const char* buf, int at) {
    return at == 0 || newline(buf[at - 1]) != 0;
}

bool StartsHeader(const char* buf, int at) {
    return left_barce(buf[at]) != 0 && StartsLine(buf, at);
}

int LineEnd(const char* buf, int at) {
    while (end_of_string(buf[at]) == 0 && newline(buf[at]) == 0) {
        ++at;
    }
    return at;
}

struct Positions {
    int sec_s = -1, sec_e = -1, key_s = -1, key_e = -1, value_s = -1, value_e = -1;
};

// Walks the body that begins at `at`.  Returns where it ends, or -1 once the key is found.
int FindKey(const char* buf, int at, const char* key, Positions& found) {
    while (end_of_string(buf[at]) == 0 && !StartsHeader(buf, at)) {
        const int end = LineEnd(buf, at);
        // The first character is never the '=' that ends a key: there are no empty keys.
        const char* equals =
            end - at > 1 && buf[at] != ';'
                ? static_cast<const char*>(std::memchr(buf + at + 1, '=', static_cast<size_t>(end - at - 1)))
                : nullptr;
        if (equals != nullptr && std::strncmp(key, buf + at, static_cast<size_t>(equals - (buf + at))) == 0) {
            found.key_s = at;
            found.key_e = static_cast<int>(equals - buf) - 1;
            found.value_s = found.key_e + 2;
            found.value_e = end;
            return -1;
        }
        at = end_of_string(buf[end]) != 0 ? end : end + 1;
    }
    return at;
}

bool Find(const char* section, const char* key, const char* buf, Positions& found) {
    int at = 0;
    while (end_of_string(buf[at]) == 0) {
        if (!StartsHeader(buf, at)) {
            ++at;
            continue;
        }
        const int name = at + 1;
        int close = name;
        while (end_of_string(buf[close]) == 0 && isright_brace(buf[close]) == 0) {
            ++close;
        }
        if (std::strncmp(section, buf + name, static_cast<size_t>(close - name)) != 0) {
            at = close;
            continue;
        }
        int body = isright_brace(buf[close]) != 0 ? close + 1 : close;
        while (IsSpace(buf[body])) {
            ++body;
        }
        found.sec_s = name;
        found.sec_e = body;
        at = FindKey(buf, body, key, found);
        if (at < 0) {
            return true;
        }
    }
    return false;
}

std::string_view Slice(const char* buf, int from, int to) {
    return {buf + from, static_cast<size_t>(to - from)};
}

void Compose(IniText& text, const char* buf, const Positions& at, std::string_view section, std::string_view key,
             std::string_view value) {
    const int end = static_cast<int>(std::strlen(buf));
    if (at.sec_s < 0) {
        text << buf << (end > 0 ? "\n[" : "[") << section << "]\n" << key << "=" << value << "\n";
    } else if (at.key_s < 0) {
        text << Slice(buf, 0, at.sec_e) << key << "=" << value << "\n";
        text.Print(Slice(buf, at.sec_e, end), end - at.sec_e);
    } else {
        text << Slice(buf, 0, at.value_s) << value << Slice(buf, at.value_e, end);
    }
}

}  // namespace

int load_ini_file(const char* file, char* buf, int* file_size) {
    REQUIRE(file != nullptr, "file != ((void *)0)");
    REQUIRE(buf != nullptr, "buf != ((void *)0)");
    *file_size = 0;
    FILE* in = std::fopen(file, "re");
    if (in == nullptr) {
        return 0;
    }
    int i = 0;
    for (int c = std::fgetc(in); c != EOF && c != 0xFF; c = std::fgetc(in)) {
        buf[i] = static_cast<char>(c);
        ++i;
        REQUIRE(i < 1024 * 16, "i < 1024*16");
    }
    buf[i] = '\0';
    *file_size = i;
    std::fclose(in);
    return 1;
}

int parse_file(const char* section, const char* key, const char* buf, int* sec_s, int* sec_e, int* key_s, int* key_e,
               int* value_s, int* value_e) {
    REQUIRE(buf != nullptr, "buf != ((void *)0)");
    REQUIRE(IsName(section), "section != ((void *)0) && strlen(section)");
    REQUIRE(IsName(key), "key != ((void *)0) && strlen(key)");
    Positions found;
    const bool success = Find(section, key, buf, found);
    *sec_s = found.sec_s;
    *sec_e = found.sec_e;
    *key_s = found.key_s;
    *key_e = found.key_e;
    *value_s = found.value_s;
    *value_e = found.value_e;
    return success ? 1 : 0;
}

int read_profile_string(const char* section, const char* key, char* value, int size, const char* default_value,
                        const char* file) {
    REQUIRE(IsName(section), "section != ((void *)0) && strlen(section)");
    REQUIRE(IsName(key), "key != ((void *)0) && strlen(key)");
    REQUIRE(value != nullptr, "value != ((void *)0)");
    REQUIRE(size > 0, "size > 0");
    REQUIRE(file != nullptr, "file !=((void *)0) &&strlen(key)");
    char buf[INI_FILE_MAX] = {};
    int file_size = 0;
    Positions found;
    if (load_ini_file(file, buf, &file_size) == 0 || !Find(section, key, buf, found)) {
        if (default_value != nullptr) {
            std::strncpy(value, default_value, static_cast<size_t>(size));
        }
        return 0;
    }
    std::memset(value, 0, static_cast<size_t>(size));
    std::memcpy(value, buf + found.value_s, static_cast<size_t>(std::min(found.value_e - found.value_s, size - 1)));
    return 1;
}

int read_profile_int(const char* section, const char* key, int default_value, const char* file) {
    char value[32] = {};
    if (read_profile_string(section, key, value, sizeof value, nullptr, file) == 0) {
        return default_value;
    }
    return static_cast<int>(std::clamp<long long>(std::strtoll(value, nullptr, 10), INT_MIN, INT_MAX));
}

int write_profile_string(const char* section, const char* key, const char* value, const char* file) {
    REQUIRE(IsName(section), "section != ((void *)0) && strlen(section)");
    REQUIRE(IsName(key), "key != ((void *)0) && strlen(key)");
    REQUIRE(value != nullptr, "value != ((void *)0)");
    REQUIRE(file != nullptr, "file !=((void *)0) &&strlen(key)");
    char buf[INI_FILE_MAX] = {};
    int file_size = 0;
    Positions found;
    if (load_ini_file(file, buf, &file_size) != 0) {
        Find(section, key, buf, found);
    }
    IniText text;
    Compose(text, buf, found, section, key, value);
    if (!text.Fits()) {
        return 0;
    }
    FILE* out = std::fopen(file, "we");
    if (out == nullptr) {
        return 0;
    }
    const bool written = std::fputs(text.Terminated(), out) >= 0;
    const bool closed = std::fclose(out) == 0;
    return written && closed ? 1 : 0;
}

int newline(char c) {
    return c == '\n' || c == '\r' ? 1 : 0;
}
int end_of_string(char c) {
    return c == '\0' ? 1 : 0;
}
int left_barce(char c) {
    return c == '[' ? 1 : 0;
}
int isright_brace(char c) {
    return c == ']' ? 1 : 0;
}
