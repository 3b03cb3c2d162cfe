// Clips as their owner gets them, judged by FFmpeg's own programs: every picture, its moment, the sound.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "fixture/StoreBytes.h"
#include "volume/Volume.h"

namespace {

using namespace fixture;
using ::testing::HasSubstr;
namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1772352000;  // 2026-03-01 08:00:00 UTC

struct Picture {
    double at = 0;  // s
    std::string hash;
};

// Decodes the video and gives every picture's time and check sum.
std::vector<Picture> Decode(const std::string& path) {
    const Outcome run = RunProgram({"ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-fps_mode", "passthrough",
                                    "-enc_time_base", "1:90000", "-f", "framemd5", "-"});
    EXPECT_THAT(run, Ends(0, ""));
    std::vector<Picture> pictures;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        double pts = 0;
        char hash[64];
        if (std::sscanf(line.c_str(), "%*d, %*d, %lf, %*d, %*d, %63s", &pts, hash) != 2) continue;
        pictures.push_back({pts / 90000, hash});
    }
    return pictures;
}

Json Probe(const std::string& path,
           std::vector<std::string> what = {"-v", "error", "-show_format", "-show_streams", "-show_chapters"}) {
    what.insert(what.begin(), {"ffprobe", "-of", "json", path});
    const Outcome run = RunProgram(what);
    EXPECT_THAT(run, Ends(0, ""));
    return Json::parse(run.out, nullptr, false);
}

Json StreamOf(const Json& probe, const std::string& type) {
    for (const Json& stream : probe["streams"]) {
        if (stream["codec_type"] == type) return stream;
    }
    return {};
}

double Number(const Json& value) {
    return std::strtod(value.get<std::string>().c_str(), nullptr);
}

// The moment so many seconds after the card's start, in less than an hour.
std::string At(uint32_t seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "2026-03-01T08:%02u:%02u", seconds / 60, seconds % 60);
    return text;
}

// As they were handed to the writer.
std::string Units(const std::vector<const WrittenFrame*>& frames) {
    std::string units;
    for (const WrittenFrame* frame : frames) units += frame->unit;
    return units;
}

class Export : public Folder {
  protected:
    // Exports and gives the path of the file made.
    std::string Made(const Recording& card, const std::string& name, std::vector<std::string> what = {"--all"}) {
        what.insert(what.begin(), {"export", card.path, Path(name)});
        EXPECT_THAT(Tool(what), Ends(0));
        return Path(name);
    }

    // The pictures of `source` decoded without the card tool.
    std::vector<Picture> Source(const std::vector<const WrittenFrame*>& source, bool h265) {
        const std::string path = Path(h265 ? "source.h265" : "source.h264");
        std::ofstream(path, std::ios::binary) << Units(source);
        return Decode(path);
    }

    void ExpectSamePictures(const std::vector<Picture>& got, const std::vector<Picture>& wanted) {
        ASSERT_FALSE(wanted.empty());
        ASSERT_EQ(got.size(), wanted.size());
        for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i].hash, wanted[i].hash) << "picture " << i;
    }
};

struct Packet {
    int64_t dts = 0;  // us
    int64_t pts = 0;
};

// Of the video, in the order of decoding.
std::vector<Packet> Packets(const std::string& clip) {
    const Json probe = Probe(clip, {"-v", "warning", "-select_streams", "v", "-show_packets"});
    std::vector<Packet> packets;
    for (const Json& packet : probe["packets"])
        packets.push_back(
            {std::llround(Number(packet["dts_time"]) * 1e6), std::llround(Number(packet["pts_time"]) * 1e6)});
    return packets;
}

void ExpectOrderOfDecoding(const std::vector<Packet>& packets, bool b_frames) {
    bool moved = false;
    for (size_t i = 0; i < packets.size(); ++i) {
        ASSERT_LE(packets[i].dts, packets[i].pts) << "packet " << i;
        if (i == 0) continue;
        ASSERT_LT(packets[i - 1].dts, packets[i].dts) << "packet " << i;
        moved = moved || packets[i].pts < packets[i - 1].pts;
    }
    EXPECT_EQ(moved, b_frames);
}

