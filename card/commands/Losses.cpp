#include "commands/Losses.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace card {

namespace {

struct Loss {
    std::string what;
    std::string consequence;
};

std::string ConsequenceOf(const LostFile& lost, const TimeStyle& times) {
    if (lost.name == RECORD_EVENT_NAME) return "the alarm events are not shown";
    return Counted(lost.sections, "section") + " from " + times.DateTime(lost.from) + " to " + times.DateTime(lost.to) +
           " (" + Bytes(lost.bytes) + ") cannot be shown or exported";
}

const char* ConsequenceOf(const UnreadPart& part) {
    if (part.file == RECORD_INDEX_NAME) return "recordings that it names there are left out";
    if (part.file == RECORD_EVENT_NAME) return "alarm events that stand there are left out";
    return "pictures there are left out or damaged";
}

bool Misses(const Selection& selected, const CardIndex& index, const UnreadPart& part) {
    const std::optional<uint32_t> number = Volume::RecordFileNumber(part.file);
    if (!number) return true;  // index and events speak of everything
    return std::any_of(selected.stretches.begin(), selected.stretches.end(), [&](const Stretch& stretch) {
        return index.Sections()[stretch.section].file == *number &&
               std::any_of(part.places.begin(), part.places.end(), [&](const Extent& place) {
                   return place.offset < stretch.end && stretch.begin < place.offset + place.length;
               });
    });
}

std::vector<Loss> LossesOf(const Volume& volume, const CardIndex& index, const TimeStyle& times,
                           const Selection* selected) {
    std::vector<Loss> losses;
    for (const LostFile& lost : index.Lost()) {
        if (selected == nullptr || selected->Misses(lost)) losses.push_back({lost.Text(), ConsequenceOf(lost, times)});
    }
    if (!volume.DirectoryIsWhole())
        losses.push_back({"Not all of the directory can be read (" + volume.Fat()->Unread().back().why + ")",
                          "files that it names there are not found"});
    for (const UnreadPart& part : volume.Unread()) {
        if (selected != nullptr && !Misses(*selected, index, part)) continue;
        losses.push_back(
            {Bytes(part.Bytes()) + " of " + part.file + " cannot be read, from byte " +
                 std::to_string(part.places.front().offset) + " on (" + part.why + ")" +
                 (part.unsearched == 0 ? ""
                                       : "; " + Bytes(part.unsearched) +
                                             " of it were given up after ten minutes of failing reads, and "
                                             "may be readable in part"),
             ConsequenceOf(part)});
    }
    return losses;
}

}  // namespace

ExitCode TellLosses(const Volume& volume, const CardIndex& index, const TimeStyle& times, const Selection* selected) {
    const std::vector<Loss> losses = LossesOf(volume, index, times, selected);
    for (const Loss& loss : losses)
        std::fprintf(stderr, "recordcard: %s: %s\n", loss.what.c_str(), loss.consequence.c_str());
    return losses.empty() ? kDone : kFindings;
}

bool AllRead(const Volume& volume, const CardIndex& index, const Selection* selected) {
    return LossesOf(volume, index, {}, selected).empty();
}

void TellKept(const std::string& out, const std::string& beside) {
    std::fprintf(
        stderr,
        "recordcard: not all could be read, so %s is kept as it was, and what could be read now is %s: keep the "
        "better one\n",
        out.c_str(), beside.c_str());
}

CardError NothingThere(const Volume& volume, const CardIndex& index, const Selection& selected) {
    std::string lost;
    for (const Loss& loss : LossesOf(volume, index, {}, &selected)) lost += (lost.empty() ? "" : "; ") + loss.what;
    if (!lost.empty()) return CardError("What was recorded then cannot be had: " + lost, kFindings);
    return CardError("Nothing was recorded then; \"recordcard list\" tells what is there.", kNothing);
}

}  // namespace card
