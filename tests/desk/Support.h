// Clients of the desk camera's peers, written apart from them: a ring reader, files, and a running desk camera.
#pragma once

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DeskCamera.h"
#include "Ffmpeg.h"
#include "libAVServerAccess.h"
#include "support/WaitUntil.h"

namespace desk_test {

using support::WaitUntil;

inline std::string ReadText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

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

struct RingFrame {
    AVDataInfo header;
    std::vector<uint8_t> payload;
};

// Follows a ring as any client of the media server may: asks for the write position, then goes from record to record.
class RingReader {
  public:
    RingReader(key_t key, uint32_t ring_size, int stream) : size_(ring_size), stream_(stream) {
        segment_ = static_cast<const uint8_t*>(shmat(shmget(key, 0, 0), nullptr, SHM_RDONLY));
        EXPECT_NE(reinterpret_cast<intptr_t>(segment_), -1);
        position_ = Ask(0x2001);
    }
    ~RingReader() { shmdt(segment_); }

    // The answer of the media server to a client of type 9: its position, and its result in `result`.
    uint32_t Ask(int32_t command, int32_t* result = nullptr) const {
        struct {
            long type;
            int32_t words[11];
        } message = {1, {9, command, stream_}};
        const int queue = msgget(0x61766C79, 0);
        EXPECT_EQ(msgsnd(queue, &message, sizeof message.words, 0), 0);
        EXPECT_EQ(msgrcv(queue, &message, sizeof message.words, 9, 0), 44);
        if (result != nullptr) *result = message.words[6];
        return static_cast<uint32_t>(message.words[3]);
    }

    void GoTo(uint32_t position) { position_ = position; }

    // The next frame, if it comes.
    std::optional<RingFrame> Next() {
        std::optional<RingFrame> frame;
        WaitUntil([&] {
            const AVDataInfo header = Header();
            if (header.AVDataCheck != 0x12345678) return false;
            if (header.EndFlag == 255 || header.EndFlag == 253) {
                restarts += header.EndFlag == 253;
                position_ = 0;
                return false;
            }
            if (header.EndFlag != 254) return false;
            const uint32_t end = position_ + 64 + static_cast<uint32_t>(header.AVDataLen);
            EXPECT_LE(end + 64, size_) << "no room for the next header";
            if (header.AVDataLen < 0 || end > size_) return false;
            frame = {header, {segment_ + position_ + 64, segment_ + end}};
            position_ = end;
            return true;
        });
        return frame;
    }

    int restarts = 0;

  private:
    AVDataInfo Header() const {
        EXPECT_LE(position_ + 64, size_);
        AVDataInfo header;
        std::memcpy(&header, segment_ + position_, sizeof header);
        std::atomic_thread_fence(std::memory_order_acquire);
        const int32_t end_flag = header.EndFlag;  // written last: what belongs to it is there for a second look
        std::memcpy(&header, segment_ + position_, sizeof header);
        header.EndFlag = end_flag;
        return header;
    }

    const uint8_t* segment_;
    uint32_t size_;
    int stream_;
    uint32_t position_ = 0;
};

struct Line {  // of the journal
    int stream;
    bool video;
    uint32_t serial, length;
    bool key;
    uint32_t position, crc;
};

inline std::vector<Line> ReadJournal(const std::string& path) {
    std::vector<Line> lines;
    std::ifstream file(path);
    for (std::string text; std::getline(file, text) && !file.eof();) {
        if (text.starts_with("#")) continue;
        Line line{};
        char kind = 0;
        int key = 0;
        EXPECT_EQ(std::sscanf(text.c_str(),
                              "stream=%d kind=%c%*s serial=%u length=%u key=%d time_ms=%*d position=%u crc32=%x",
                              &line.stream, &kind, &line.serial, &line.length, &key, &line.position, &line.crc),
                  7)
            << text;
        line.video = kind == 'v';
        line.key = key == 1;
        lines.push_back(line);
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