struct RunCase {
    const char* name;
    uint32_t rate;
    AVCodeType video;
    AVCodeType audio;
    bool b_frames = false;
};

class ExportRun : public Export, public testing::WithParamInterface<RunCase> {};

// A run that goes on in the next record file, cut out from its midst (with B-frames of H.265: after an open group of
// pictures) to its end.
TEST_P(ExportRun, IsFrameExactInRealTimeAcrossAFileBorder) {
    const RunCase& c = GetParam();
    const bool h265 = c.video == CODE_VIDEO_H265;
    constexpr uint32_t kFrameBytes = 380000;
    const uint32_t border = RECORD_STREAM_LIMIT / kFrameBytes / c.rate;  // s
    // A key frame every few pictures: hardly any is lost when the next file begins.
    const Recording card = Card{.files = 2,
                                .sections = {{.seconds = border + 3,
                                              .rate = c.rate,
                                              .video = c.video,
                                              .audio = c.audio,
                                              .key_interval = c.b_frames ? 8u : 4u,
                                              .frame_bytes = kFrameBytes,
                                              .b_frames = c.b_frames}}}
                               .RecordFolder(Path("card"));
    ASSERT_EQ(card.sections.size(), 2u) << "the plan has to cross a file border";
    const uint32_t from = border - 2;
    std::vector<const WrittenFrame*> recorded = card.KeptVideo();
    auto first =
        std::find_if(recorded.begin(), recorded.end(), [&](const WrittenFrame* f) { return f->time >= kStart + from; });
    while (!(*first)->key) --first;
    recorded.erase(recorded.begin(), first);
    const auto next = std::find_if(recorded.begin(), recorded.end(), [](const WrittenFrame* f) { return f->section; });
    std::vector<Picture> source = Source({recorded.begin(), next}, h265);
    const std::vector<Picture> rest = Source({next, recorded.end()}, h265);
    source.insert(source.end(), rest.begin(), rest.end());
    const double length = static_cast<double>(source.size()) / c.rate;

    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        EXPECT_THAT(Tool({"export", card.path, Path(name), "--from", At(from)}), Ends(0, ""));
        const std::vector<Picture> pictures = Decode(Path(name));
        ExpectSamePictures(pictures, source);
        for (size_t i = 0; i < pictures.size(); ++i) {
            ASSERT_NEAR(pictures[i].at, static_cast<double>(i) / c.rate, 0.001) << name << " picture " << i;
        }
        const Json probe = Probe(Path(name));
        const Json audio = StreamOf(probe, "audio");
        EXPECT_EQ(audio.is_null(), c.audio == CODE_AUDIO_NULL);
        EXPECT_NEAR(Number(probe["format"]["duration"]), length, 0.4);
        EXPECT_EQ(StreamOf(probe, "data"), Json()) << "no chapters where nothing was left out";
    }
    const std::vector<Packet> packets = Packets(Path("clip.mp4"));  // Matroska keeps no times of decoding
    ASSERT_EQ(packets.size(), source.size()) << "nothing that cannot be shown";
    ExpectOrderOfDecoding(packets, c.b_frames);
    const Json probe = Probe(Path("clip.mp4"));
    const Json video = StreamOf(probe, "video");
    EXPECT_EQ(video["codec_tag_string"], h265 ? "hvc1" : "avc1");
    EXPECT_EQ(video["avg_frame_rate"], std::to_string(c.rate) + "/1");
    EXPECT_NEAR(Number(video["duration"]), length, 0.001);
    if (!c.b_frames) {  // with them a picture is shown later than it was stamped
        EXPECT_EQ(probe["format"]["tags"]["creation_time"], At(recorded.front()->time - kStart) + ".000000Z");
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, ExportRun,
                         testing::Values(RunCase{"H264At12", 12, CODE_VIDEO_H264, CODE_AUDIO_G711A},
                                         RunCase{"H264At25", 25, CODE_VIDEO_H264, CODE_AUDIO_G711U},
                                         RunCase{"H265At15", 15, CODE_VIDEO_H265, CODE_AUDIO_AAC},
                                         RunCase{"H265At30", 30, CODE_VIDEO_H265, CODE_AUDIO_G711A},
                                         RunCase{"H264At30WithBFrames", 30, CODE_VIDEO_H264, CODE_AUDIO_AAC, true},
                                         RunCase{"H265At25WithBFrames", 25, CODE_VIDEO_H265, CODE_AUDIO_NULL, true}),
                         [](const auto& info) { return info.param.name; });

