#include "Settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace desk {
namespace {

enum ScopeMode : uint8_t { kOff = 0, kAllDay = 1, kRanges = 3 };
constexpr size_t kMostRanges = 6;
constexpr std::array<const char*, 7> kDays = {"sunday",   "monday", "tuesday", "wednesday",
                                              "thursday", "friday", "saturday"};
constexpr std::array<const char*, 5> kRangeTypes = {"regular", "motion", "io", "io+motion", "smart"};

constexpr char kSchedulePrefix[] = "schedule.";
constexpr char kStandardSchedule[] = "00:00-24:00 motion";

std::string Trimmed(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

Hour_Scope ParseRange(const std::string& text) {
    static const std::regex form(R"((\d{1,2}):(\d{2})\s*-\s*(\d{1,2}):(\d{2})(?:\s+(\S+))?)");
    std::smatch match;
    if (!std::regex_match(text, match, form))
        throw std::runtime_error("\"" + text + "\" is no range; say 08:00-12:00 motion");
    std::array<int, 4> numbers{};
    for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = std::stoi(match[i + 1]);
    const int begin = numbers[0] * 60 + numbers[1];
    const int end = numbers[2] * 60 + numbers[3];
    if (numbers[1] > 59 || numbers[3] > 59 || end > 24 * 60)
        throw std::runtime_error("\"" + text + "\" is no time of day");
    if (begin >= end)
        throw std::runtime_error("\"" + text + "\" does not end after it begins; a range never crosses midnight");

    const std::string type = match[5].matched ? match[5].str() : kRangeTypes[0];
    const auto* const found = std::find(kRangeTypes.begin(), kRangeTypes.end(), type);
    if (found == kRangeTypes.end()) {
        throw std::runtime_error("\"" + type + "\" is none of regular, motion, io, io+motion, smart");
    }
    Hour_Scope scope{};
    scope.beginHour.ucHour = static_cast<uint8_t>(numbers[0]);
    scope.beginHour.ucMinute = static_cast<uint8_t>(numbers[1]);
    scope.endHour.ucHour = static_cast<uint8_t>(numbers[2]);
    scope.endHour.ucMinute = static_cast<uint8_t>(numbers[3]);
    scope.beginHour.ucType = scope.endHour.ucType = static_cast<uint8_t>(found - kRangeTypes.begin());
    return scope;
}

Day_Hour_Scope ParseDay(const std::string& value) {
    Day_Hour_Scope day{};
    if (value == "all" || value == "off") {
        day.ucSocpeMode = value == "all" ? kAllDay : kOff;
        return day;
    }
    day.ucSocpeMode = kRanges;
    std::istringstream ranges(value);
    size_t count = 0;
    for (std::string range; std::getline(ranges, range, ',');) {
        if (count == kMostRanges) throw std::runtime_error("a day has at most six ranges");
        day.hourScope[count++] = ParseRange(Trimmed(range));
    }
    if (count == 0) throw std::runtime_error("say all, off, or ranges like 08:00-12:00 motion, 13:00-18:00");
    return day;
}

void ApplySchedule(SysInfo& record, const std::string& day_name, const std::string& value) {
    const auto* const found = std::find(kDays.begin(), kDays.end(), day_name);
    if (found == kDays.end() && day_name != "daily") {
        throw std::runtime_error("there is no setting \"schedule." + day_name +
                                 "\"; there are schedule.daily and schedule.sunday to .saturday");
    }
    const Day_Hour_Scope parsed = ParseDay(value);
    for (size_t day = 0; day < kDays.size(); ++day) {
        if (day_name == "daily" || kDays[day] == day_name) record.Record_config.weekScope.dayScope[day] = parsed;
    }
}

std::pair<std::string, std::string> SplitLine(const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) throw std::runtime_error("no \"NAME = VALUE\"");
    return {Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1))};
}

}  // namespace

void ApplySetting(SysInfo& record, const std::string& name, const std::string& value) {
    if (name.starts_with(kSchedulePrefix)) {
        ApplySchedule(record, name.substr(sizeof kSchedulePrefix - 1), value);
        return;
    }
    const Setting& setting = SettingByName(name);
    int64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size()) {
        throw std::runtime_error(name + " takes a whole number, not \"" + value + "\"");
    }
    WriteSetting(record, setting, number);
}

void ApplySettingLine(SysInfo& record, const std::string& line) {
    const auto [name, value] = SplitLine(line);
    ApplySetting(record, name, value);
}

void ApplyStandardSettings(SysInfo& record) {
    for (const Setting& setting : AllSettings()) WriteSetting(record, setting, setting.standard);
    ApplySetting(record, "schedule.daily", kStandardSchedule);
}

std::string StandardSettingsText() {
    std::ostringstream text;
    text << "# Settings of the desk camera.  Edit and save: a running camera reads them again.\n";
    for (const Setting& setting : AllSettings()) {
        if (setting.offset >= offsetof(SysInfo, Record_config.weekScope) &&
            setting.offset < offsetof(SysInfo, Record_config.weekScope) + sizeof(Week_Scope)) {
            continue;  // told as a schedule
        }
        std::string line = setting.name + " = " + std::to_string(setting.standard);
        if (!setting.comment.empty())
            line += std::string(line.size() < 40 ? 40 - line.size() : 1, ' ') + "# " + setting.comment;
        text << line << '\n';
    }
    text << "\n# When to record: all, off, or up to six ranges; in a range these alarms become events:\n"
            "# regular (none), motion, io, io+motion, smart.  schedule.daily sets all seven days.\n";
    for (const char* day : kDays) text << kSchedulePrefix << day << " = " << kStandardSchedule << '\n';
    return text.str();
}

bool SettingsFile::Changed() const {
    struct stat now {};
    if (stat(path_.c_str(), &now) != 0) return false;  // an editor that replaces it
    return now.st_ino != status_.st_ino || now.st_size != status_.st_size ||
           now.st_mtim.tv_sec != status_.st_mtim.tv_sec || now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

// The schedule's lines build on each other ("daily", then a day of its own): one new line applies them all.
std::vector<SettingProblem> SettingsFile::Read(SysInfo& record) {
    // Looked at before it is opened: a file replaced in between is then seen as changed once more, not missed.
    const bool is_there = stat(path_.c_str(), &status_) == 0;
    std::ifstream file(path_);
    if (!is_there || !file) return {{0, "cannot read " + path_}};
    std::vector<SettingProblem> problems;
    struct Line {
        int number;
        std::string name, value;
        bool is_new;
    };
    std::vector<Line> lines;
    bool new_schedule = false;
    int number = 0;
    for (std::string text; std::getline(file, text);) {
        ++number;
        text.resize(std::min(text.size(), text.find('#')));
        if (Trimmed(text).empty()) continue;
        try {
            auto [name, value] = SplitLine(text);
            const auto before = applied_.find(name);
            const bool is_new = before == applied_.end() || before->second != value;
            new_schedule |= is_new && name.starts_with(kSchedulePrefix);
            lines.push_back({number, name, value, is_new});
        } catch (const std::runtime_error& error) {
            problems.push_back({number, error.what()});
        }
    }
    for (const Line& line : lines) {
        if (!line.is_new && !(new_schedule && line.name.starts_with(kSchedulePrefix))) continue;
        try {
            ApplySetting(record, line.name, line.value);
            applied_[line.name] = line.value;
        } catch (const std::runtime_error& error) {
            problems.push_back({line.number, error.what()});
        }
    }
    return problems;
}

}  // namespace desk
