// recordcard events: the alarm events found on the card.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "commands/Commands.h"
#include "commands/Json.h"
#include "commands/Losses.h"
#include "commands/Options.h"
#include "index/CardIndex.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace card {

namespace {

struct EventsArguments {
    std::string path;
    bool json = false;
    TimeStyle times;
};

void PrintEvent(const Event& event, const TimeStyle& times) {
    const std::string length = event.Open() ? "still open" : Duration(event.End() - event.Start());
    std::printf("%5u  %s  %-16s  %-18s  file %u", event.number, times.DateTime(event.Start()).c_str(), length.c_str(),
                EventTypeText(event.record.m_u8AlarmFileType).c_str(), event.file);
    if (event.record.m_u32FileSize != 0 && event.record.m_u32FileSize <= RECORD_FILE_SIZE) {
        std::printf(", alarm itself %s, %u frames", Bytes(event.record.m_u32FileSize).c_str(),
                    event.record.m_u32FrameCount);
    }
    std::printf("\n");
}

Json EventJson(const Event& event) {
    return {{"number", event.number},
            {"start", event.Start()},
            {"end", event.Open() ? Json() : Json(event.End())},
            {"type", event.record.m_u8AlarmFileType},
            {"text", EventTypeText(event.record.m_u8AlarmFileType)},
            {"file", event.file},
            {"bytes", event.record.m_u32FileSize},
            {"frames", event.record.m_u32FrameCount}};
}

int Events(const EventsArguments& arguments) {
    const Volume volume = Volume::OpenToSalvage(arguments.path);
    const CardIndex index(volume);
    Json list = Json::array();
    for (const Event& event : index.Events()) {
        arguments.json ? list.push_back(EventJson(event)) : PrintEvent(event, arguments.times);
    }
    if (arguments.json) {
        PrintJson({{"card", arguments.path}, {"events", std::move(list)}});
    } else if (index.Events().empty() && index.Lost().empty() && volume.Unread().empty()) {
        std::printf("No alarm event is recorded on %s.\n", arguments.path.c_str());
    }
    const size_t damaged = index.AllEvents().size() - index.Events().size();
    if (damaged != 0) {
        std::fprintf(stderr,
                     "recordcard: %zu damaged or outdated records are left out; \"recordcard check\" tells more\n",
                     damaged);
    }
    return TellLosses(volume, index, arguments.times);
}

}  // namespace

Run PrepareEvents(CLI::App& command) {
    const auto arguments = std::make_shared<EventsArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_flag("--json", arguments->json, "For scripts: one JSON object");
    AddTimeStyle(command, arguments->times);
    command.footer("The number in front is what \"recordcard export --event\" takes.");
    return [arguments] { return Events(*arguments); };
}

}  // namespace card