TEST_F(Export, KeepsShortPausesAndLeavesLongOnesOutWithAChapter) {
    const Recording card = Card{.sections = {{.seconds = 5, .rate = 15},
                                             {.seconds = 5, .pause = 1, .rate = 15},
                                             {.seconds = 5, .pause = 30, .rate = 15}}}
                               .RecordFolder(Path("card"));
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        const std::string clip = Made(card, name);
        const std::vector<Picture> pictures = Decode(clip);
        ExpectSamePictures(pictures, Source(card.KeptVideo(), false));
        for (size_t i = 0; i < pictures.size(); ++i) {
            const double wanted = static_cast<double>(i) / 15 + (i < 75 ? 0 : 1);
            ASSERT_NEAR(pictures[i].at, wanted, 0.001) << name << " picture " << i;
        }
        const Json probe = Probe(clip);
        ASSERT_EQ(probe["chapters"].size(), 2u) << name;
        EXPECT_NEAR(Number(probe["chapters"][1]["start_time"]), 11, 0.001);
        EXPECT_EQ(probe["chapters"][1]["tags"]["title"], "2026-03-01 08:00:41");
        EXPECT_NEAR(Number(probe["format"]["duration"]), 16, 0.3);
    }
}

TEST_F(Export, SelectsAnEventAndASection) {
    const Recording card = Card{.sections = {{.seconds = 20}, {.seconds = 10, .pause = 60}},
                                .events = {{.after = 7, .seconds = 3}, {.after = 85, .seconds = 0}}}
                               .RecordFolder(Path("card"));
    const auto length = [&](const std::string& clip) { return Decode(clip).size(); };
    EXPECT_EQ(length(Made(card, "event.mp4", {"--event", "1"})), 4 * 25u) << "seconds 7, 8, 9 and 10";
    EXPECT_EQ(Probe(Path("event.mp4"))["format"]["tags"]["creation_time"], "2026-03-01T08:00:07.000000Z");
    EXPECT_EQ(length(Made(card, "open.mp4", {"--event", "2"})), 5 * 25u) << "an open event reaches to the end";
    EXPECT_EQ(length(Made(card, "section.mp4", {"--section", "0:2"})), 10 * 25u);
    EXPECT_EQ(length(Made(card, "clock.mp4", {"--from", "08:00:03", "--to", "08:00:04"})), 2 * 25u);
    EXPECT_EQ(length(Made(card, "out.mp4", {"--from", "08:00:19"})), 1 * 25u + 10 * 25u);

    EXPECT_EQ(Tool({"export", card.path, Path("x.mp4"), "--event", "3"}).status, 2);
    EXPECT_EQ(Tool({"export", card.path, Path("x.mp4"), "--section", "0:3"}).status, 2);
    EXPECT_EQ(Tool({"export", card.path, Path("x.mp4"), "--section", "zero"}).status, 2);
    EXPECT_EQ(Tool({"export", card.path, Path("x.mp4"), "--all", "--event", "1"}).status, 2);
    EXPECT_EQ(Tool({"export", card.path, Path("x.avi"), "--all"}).status, 2);
    EXPECT_EQ(Tool({"export", card.path, Path("x.mp4"), "--from", "08:00:40", "--to", "08:00:50"}).status, 4);
    EXPECT_FALSE(fs::exists(Path("x.mp4")));
}

