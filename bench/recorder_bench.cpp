// What the recorder costs beside the least that could be done with the same bytes: packing beside a copy, a
// recorded frame (stream, heads and index) beside a plain write.
// Runs inside a camera: desk/in-camera build/release/bench/recorder_bench
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "libAVRecord.h"
#include "libCameraAccess.h"
#include "libLog.h"
#include "libOthers.h"
#include "libRecordFile.h"

namespace {

constexpr int kFrameBytes = 20000;  // 4 Mbit/s at 25 pictures a second
constexpr int kPictures = 1000;     // of one run; then it begins anew at the file's start

// A frame between key frames as an encoder makes it: no start code but its own.
std::string Frame(char nal_type) {
    std::string frame("\0\0\0\1", 4);
    frame += nal_type;
    while (frame.size() < kFrameBytes) frame += static_cast<char>(1 + frame.size() % 251);
    return frame;
}

void Copy(benchmark::State& state) {
    const std::string frame = Frame(0x41);
    std::vector<char> out(RECORD_PACK_BUFFER_SIZE);
    for (auto _ : state) {
        std::memcpy(out.data(), frame.data(), frame.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}
BENCHMARK(Copy);

void Pack(benchmark::State& state) {
    const bool is_key = state.range(0) != 0;
    const std::string frame = Frame(is_key ? 0x67 : 0x41);
    const AVStreamParam param{4096, CODE_AUDIO_G711U, 1280, 720, 4096, 25, 8000, 33000};
    std::vector<char> out(RECORD_PACK_BUFFER_SIZE);
    for (auto _ : state) {
        libAVRecordVideoPsStreamWrite(is_key, frame.data(), kFrameBytes, out.data(), 1, &param, 1700000000);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}
BENCHMARK(Pack)->ArgName("key")->Arg(0)->Arg(1);

// A card in memory with one record file, so that the recorder is measured and not a card.
class Store {
  public:
    Store() {
        if (std::getenv("IN_CAMERA") == nullptr) {
            std::fputs("recorder_bench: run it as desk/in-camera build/release/bench/recorder_bench\n", stderr);
            std::exit(2);
        }
        if (mount("/dev/mmcblk0p1", RECORD_STORE_DIRECTORY, "tmpfs", 0, "size=1g") != 0) std::abort();
        for (const char* name : {RECORD_STORE_DIRECTORY RECORD_INDEX_NAME, RECORD_STORE_DIRECTORY "hi000000.mp4"}) {
            const int fd = open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (ftruncate(fd, RECORD_FILE_SIZE) != 0) std::abort();
            close(fd);
        }
        CameraDeviceInit(CAMERA_DEV_COMMON, PROCESS_AVRECORD);
        LogCleanup();
        GetSysconfigData()->stream_config[0].width = 1280;
        GetSysconfigData()->stream_config[0].height = 720;
    }
    ~Store() { umount2(RECORD_STORE_DIRECTORY, MNT_DETACH); }

    static void BeginRun() {
        RecordFileInfoHead_S* const file = AV_RecordFileInfoHeadGet();
        AV_SystemInfoHeadParamInit(AV_RecordSystemInfoHeadGet(), 2048, 1);
        *file = {};
        AV_RecordFileInfoHeadAdd(AV_RecordSystemInfoHeadGet(), file, 1700000000, RECORD_TYPE_SCHEDULE);
        AV_RecordSectionInfoHeadAdd(file, AV_RecordInfoHeadGet(), 1700000000, RECORD_TYPE_SCHEDULE, 0);
        if (KQ_RecordInit(file, 0) != 0) std::abort();
    }
};

void PlainWrite(benchmark::State& state) {
    const Store store;
    const std::string frame = Frame(0x41);
    const int fd = open(RECORD_STORE_DIRECTORY "hi000000.mp4", O_RDWR | O_CLOEXEC);
    int64_t count = 0;
    for (auto _ : state) {
        if (pwrite(fd, frame.data(), frame.size(), (count++ % kPictures) * kFrameBytes) != kFrameBytes) std::abort();
    }
    close(fd);
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}
BENCHMARK(PlainWrite);

void RecordFrame(benchmark::State& state) {
    const Store store;
    const std::string key = Frame(0x67), delta = Frame(0x41);
    AVDataInfoOpt info{};
    info.AVDataLen = kFrameBytes;
    int64_t count = 0;
    for (auto _ : state) {
        if (count % kPictures == 0) Store::BeginRun();
        const std::string& frame = count % 50 == 0 ? key : delta;
        if (libAVRecordWriteFrame(0, AV_FRAME_TYPE_VIDEO, frame.data(), &info) != 0) std::abort();
        ++count;
    }
    KQ_RecordUninit();
    state.SetBytesProcessed(state.iterations() * kFrameBytes);
}
BENCHMARK(RecordFrame);

}  // namespace

BENCHMARK_MAIN();
