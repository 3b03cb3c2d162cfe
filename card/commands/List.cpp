// recordcard list: what was recorded, section by section, day by day, with the gaps between.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "commands/Commands.h"
#include "commands/Losses.h"
#include "commands/Options.h"
#include "index/CardIndex.h"
#include "index/ListJson.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct ListArguments {
    std::string path;
    bool key_frames = false;
    bool json = false;
    TimeStyle times;
};

constexpr uint32_t kWaitShown = 2;  // s

std::string StreamText(const RecordInfoHead_S& head) {
    const std::string video = VideoName(head);
    const std::string audio = AudioName(head);
    return (video.empty() ? "no key frame"
                          : video + " " + std::to_string(head.m_u16Width) + "x" + std::to_string(head.m_u16Height) +
                                " " + std::to_string(head.m_u8Frame) + " fps") +
           (audio.empty() ? "" : ", " + audio);
}

void PrintKeyFrames(const CardIndex& index, const Section& section, const TimeStyle& times) {
    for (const KeyFrame& key : index.KeyFrames(section)) {
        if (!key.fits) {
            std::printf("      a key-frame record that does not fit\n");
            continue;
        }
        std::printf("      %s  at %llu, %u bytes%s\n", times.Clock(key.record.m_u32KeyFrameTime).c_str(),
                    static_cast<unsigned long long>(key.offset), key.record.m_u32KeyFrameLenth,
                    key.record.m_u8KeyFrameType == RECORD_KEY_FRAME_VIRTUAL ? " (virtual)" : "");
    }
}

void PrintSection(const Section& section, const TimeStyle& times) {
    if (section.Wait() >= kWaitShown) {
        std::printf("  %s - %s   %-16s  -- asked for, no picture yet --\n",
                    times.Clock(section.head.m_u32RecordStartTime).c_str(), times.Clock(section.Start()).c_str(),
                    Duration(section.Wait()).c_str());
    }
    const bool next_day = times.Day(section.Start()) != times.Day(section.End());
    std::printf("  %s - %s%s  %-16s %4u:%-3u  %10s  %s, %s\n", times.Clock(section.Start()).c_str(),
                times.Clock(section.End()).c_str(), next_day ? "+" : " ", Duration(section.Seconds()).c_str(),
                section.file, section.number, Bytes(section.head.m_u32RecordSize).c_str(),
                StreamText(section.head).c_str(), Counted(section.head.m_u32KeyFrameSum, "key frame").c_str());
}

// Of a time between two sections.
std::string WhyEmpty(const CardIndex& index, const Gap& gap) {
    for (const LostFile& lost : index.Lost()) {
        if (lost.Touches(gap.from + 1, gap.to - 1))
            return lost.name + (lost.Missing() ? " is missing" : " cannot be read");
    }
    return "nothing recorded";
}

void PrintSections(const CardIndex& index, const ListArguments& arguments) {
    const TimeStyle& times = arguments.times;
    const std::vector<Gap> gaps = index.Gaps();
    auto gap = gaps.begin();
    std::string day;
    for (size_t i = 0; i < index.Sections().size(); ++i) {
        const Section& section = index.Sections()[i];
        const bool after_gap = gap != gaps.end() && gap->before == i;
        const bool same_day = times.Day(section.Start()) == day;
        if (after_gap && same_day) {
            std::printf("  %s - %s   %-16s  -- %s --\n", times.Clock(gap->from).c_str(), times.Clock(gap->to).c_str(),
                        Duration(gap->to - gap->from).c_str(), WhyEmpty(index, *gap).c_str());
        }
        if (!same_day) {
            if (!day.empty()) std::printf("\n");
            day = times.Day(section.Start());
            std::printf("%s %s", day.c_str(), times.Weekday(section.Start()).c_str());
            if (after_gap) {
                std::printf("   (%s for %s before)", WhyEmpty(index, *gap).c_str(),
                            Duration(gap->to - gap->from).c_str());
            }
            std::printf("\n");
        }
        if (after_gap) ++gap;
        PrintSection(section, times);
        if (arguments.key_frames) PrintKeyFrames(index, section, times);
    }
}

int List(const ListArguments& arguments) {
    const Volume volume = Volume::OpenToSalvage(arguments.path);
    const CardIndex index(volume);
    if (arguments.json) {
        std::printf("%s\n", ListJson(index).c_str());
        return TellLosses(volume, index, arguments.times);
    }
    if (index.Sections().empty() && !(index.Lost().empty() && volume.Unread().empty())) {
        std::printf("Nothing of what is recorded on %s can be shown.\n", arguments.path.c_str());
    } else if (index.Sections().empty()) {
        std::printf("Nothing is recorded on %s yet.\n", arguments.path.c_str());
    } else {
        PrintSections(index, arguments);
        uint64_t seconds = 0;
        for (const Section& section : index.Sections()) seconds += section.Seconds();
        std::printf("\n%s, %s, %s; %s\n", Counted(index.Sections().size(), "section").c_str(),
                    Duration(seconds).c_str(), Bytes(index.StreamBytes()).c_str(),
                    Counted(index.Gaps().size(), "gap").c_str());
    }
    const size_t faulty = DamagedEntries(index);
    if (faulty != 0) {
        std::fprintf(stderr,
                     "recordcard: %zu damaged entries of the index are left out; \"recordcard check\" tells more\n",
                     faulty);
    }
    return TellLosses(volume, index, arguments.times);
}

}  // namespace

Run PrepareList(CLI::App& command) {
    const auto arguments = std::make_shared<ListArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_flag("--key-frames", arguments->key_frames, "Also the key frames of every section");
    command.add_flag("--json", arguments->json, "For programs: sections, gaps and events, times in seconds since 1970");
    AddTimeStyle(command, arguments->times);
    command.footer("A line names start, end, length, FILE:SECTION (for \"export --section\"), size, and the stream.");
    return [arguments] { return List(*arguments); };
}

}  // namespace card