// Samples of the only sound, as 16 bits mono.
std::vector<int16_t> DecodeSound(const std::string& clip) {
    const Outcome run = RunProgram({"ffmpeg", "-v", "error", "-i", clip, "-map", "0:a", "-f", "s16le", "-"});
    EXPECT_EQ(run.err, "");
    std::vector<int16_t> samples(run.out.size() / 2);
    std::memcpy(samples.data(), run.out.data(), samples.size() * 2);
    return samples;
}

TEST_F(Export, SoundIsTakenOverOrMadePlayable) {
    for (const AVCodeType audio : {CODE_AUDIO_G711A, CODE_AUDIO_G711U, CODE_AUDIO_AAC}) {
        const std::string name = std::to_string(audio);
        const Recording card = Card{.sections = {{.seconds = 8, .rate = 12, .audio = audio}}}.RecordFolder(Path(name));
        const std::string mp4 = Made(card, name + ".mp4");
        const std::string mkv = Made(card, name + ".mkv");
        EXPECT_EQ(StreamOf(Probe(mp4), "audio")["codec_name"], "aac");
        EXPECT_EQ(StreamOf(Probe(mkv), "audio")["codec_name"], audio == CODE_AUDIO_G711A   ? "pcm_alaw"
                                                               : audio == CODE_AUDIO_G711U ? "pcm_mulaw"
                                                                                           : "aac");
        for (const std::string& clip : {mp4, mkv}) {
            const std::vector<int16_t> samples = DecodeSound(clip);
            EXPECT_NEAR(static_cast<double>(samples.size()), 8 * 8000, 2048) << clip;
            double square = 0;
            for (const int16_t sample : samples) square += double{1} * sample * sample;
            const double level = std::sqrt(square / static_cast<double>(samples.size()));
            EXPECT_NEAR(level, 0.4 * 32767 / M_SQRT2, 700) << clip << ": the tone that was recorded";
        }
        if (audio == CODE_AUDIO_AAC) continue;
        std::string recorded;
        for (const WrittenFrame* frame : card.Kept()) recorded += frame->video ? "" : frame->unit;
        const Outcome raw =
            RunProgram({"ffmpeg", "-v", "error", "-i", mkv, "-map", "0:a", "-c", "copy", "-f", "data", "-"});
        EXPECT_EQ(raw.out, recorded) << "bit for bit";
    }
    const Recording silent = Card{.sections = {{.seconds = 2, .audio = CODE_AUDIO_NULL}}}.RecordFolder(Path("silent"));
    EXPECT_TRUE(StreamOf(Probe(Made(silent, "silent.mp4")), "audio").is_null());
}

// The record file is full of an earlier lap behind what was recorded; a cut of power can make a section claim it.
TEST_F(Export, NothingOfAnEarlierLapIsShown) {
    const Recording card =
        Card{.sections = {{.seconds = 6}, {.seconds = 4, .pause = 86400}}}.RecordFolder(Path("card"));
    const WrittenFrame& last = card.frames.back();
    const std::vector<const WrittenFrame*> video = card.KeptVideo();
    const uint32_t stale_from = video[50]->offset;  // a key frame of the first day, and a whole second behind it
    const uint32_t stale_size = video[75]->offset - stale_from;
    card.Corrupt("hi000000.mp4", last.offset + last.size, card.Read("hi000000.mp4", stale_from, stale_size));
    for (const uint32_t length : {FileHeadAt(0) + 16, SectionAt(0, 2) + 20})
        card.Corrupt("index000.bin", length, Word(card.Get<uint32_t>("index000.bin", length) + stale_size));
    EXPECT_THAT(Tool({"export", card.path, Path("clip.mp4"), "--section", "0:2"}), Ends(0, HasSubstr("earlier lap")));
    ExpectSamePictures(Decode(Path("clip.mp4")), Source({video.begin() + 150, video.end()}, false));
}

