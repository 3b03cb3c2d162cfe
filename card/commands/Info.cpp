// recordcard info: the card at a glance.
#include <CLI/CLI.hpp>
#include <algorithm>
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

struct InfoArguments {
    std::string path;
    bool json = false;
    TimeStyle times;
};

std::string KindOf(const Volume& volume) {
    if (volume.IsFolder()) return "folder";
    const Fat32& fat = *volume.Fat();
    std::string text = "FAT32, clusters of " + Bytes(fat.Geometry().ClusterBytes());
    if (!fat.Geometry().label.empty()) text += ", label \"" + fat.Geometry().label + "\"";
    if (fat.FromBackup()) text += "; its boot sector is damaged, read by the backup";
    return text;
}

void PrintMoment(const char* name, const InfoArguments& arguments, std::optional<uint32_t> moment) {
    std::printf("%-15s %s\n", name, moment ? arguments.times.DateTime(*moment).c_str() : "nothing recorded yet");
}

int Info(const InfoArguments& arguments) {
    const Volume volume = Volume::OpenToSalvage(arguments.path);
    const CardIndex index(volume);
    const RecordSystemInfoHead_S& system = index.System();
    const auto& files = index.Files();
    const auto used = std::count_if(files.begin(), files.end(), [](const FileState& file) { return !file.empty; });

    if (arguments.json) {
        PrintJson({{"card", volume.Path()},
                   {"kind", KindOf(volume)},
                   {"bytes", volume.TotalBytes()},
                   {"files", index.FileCount()},
                   {"filesUsed", used},
                   {"currentFile", system.m_u32RecordFileNo},
                   {"recordedBytes", index.StreamBytes()},
                   {"sections", index.Sections().size()},
                   {"events", index.Events().size()},
                   {"oldest", index.Oldest() ? Json(*index.Oldest()) : Json()},
                   {"newest", index.Newest() ? Json(*index.Newest()) : Json()},
                   {"bytesPerSecond", index.BytesPerSecond() ? Json(*index.BytesPerSecond()) : Json()},
                   {"hoursKept", index.HoursKept() ? Json(*index.HoursKept()) : Json()}});
        return TellLosses(volume, index, arguments.times);
    }
    std::printf("%-15s %s (%s)\n", "Card", volume.Path().c_str(), KindOf(volume).c_str());
    std::printf("%-15s %s\n", "Size", Bytes(volume.TotalBytes()).c_str());
    std::printf("%-15s %u of 256 MiB, %u in use, recording goes on in number %u\n", "Record files", index.FileCount(),
                static_cast<unsigned>(used), system.m_u32RecordFileNo);
    std::printf("%-15s %s in %s, %s\n", "Recorded", Bytes(index.StreamBytes()).c_str(),
                Counted(index.Sections().size(), "section").c_str(), Counted(index.Events().size(), "event").c_str());
    PrintMoment("Oldest moment", arguments, index.Oldest());
    PrintMoment("Newest moment", arguments, index.Newest());
    if (const auto rate = index.BytesPerSecond()) {
        std::printf("%-15s %.2f Mbit/s at present\n", "Bit rate", *rate * 8 / 1e6);
        std::printf("%-15s %.1f hours at that rate, when the card is full\n", "Keeps", index.HoursKept().value_or(0));
    }
    return TellLosses(volume, index, arguments.times);
}

}  // namespace

Run PrepareInfo(CLI::App& command) {
    const auto arguments = std::make_shared<InfoArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_flag("--json", arguments->json, "For scripts: one JSON object");
    AddTimeStyle(command, arguments->times);
    return [arguments] { return Info(*arguments); };
}

}  // namespace card
