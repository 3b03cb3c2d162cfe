#include "commands/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "text/TimeText.h"

namespace card {

namespace {

constexpr double kFirstGuess = 2;  // s before a time to go means something
constexpr double kRedraw = 1;      // s after which the time to go is drawn again
constexpr double kLine = 10;       // s from line to line where there is no terminal

double Seconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

Progress::Progress(std::string what)
    : what_(std::move(what)), terminal_(isatty(STDERR_FILENO) != 0), begin_(Clock::now()), drawn_(begin_) {}

void Progress::Clear() {
    if (terminal_ && shown_ >= 0) std::fputs("\r\033[K", stderr);
    shown_ = -1;
}

std::string Progress::TimeToGo(uint64_t done, uint64_t total, double seconds) const {
    if (seconds < kFirstGuess || done == 0) return "";
    const double left = seconds * static_cast<double>(total - done) / static_cast<double>(done);
    return ", " + Duration(static_cast<uint64_t>(std::llround(left))) + " to go";
}

void Progress::Show(uint64_t done, uint64_t total) {
    if (total == 0) return;
    done = std::min(done, total);
    const int percent = static_cast<int>(static_cast<double>(done) * 100.0 / static_cast<double>(total));
    const Clock::time_point now = Clock::now();
    const double pause = Seconds(now - drawn_);
    if (terminal_ ? percent == shown_ && pause < kRedraw : pause < kLine) return;
    shown_ = percent;
    drawn_ = now;
    const std::string to_go = TimeToGo(done, total, Seconds(now - begin_));
    if (!terminal_) {
        std::fprintf(stderr, "%s: %d %%%s\n", what_.c_str(), percent, to_go.c_str());
        return;
    }
    constexpr int kWidth = 40;
    const std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
    std::fprintf(stderr, "\r%s [%-*s] %3d %%%s\033[K", what_.c_str(), kWidth, bar.c_str(), percent, to_go.c_str());
    std::fflush(stderr);
}

}  // namespace card