TEST_F(Export, ARingThatHasBegunItsSecondLapIsExportedInOrder) {
    const SectionPlan plan{
        .seconds = 26, .pause = 600, .rate = 30, .frame_bytes = 390000};  // a little more than a file
    const Recording card = Card{.files = 2, .sections = {plan, plan, plan}}.RecordFolder(Path("card"));
    ASSERT_TRUE(card.sections.front().overwritten);
    const std::vector<const WrittenFrame*> video = card.KeptVideo();
    EXPECT_TRUE(ReadAll(Made(card, "all.h264")) == Units(video));

    // A picture whose tail did not reach the card: a frame of the earlier lap begins in it.
    const WrittenSection& newest = card.sections.back();
    const std::string file = ::card::Volume::RecordFileName(newest.file);
    const auto old = std::find_if(card.frames.begin(), card.frames.end(), [&](const WrittenFrame& frame) {
        return frame.video && frame.file == newest.file && frame.offset > card.frames.back().offset + (1u << 20);
    });
    std::vector<const WrittenFrame*> section = video;
    std::erase_if(section, [&](const WrittenFrame* frame) { return frame->section + 1 != card.sections.size(); });
    ASSERT_NE(old, card.frames.end());
    const WrittenFrame& torn = *section[section.size() / 2];
    card.Corrupt(file, (torn.offset + torn.size / 2) / 512 * 512, card.Read(file, old->offset / 512 * 512, 100 << 10));
    std::erase(section, &torn);
    const std::string name = std::to_string(newest.file) + ":" + std::to_string(newest.number);
    EXPECT_TRUE(ReadAll(Made(card, "clip.h264", {"--section", name})) == Units(section));
    EXPECT_NE(Tool({"check", card.path}).out.find("another one shows inside"), std::string::npos);
}

TEST_F(Export, DamagedBytesAreLeftOutAndTheRestIsExported) {
    const Recording card = Card{.sections = {{.seconds = 6, .audio = CODE_AUDIO_NULL}}}.RecordFolder(Path("card"));
    std::vector<const WrittenFrame*> video = card.KeptVideo();
    card.Corrupt("hi000000.mp4", video[60]->offset, std::string(video[60]->size, '\xA5'));
    video.erase(video.begin() + 60);
    EXPECT_TRUE(ReadAll(Made(card, "clip.h264")) == Units(video));
    Made(card, "clip.mp4");
    EXPECT_EQ(StreamOf(Probe(Path("clip.mp4")), "video")["nb_frames"], "149");
    EXPECT_NEAR(Number(Probe(Path("clip.mp4"))["format"]["duration"]), 6, 0.01) << "the lost picture keeps its time";
}

TEST_F(Export, DamagedParameterSetsEndNoExport) {
    const Recording card = Card{.sections = {{.seconds = 2}, {.seconds = 2, .pause = 0}}}.RecordFolder(Path("card"));
    const std::vector<const WrittenFrame*> video = card.KeptVideo();
    for (const size_t key : {0, 50}) {  // the first byte of the sequence parameter set
        card.Corrupt("hi000000.mp4", video[key]->offset + 84 + 14 + 4, "\x6C");
    }
    Made(card, "clip.mp4");
    EXPECT_EQ(StreamOf(Probe(Path("clip.mp4")), "video")["nb_frames"], "75") << "from the second key frame on";
    EXPECT_FALSE(fs::exists(Path("clip-2.mp4")));
}

TEST_F(Export, AChangedStreamBeginsAnotherFile) {
    const Recording card = Card{.sections = {{.seconds = 3},
                                             {.seconds = 3, .pause = 0},
                                             {.seconds = 3, .width = 640, .height = 360},
                                             {.seconds = 3, .video = CODE_VIDEO_H265}}}
                               .RecordFolder(Path("card"));
    Made(card, "clip.mp4");
    EXPECT_EQ(Decode(Path("clip.mp4")).size(), 150u);
    EXPECT_EQ(StreamOf(Probe(Path("clip-2.mp4")), "video")["width"], 640);
    EXPECT_EQ(Probe(Path("clip-2.mp4"))["format"]["tags"]["creation_time"], "2026-03-01T08:00:11.000000Z");
    EXPECT_EQ(StreamOf(Probe(Path("clip-3.mp4")), "video")["codec_tag_string"], "hvc1");

    EXPECT_THAT(Tool({"export", card.path, Path("clip.h264"), "--all"}), Ends(2, HasSubstr(".h265")));
    for (const auto& entry : fs::directory_iterator(Path())) {
        EXPECT_NE(entry.path().extension(), ".h264") << "nothing of a failed export is left";
        EXPECT_NE(entry.path().extension(), ".part");
    }
}

