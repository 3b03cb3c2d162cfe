#include "IniText.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::string_view kFlags = "-+ #0'";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLengths = "hlqjztL";
constexpr std::string_view kIntegers = "diouxXc";
constexpr size_t kDirectiveMax = 24;  // longer ones are no print format of anyone's

size_t Skip(std::string_view text, size_t at, std::string_view among) {
    const size_t end = text.find_first_not_of(among, at);
    return end == std::string_view::npos ? text.size() : end;
}

// The first `length` characters, or all.  Unlike substr it never throws, which the optimizer need not find out.
std::string_view Front(std::string_view text, size_t length) {
    return {text.data(), std::min(length, text.size())};
}

// Length of the integer conversion that `text` (at a '%') begins with, or 0.
size_t IntegerDirective(std::string_view text) {
    size_t at = Skip(text, 1, kFlags);
    at = Skip(text, at, kDigits);
    if (at < text.size() && text[at] == '.') {
        at = Skip(text, at + 1, kDigits);
    }
    at = Skip(text, at, kLengths);
    const bool integer = at < text.size() && kIntegers.find(text[at]) != std::string_view::npos;
    return integer && at < kDirectiveMax ? at + 1 : 0;
}

}  // namespace

IniText& IniText::operator<<(std::string_view text) {
    if (text.size() >= sizeof bytes_ - length_) {
        fits_ = false;
        return *this;
    }
    std::memcpy(bytes_ + length_, text.data(), text.size());
    length_ += text.size();
    return *this;
}

void IniText::Print(std::string_view format, int argument) {
    while (!format.empty()) {
        if (format[0] != '%') {
            const std::string_view plain = Front(format, format.find('%'));
            *this << plain;
            format.remove_prefix(plain.size());
        } else if (Front(format, 2) == "%%") {
            *this << "%";
            format.remove_prefix(2);
        } else if (const size_t directive = IntegerDirective(format); directive != 0) {
            PrintInteger(Front(format, directive), argument);
            format.remove_prefix(directive);
        } else {
            *this << "%";
            format.remove_prefix(1);
        }
    }
}

void IniText::PrintInteger(std::string_view directive, int argument) {
    // The argument is an int, so of the length modifiers only the narrowing ones may stay.
    char format[kDirectiveMax + 1] = {};
    size_t length = 0;
    for (char c : directive) {
        if (c == 'h' || kLengths.find(c) == std::string_view::npos) {
            format[length++] = c;
        }
    }
    const char* width = format + Skip(directive, 1, kFlags);
    const char* point = width;
    while (*point >= '0' && *point <= '9') {
        ++point;
    }
    const bool too_wide = std::strtoull(width, nullptr, 10) >= sizeof bytes_ ||
                          (*point == '.' && std::strtoull(point + 1, nullptr, 10) >= sizeof bytes_);
    const size_t room = sizeof bytes_ - length_;
    const int printed = too_wide ? -1 : std::snprintf(bytes_ + length_, room, format, argument);
    if (printed < 0 || static_cast<size_t>(printed) >= room) {
        fits_ = false;
        return;
    }
    length_ += static_cast<size_t>(printed);
}
