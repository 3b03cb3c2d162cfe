// least_recorder FOLDER BYTES_PER_SECOND: the least that recording can cost, for bench/compare to set beside the
// recorder.
//
// It wakes up 50 times a second, as the watch has to.  At every other time it copies a picture and a packet of sound
// out of a ring as large as the media server's, and makes the four writes that go with each, into two files of its own
// in FOLDER.  Nothing else: it packs nothing, looks for nothing, asks nobody.  Runs until it is stopped.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Descriptor.h"
#include "RecordFormat.h"

namespace {

constexpr size_t kRingBytes = 614400;
constexpr int64_t kPassNs = 20'000'000;
constexpr int64_t kSecondNs = 1'000'000'000;
constexpr size_t kPicturesPerSecond = 25;
constexpr size_t kSoundBytes = 320 + PS_PES_HEADER_SIZE;  // 40 ms of G.711 at 8 kHz, packed

class Store {
  public:
    explicit Store(const std::string& folder)
        : index_(Create(folder + "/least.index")), file_(Create(folder + "/least.record")) {}

    bool IsOpen() const { return index_.Get() >= 0 && file_.Get() >= 0; }

    bool Record(const char* bytes, size_t length) {
        if (at_ + length > RECORD_KEY_FRAME_BASE) at_ = 0;
        const bool is_written = Write(file_, at_, bytes, length) &&
                                Write(index_, record_file::SectionHeadOffset(0, 1), bytes, sizeof(RecordInfoHead_S)) &&
                                Write(index_, record_file::FileHeadOffset(0), bytes, sizeof(RecordFileInfoHead_S)) &&
                                Write(index_, 0, bytes, sizeof(RecordSystemInfoHead_S));
        at_ += length;
        return is_written;
    }

  private:
    static int Create(const std::string& path) { return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); }

    static bool Write(const Descriptor& file, uint64_t place, const char* bytes, size_t length) {
        return pwrite64(file.Get(), bytes, length, static_cast<off64_t>(place)) == static_cast<ssize_t>(length);
    }

    Descriptor index_;
    Descriptor file_;
    uint64_t at_ = 0;
};

void SleepToNextPass(timespec& due) {
    due.tv_nsec += kPassNs;
    due.tv_sec += due.tv_nsec / kSecondNs;
    due.tv_nsec %= kSecondNs;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
}

int Run(Store& store, size_t picture_bytes) {
    const std::vector<char> ring(kRingBytes, 'r');
    std::vector<char> packed(picture_bytes + kSoundBytes);
    size_t at = 0;
    timespec due{};
    clock_gettime(CLOCK_MONOTONIC, &due);
    while (true) {
        SleepToNextPass(due);
        SleepToNextPass(due);
        if (at + packed.size() > ring.size()) at = 0;
        std::memcpy(packed.data(), ring.data() + at, packed.size());
        at += packed.size();
        if (!store.Record(packed.data(), picture_bytes) || !store.Record(packed.data() + picture_bytes, kSoundBytes)) {
            std::perror("least_recorder: writing");
            return 1;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const size_t picture_bytes = argc == 3 ? std::strtoull(argv[2], nullptr, 10) / kPicturesPerSecond : 0;
    if (picture_bytes == 0 || picture_bytes > kRingBytes / 2) {
        std::fprintf(stderr, "usage: least_recorder FOLDER BYTES_PER_SECOND\n");
        return 2;
    }
    Store store(argv[1]);
    if (!store.IsOpen()) {
        std::perror(argv[1]);
        return 1;
    }
    return Run(store, picture_bytes);
}
