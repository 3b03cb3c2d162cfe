#include "timeline/TimelinePage.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "AVFrame.h"
#include "stream/StreamScanner.h"
#include "text/Error.h"
#include "timeline/Thumbnail.h"

namespace card {

extern const char kTimelinePage[];  // page.html

namespace {

using Json = nlohmann::json;

constexpr char kPlace[] = "@DATA@";
constexpr int kThumbnailWidth = 288;    // pixels
constexpr uint32_t kSpacingMin = 5;     // s between two pictures of a section
constexpr uint32_t kOffsetStep = 3600;  // s in which a zone changes its clocks at most once
constexpr uint32_t kOffsetSpanMax = 366 * 86400u * 20;
constexpr size_t kKeyFrameSlack = 4u << 20;  // bytes in which a key frame ends

int32_t UtcOffset(uint32_t seconds, const TimeStyle& times) {
    if (times.utc) return 0;
    const time_t time = static_cast<time_t>(seconds);
    tm fields{};
    localtime_r(&time, &fields);
    return static_cast<int32_t>(fields.tm_gmtoff);
}

// [from, seconds east of UTC], rising; valid from each `from` on.
Json Offsets(const CardIndex& index, const TimeStyle& times) {
    const uint32_t oldest = index.Oldest().value_or(0);
    const uint32_t newest =
        std::min(index.Newest().value_or(0), oldest + std::min(UINT32_MAX - oldest, kOffsetSpanMax));
    int32_t offset = UtcOffset(oldest, times);
    Json offsets = Json::array({Json::array({0, offset})});
    for (uint64_t time = (oldest / kOffsetStep + 1) * uint64_t{kOffsetStep}; time <= newest; time += kOffsetStep) {
        const int32_t now = UtcOffset(static_cast<uint32_t>(time), times);
        if (now != std::exchange(offset, now)) offsets.push_back(Json::array({time, now}));
    }
    return offsets;
}

std::string ZoneText(const CardIndex& index, const TimeStyle& times) {
    if (times.utc) return "UTC";
    const int32_t offset = UtcOffset(index.Newest().value_or(0), times);
    char text[32];
    std::snprintf(text, sizeof text, "UTC%c%02d:%02d", offset < 0 ? '-' : '+', std::abs(offset) / 3600,
                  std::abs(offset) / 60 % 60);
    return text;
}

std::string StreamText(const RecordInfoHead_S& head) {
    if (head.m_u16Width == 0) return "";
    const bool h265 = head.m_u8VideoType == (CODE_VIDEO_H265 & 0xFF);
    return std::string(h265 ? "H.265 " : "H.264 ") + std::to_string(head.m_u16Width) + "x" +
           std::to_string(head.m_u16Height) + ", " + std::to_string(head.m_u8Frame) + " fps";
}

Json SectionData(const Section& section) {
    return {{"file", section.file},
            {"number", section.number},
            {"start", section.Start()},
            {"end", section.End()},
            {"bytes", section.head.m_u32RecordSize},
            {"stream", StreamText(section.head)}};
}

Json EventData(const Event& event) {
    return {{"number", event.number},
            {"start", event.Start()},
            {"end", event.End()},
            {"open", event.Open()},
            {"type", event.record.m_u8AlarmFileType},
            {"text", EventTypeText(event.record.m_u8AlarmFileType)}};
}

Json Facts(const CardIndex& index) {
    uint64_t seconds = 0;
    for (const Section& section : index.Sections()) seconds += section.Seconds();
    const auto used =
        std::count_if(index.Files().begin(), index.Files().end(), [](const FileState& f) { return !f.empty; });
    return {{"oldest", index.Oldest().value_or(0)},
            {"newest", index.Newest().value_or(0)},
            {"seconds", seconds},
            {"bytes", index.StreamBytes()},
            {"files", index.FileCount()},
            {"filesUsed", used},
            {"hoursKept", index.HoursKept().value_or(0)}};
}

std::string Base64(ByteView bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t left = std::min<size_t>(bytes.size() - i, 3);
        uint32_t group = bytes[i] << 16;
        if (left > 1) group |= bytes[i + 1] << 8;
        if (left > 2) group |= bytes[i + 2];
        for (size_t digit = 0; digit < 4; ++digit)
            text += digit <= left ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
    return text;
}

// Quoted for a shell only where it needs to be.
std::string ShellWord(const std::string& word) {
    const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string("/._-+:@%").find(c) != std::string::npos;
    });
    if (plain) return word;
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

// Finds and shrinks key frames of the card.
class Pictures {
  public:
    explicit Pictures(const CardIndex& index) : index_(index) {}

