#include "commands/Unsaved.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include "index/CardIndex.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace card {

namespace {

constexpr uint64_t kPage = 4096;
constexpr size_t kLinesMax = 20;  // a file

// ---- where an image's places lie

constexpr char kFileSystem[] = "the file system";
constexpr char kNoFile[] = "";

// A stretch of an image that belongs to something.
struct Owned {
    Extent extent;
    std::string name;
    uint64_t at;  // where it begins in the file
};

// Of a volume, in order.
std::vector<Owned> OwnedBy(const Volume& volume) {
    std::vector<Owned> owned = {{{0, volume.Fat()->Geometry().ClusterOffset(2)}, kFileSystem, 0}};
    for (const Extent& extent : volume.Fat()->RootChain().extents)
        owned.push_back({extent, kFileSystem, extent.offset});
    for (const std::string& name : volume.Names()) {
        uint64_t at = 0;
        const StoreFile file = volume.OpenFile(name);
        for (const Extent& extent : file.Extents()) {
            owned.push_back({extent, name, at});
            at += extent.length;
        }
    }
    std::sort(owned.begin(), owned.end(),
              [](const Owned& a, const Owned& b) { return a.extent.offset < b.extent.offset; });
    return owned;
}

// Neighbouring places become one.
void Add(UnreadPart& part, const Extent& place) {
    if (!part.places.empty() && part.places.back().offset + part.places.back().length == place.offset) {
        part.places.back().length += place.length;
    } else {
        part.places.push_back(place);
    }
}

// What could not be read of an image, by the files that have these places.
std::vector<UnreadPart> ByFile(const UnreadPart& image, const Volume& volume) {
    const std::vector<Owned> owned = OwnedBy(volume);
    std::vector<UnreadPart> parts;
    const auto add = [&](const std::string& name, const Extent& place) {
        auto part = std::find_if(parts.begin(), parts.end(), [&](const UnreadPart& p) { return p.file == name; });
        if (part == parts.end()) part = parts.insert(part, {.file = name, .places = {}, .why = image.why});
        Add(*part, place);
    };
    for (const Extent& place : image.places) {
        const uint64_t end = place.offset + place.length;
        for (uint64_t at = place.offset; at < end;) {
            const auto next = std::upper_bound(owned.begin(), owned.end(), at, [](uint64_t offset, const Owned& o) {
                return offset < o.extent.offset;
            });
            const Owned* owner = next == owned.begin() ? nullptr : &*std::prev(next);
            if (owner != nullptr && at >= owner->extent.offset + owner->extent.length) owner = nullptr;
            const uint64_t limit = owner != nullptr      ? owner->extent.offset + owner->extent.length
                                   : next != owned.end() ? next->extent.offset
                                                         : end;
            const uint64_t length = std::min(end, limit) - at;
            add(owner != nullptr ? owner->name : kNoFile,
                {owner != nullptr ? owner->at + (at - owner->extent.offset) : at, length});
            at += length;
        }
    }
    return parts;
}

// ---- what they cost

// What the copy's index says of the footage around a place in a record file.
class FootageNear {
  public:
    FootageNear(const CardIndex& index, uint32_t file) {
        for (const Section& section : index.Sections()) {
            if (section.file != file) continue;
            marks_.push_back({section.Begin(), section.Start()});
            for (const KeyFrame& key : index.KeyFrames(section)) {
                if (key.fits) marks_.push_back({key.offset, key.record.m_u32KeyFrameTime});
            }
            marks_.push_back({section.Limit(), section.End()});
        }
    }

    std::string Around(const Extent& place) const {
        std::optional<uint32_t> before;
        std::optional<uint32_t> after;
        for (const Mark& mark : marks_) {
            if (mark.offset <= place.offset) before = std::max(before.value_or(0), mark.time);
            if (mark.offset >= place.offset + place.length) after = std::min(after.value_or(UINT32_MAX), mark.time);
        }
        const TimeStyle times;
        if (before && before == after) return "footage at about " + times.DateTime(*before) + " is lost or damaged";
        if (before && after)
            return "footage between " + times.DateTime(*before) + " and " + times.DateTime(*after) +
                   " is lost or damaged";
        if (before) return "what was recorded there after " + times.DateTime(*before) + ", if anything, is lost";
        if (after) return "what was recorded there before " + times.DateTime(*after) + " is lost";
        return "what was recorded there, if anything, is lost";
    }

