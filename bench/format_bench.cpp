// How long a format takes and how much it writes, beside the least that any format of the same store
// could write: both FATs, the directory's entries, the reserved sectors and every head, in whole sectors.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "libPreStore.h"

namespace {

// A sparse card of state.range(0) GiB and state.range(1) percent video, where TMPDIR points (or "/tmp"):
// point it at a card's directory to measure the card.
void Format(benchmark::State& state) {
    const char* directory = getenv("TMPDIR");
    std::string path = std::string(directory != nullptr ? directory : "/tmp") + "/format_bench.XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0 || ftruncate64(fd, static_cast<off64_t>(state.range(0)) << 30) != 0) {
        state.SkipWithError("no room for an image");
    }
    prestore::FormatResult result;
    for (auto _ : state) {
        result = prestore::Format(path.c_str(), {.video_percent = static_cast<int>(state.range(1))});
        if (!result.Ok()) {
            state.SkipWithError(result.message.c_str());
            break;
        }
    }
    close(fd);
    unlink(path.c_str());
    const auto written = static_cast<double>(result.bytes_written);
    const auto smallest = static_cast<double>(result.bytes_smallest);
    state.SetBytesProcessed(static_cast<int64_t>(result.bytes_written * state.iterations()));
    state.counters["files"] = result.store.vedio_num + result.store.picture_num + 4;
    state.counters["written_bytes"] = written;
    state.counters["smallest_bytes"] = smallest;
    state.counters["ratio"] = smallest > 0 ? written / smallest : 0;
}

BENCHMARK(Format)
    ->ArgNames({"GiB", "video"})
    ->Args({2, 100})
    ->Args({32, 100})
    ->Args({32, 90})
    ->Args({512, 100})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
