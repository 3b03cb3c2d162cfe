// printf into a string, for messages of the tools and the formatter; cut at 255 characters.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

[[gnu::format(printf, 1, 2)]] inline std::string FormatText(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}
