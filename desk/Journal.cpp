#include "Journal.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "Crc32.h"

namespace desk {
namespace {

void OpenFor(std::ofstream& file, const std::string& path) {
    file.open(path, std::ios::binary | std::ios::trunc);
    if (!file) throw std::runtime_error("cannot write " + path);
}

int64_t WallMilliseconds() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

void Journal::Open(const std::string& path) {
    OpenFor(lines_, path);
}

void Journal::OpenDump(int stream, const std::string& path) {
    OpenFor(dumps_.at(static_cast<size_t>(stream)), path);
}

void Journal::Note(int stream, const FrameRing::Record& record, const FrameRing::Place& place) {
    const std::lock_guard lock(mutex_);
    const bool video = record.kind == AV_FRAME_TYPE_VIDEO;
    if (std::ofstream& dump = dumps_.at(static_cast<size_t>(stream)); video && dump.is_open()) {
        dump.write(reinterpret_cast<const char*>(record.payload.data()),
                   static_cast<std::streamsize>(record.payload.size()));
        dump.flush();
    }
    if (!lines_.is_open()) return;
    char line[200];
    const int length = std::snprintf(
        line, sizeof line, "stream=%d kind=%s serial=%u length=%zu key=%d time_ms=%lld position=%u crc32=%08x\n",
        stream, video ? "video" : "audio", place.serial, record.payload.size(), record.key ? 1 : 0,
        static_cast<long long>(WallMilliseconds()), place.position, Crc32(record.payload));
    lines_.write(line, length);
    lines_.flush();
}

void Journal::Remark(const std::string& text) {
    const std::lock_guard lock(mutex_);
    if (lines_.is_open()) lines_ << "# " << text << std::endl;
}

}  // namespace desk
