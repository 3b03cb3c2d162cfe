#include "stream/StreamScanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "fixture/CardFixture.h"
#include "fixture/Place.h"
#include "libRecordFile.h"
#include "stream/StreamSurvey.h"

namespace {

using namespace fixture;
using card::StreamFrame;
using card::StreamScanner;
using Found = card::StreamScanner::Found;

// A recorded stream in memory: two runs, frames of several packets, sound.
struct Stream {
    std::string bytes;
    std::vector<WrittenFrame> frames;

    explicit Stream(AVCodeType video = CODE_VIDEO_H264) {
        const Place place;
        const Card card{
            .sections = {{.seconds = 3, .video = video, .frame_bytes = 70000}, {.seconds = 2, .video = video}}};
        const Recording recording = card.RecordFolder(place);
        frames = recording.frames;
        bytes = recording.Read("hi000000.mp4", 0, frames.back().offset + frames.back().size);
    }
    StreamScanner Scanner() const {
        return StreamScanner(
            [this](uint64_t offset, void* buffer, size_t length) -> size_t {
                if (offset >= bytes.size()) return 0;
                return bytes.copy(static_cast<char*>(buffer), length, offset);
            },
            0, bytes.size());
    }
};

// Bytes 4 of a key frame's access unit may be spread over packets; joined they are what was handed to the writer.
TEST(StreamScanner, FindsExactlyTheFramesThatWereWritten) {
    for (const AVCodeType video : {CODE_VIDEO_H264, CODE_VIDEO_H265}) {
        const Stream stream(video);
        StreamScanner scanner = stream.Scanner();
        auto written = stream.frames.begin();
        std::vector<uint8_t> payload;
        for (Found found = scanner.Next(); found != Found::End; found = scanner.Next()) {
            ASSERT_NE(found, Found::Garbage) << scanner.GarbageFound().offset;
            if (found == Found::StreamHead) continue;
            const StreamFrame& frame = scanner.Frame();
            ASSERT_NE(written, stream.frames.end());
            ASSERT_EQ(frame.offset, written->offset);
            EXPECT_EQ(frame.size, written->size);
            EXPECT_EQ(frame.kind == StreamFrame::Kind::Video, written->video);
            EXPECT_EQ(frame.key, written->key);
            EXPECT_EQ(frame.first_of_run, written->first_of_run);
            EXPECT_EQ(frame.time, written->time);
            EXPECT_EQ(frame.pts, written->pts);
            EXPECT_TRUE(frame.well_followed);
            ASSERT_TRUE(scanner.ReadPayload(frame, payload));
            EXPECT_TRUE(std::string(payload.begin(), payload.end()) == written->unit) << frame.offset;
            ++written;
        }
        EXPECT_EQ(written, stream.frames.end());
    }
}

TEST(StreamScanner, LosesOnlyTheFrameThatIsDamaged) {
    Stream stream;
    const size_t all = stream.frames.size();
    for (const size_t index : {size_t{0}, all / 4, all / 3, all - 2}) {
        const WrittenFrame& frame = stream.frames[index];
        const std::string before = stream.bytes.substr(frame.offset, 4);
        stream.bytes.replace(frame.offset, 4, "\xFF\xFF\xFF\xFF");
        StreamScanner scanner = stream.Scanner();
        size_t found = 0;
        for (Found next = scanner.Next(); next != Found::End; next = scanner.Next()) found += next == Found::Frame;
        // Sound right after has no header of its own to be found by: it goes with the frame before it.
        size_t followers = 0;
        while (index + followers + 1 < all && !stream.frames[index + followers + 1].video) ++followers;
        EXPECT_EQ(found, all - 1 - followers) << index;
        stream.bytes.replace(frame.offset, 4, before);
    }
}

// A section's stream head and first frame are one write: the head's place decides whether both count, also when the
// head itself is lost.
TEST(StreamSurvey, EndsWithTheWriteThatBeginsAtTheMark) {
    const Stream stream;
    const auto second = std::find_if(stream.frames.begin() + 1, stream.frames.end(),
                                     [](const WrittenFrame& frame) { return frame.first_of_run; });
    const uint64_t head = second->offset - record_file::kStreamHeadSize;
    struct Case {
        uint64_t begin;
        bool lost_head;
    };
    constexpr uint64_t kMark = RECORD_STREAM_LIMIT;
    for (const auto& [begin, lost_head] : {Case{kMark, false}, Case{kMark, true}, Case{kMark + 1, false}}) {
        const uint64_t shown = begin + (lost_head ? record_file::kStreamHeadSize : 0);
        card::Surveyor surveyor(
            [&](uint64_t offset, void* buffer, size_t length) -> size_t {
                char* const to = static_cast<char*>(buffer);
                const size_t zeros = offset < shown ? std::min<uint64_t>(length, shown - offset) : 0;
                std::memset(to, 0, zeros);
                if (zeros == length) return length;
                return zeros + stream.bytes.copy(to + zeros, length - zeros, head + offset + zeros - begin);
            },
            begin + stream.bytes.size() - head);
        surveyor.GoToEnd();
        const auto runs = surveyor.Result().runs;
        ASSERT_EQ(runs.size(), begin == kMark ? 1u : 0u);
        if (runs.empty()) continue;
        EXPECT_EQ(runs[0].begin, shown);
        EXPECT_EQ(runs[0].end, begin + record_file::kStreamHeadSize + second->size);
    }
}

}  // namespace
