// make_seeds FOLDER: what the fuzzers begin with, FOLDER/<fuzzer>/<name>, out of a recording of real encoded video
// that is made here.
#include <filesystem>
#include <fstream>

#include "RecordFormat.h"
#include "Stream.h"
#include "fixture/CardFixture.h"
#include "fixture/EncodedClip.h"

namespace {

namespace fs = std::filesystem;
using fixture::Recording;
using fuzz::kTime;
using fuzz::Piece;

constexpr char kStream[] = "hi000000.mp4";

// The counterpart of fuzz::Input.
class Seed {
  public:
    template <typename Value>
    Seed& Put(const Value& value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    template <typename... Values>
    Seed& Bytes(Values... values) {
        (Put(static_cast<uint8_t>(values)), ...);
        return *this;
    }
    Seed& Half(int value) { return Put(static_cast<uint16_t>(value)); }
    Seed& Text(const std::string& text) {
        bytes_ += text;
        return *this;
    }
    Seed& Counted(const std::string& text) { return Bytes(text.size()).Text(text); }
    Seed& Put(const Seed& other) { return Text(other.bytes_); }
    void Save(const fs::path& folder, const std::string& name) const {
        fs::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << bytes_;
    }

  private:
    std::string bytes_;
};

// Two runs in record file 0, with an event.  Sound would fill a seed: it is in those that are made of pieces.
fixture::Card Plan(AVCodeType video) {
    const fixture::SectionPlan run{
        .seconds = 2, .pause = 18, .rate = 3, .width = 32, .height = 32, .video = video, .audio = CODE_AUDIO_NULL};
    return {.files = 2, .start = kTime, .sections = {run, run}, .events = {{.after = 1, .seconds = 1}}};
}

template <typename Record>
Record Read(const Recording& card, const char* file, uint64_t at) {
    Record record;
    const std::string bytes = card.Read(file, at, sizeof record);
    MUST(bytes.size() == sizeof record);
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}
RecordFileInfoHead_S FileHead(const Recording& card) {
    return Read<RecordFileInfoHead_S>(card, RECORD_INDEX_NAME, record_file::FileHeadOffset(0));
}
RecordInfoHead_S Section(const Recording& card, uint32_t number) {
    return Read<RecordInfoHead_S>(card, RECORD_INDEX_NAME, record_file::SectionHeadOffset(0, number));
}
KeyFrameInfoHead_S KeyFrame(const Recording& card, uint32_t number) {
    return Read<KeyFrameInfoHead_S>(card, kStream, record_file::KeyFrameRecordOffset(number));
}
RecordSystemInfoHead_S SystemHead(const Recording& card) {
    return Read<RecordSystemInfoHead_S>(card, RECORD_INDEX_NAME, 0);
}

void SaveStreams(const fs::path& to, const Recording& card, const std::string& name) {
    Seed recorded, made;
    recorded.Put(Piece::Rest).Text(card.Read(kStream, 0, FileHead(card).m_u32RecordFileSumLenth));
    for (const Piece piece : {Piece::KeyFrame, Piece::Frame, Piece::Sound, Piece::Frame}) made.Put(piece).Half(64);
    made.Put(Piece::KeyFrame).Half(0xFFFF).Put(Piece::StreamHead).Put(Piece::KeyFrame).Half(100);
    for (const char* fuzzer : {"playback", "scanner"}) {
        Seed().Bytes(record_file::kStreamHeadSize).Put(recorded).Save(to / fuzzer, name);
        Seed().Bytes(0).Put(made).Save(to / fuzzer, "made");
    }
    Seed lost, left;  // the heads
    lost.Bytes(0).Put(RecordFileInfoHead_S{}).Bytes(0, 0).Put(SystemHead(card));
    left.Bytes(0).Put(FileHead(card)).Bytes(2).Put(Section(card, 1)).Put(Section(card, 2)).Bytes(4);
    for (uint32_t k = 0; k < 4; ++k) left.Put(KeyFrame(card, k));
    left.Put(SystemHead(card)).Put(recorded).Save(to / "builder", name + "-heads-left");
    Seed(lost).Put(recorded).Save(to / "builder", name);
    Seed(lost).Put(made).Save(to / "builder", "made");
}

void SaveFrames(const fs::path& to, const Recording& card, AVCodeType video, const std::string& name) {
    const auto save = [&](int kind, const std::string& bytes, const std::string& what) {
        Seed seed;
        seed.Bytes(kind).Put(uint32_t{1}).Put(kTime).Put(ParametersOf(Plan(video).sections[0])).Bytes(0, 0).Text(bytes);
        seed.Save(to / "packing", name + what);
    };
    save(1, card.frames[0].unit, "-key");
    save(0, card.frames[1].unit, "-delta");
    save(3, fixture::EncodedSound(CODE_AUDIO_G711A, 1)[0], "-sound");
}

void SaveHeads(const fs::path& to, const Recording& card) {
    const auto event_head = Read<AlarmEventHead_S>(card, RECORD_EVENT_NAME, 0);
    const auto event = Read<AlarmFileInfoHead_S>(card, RECORD_EVENT_NAME, record_file::EventOffset(0, 1));
    Seed heads;
    heads.Bytes(1).Put(SystemHead(card)).Bytes(1, 16).Bytes(0, 0, 0).Put(FileHead(card));
    for (uint32_t u = 1; u <= 2; ++u) heads.Bytes(2, 0, u).Put(Section(card, u));
    for (uint32_t k = 0; k < 4; ++k) heads.Bytes(5, 0, k).Put(KeyFrame(card, k));
    heads.Bytes(6, 0, 0).Put(event_head).Bytes(7, 0, 0).Put(event);
    Seed().Bytes(0).Half(0).Put(heads).Save(to / "index", "recorded");
    Seed().Put(kTime).Half(10).Put(heads).Save(to / "store", "recorded");
    Seed().Half(0).Put(0x10000).Bytes(0).Put(event_head).Put(event).Save(to / "events", "recorded");
}

void SaveOthers(const fs::path& to) {
    const std::string settings = "[Record]\r\nDuration=300\n;comment\nName=%d %%\n\n[Other]\nDur=5\n";
    for (const auto& [key, value] : {std::pair{"Duration", "60"}, std::pair{"Key", "value"}}) {
        Seed seed = Seed().Bytes(1).Counted("Record").Counted(key).Counted(value).Bytes(0).Text(settings);
        seed.Save(to / "ini", key);
    }
    Seed ring, replies, layout;
    ring.Bytes(1, 12);
    for (int i = 0; i < 24; ++i) ring.Bytes(i % 3 == 0 ? 0x00 : 0x08, 50 + i);
    ring.Save(to / "ring", "frames");
    replies.Bytes(3, 0);
    for (int i = 0; i < 16; ++i) replies.Bytes(i).Put(uint32_t{100}).Bytes(0);
    replies.Save(to / "replies", "answers");
    layout.Bytes(129, 0);
    for (int file = 0; file < 6; ++file) layout.Bytes(130, file, 131, file, 132, file);
    layout.Bytes(135, 1).Save(to / "layout", "formatted");
    Seed().Bytes(1).Save(to / "fat", "whole");
    Seed().Bytes(1, 1).Save(to / "rescue", "whole");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_seeds FOLDER\n");
        return 2;
    }
    const fs::path to = argv[1];
    for (const auto& [video, name] : {std::pair{CODE_VIDEO_H264, "h264"}, std::pair{CODE_VIDEO_H265, "h265"}}) {
        const Recording card = Plan(video).RecordFolder(to / "card");
        SaveStreams(to, card, name);
        SaveFrames(to, card, video, name);
        SaveHeads(to, card);
        fs::remove_all(to / "card");
    }
    SaveOthers(to);
    return 0;
}
