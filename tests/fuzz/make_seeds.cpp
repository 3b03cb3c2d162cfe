// make_seeds FOLDER: what the fuzzers begin with, FOLDER/<fuzzer>/<name>, out of a recording of real encoded video and
// sound that is made here.
#include <filesystem>
#include <fstream>
#include <utility>

#include "RecordFormat.h"
#include "Stream.h"
#include "fixture/EncodedClip.h"
#include "fixture/StoreWriter.h"

namespace {

namespace fs = std::filesystem;
using fuzz::Piece;

constexpr uint32_t kTime = 1772352000;  // 2026-03-01 08:00:00 UTC

// The counterpart of fuzz::Input.
class Seed {
  public:
    template <typename Value>
    Seed& Put(const Value& value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    Seed& Byte(int value) { return Put(static_cast<uint8_t>(value)); }
    Seed& Half(int value) { return Put(static_cast<uint16_t>(value)); }
    Seed& Text(const std::string& text) {
        bytes_ += text;
        return *this;
    }
    Seed& Counted(const std::string& text) { return Byte(static_cast<int>(text.size())).Text(text); }
    Seed& Put(const Seed& other) { return Text(other.bytes_); }
    void Save(const fs::path& folder, const std::string& name) const {
        fs::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << bytes_;
    }

  private:
    std::string bytes_;
};

std::string ReadFile(const fs::path& path, uint64_t offset, size_t length) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::string bytes(length, '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(length));
    MUST(static_cast<size_t>(in.gcount()) == length);
    return bytes;
}

// Two runs in record file 0, with an event.
class Recording {
  public:
    Recording(fs::path folder, AVCodeType video) : folder_(std::move(folder)), video_(video) {
        fs::create_directories(folder_);
        ConfigStoreInfo_S store{};
        store.total_size_byte = 2048;
        store.vedio_num = 2;
        MUST(AV_RecordFileConfigSet((folder_ / RECORD_INDEX_NAME).c_str(), &store) == 0);
        MUST(AV_AlarmEventInfoClear((folder_ / RECORD_EVENT_NAME).c_str(), 2) == 0);
        for (const char* name : {RECORD_INDEX_NAME, RECORD_EVENT_NAME}) {
            fs::resize_file(folder_ / name, record_file::kFixedFileSize);
        }
        fixture::StoreWriter writer(folder_);
        Run(writer, kTime);
        Run(writer, kTime + 20);
        writer.AddEvent(0, kTime + 1, kTime + 2, 1, 5);
    }
    ~Recording() { fs::remove_all(folder_); }

    std::string Index(uint64_t at, size_t length) const { return ReadFile(folder_ / RECORD_INDEX_NAME, at, length); }
    std::string Events(uint64_t at, size_t length) const { return ReadFile(folder_ / RECORD_EVENT_NAME, at, length); }
    std::string Stream() const {
        const std::string head = Index(record_file::FileHeadOffset(0), sizeof(RecordFileInfoHead_S));
        RecordFileInfoHead_S file;
        std::memcpy(&file, head.data(), sizeof file);
        return ReadFile(folder_ / "hi000000.mp4", 0, file.m_u32RecordFileSumLenth);
    }
    std::string KeyFrame(uint32_t k) const {
        return ReadFile(folder_ / "hi000000.mp4", record_file::KeyFrameRecordOffset(k), sizeof(KeyFrameInfoHead_S));
    }
    const std::vector<fixture::EncodedFrame>& Clip() const {
        return fixture::EncodedVideo(
            {.video = video_, .width = 64, .height = 64, .rate = 5, .key_interval = 5, .frames = 10});
    }
    const AVStreamParam& Parameters() const { return parameters_; }

  private:
    void Run(fixture::StoreWriter& writer, uint32_t start) {
        const std::vector<std::string>& sound = fixture::EncodedSound(CODE_AUDIO_G711A, 5);
        parameters_ = {static_cast<uint16_t>(video_), CODE_AUDIO_G711A, 64, 64, 64, 5, 8000, 64};
        writer.BeginSection(start, parameters_);
        uint32_t number = 0;
        for (const fixture::EncodedFrame& frame : Clip()) {
            const uint32_t time = start + number++ / 5;
            writer.Video(frame.unit, frame.key, false, time);
            if (number % 4 == 0) writer.Audio(sound[number % sound.size()].substr(0, 40), time);
        }
        writer.EndSection();
    }

