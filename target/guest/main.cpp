// guestcamera CLIP JOURNAL: the recorder's peers on the emulated camera, fed with a prepared clip in real time.
//
// Every picture and sound frame carries its number, so that whoever looks at the card later knows each one: pictures in
// a user-data SEI message after the slices ("recframe" and 16 hex digits), sound in its first bytes.  A forced key
// frame jumps to the clip's next one.  Ends by SIGTERM.
#include <csignal>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "Alarms.h"
#include "Clip.h"
#include "Journal.h"
#include "MediaServer.h"
#include "Settings.h"
#include "SystemServer.h"
#include "Watchdog.h"

namespace {

constexpr int kStream = 0;
constexpr int kFrameRate = 25;
constexpr long kFrameTime_ns = 1'000'000'000 / kFrameRate;
constexpr size_t kSoundBytes = 320;  // 40 ms of G.711
constexpr uint8_t kSilence = 0xFF;   // mu-law

volatile std::sig_atomic_t stopped = 0;

// ITU-T H.264 D.1.7 and H.265 D.2.7: user data unregistered; here its UUID is "recframe" twice.
void Stamp(desk::AccessUnit& unit, desk::VideoCodec codec, uint64_t number) {
    constexpr uint8_t kAvcHead[] = {0, 0, 0, 1, 0x06, 5, 32};         // SEI
    constexpr uint8_t kHevcHead[] = {0, 0, 0, 1, 0x50, 0x01, 5, 32};  // suffix SEI
    char text[33];
    std::snprintf(text, sizeof text, "recframerecframe%016llx", static_cast<unsigned long long>(number));
    desk::Bytes& bytes = unit.bytes;
    if (codec == desk::VideoCodec::kH265) {
        bytes.insert(bytes.end(), std::begin(kHevcHead), std::end(kHevcHead));
    } else {
        bytes.insert(bytes.end(), std::begin(kAvcHead), std::end(kAvcHead));
    }
    bytes.insert(bytes.end(), text, text + 32);
    bytes.push_back(0x80);  // rbsp_trailing_bits
}

desk::Bytes Sound(uint64_t number) {
    desk::Bytes bytes(kSoundBytes, kSilence);
    char text[25];
    std::snprintf(text, sizeof text, "recsound%016llx", static_cast<unsigned long long>(number));
    std::copy_n(text, 24, bytes.begin());
    return bytes;
}

void SleepUntil(const timespec& due) {
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) != 0 && stopped == 0) {
    }
}

void Publish(guest::Clip& clip, desk::MediaServer& media) {
    timespec due{};
    clock_gettime(CLOCK_MONOTONIC, &due);
    for (uint64_t number = 1; stopped == 0; ++number) {
        const auto time_ms = static_cast<uint32_t>(number * 1000 / kFrameRate);
        {
            const desk::MediaServer::Turn turn = media.BeginFrame(kStream);
            if (turn.key_wanted) clip.GoToKeyFrame();
            desk::AccessUnit unit = clip.Next();
            Stamp(unit, clip.Codec(), number);
            media.PublishVideo(kStream, unit, time_ms);
        }
        media.PublishSound(Sound(number), time_ms);
        due.tv_nsec += kFrameTime_ns;
        if (due.tv_nsec >= 1'000'000'000) {
            due.tv_nsec -= 1'000'000'000;
            ++due.tv_sec;
        }
        SleepUntil(due);
    }
}

int Run(const char* clip_path, const char* journal_path) {
    guest::Clip clip(clip_path);
    desk::Journal journal;
    journal.Open(journal_path);
    SysInfo record{};
    desk::ApplyStandardSettings(record);
    desk::ApplySetting(record, "lan_config.nEncodingType1", clip.Codec() == desk::VideoCodec::kH265 ? "1" : "0");
    desk::ApplySetting(record, "stream_config[0].width", std::to_string(clip.Width()));
    desk::ApplySetting(record, "stream_config[0].height", std::to_string(clip.Height()));
    desk::MediaServer media(journal, nullptr);
    desk::SystemServer system(record, [&](int stream) { media.ForceKeyFrame(stream); });
    desk::AlarmBoard alarms;
    desk::Watchdog watchdog;
    Publish(clip, media);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: guestcamera CLIP JOURNAL\n");
        return 2;
    }
    signal(SIGTERM, [](int) { stopped = 1; });
    try {
        return Run(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "guestcamera: %s\n", error.what());
        return 1;
    }
}
