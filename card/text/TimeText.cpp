#include "text/TimeText.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "text/Error.h"

namespace card {

namespace {

tm Fields(uint32_t seconds, bool utc) {
    const time_t time = static_cast<time_t>(seconds);
    tm fields{};
    if (utc) {
        gmtime_r(&time, &fields);
    } else {
        localtime_r(&time, &fields);
    }
    return fields;
}

std::string Format(const char* format, const tm& fields) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &fields));
}

// What a text says of a moment; a clock part that it leaves out is 0.
struct Moment {
    bool has_day = false;
    bool has_clock = false;
    tm fields{};
    std::optional<int> zone;  // s east of UTC
};

bool ReadNumber(const char*& at, int digits, int least, int most, int& value) {
    value = 0;
    for (int i = 0; i < digits; ++i, ++at) {
        if (*at < '0' || *at > '9') return false;
        value = value * 10 + (*at - '0');
    }
    return value >= least && value <= most;
}

bool Skip(const char*& at, char wanted) {
    if (*at != wanted) return false;
    ++at;
    return true;
}

bool ReadDay(const char*& at, Moment& moment) {
    int year = 0;
    int month = 0;
    if (!ReadNumber(at, 4, 1970, 2106, year) || !Skip(at, '-') || !ReadNumber(at, 2, 1, 12, month) || !Skip(at, '-') ||
        !ReadNumber(at, 2, 1, 31, moment.fields.tm_mday)) {
        return false;
    }
    moment.fields.tm_year = year - 1900;
    moment.fields.tm_mon = month - 1;
    tm normal = moment.fields;
    timegm(&normal);
    moment.has_day = normal.tm_mday == moment.fields.tm_mday;  // no 30th of February
    return moment.has_day;
}

bool ReadClock(const char*& at, Moment& moment) {
    moment.has_clock = true;
    return ReadNumber(at, 2, 0, 23, moment.fields.tm_hour) && Skip(at, ':') &&
           ReadNumber(at, 2, 0, 59, moment.fields.tm_min) &&
           (!Skip(at, ':') || ReadNumber(at, 2, 0, 59, moment.fields.tm_sec));
}

bool ReadZone(const char*& at, Moment& moment) {
    if (*at == '\0') return true;
    if (Skip(at, 'Z')) {
        moment.zone = 0;
        return true;
    }
    const int sign = *at == '-' ? -1 : 1;
    int hours = 0;
    int minutes = 0;
    if (!Skip(at, '+') && !Skip(at, '-')) return false;
    if (!ReadNumber(at, 2, 0, 14, hours) || !Skip(at, ':') || !ReadNumber(at, 2, 0, 59, minutes)) return false;
    moment.zone = sign * (hours * 60 + minutes) * 60;
    return true;
}

std::optional<Moment> ReadMoment(const std::string& text) {
    Moment moment;
    const char* at = text.c_str();
    if (text.size() >= 10 && text[4] == '-') {
        if (!ReadDay(at, moment)) return std::nullopt;
        if (*at != '\0' && *at != 'Z' && !Skip(at, 'T') && !Skip(at, ' ')) return std::nullopt;
    }
    if ((!moment.has_day || (*at >= '0' && *at <= '9')) && !ReadClock(at, moment)) return std::nullopt;
    if (!ReadZone(at, moment) || *at != '\0') return std::nullopt;
    return moment;
}

}  // namespace

std::string TimeStyle::DateTime(uint32_t seconds) const {
    return Format("%Y-%m-%d %H:%M:%S", Fields(seconds, utc));
}
std::string TimeStyle::Day(uint32_t seconds) const {
    return Format("%Y-%m-%d", Fields(seconds, utc));
}
std::string TimeStyle::Weekday(uint32_t seconds) const {
    return Format("%A", Fields(seconds, utc));
}
std::string TimeStyle::Clock(uint32_t seconds) const {
    return Format("%H:%M:%S", Fields(seconds, utc));
}
std::string TimeStyle::Compact(uint32_t seconds) const {
    return Format("%Y%m%d-%H%M%S", Fields(seconds, utc));
}

std::string TimeStyle::Iso(uint32_t seconds) const {
    const tm fields = Fields(seconds, utc);
    if (utc) return Format("%Y-%m-%dT%H:%M:%SZ", fields);
    const std::string zone = Format("%z", fields);  // "+0100"
    return Format("%Y-%m-%dT%H:%M:%S", fields) + zone.substr(0, 3) + ":" + zone.substr(3);
}

uint32_t TimeStyle::Parse(const std::string& text, std::optional<uint32_t> day, bool end_of_day) const {
    std::optional<Moment> moment = ReadMoment(text);
    if (!moment) {
        throw CardError(
            "\"" + text + "\" is no time; write it like \"2026-11-21 08:00:05\", \"2026-11-21\" or \"08:00\"", kUsage);
    }
    if (!moment->has_day) {
        if (!day) throw CardError("\"" + text + "\" does not say which day; add it: \"2026-11-21 08:00\"", kUsage);
        const tm of_day = Fields(*day, utc);
        moment->fields.tm_year = of_day.tm_year;
        moment->fields.tm_mon = of_day.tm_mon;
        moment->fields.tm_mday = of_day.tm_mday;
    } else if (!moment->has_clock && end_of_day) {
        moment->fields.tm_hour = 23;
        moment->fields.tm_min = moment->fields.tm_sec = 59;
    }
    moment->fields.tm_isdst = -1;
    const bool by_utc = utc || moment->zone.has_value();
    const int64_t seconds = (by_utc ? timegm(&moment->fields) : mktime(&moment->fields)) - moment->zone.value_or(0);
    if (seconds < 0 || seconds > UINT32_MAX) {
        throw CardError("\"" + text + "\" is a time that no card can hold (1970 to 2106)", kUsage);
    }
    return static_cast<uint32_t>(seconds);
}

std::string Duration(uint64_t seconds) {
    char text[64];
    const uint64_t hours = seconds / 3600;
    const unsigned minutes = static_cast<unsigned>(seconds / 60 % 60);
    const unsigned rest = static_cast<unsigned>(seconds % 60);
    if (hours != 0) {
        std::snprintf(text, sizeof text, "%" PRIu64 " h %02u min %02u s", hours, minutes, rest);
    } else if (minutes != 0) {
        std::snprintf(text, sizeof text, "%u min %02u s", minutes, rest);
    } else {
        std::snprintf(text, sizeof text, "%u s", rest);
    }
    return text;
}

std::string Bytes(uint64_t bytes) {
    static constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024) return std::to_string(bytes) + " bytes";
    double value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

std::string Counted(uint64_t count, const char* thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace card
