#include "index/ListJson.h"

#include <algorithm>
#include <cstdint>

#include "AVFrame.h"
#include "text/Json.h"

namespace card {

namespace {

void AddSection(JsonText& json, const Section& section) {
    const RecordInfoHead_S& head = section.head;
    json.Open('{')
        .Field("file", section.file)
        .Field("section", section.number)
        .Field("start", section.Start())
        .Field("end", section.End())
        .Field("asked", head.m_u32RecordStartTime)
        .Field("bytes", uint64_t{head.m_u32RecordSize})
        .Field("video", VideoName(head))
        .Field("width", uint32_t{head.m_u16Width})
        .Field("height", uint32_t{head.m_u16Height})
        .Field("rate", uint32_t{head.m_u8Frame})
        .Field("audio", AudioName(head))
        .Field("keyFrames", uint32_t{head.m_u32KeyFrameSum})
        .Field("pictures", uint32_t{head.m_u32FrameSum})
        .Close('}');
}

void AddEvent(JsonText& json, const Event& event) {
    json.Open('{')
        .Field("number", event.number)
        .Field("start", event.Start())
        .Field("end", event.End())
        .Field("open", event.Open())
        .Field("type", uint32_t{event.record.m_u8AlarmFileType})
        .Field("kind", EventTypeText(event.record.m_u8AlarmFileType))
        .Field("file", event.file)
        .Close('}');
}

void AddLost(JsonText& json, const LostFile& lost) {
    json.Open('{')
        .Field("name", lost.name)
        .Field("missing", lost.Missing())
        .Field("sections", lost.sections)
        .Field("start", lost.from)
        .Field("end", lost.to)
        .Field("bytes", lost.bytes)
        .Close('}');
}

uint32_t SecondsKept(const CardIndex& index) {
    return static_cast<uint32_t>(std::min(index.HoursKept().value_or(0) * 3600, double{UINT32_MAX}));
}

size_t FilesUsed(const CardIndex& index) {
    size_t used = 0;
    for (const FileState& file : index.Files()) used += file.empty ? 0 : 1;
    return used;
}

}  // namespace

// A head keeps the low byte of an AVCodeType; the kinds of code share those bytes.
std::string VideoName(const RecordInfoHead_S& head) {
    if (head.m_u16Width == 0) return "";
    const uint8_t type = head.m_u8VideoType;
    if (type == (CODE_VIDEO_H264 & 0xFF)) return "H.264";
    if (type == (CODE_VIDEO_H265 & 0xFF)) return "H.265";
    return "video " + std::to_string(type);
}

std::string AudioName(const RecordInfoHead_S& head) {
    switch (head.m_u8AudioType) {
        case CODE_AUDIO_NULL & 0xFF:
            return "";
        case CODE_AUDIO_AAC & 0xFF:
            return "AAC";
        case CODE_AUDIO_G711U & 0xFF:
            return "G.711 u-law";
        case CODE_AUDIO_G711A & 0xFF:
            return "G.711 A-law";
        case CODE_AUDIO_PCM & 0xFF:
            return "PCM";
        default:
            return "audio " + std::to_string(head.m_u8AudioType);
    }
}

std::string UnreadJson(const std::vector<UnreadPart>& unread) {
    JsonText json;
    json.Open('[');
    for (const UnreadPart& part : unread) {
        json.Open('{')
            .Field("name", part.file)
            .Field("at", part.places.front().offset)
            .Field("bytes", part.Bytes())
            .Field("unsearched", part.unsearched)
            .Close('}');
    }
    return json.Close(']').Text();
}

size_t DamagedEntries(const CardIndex& index) {
    size_t damaged = 0;
    for (const Section& section : index.AllSections()) {
        const bool fine = section.Usable() || section.fault == Section::Fault::FileLost;
        damaged += fine ? 0 : 1;
    }
    for (const FileState& file : index.Files()) damaged += file.fault == FileState::Fault::None ? 0 : 1;
    return damaged;
}

std::string ListJson(const CardIndex& index) {
    JsonText json;
    json.Open('{')
        .Field("start", index.Oldest().value_or(0))
        .Field("end", index.Newest().value_or(0))
        .Field("bytes", index.StreamBytes())
        .Field("files", index.FileCount())
        .Field("filesUsed", uint64_t{FilesUsed(index)})
        .Field("keeps", SecondsKept(index))
        .Field("damaged", uint64_t{DamagedEntries(index)});
    json.Key("sections").Open('[');
    for (const Section& section : index.Sections()) AddSection(json, section);
    json.Close(']').Key("gaps").Open('[');
    for (const Gap& gap : index.Gaps()) json.Open('{').Field("start", gap.from).Field("end", gap.to).Close('}');
    json.Close(']').Key("events").Open('[');
    for (const Event& event : index.Events()) AddEvent(json, event);
    json.Close(']').Key("lost").Open('[');
    for (const LostFile& lost : index.Lost()) AddLost(json, lost);
    json.Close(']').Key("unread").Plain(UnreadJson(index.Unread()));
    json.Field("wholeDirectory", index.DirectoryIsWhole()).Close('}');
    return json.Text();
}

}  // namespace card
