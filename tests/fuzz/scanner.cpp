// The card tool's scanner over a stream of any bytes: what it finds covers the stream without gap or overlap, and
// what it calls a frame is one to the playback reader, too, byte by byte.
#include "stream/StreamScanner.h"

#include "Played.h"
#include "Stream.h"

namespace {

using card::StreamFrame;
using card::StreamScanner;

class Check {
  public:
    Check(const std::vector<uint8_t>& stream, const fuzz::MemoryFile& file)
        : stream_(stream), file_(file), scanner_(fuzz::ReaderOf(stream), 0, stream.size()) {}

    void Scan(uint64_t begin, bool compare) {
        scanner_.Seek(begin);
        for (uint64_t at = begin; at < stream_.size();) {
            const StreamScanner::Found found = scanner_.Next();
            const uint64_t next = scanner_.Position();
            MUST(found != StreamScanner::Found::End && next > at && next <= stream_.size());
            if (found == StreamScanner::Found::Frame) {
                MustCover(scanner_.Frame(), at, next);
                if (compare) MustPlayBack(scanner_.Frame());
            } else if (found == StreamScanner::Found::StreamHead) {
                MUST(scanner_.StreamHeadOffset() == at && next == at + record_file::kStreamHeadSize);
            } else {
                const card::Garbage garbage = scanner_.GarbageFound();
                MUST(garbage.offset == at && garbage.offset + garbage.length == next);
            }
            at = next;
        }
        MUST(scanner_.Next() == StreamScanner::Found::End && scanner_.Position() == stream_.size());
    }

  private:
    static void MustCover(const StreamFrame& frame, uint64_t at, uint64_t next) {
        MUST(frame.offset == at && frame.End() == next);
        uint64_t end = at;  // of what is accounted for
        for (const card::Payload& piece : frame.payload) {
            MUST(piece.offset >= end + PS_PES_HEADER_SIZE);
            end = piece.offset + piece.length;
        }
        MUST(frame.payload.empty() || end == next);
        MUST(frame.key == frame.parameters.has_value());
    }

    void MustPlayBack(const StreamFrame& frame) {
        const auto no_bytes = [](const card::Payload& piece) { return piece.length == 0; };
        const bool passed_over = std::any_of(frame.payload.begin(), frame.payload.end(), no_bytes);
        const bool bare = frame.payload.empty() && !frame.key;
        if (passed_over || bare || frame.PayloadSize() > PLAYBACK_GATHER_MAX) return;  // what the recorder never writes
        uint32_t offset = static_cast<uint32_t>(frame.offset);
        fuzz::Played played;
        MUST(played.Read(file_, offset));
        const bool video = frame.kind == StreamFrame::Kind::Video;
        MUST(offset == frame.End() && played.kind == (video ? AV_FRAME_TYPE_VIDEO : AV_FRAME_TYPE_AUDIO));
        MUST(played.pts == static_cast<uint32_t>(frame.pts) && (!video || played.time == frame.time));
        MUST(scanner_.ReadPayload(frame, payload_) && payload_.size() == played.length);
        MUST(std::equal(payload_.begin(), payload_.end(), played.Payload()));
    }

    const std::vector<uint8_t>& stream_;
    const fuzz::MemoryFile& file_;
    StreamScanner scanner_;
    std::vector<uint8_t> payload_;
};

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile file;
    const uint64_t start = in.Byte();
    const std::vector<uint8_t>& stream = LayStream(in);
    file.Replace(stream, 64);  // a record file goes on
    Check check(stream, file);
    check.Scan(0, true);
    check.Scan(std::min<uint64_t>(start, stream.size()), false);
}