    fs::path folder_;
    AVCodeType video_;
    AVStreamParam parameters_{};
};

void SaveStreams(const fs::path& to, const Recording& card, const std::string& name) {
    const std::string stream = card.Stream();
    for (const char* fuzzer : {"playback", "scanner"}) {
        Seed().Byte(record_file::kStreamHeadSize).Put(Piece::Rest).Text(stream).Save(to / fuzzer, name);
        Seed made;
        made.Byte(0);
        for (const Piece piece : {Piece::KeyFrame, Piece::Frame, Piece::Sound, Piece::Frame}) made.Put(piece).Half(64);
        made.Put(Piece::KeyFrame).Half(0xFFFF).Put(Piece::StreamHead).Put(Piece::KeyFrame).Half(100);
        made.Save(to / fuzzer, "made");
    }
    for (const bool left : {false, true}) {
        Seed seed;
        seed.Byte(0).Text(left ? card.Index(record_file::FileHeadOffset(0), sizeof(RecordFileInfoHead_S))
                               : std::string(sizeof(RecordFileInfoHead_S), '\0'));
        seed.Byte(left ? 2 : 0);
        for (uint32_t u = 1; left && u <= 2; ++u) {
            seed.Text(card.Index(record_file::SectionHeadOffset(0, u), sizeof(RecordInfoHead_S)));
        }
        seed.Byte(left ? 4 : 0);
        for (uint32_t k = 0; left && k < 4; ++k) seed.Text(card.KeyFrame(k));
        seed.Text(card.Index(0, sizeof(RecordSystemInfoHead_S))).Put(Piece::Rest).Text(stream);
        seed.Save(to / "builder", name + (left ? "-heads-left" : ""));
    }
}

void SaveFrames(const fs::path& to, const Recording& card, const std::string& name) {
    const auto save = [&](int kind, const std::string& bytes, const std::string& what) {
        Seed seed;
        seed.Byte(kind).Put(uint32_t{1}).Put(kTime).Put(card.Parameters()).Byte(0).Byte(0).Text(bytes);
        seed.Save(to / "packing", name + what);
    };
    save(1, card.Clip()[0].unit, "-key");
    save(0, card.Clip()[1].unit, "-delta");
    save(3, fixture::EncodedSound(CODE_AUDIO_G711A, 1)[0], "-sound");
}

void SaveHeads(const fs::path& to, const Recording& card) {
    Seed heads;
    heads.Byte(1).Text(card.Index(0, sizeof(RecordSystemInfoHead_S))).Byte(1).Byte(16);
    heads.Byte(0).Byte(0).Byte(0).Text(card.Index(record_file::FileHeadOffset(0), sizeof(RecordFileInfoHead_S)));
    for (int u = 1; u <= 2; ++u) {
        const auto at = record_file::SectionHeadOffset(0, static_cast<uint32_t>(u));
        heads.Byte(2).Byte(0).Byte(u).Text(card.Index(at, sizeof(RecordInfoHead_S)));
    }
    for (int k = 0; k < 4; ++k) heads.Byte(5).Byte(0).Byte(k).Text(card.KeyFrame(static_cast<uint32_t>(k)));
    const std::string event_head = card.Events(0, sizeof(AlarmEventHead_S));
    const std::string event = card.Events(record_file::EventOffset(0, 1), sizeof(AlarmFileInfoHead_S));
    heads.Byte(6).Byte(0).Byte(0).Text(event_head).Byte(7).Byte(0).Byte(0).Text(event);
    Seed index = Seed().Byte(0).Half(0);
    Seed store = Seed().Put(kTime).Half(10);
    index.Put(heads).Save(to / "index", "recorded");
    store.Put(heads).Save(to / "store", "recorded");
    Seed().Half(0).Put(0x10000).Byte(0).Text(event_head).Text(event).Save(to / "events", "recorded");
}

void SaveOthers(const fs::path& to) {
    const std::string settings = "[Record]\r\nDuration=300\n;comment\nName=%d %%\n\n[Other]\nDur=5\n";
    Seed()
        .Byte(1)
        .Counted("Record")
        .Counted("Duration")
        .Counted("60")
        .Byte(0)
        .Text(settings)
        .Save(to / "ini", "settings");
    Seed().Byte(1).Counted("Record").Counted("Key").Counted("value").Byte(0).Text(settings).Save(to / "ini", "new-key");
    Seed ring;
    ring.Byte(1).Byte(12);
    for (int i = 0; i < 24; ++i) ring.Byte(i % 3 == 0 ? 0x00 : 0x08).Byte(50 + i);
    ring.Save(to / "ring", "frames");
    Seed replies;
    replies.Byte(3).Byte(0);
    for (int i = 0; i < 16; ++i) replies.Byte(i).Put(uint32_t{100}).Byte(0);
    replies.Save(to / "replies", "answers");
    Seed layout;
    layout.Byte(129).Byte(0);
    for (int file = 0; file < 6; ++file) layout.Byte(130).Byte(file).Byte(131).Byte(file).Byte(132).Byte(file);
    layout.Byte(135).Byte(1).Save(to / "layout", "formatted");
    Seed().Byte(1).Save(to / "fat", "whole");
    Seed().Byte(1).Byte(1).Save(to / "rescue", "whole");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_seeds FOLDER\n");
        return 2;
    }
    const fs::path to = argv[1];
    for (const auto& [video, name] : {std::pair{CODE_VIDEO_H264, "h264"}, std::pair{CODE_VIDEO_H265, "h265"}}) {
        const Recording card(to / "card", video);
        SaveStreams(to, card, name);
        SaveFrames(to, card, name);
        SaveHeads(to, card);
    }
    SaveOthers(to);
    return 0;
}
