// deskcamera: everything the recorder meets on a camera, on a PC, fed with real video.
extern "C" {
#include <libavutil/log.h>
}

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <fstream>

#include "DeskCamera.h"

namespace {

desk::DeskCamera* running = nullptr;

void Stop(int) {
    running->RequestStop();
}

int RunCamera(const desk::DeskCameraOptions& options) {
    av_log_set_level(AV_LOG_ERROR);
    desk::DeskCamera camera(options);
    running = &camera;
    struct sigaction action {};
    action.sa_handler = Stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    camera.Run();
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    return 0;
}

int WriteSettings(const std::string& path) {
    std::ofstream file(path);
    file << desk::StandardSettingsText();
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
    return 0;
}

int Ask(const std::string& control, const std::string& line) {
    const std::string answer = desk::AskDeskCamera(control, line);
    const bool failed = answer.starts_with("error");
    std::fputs(answer.c_str(), failed ? stderr : stdout);
    return failed ? 1 : 0;
}

// Adds the verbs that talk to a running desk camera; `line` becomes what is to be said.
void AddVerbs(CLI::App& app, std::string& line) {
    static std::string name, state, setting;
    static int stream = 0;
    app.require_subcommand(0, 1);
    app.add_subcommand("status", "tell what the running desk camera does")->callback([&line] { line = "status"; });
    auto* alarm = app.add_subcommand("alarm", "raise or clear an alarm of the running desk camera");
    alarm->add_option("name", name, desk::AlarmNames())->required();
    alarm->add_option("state", state, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    alarm->callback([&line] { line = "alarm " + name + " " + state; });
    auto* set = app.add_subcommand("set", "change a setting of the running desk camera");
    set->add_option("setting", setting, "NAME=VALUE, as in the settings file")->required();
    set->callback([&line] { line = "set " + setting; });
    for (const char* verb : {"keyframe", "restart"}) {
        auto* command =
            app.add_subcommand(verb, std::string(verb) == "keyframe" ? "make the next frame of a stream a key frame"
                                                                     : "restart a stream's encoder");
        command->add_option("stream", stream, "0 or 1")->capture_default_str()->check(CLI::Range(0, 1));
        command->callback([&line, verb] { line = std::string(verb) + " " + std::to_string(stream); });
    }
}

int RunTool(int argc, char** argv) {
    desk::DeskCameraOptions options;
    std::string write_settings, line;
    CLI::App app(
        "Everything the recorder meets on a camera, on a PC: media server, system server, alarm board, watchdog.\n"
        "Without --input: a moving test picture with a clock, and a tone.");
    app.add_option("--input", options.feed.input,
                   "file, address (rtsp://...) or device (/dev/video0); H.264 and H.265 pass through unchanged");
    app.add_flag("--loop", options.feed.loop, "start the input again at its end");
    app.add_option("--speed", options.feed.speed, "so many times real time")->check(CLI::Range(0.1, 100.0));
    app.add_option("--settings", options.settings, "settings file; read again whenever it changes")
        ->check(CLI::ExistingFile);
    app.add_option("--write-settings", write_settings, "write the standard settings to a file, and end");
    app.add_option("--alarms", options.alarms, "script of timed alarms: lines like \"at 5s motion on\"")
        ->check(CLI::ExistingFile);
    app.add_option("--journal", options.journal, "write a line for every published record");
    app.add_option("--dump-stream", options.dumps, "write the published video of stream 0; a second time: of stream 1")
        ->expected(1)
        ->take_all();
    app.add_option("--control", options.control, "socket of the running desk camera")->capture_default_str();
    app.add_option("--seconds", options.seconds, "end after so many seconds")->check(CLI::PositiveNumber);
    app.add_option("--hostile", options.hostile,
                   "misbehave for a while, by this seed: garbage in the rings, bad and late answers");
    AddVerbs(app, line);
    CLI11_PARSE(app, argc, argv);
    if (options.dumps.size() > desk::MediaServer::kStreams)
        throw std::runtime_error("--dump-stream: there are two streams");
    if (!write_settings.empty()) return WriteSettings(write_settings);
    return line.empty() ? RunCamera(options) : Ask(options.control, line);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return RunTool(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "deskcamera: %s\n", error.what());
        return 1;
    }
}