TEST_F(Export, RawFilesAreTheStreamItself) {
    const Recording card =
        Card{.sections = {{.seconds = 4, .rate = 12, .video = CODE_VIDEO_H265}}}.RecordImage(Path("card.img"));
    const WrittenFrame& last = card.frames.back();
    EXPECT_TRUE(ReadAll(Made(card, "clip.h265")) == Units(card.KeptVideo()));
    EXPECT_TRUE(ReadAll(Made(card, "clip.ps")) == card.Read("hi000000.mp4", 0, last.offset + last.size));
    // Into a pipe nothing but the clip.
    const Outcome piped = Tool({"export", card.path, "--all", "--to-stdout"});
    EXPECT_THAT(piped, Ends(0, HasSubstr("48 pictures")));
    std::ofstream(Path("piped.mkv"), std::ios::binary) << piped.out;
    EXPECT_EQ(Decode(Path("piped.mkv")).size(), 4 * 12u);
}

// The recorded stream as a player outside sees it, which knows it by its bytes alone.  Each picture is several packets.
TEST_F(Export, AProgramStreamIsTakenApartIntoWhatWasRecorded) {
    for (const auto& [video, audio, sound_name] : {std::tuple{CODE_VIDEO_H264, CODE_AUDIO_G711U, "pcm_mulaw"},
                                                   std::tuple{CODE_VIDEO_H265, CODE_AUDIO_G711A, "pcm_alaw"}}) {
        const std::string name = video == CODE_VIDEO_H265 ? "hevc" : "h264";
        const Recording card =
            Card{.sections = {{.seconds = 2, .video = video, .audio = audio, .frame_bytes = 150000}}}.RecordFolder(
                Path(name));
        std::string units, sounds;
        for (const WrittenFrame* frame : card.Kept()) (frame->video ? units : sounds) += frame->unit;
        const std::string clip = Made(card, name + ".ps");
        const auto part = [&](const char* map, const std::string& format) {
            return RunProgram({"ffmpeg", "-v", "error", "-i", clip, "-map", map, "-c", "copy", "-f", format, "-"}).out;
        };
        EXPECT_TRUE(part("0:v", name) == units);
        EXPECT_TRUE(part("0:a", "data") == sounds);
        const Json probe = Probe(clip);
        EXPECT_EQ(probe["format"]["format_name"], "mpeg");
        EXPECT_EQ(StreamOf(probe, "audio")["codec_name"], sound_name);
        const std::vector<Packet> packets = Packets(clip);
        ASSERT_EQ(packets.size(), 50u);
        for (size_t i = 0; i < packets.size(); ++i) EXPECT_EQ(packets[i].pts, static_cast<int64_t>(i + 1) * 40000);
        ExpectSamePictures(Decode(clip), Source(card.KeptVideo(), video == CODE_VIDEO_H265));
    }
}

TEST_F(Export, NeverHarmsWhatIsThere) {
    const Recording card = Card{.sections = {{.seconds = 2}}}.RecordFolder(Path("card"));
    std::ofstream(Path("clip.mp4")) << "mine";
    EXPECT_EQ(Tool({"export", card.path, Path("clip.mp4"), "--all"}).status, 2);
    EXPECT_EQ(ReadAll(Path("clip.mp4")), "mine");
    Made(card, "clip.mp4", {"--all", "--force"});
    EXPECT_EQ(Decode(Path("clip.mp4")).size(), 50u);
}

}  // namespace
