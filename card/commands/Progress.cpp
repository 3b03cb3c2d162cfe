#include "commands/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace card {

Progress::Progress(std::string what) : what_(std::move(what)), terminal_(isatty(STDERR_FILENO) != 0) {}

void Progress::Clear() {
    if (shown_ >= 0) std::fputs("\r\033[K", stderr);
    shown_ = -1;
}

void Progress::Show(uint64_t done, uint64_t total) {
    if (!terminal_ || total == 0) return;
    const int percent = static_cast<int>(std::min(done, total) * 100.0 / static_cast<double>(total));
    if (percent == shown_) return;
    shown_ = percent;
    constexpr int kWidth = 40;
    const std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
    std::fprintf(stderr, "\r%s [%-*s] %3d %%", what_.c_str(), kWidth, bar.c_str(), percent);
    std::fflush(stderr);
}

}  // namespace card
