// Makes the cards that the page's tests open, in the folder given.
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <string>

#include "fixture/CardFixture.h"
#include "fixture/Damage.h"

using fixture::Card;
using fixture::SectionPlan;

// A line each: name, file, offset, bytes in hexadecimal.
void ListDamages(const std::string& path, const fixture::Recording& recording) {
    std::ofstream list(path);
    for (const fixture::Damage& damage : fixture::Damages(recording)) {
        list << damage.name << '\t' << damage.file << '\t' << damage.offset << '\t' << std::hex << std::setfill('0');
        for (const unsigned char byte : damage.bytes) list << std::setw(2) << unsigned{byte};
        list << std::dec << '\n';
    }
}

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: make_cards FOLDER\n");
        return 2;
    }
    const std::string folder = std::string(arguments[1]) + "/";
    // Two days, gaps, events of three kinds, two kinds of sound, none in the last.
    const Card busy{.files = 2,
                    .sections = {{.seconds = 20},
                                 {.seconds = 12, .pause = 86400, .audio = CODE_AUDIO_G711U},
                                 {.seconds = 10, .pause = 1, .rate = 12, .audio = CODE_AUDIO_AAC},
                                 {.seconds = 10, .pause = 600, .width = 480, .height = 270, .audio = CODE_AUDIO_NULL}},
                    .events = {{.after = 5, .seconds = 4, .type = 4},
                               {.after = 86425, .seconds = 4, .type = 1},
                               {.after = 86430, .seconds = 3, .type = 32}},
                    .keep_units = false};
    ListDamages(folder + "damages.txt", busy.RecordFolder(folder + "busy"));
    busy.RecordImage(folder + "busy.img");
    // B-frames, and long distances between key frames.
    const SectionPlan b_frames{.seconds = 20, .audio = CODE_AUDIO_G711A, .key_interval = 50, .b_frames = true};
    Card{.files = 1, .sections = {b_frames}, .keep_units = false}.RecordFolder(folder + "b_frames");
    SectionPlan h265 = b_frames;
    h265.video = CODE_VIDEO_H265;
    Card{.files = 1, .sections = {h265}, .keep_units = false}.RecordFolder(folder + "h265");
    SectionPlan h264 = {.seconds = 10, .pause = 60};
    h265 = h264;
    h265.video = CODE_VIDEO_H265;
    Card{.files = 1, .sections = {h264, h265, h264}, .keep_units = false}.RecordFolder(folder + "mixed");
    // Key frames that lie anywhere within their seconds.
    Card{.files = 1, .sections = {{.seconds = 12, .audio = CODE_AUDIO_G711U, .key_interval = 37}}, .keep_units = false}
        .RecordFolder(folder + "odd");
    // One run over the end of a record file.
    Card{.files = 2, .sections = {{.seconds = 40, .rate = 25, .frame_bytes = 300000}}, .keep_units = false}
        .RecordFolder(folder + "border");
    // 250 sections in the first of many files; the test fills the others like it.
    Card many{.files = 24, .keep_units = false};
    for (int i = 0; i < 250; ++i)
        many.sections.push_back({.seconds = 1, .pause = 20, .rate = 2, .width = 64, .height = 48});
    many.RecordFolder(folder + "many");
    // Eight days apart.
    Card{.files = 1, .sections = {{.seconds = 3}, {.seconds = 3, .pause = 8 * 86400 - 3}}, .keep_units = false}
        .RecordFolder(folder + "clocks");
    Card{.files = 1}.RecordFolder(folder + "empty");
    return 0;
}
