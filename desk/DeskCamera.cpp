#include "DeskCamera.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace desk {
namespace {

constexpr int kPoll_ms = 50;
constexpr std::chrono::seconds kAfterEnd{1};  // what was published last is still to be read and asked about

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace

DeskCamera::DeskCamera(const DeskCameraOptions& options) : options_(options), control_(options.control) {
    if (!options_.alarms.empty()) actions_ = ParseAlarmScript(ReadFile(options_.alarms));
    if (!options_.journal.empty()) journal_.Open(options_.journal);
    for (size_t stream = 0; stream < options_.dumps.size(); ++stream) {
        journal_.OpenDump(static_cast<int>(stream), options_.dumps[stream]);
    }
    if (options_.hostile) hostility_ = std::make_unique<Hostility>(*options_.hostile);
    media_ = std::make_unique<MediaServer>(journal_, hostility_.get());
    system_ = std::make_unique<SystemServer>(InitialRecord(), [this](int stream) { media_->ForceKeyFrame(stream); });
    feeder_ = std::make_unique<Feeder>(options_.feed, *system_, *media_);
}

SysInfo DeskCamera::InitialRecord() {
    SysInfo record{};
    ApplyStandardSettings(record);
    if (options_.settings.empty()) return record;
    settings_.emplace(options_.settings);
    const std::string problems = ProblemsOf(record);
    if (!problems.empty()) throw std::runtime_error("the settings are not good\n" + problems);
    return record;
}

void DeskCamera::ReadSettings() {
    std::string problems;
    system_->Change([&](SysInfo& record) { problems = ProblemsOf(record); });
    if (!problems.empty()) std::fprintf(stderr, "deskcamera: these settings stay as they were\n%s", problems.c_str());
}

// Reads the settings file into the record; what cannot be applied, a line each.
std::string DeskCamera::ProblemsOf(SysInfo& record) {
    std::string text;
    for (const SettingProblem& problem : settings_->Read(record)) {
        text += settings_->Path() + ", line " + std::to_string(problem.line) + ": " + problem.text + "\n";
    }
    return text;
}

void DeskCamera::Run() {
    const auto start = Clock::now();
    std::optional<Clock::time_point> ended;
    while (!stop_) {
        const auto now = Clock::now();
        if (options_.seconds && now - start > std::chrono::duration<double>(*options_.seconds)) break;
        if (feeder_->Ended() && !ended) ended = now;
        if (ended && (now - *ended > kAfterEnd || !feeder_->Failure().empty())) break;
        RunDueActions(now - start);
        if (settings_ && settings_->Changed()) ReadSettings();
        if (const auto news = watchdog_.Check(time(nullptr))) std::fprintf(stderr, "deskcamera: %s\n", news->c_str());
        TellStatus(now - start);
        control_.Serve(kPoll_ms, [this](const std::string& line) { return Answer(line); });
    }
    if (isatty(STDOUT_FILENO)) std::printf("\n");
    if (const std::string failure = feeder_->Failure(); !failure.empty()) throw std::runtime_error(failure);
}

void DeskCamera::RunDueActions(Clock::duration since_start) {
    for (; next_action_ < actions_.size() && actions_[next_action_].at <= since_start; ++next_action_) {
        const TimedAction& action = actions_[next_action_];
        if (action.alarm) {
            alarms_.Set(*action.alarm, action.on);
            continue;
        }
        try {
            system_->Change([&](SysInfo& record) { ApplySettingLine(record, action.setting); });
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "deskcamera: alarm script: %s\n", error.what());
        }
    }
}

void DeskCamera::TellStatus(Clock::duration since_start) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since_start);
    if (seconds == told_ || !isatty(STDOUT_FILENO)) return;
    told_ = seconds;
    std::printf("\r\x1b[K%5lld s  %s", static_cast<long long>(seconds.count()), Status().c_str());
    std::fflush(stdout);
}

std::string DeskCamera::Status() {
    std::ostringstream text;
    for (int stream = 0; stream < MediaServer::kStreams; ++stream) {
        text << "stream " << stream << ": " << media_->Published(stream) << " frames, " << media_->FrameRate(stream)
             << "/s";
        if (const uint32_t dropped = media_->Dropped(stream)) text << ", " << dropped << " dropped";
        text << "; ";
    }
    text << "alarms: " << alarms_.Status() << "; recorder: " << watchdog_.Status(time(nullptr));
    return text.str();
}

// "status", "alarm NAME on|off", "set NAME = VALUE", "keyframe STREAM", "restart STREAM"
std::string DeskCamera::Answer(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    try {
        if (verb == "status") return Status();
        if (verb == "alarm" || verb == "set") {
            const TimedAction action =
                ParseAlarmScript("at 0s " + line.substr(verb == "alarm" ? verb.size() : 0)).at(0);
            if (action.alarm) {
                alarms_.Set(*action.alarm, action.on);
            } else {
                system_->Change([&](SysInfo& record) { ApplySettingLine(record, action.setting); });
            }
            return "ok";
        }
        int stream = -1;
        if ((verb != "keyframe" && verb != "restart") || !(words >> stream) || stream < 0 ||
            stream >= MediaServer::kStreams) {
            return "error: say status, alarm NAME on|off, set NAME = VALUE, keyframe STREAM or restart STREAM";
        }
        verb == "keyframe" ? media_->ForceKeyFrame(stream) : media_->RequestRestart(stream);
        return "ok";
    } catch (const std::runtime_error& error) {
        return std::string("error: ") + error.what();
    }
}

}  // namespace desk
