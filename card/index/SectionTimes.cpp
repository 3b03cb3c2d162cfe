#include "index/SectionTimes.h"

#include <algorithm>
#include <vector>

#include "stream/StreamScanner.h"

namespace card {

namespace {

constexpr uint32_t kClockStep = 60;  // s by which witnesses may differ: the clock was set
constexpr uint32_t kWaitMax = 3600;  // s from asking for a recording to its first picture
constexpr uint32_t kGroupMax = 600;  // s from a key frame to the last picture that refers to it
constexpr size_t kWindows[] = {16u << 10, 256u << 10, 2u << 20};  // bytes in which the last picture begins
constexpr size_t kPictureHead = PS_PACK_HEADER_SIZE + 4;          // bytes that tell a picture's time

bool Near(uint32_t a, uint32_t b) {
    return std::max(a, b) - std::min(a, b) <= kClockStep;
}

std::optional<uint32_t> FirstPicture(const StoreFile& record, const Section& section) {
    uint8_t bytes[record_file::kStreamHeadSize + kPictureHead];
    const size_t got = record.ReadAt(section.Begin(), bytes, sizeof bytes);
    if (const auto time = PictureTimeAt(bytes, got)) return time;
    if (got <= record_file::kStreamHeadSize) return std::nullopt;
    return PictureTimeAt(bytes + record_file::kStreamHeadSize, got - record_file::kStreamHeadSize);
}

struct PictureHead {
    uint64_t offset = 0;  // in the record file
    uint32_t time = 0;
};

std::optional<PictureHead> LastPicture(const StoreFile& record, const Section& section) {
    std::vector<uint8_t> bytes;
    for (const size_t window : kWindows) {
        const size_t length = static_cast<size_t>(std::min<uint64_t>(window, section.head.m_u32RecordSize));
        bytes.resize(length);
        const size_t got = record.ReadAt(section.Limit() - length, bytes.data(), length);
        for (size_t at = got; at-- > 0;) {
            if (bytes[at] != 0) continue;
            if (const auto time = PictureTimeAt(bytes.data() + at, got - at))
                return PictureHead{section.Limit() - length + at, *time};
        }
        if (length < window) break;
    }
    return std::nullopt;
}

uint64_t KeyFrameRecord(const Section& section, uint32_t number) {
    return RECORD_KEY_FRAME_BASE + uint64_t{section.head.m_u32StartKeyFramePos} +
           uint64_t{number} * sizeof(KeyFrameInfoHead_S);
}

std::optional<uint32_t> KeyFrameTime(const StoreFile& record, const Section& section, uint32_t number) {
    const auto key = record.Get<KeyFrameInfoHead_S>(KeyFrameRecord(section, number));
    if (!key || key->m_u32KeyFrameHeadFlag != RECORD_KEY_FRAME_FLAG) return std::nullopt;
    return key->m_u32KeyFrameTime;
}

}  // namespace

void ReadPictureTimes(const StoreFile& record, Section& section, std::optional<uint32_t> next, uint32_t file_end) {
    const RecordInfoHead_S& head = section.head;
    const uint32_t asked = head.m_u32RecordStartTime;
    const auto picture = FirstPicture(record, section);
    const auto record_time = KeyFrameTime(record, section, 0);  // of the first one: when it was asked for
    const auto follows = [&](uint32_t start) {
        return picture && uint64_t{*picture} + kClockStep >= start && *picture <= uint64_t{start} + kWaitMax;
    };
    section.first = follows(asked) || (record_time && follows(*record_time)) ? *picture : asked;

    const uint32_t claimed = std::max(head.m_u32RecordEndTime, asked);
    const auto picture_head = LastPicture(record, section);
    const auto last = picture_head ? std::optional(picture_head->time) : std::nullopt;
    uint32_t key = 0;  // time of the last key frame; 0: nobody knows
    if (head.m_u32KeyFrameSum > 1) key = KeyFrameTime(record, section, head.m_u32KeyFrameSum - 1).value_or(0);
    const uint64_t latest_key = next ? *next : std::min(claimed, last.value_or(claimed));
    const bool key_fits = uint64_t{key} + kClockStep >= section.first &&
                          (key <= latest_key + kClockStep || (!next && Near(key, file_end)));
    if (!key_fits) key = 0;
    const uint64_t upper = next ? *next : key != 0 ? uint64_t{key} + kGroupMax : file_end;
    const auto plausible = [&](uint32_t time) {
        return uint64_t{time} + kClockStep >= std::max(section.first, key) && time <= upper + kClockStep;
    };
    if (last && (plausible(*last) || Near(*last, claimed))) {
        section.last = *last;
    } else {
        section.last = plausible(claimed) ? claimed : key;
    }
    section.last = std::max(section.last, section.first);
}

std::vector<Extent> PictureTimePlaces(const StoreFile& record, const Section& section) {
    std::vector<Extent> places = {{section.Begin(), record_file::kStreamHeadSize + kPictureHead},
                                  {KeyFrameRecord(section, 0), sizeof(KeyFrameInfoHead_S)}};
    if (section.head.m_u32KeyFrameSum > 1)
        places.push_back({KeyFrameRecord(section, section.head.m_u32KeyFrameSum - 1), sizeof(KeyFrameInfoHead_S)});
    if (const auto last = LastPicture(record, section)) places.push_back({last->offset, kPictureHead});
    return places;
}

}  // namespace card
