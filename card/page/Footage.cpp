#include "page/Footage.h"

#include <algorithm>
#include <map>
#include <span>

#include "index/SectionTimes.h"
#include "text/Base64.h"
#include "text/Error.h"

namespace card {

namespace {

constexpr size_t kBlock = 4096;                // bytes; such a block of zeros is not taken
constexpr size_t kElement = 3u * (256 << 10);  // bytes in a script element: no digit is left over between two

using Parts = std::vector<Extent>;

// Everything but zeros.
Parts UsedBlocks(const StoreFile& file) {
    Parts parts;
    std::vector<uint8_t> bytes(1u << 20);
    for (uint64_t at = 0; at < file.Reachable(); at += bytes.size()) {
        const size_t got = file.ReadAt(at, bytes.data(), bytes.size());
        for (size_t i = 0; i < got; i += kBlock) {
            const std::span block = std::span(bytes).subspan(i, std::min(kBlock, got - i));
            const bool used = std::any_of(block.begin(), block.end(), [](uint8_t byte) { return byte != 0; });
            if (used) parts.push_back({at + i, block.size()});
        }
    }
    return parts;
}

// In order, those that touch as one, none past the file's end.
Parts Joined(Parts parts, uint64_t end) {
    std::sort(parts.begin(), parts.end(), [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
    Parts joined;
    for (Extent part : parts) {
        if (part.offset >= end) break;
        part.length = std::min(part.length, end - part.offset);
        if (joined.empty() || part.offset > joined.back().offset + joined.back().length) {
            joined.push_back(part);
            continue;
        }
        Extent& last = joined.back();
        last.length = std::max(last.length, part.offset + part.length - last.offset);
    }
    return joined;
}

using Held = std::vector<std::pair<uint32_t, uint32_t>>;

Held Joined(Held spans) {
    std::sort(spans.begin(), spans.end());
    Held joined;
    for (const auto& [from, to] : spans) {
        if (joined.empty() || from > uint64_t{joined.back().second} + 1) {
            joined.emplace_back(from, to);
        } else {
            joined.back().second = std::max(joined.back().second, to);
        }
    }
    return joined;
}

void AddFile(Footage& footage, const StoreFile& file, Parts parts) {
    parts = Joined(std::move(parts), file.Reachable());
    for (const Extent& part : parts) footage.bytes += part.length;
    footage.files.push_back({file, std::move(parts)});
}

bool IsLost(const CardIndex& index, const std::string& name) {
    return std::any_of(index.Lost().begin(), index.Lost().end(),
                       [&](const LostFile& lost) { return lost.name == name; });
}

}  // namespace

Footage ChooseFootage(const Volume& volume, const CardIndex& index, const std::vector<Selection>& wanted) {
    Footage footage;
    std::map<uint32_t, Parts> parts;  // by record file
    for (const Selection& selection : wanted) {
        for (const Stretch& stretch : selection.stretches) {
            const Section& section = index.Sections()[stretch.section];
            Parts& taken = parts[section.file];
            taken.push_back({stretch.begin, stretch.end - stretch.begin});
            taken.push_back({RECORD_KEY_FRAME_BASE + uint64_t{section.head.m_u32StartKeyFramePos},
                             uint64_t{section.head.m_u32KeyFrameSum} * sizeof(KeyFrameInfoHead_S)});
            const uint32_t from = std::max(selection.from, section.Start());
            const uint32_t to = std::min(selection.to, section.End());
            if (from <= to) footage.held.emplace_back(from, to);
        }
    }
    footage.held = Joined(std::move(footage.held));
    for (const Section& section : index.Sections()) {
        const Parts places = PictureTimePlaces(index.OpenRecordFile(section.file), section);
        Parts& taken = parts[section.file];
        taken.insert(taken.end(), places.begin(), places.end());
    }
    for (const char* name : {RECORD_INDEX_NAME, RECORD_EVENT_NAME}) {
        if (!volume.Has(name) || IsLost(index, name)) continue;
        const StoreFile file = volume.OpenFile(name);
        AddFile(footage, file, UsedBlocks(file));
    }
    for (uint32_t number = 0; number < index.FileCount(); ++number) {
        const std::string name = Volume::RecordFileName(number);
        if (!volume.Has(name) || IsLost(index, name)) continue;
        AddFile(footage, index.OpenRecordFile(number), std::move(parts[number]));
    }
    return footage;
}

void AddFootage(JsonText& json, const Footage& footage) {
    json.Key("files").Open('[');
    for (const Footage::File& file : footage.files) {
        json.Open('{').Field("path", "/card/" + file.file.Name()).Field("size", file.file.Reachable());
        json.Key("parts").Open('[');
        for (const Extent& part : file.parts) json.Open('[').Value(part.offset).Value(part.length).Close(']');
        json.Close(']').Close('}');
    }
    json.Close(']').Key("held").Open('[');
    for (const auto& [from, to] : footage.held) json.Open('[').Value(from).Value(to).Close(']');
    json.Close(']');
}

void WriteFootage(const Footage& footage, const std::function<void(std::string_view)>& write,
                  const std::function<void(uint64_t)>& done) {
    std::vector<uint8_t> bytes(kElement);
    size_t filled = 0;
    uint64_t written = 0;
    const auto put = [&] {
        write("<script type=\"text/plain\" class=\"footage\">");
        write(Base64(std::span(bytes).first(filled)));
        write("</script>\n");
        done(written += filled);
        filled = 0;
    };
    for (const auto& [file, parts] : footage.files) {
        for (const Extent& part : parts) {
            for (uint64_t at = 0; at < part.length;) {
                const size_t length = static_cast<size_t>(std::min<uint64_t>(part.length - at, kElement - filled));
                if (file.ReadAt(part.offset + at, bytes.data() + filled, length) != length)
                    throw CardError(file.Name() + ": the card gives less than a moment ago; was it taken out?");
                at += length;
                if ((filled += length) == kElement) put();
            }
        }
    }
    if (filled != 0) put();
}

}  // namespace card
