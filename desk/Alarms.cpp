#include "Alarms.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace desk {
namespace {

constexpr std::array<const char*, ALARM_SOURCE_DEF_NUMS> kNames = {
    "io0",   "io1",         "motion",    "cover", "net_lost",    "ip_conflict",      "pir",       "mq2",
    "audio", "crossborder", "intrusion", "face",  "people_stay", "people_gathering", "io_motion", "io_output"};

std::optional<std::chrono::milliseconds> ParseTime(const std::string& text) {
    static const std::regex form(R"((?:(\d{1,4})m)?(?:(\d{1,6}(?:\.\d{1,3})?)s)?)");
    std::smatch match;
    if (text.empty() || !std::regex_match(text, match, form)) return std::nullopt;
    const double seconds =
        (match[1].matched ? 60.0 * std::stod(match[1]) : 0.0) + (match[2].matched ? std::stod(match[2]) : 0.0);
    return std::chrono::milliseconds(std::llround(seconds * 1000.0));
}

TimedAction ParseLine(const std::string& line) {
    std::istringstream words(line);
    std::string at, time, what, state, rest;
    words >> at >> time >> what;
    const auto when = ParseTime(time);
    if (at != "at" || !when) throw std::runtime_error("begins with no time; say: at 5s motion on");
    if (what == "set") {
        std::getline(words >> std::ws, rest);
        if (rest.find('=') == std::string::npos) throw std::runtime_error("say: at 5s set NAME = VALUE");
        return {*when, std::nullopt, false, rest};
    }
    const auto source = AlarmByName(what);
    if (!source) throw std::runtime_error("there is no alarm \"" + what + "\"; there are " + AlarmNames());
    words >> state;
    if ((state != "on" && state != "off") || words >> rest)
        throw std::runtime_error("ends neither in \"on\" nor in \"off\"");
    return {*when, source, state == "on", {}};
}

}  // namespace

std::optional<AlarmSourceDef> AlarmByName(const std::string& name) {
    if (name == "io") return ALARM_SOURCE_DEF_IO_0;
    if (name == "io+motion") return ALARM_SOURCE_DEF_IO_MOTION;
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    if (found == kNames.end()) return std::nullopt;
    return static_cast<AlarmSourceDef>(found - kNames.begin());
}

std::string AlarmNames() {
    std::string names;
    for (const char* name : kNames) names += (names.empty() ? "" : ", ") + std::string(name);
    return names;
}

std::vector<TimedAction> ParseAlarmScript(const std::string& text) {
    std::vector<TimedAction> actions;
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        line.resize(std::min(line.size(), line.find('#')));
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        try {
            actions.push_back(ParseLine(line));
        } catch (const std::runtime_error& error) {
            throw std::runtime_error("alarm script, line " + std::to_string(number) + ": " + error.what());
        }
    }
    std::ranges::stable_sort(actions, {}, &TimedAction::at);
    return actions;
}

AlarmBoard::AlarmBoard() : board_(ALARM_BOARD_KEY, ALARM_BOARD_SIZE, "alarm board") {
    if (libAlarmProcessInit() != 0) throw std::runtime_error("cannot have the alarm board");
    for (int source = 0; source < ALARM_SOURCE_DEF_NUMS; ++source) Set(static_cast<AlarmSourceDef>(source), false);
}

AlarmBoard::~AlarmBoard() {
    libAlarmProcessCleanup();
}

void AlarmBoard::Set(AlarmSourceDef source, bool on) {
    AlarmDataWrite(source, on ? ALARM_STATUS_DEF_ON : ALARM_STATUS_DEF_OFF);
}

std::string AlarmBoard::Status() const {
    AlarmData board{};
    AlarmDataRead(&board);
    std::string names;
    for (size_t i = 0; i < kNames.size(); ++i) {
        if (board.alarm[i].status == ALARM_STATUS_DEF_ON) names += (names.empty() ? "" : ", ") + std::string(kNames[i]);
    }
    return names.empty() ? "none" : names;
}

}  // namespace desk
