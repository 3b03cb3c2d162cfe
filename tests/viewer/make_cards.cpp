// Makes the cards that the page's tests open, in the folder given.
#include <cstddef>
#include <cstdio>
#include <string>

#include "fixture/CardFixture.h"
#include "fixture/EncodedClip.h"
#include "fixture/StoreBytes.h"
#include "fixture/StoreWriter.h"

using fixture::Card;
using fixture::SectionPlan;

// 250 sections in each of 24 files.
void RecordMany(const std::string& folder) {
    const fixture::Recording card = Card{.files = 24}.RecordFolder(folder);
    const SectionPlan plan{.rate = 2, .width = 64, .height = 48};
    const auto& frames = fixture::EncodedVideo(
        {.width = plan.width, .height = plan.height, .rate = plan.rate, .key_interval = plan.rate, .frames = 2});
    uint32_t time = Card{}.start;
    for (uint32_t file = 0; file < 24; ++file) {
        card.Corrupt(RECORD_INDEX_NAME, offsetof(RecordSystemInfoHead_S, m_u32RecordFileNo), fixture::Word(file));
        fixture::StoreWriter writer(folder);
        for (int section = 0; section < 250; ++section, time += 22) {
            writer.BeginSection(time, fixture::ParametersOf(plan));
            for (const auto& frame : frames) writer.Video(frame.unit, frame.key, false, time);
            writer.EndSection();
        }
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
    busy.RecordFolder(folder + "busy");
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
    RecordMany(folder + "many");
    // Eight days apart.
    Card{.files = 1, .sections = {{.seconds = 3}, {.seconds = 3, .pause = 8 * 86400 - 3}}, .keep_units = false}
        .RecordFolder(folder + "clocks");
    Card{.files = 1}.RecordFolder(folder + "empty");
    return 0;
}