    // Null when the place has none, one that is in use already, or one that cannot be decoded.
    Json Get(const Wanted& wanted) {
        const std::optional<KeyFrame> key = KeyAt(wanted);
        const uint32_t file = index_.Sections()[wanted.section].file;
        if (!key || !used_.insert({file, key->offset}).second) return nullptr;
        const StoreFile stream = index_.OpenRecordFile(file);
        const auto read = [&stream](uint64_t offset, void* buffer, size_t length) {
            return stream.ReadAt(offset, buffer, length);
        };
        StreamScanner scanner(read, key->offset,
                              std::min(key->offset + kKeyFrameSlack, index_.Sections()[wanted.section].Limit()));
        StreamScanner::Found found = scanner.Next();
        if (found == StreamScanner::Found::StreamHead) found = scanner.Next();
        std::vector<uint8_t> unit;
        const StreamFrame& frame = scanner.Frame();
        if (found != StreamScanner::Found::Frame || !frame.parameters || !scanner.ReadPayload(frame, unit))
            return nullptr;
        const VideoCodec codec =
            frame.parameters->video_type == record_file::kStreamH265 ? VideoCodec::H265 : VideoCodec::H264;
        const auto jpeg = maker_.Make(codec, unit);
        if (!jpeg) return nullptr;
        return {{"section", wanted.section}, {"time", frame.time}, {"jpeg", Base64(*jpeg)}};
    }

  private:
    std::optional<KeyFrame> KeyAt(const Wanted& wanted) {
        if (keys_section_ != wanted.section) {
            keys_ = index_.KeyFrames(index_.Sections()[wanted.section]);
            std::erase_if(
                keys_, [](const KeyFrame& k) { return !k.fits || k.record.m_u8KeyFrameType != RECORD_KEY_FRAME_REAL; });
            keys_section_ = wanted.section;
        }
        const auto later = std::find_if(keys_.begin(), keys_.end(), [&](const KeyFrame& key) {
            return key.record.m_u32KeyFrameTime > wanted.time;
        });
        if (later == keys_.begin()) return keys_.empty() ? std::nullopt : std::optional(keys_.front());
        return *(later - 1);
    }

    const CardIndex& index_;
    ThumbnailMaker maker_{kThumbnailWidth};
    std::optional<size_t> keys_section_;
    std::vector<KeyFrame> keys_;
    std::set<std::pair<uint32_t, uint64_t>> used_;
};

Json Thumbnails(const CardIndex& index, const TimelineOptions& options, const PicturesDone& progress) {
    const std::vector<Wanted> wanted = ChoosePictures(index, options.thumbnails_max);
    Pictures pictures(index);
    Json thumbs = Json::array();
    for (size_t i = 0; i < wanted.size(); ++i) {
        Json picture = pictures.Get(wanted[i]);
        if (!picture.is_null()) thumbs.push_back(std::move(picture));
        progress(i + 1, wanted.size());
    }
    return thumbs;
}

// Nothing in it ends the script element that it stands in.
std::string ForScript(const Json& data) {
    const std::string text = data.dump(-1, ' ', true, Json::error_handler_t::replace);
    std::string safe;
    safe.reserve(text.size());
    for (const char c : text) safe += c == '<' ? std::string("\\u003c") : std::string(1, c);
    return safe;
}

// `max` of `list` or all, evenly taken.
void Thin(std::vector<Wanted>& list, size_t max) {
    if (list.size() <= max) return;
    for (size_t i = 0; i < max; ++i) list[i] = list[i * list.size() / max];
    list.resize(max);
}

}  // namespace

std::vector<Wanted> ChoosePictures(const CardIndex& index, size_t max) {
    uint64_t seconds = 0;
    for (const Section& section : index.Sections()) seconds += section.Seconds() + 1;
    const size_t for_events = max / 4;
    const uint64_t spacing = max > for_events ? std::max<uint64_t>(seconds / (max - for_events) + 1, kSpacingMin) : 0;
    std::vector<Wanted> spread;
    std::vector<Wanted> events;
    for (size_t i = 0; i < index.Sections().size() && spacing != 0; ++i) {
        const Section& section = index.Sections()[i];
        for (uint64_t time = section.Start(); time <= section.End(); time += spacing) {
            spread.push_back({i, static_cast<uint32_t>(time)});
        }
        for (const Event& event : index.Events()) {
            if (event.Start() > section.Start() && event.Start() <= section.End()) events.push_back({i, event.Start()});
        }
    }
    Thin(events, for_events);
    Thin(spread, max - events.size());
    spread.insert(spread.end(), events.begin(), events.end());
    std::sort(spread.begin(), spread.end(), [](const Wanted& a, const Wanted& b) {
        return std::pair(a.section, a.time) < std::pair(b.section, b.time);
    });
    return spread;
}

std::string MakeTimelinePage(const CardIndex& index, const TimelineOptions& options, const PicturesDone& progress) {
    Json data;
    data["card"] = options.path;
    data["shell"] = ShellWord(options.path);
    data["zone"] = ZoneText(index, options.times);
    data["offsets"] = Offsets(index, options.times);
    data["facts"] = Facts(index);
    data["sections"] = Json::array();
    for (const Section& section : index.Sections()) data["sections"].push_back(SectionData(section));
    data["events"] = Json::array();
    for (const Event& event : index.Events()) data["events"].push_back(EventData(event));
    data["thumbs"] = Thumbnails(index, options, progress);
    std::string page = kTimelinePage;
    return page.replace(page.find(kPlace), sizeof kPlace - 1, ForScript(data));
}

}  // namespace card
