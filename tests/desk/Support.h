// Files, what a journal says, and a running desk camera.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "DeskCamera.h"
#include "Ffmpeg.h"
#include "libAVServerAccess.h"
#include "support/WaitUntil.h"

namespace desk_test {

using support::WaitUntil;

inline void WriteText(const std::string& path, const std::string& text) {
    const std::string replacement = path + ".new";
    std::ofstream(replacement) << text;
    ASSERT_EQ(std::rename(replacement.c_str(), path.c_str()), 0);
}

// What a shell command prints; fails the test when the command fails.
inline std::string Shell(const std::string& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "re");
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << text;
    return text;
}

struct Line {  // of the journal
    int stream;
    bool video;
    bool key;
};

inline std::vector<Line> ReadJournal(const std::string& path) {
    std::vector<Line> lines;
    std::ifstream file(path);
    for (std::string text; std::getline(file, text) && !file.eof();) {
        if (text.starts_with("#")) continue;
        int stream = 0, key = 0;
        char kind = 0;
        EXPECT_EQ(std::sscanf(text.c_str(), "stream=%d kind=%c%*s serial=%*u length=%*u key=%d", &stream, &kind, &key),
                  3)
            << text;
        lines.push_back({stream, kind == 'v', key == 1});
    }
    return lines;
}

// A desk camera at work on a thread of its own; small pictures unless `settings` says otherwise.
class Running {
  public:
    static constexpr char kSettings[] = "/tmp/desk_test.settings", kJournal[] = "/tmp/desk_test.journal";

    Running() : Running(desk::DeskCameraOptions()) {}
    explicit Running(desk::DeskCameraOptions options, const std::string& settings = Small()) {
        av_log_set_level(AV_LOG_ERROR);
        AVServerAccessCleanup();  // this process's client may hold an earlier camera's queue
        WriteText(kSettings, settings);
        options.settings = kSettings;
        options.journal = kJournal;
        camera_.emplace(options);
        thread_ = std::thread([this] { camera_->Run(); });
    }
    ~Running() {
        camera_->RequestStop();
        Join();
    }

    desk::DeskCamera* operator->() { return &*camera_; }
    void Join() {
        if (thread_.joinable()) thread_.join();
    }

    static std::string Small() {
        return "stream_config[0].width = 320\nstream_config[0].height = 240\n"
               "stream_config[1].width = 160\nstream_config[1].height = 120\n"
               "codec_advconfig[0].ipRatio = 1000\ncodec_advconfig[1].ipRatio = 1000\n";
    }

    static std::vector<Line> Video(int stream) {
        std::vector<Line> lines = ReadJournal(kJournal);
        std::erase_if(lines, [stream](const Line& line) { return !line.video || line.stream != stream; });
        return lines;
    }
    // Waits until so many more video frames of the stream are out than now.
    static void WaitForVideo(int stream, size_t more) {
        const size_t wanted = Video(stream).size() + more;
        ASSERT_TRUE(WaitUntil([&] { return Video(stream).size() >= wanted; }));
    }

  private:
    std::optional<desk::DeskCamera> camera_;
    std::thread thread_;
};

}  // namespace desk_test
