// Makes cards for the page's tests: those named, each a folder, or with ".img" an image.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "fixture/CardFixture.h"

using fixture::Card;
using fixture::SectionPlan;

int main(int count, char** arguments) {
    if (count < 3) {
        std::fprintf(stderr, "usage: make_cards FOLDER NAME[.img] ...\n");
        return 2;
    }
    const SectionPlan b_frames{.seconds = 20, .audio = CODE_AUDIO_G711A, .key_interval = 50, .b_frames = true};
    const SectionPlan h264{.seconds = 10, .pause = 60};
    SectionPlan h265 = h264, h265_b_frames = b_frames;
    h265.video = h265_b_frames.video = CODE_VIDEO_H265;
    const SectionPlan picture{
        .seconds = 1, .pause = 21, .rate = 2, .width = 64, .height = 48, .audio = CODE_AUDIO_NULL};
    std::vector<SectionPlan> many(6000, picture);  // 250 in each of 24 files
    for (size_t i = 250; i < many.size(); i += 250) many[i].next_file = true;
    const std::map<std::string, Card> cards{
        // Two days, gaps, events of three kinds, two kinds of sound, none in the last.
        {"busy",
         {.files = 2,
          .sections = {{.seconds = 20},
                       {.seconds = 12, .pause = 86400, .audio = CODE_AUDIO_G711U},
                       {.seconds = 10, .pause = 1, .rate = 12, .audio = CODE_AUDIO_AAC},
                       {.seconds = 10, .pause = 600, .width = 480, .height = 270, .audio = CODE_AUDIO_NULL}},
          .events = {{.after = 5, .seconds = 4, .type = 4},
                     {.after = 86425, .seconds = 4, .type = 1},
                     {.after = 86430, .seconds = 3, .type = 32}}}},
        // B-frames, and long distances between key frames.
        {"b_frames", {.files = 1, .sections = {b_frames}}},
        {"h265", {.files = 1, .sections = {h265_b_frames}}},
        {"mixed", {.files = 1, .sections = {h264, h265, h264}}},
        // Key frames that lie anywhere within their seconds.
        {"odd", {.files = 1, .sections = {{.seconds = 12, .audio = CODE_AUDIO_G711U, .key_interval = 37}}}},
        // One run over the end of a record file.
        {"border", {.files = 2, .sections = {{.seconds = 40, .rate = 25, .frame_bytes = 300000}}, .keep_units = false}},
        {"many", {.files = 24, .sections = many}},
        {"clocks", {.files = 1, .sections = {{.seconds = 3}, {.seconds = 3, .pause = 8 * 86400 - 3}}}},
        {"empty", {.files = 1}}};
    for (int i = 2; i < count; ++i) {
        const std::string name = arguments[i], path = std::string(arguments[1]) + "/" + name;
        if (name.ends_with(".img")) {
            cards.at(name.substr(0, name.size() - 4)).RecordImage(path);
        } else {
            cards.at(name).RecordFolder(path);
        }
    }
    return 0;
}
