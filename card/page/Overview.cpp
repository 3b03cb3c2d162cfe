#include "page/Overview.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <set>
#include <utility>

#include "index/ListJson.h"
#include "page/Thumbnail.h"
#include "stream/StreamScanner.h"
#include "text/Base64.h"
#include "text/Json.h"

namespace card {

namespace {

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

// Seconds east of UTC, each from a moment on, rising.
void AddZone(JsonText& json, const CardIndex& index, const TimeStyle& times) {
    const uint32_t oldest = index.Oldest().value_or(0);
    const uint32_t newest =
        std::min(index.Newest().value_or(0), oldest + std::min(UINT32_MAX - oldest, kOffsetSpanMax));
    const auto add = [&json](uint32_t from, int32_t offset) { json.Open('[').Value(from).Value(offset).Close(']'); };
    int32_t offset = UtcOffset(oldest, times);
    json.Open('[');
    add(0, offset);
    for (uint64_t time = (oldest / kOffsetStep + 1) * uint64_t{kOffsetStep}; time <= newest; time += kOffsetStep) {
        const int32_t now = UtcOffset(static_cast<uint32_t>(time), times);
        if (now != std::exchange(offset, now)) add(static_cast<uint32_t>(time), now);
    }
    json.Close(']');
}

struct Picture {
    uint32_t time = 0;
    std::vector<uint8_t> jpeg;
};

// Finds and shrinks key frames of the card.
class Pictures {
  public:
    explicit Pictures(const CardIndex& index) : index_(index) {}

    // Nothing when the place has none, one that is in use already, or one that cannot be decoded.
    std::optional<Picture> Get(const Wanted& wanted) {
        const std::optional<KeyFrame> key = KeyAt(wanted);
        const uint32_t file = index_.Sections()[wanted.section].file;
        if (!key || !used_.insert({file, key->offset}).second) return std::nullopt;
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
            return std::nullopt;
        const VideoCodec codec =
            frame.parameters->video_type == record_file::kStreamH265 ? VideoCodec::H265 : VideoCodec::H264;
        auto jpeg = maker_.Make(codec, unit);
        if (!jpeg) return std::nullopt;
        return Picture{frame.time, std::move(*jpeg)};
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

void AddThumbnails(JsonText& json, const CardIndex& index, const OverviewOptions& options,
                   const PicturesDone& progress) {
    const std::vector<Wanted> wanted = ChoosePictures(index, options.thumbnails_max);
    Pictures pictures(index);
    json.Open('[');
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (const std::optional<Picture> picture = pictures.Get(wanted[i])) {
            json.Open('{').Field("section", uint64_t{wanted[i].section}).Field("time", picture->time);
            json.Field("jpeg", Base64(picture->jpeg)).Close('}');
        }
        progress(i + 1, wanted.size());
    }
    json.Close(']');
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

std::string OverviewJson(const CardIndex& index, const OverviewOptions& options, const Footage* footage,
                         const PicturesDone& progress) {
    JsonText json;
    json.Open('{').Field("name", options.path).Key("zone");
    AddZone(json, index, options.times);
    json.Key("list").Plain(ListJson(index)).Key("thumbs");
    AddThumbnails(json, index, options, progress);
    if (footage != nullptr) AddFootage(json, *footage);
    json.Close('}');
    return json.Text();
}

}  // namespace card