  private:
    struct Mark {
        uint64_t offset;  // in the file
        uint32_t time;    // s since 1970 UTC
    };
    std::vector<Mark> marks_;
};

std::string CostOf(const std::string& name, const Extent& place, const FootageNear* footage) {
    if (name == kFileSystem) return "made again as far as the rest of the card tells it";
    if (name == kNoFile) return "no file lies there";
    if (name == RECORD_INDEX_NAME) return "made again from the record files";
    if (name == RECORD_EVENT_NAME) return "alarm events that stood there are lost";
    if (!Volume::RecordFileNumber(name)) return "what stood there is lost";
    if (place.offset >= RECORD_KEY_FRAME_BASE) return "places of key frames, made again from the pictures";
    return footage != nullptr ? footage->Around(place) : "what was recorded there is lost";
}

uint64_t PagesOf(const Extent& place) {
    return (place.length + kPage - 1) / kPage;
}

// A line for neighbours, and for all in a row that cost the same footage.
void PrintPart(const UnreadPart& part, const CardIndex* index) {
    const std::optional<uint32_t> number = Volume::RecordFileNumber(part.file);
    std::optional<FootageNear> footage;
    if (index != nullptr && number) footage.emplace(*index, *number);
    const auto cost_of = [&](const Extent& place) { return CostOf(part.file, place, footage ? &*footage : nullptr); };
    const char* const name = part.file.empty() ? "the card" : part.file.c_str();
    size_t lines = 0;
    for (auto first = part.places.begin(); first != part.places.end();) {
        const std::string cost = cost_of(*first);
        uint64_t end = first->offset;
        uint64_t pages = 0;
        bool gaps = false;
        auto place = first;
        for (; place != part.places.end() && cost_of(*place) == cost; ++place) {
            if (place->offset != end && !footage) break;
            gaps = gaps || place->offset != end;
            end = place->offset + place->length;
            pages += PagesOf(*place);
        }
        if (lines++ == kLinesMax) {
            std::printf("  %s: %s more\n", name,
                        Counted(static_cast<uint64_t>(part.places.end() - first), "place").c_str());
            return;
        }
        std::printf("  %s, %sbytes %llu to %llu: %s\n", name, gaps ? (Counted(pages, "page") + " of ").c_str() : "",
                    static_cast<unsigned long long>(first->offset), static_cast<unsigned long long>(end - 1),
                    cost.c_str());
        first = place;
    }
}

}  // namespace

void PrintUnsaved(const Unsaved& unsaved, const std::string& card, const std::string& copy) {
    std::vector<UnreadPart> parts = unsaved.parts;
    uint64_t bytes = 0;
    uint64_t pages = 0;
    uint64_t unsearched = 0;
    for (const UnreadPart& part : parts) {
        for (const Extent& place : part.places) pages += PagesOf(place);
        bytes += part.Bytes();
        unsearched += part.unsearched;
    }
    const std::string why = parts.empty() ? "" : " (" + parts.front().why + ")";
    std::optional<Volume> volume;
    std::optional<CardIndex> index;
    try {
        volume = Volume::Open(copy);
        if (!volume->IsFolder() && !parts.empty()) parts = ByFile(parts.front(), *volume);
        index.emplace(*volume);
    } catch (const CardError&) {  // the repair has told it; the places are named without what they cost
    }
    if (pages != 0)
        std::printf("%s (%s) of %s cannot be read, and zeros stand there in the copy%s:\n",
                    Counted(pages, "page").c_str(), Bytes(bytes).c_str(), card.c_str(), why.c_str());
    for (const UnreadPart& part : parts) PrintPart(part, index ? &*index : nullptr);
    for (const std::string& file : unsaved.unopened)
        std::printf("Nothing of this file is in the copy: %s\n", file.c_str());
    if (unsearched != 0)
        std::printf("%s of it were given up after two hours of failing reads, and may be readable in part.\n",
                    Bytes(unsearched).c_str());
    std::printf("%s holds all that could be read. %s was not changed; keep it until you have seen the copy.\n",
                copy.c_str(), card.c_str());
}

}  // namespace card
