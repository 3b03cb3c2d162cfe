// The functions that the page's worker calls.  One card is open at a time, with a feed each for playing,
// saving and single pictures.  A function that fails returns null or -1, and ViewerError says why.
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clip/Clip.h"
#include "core/ClipFeed.h"
#include "index/CardIndex.h"
#include "index/ListJson.h"
#include "text/Error.h"
#include "volume/Volume.h"

#define PAGE_CALLS extern "C" __attribute__((used, visibility("default")))

namespace {

constexpr std::chrono::minutes kPatience{1};  // somebody waits
constexpr char kGone[] = "The card cannot be read any more. Was it taken out, or changed? Pick it again.";

struct OpenCard {
    explicit OpenCard(const std::string& path) : volume(card::Volume::OpenToSalvage(path, kPatience)), index(volume) {}
    card::Volume volume;
    card::CardIndex index;
};

std::unique_ptr<OpenCard> open_card;
std::array<std::unique_ptr<viewer::ClipFeed>, 3> feeds;  // playing, saving, single pictures
std::string text;                                        // what the last call returned
std::string error;                                       // of the last call that failed

viewer::Piece piece;
std::vector<double> numbers;

// Runs `action`; `failed` when it throws.
template <typename Result, typename Action>
Result Guarded(Result failed, Action action) {
    try {
        return action();
    } catch (const card::CardGone&) {
        error = kGone;
        return failed;
    } catch (const std::exception& exception) {
        error = open_card && open_card->volume.Gone() ? kGone : exception.what();
        return failed;
    }
}

double Address(const void* pointer) {
    return static_cast<double>(reinterpret_cast<uintptr_t>(pointer));
}

double Number(card::Ticks ticks) {
    return static_cast<double>(ticks);
}

}  // namespace

PAGE_CALLS const char* ViewerError() {
    return error.c_str();
}

// What ListJson.h says.
PAGE_CALLS const char* ViewerOpen(const char* path) {
    return Guarded<const char*>(nullptr, [&] {
        for (auto& feed : feeds) feed.reset();
        open_card.reset();
        open_card = std::make_unique<OpenCard>(path);
        text = card::ListJson(open_card->index);
        return text.c_str();
    });
}

// What ListJson.h calls "unread", by now.
PAGE_CALLS const char* ViewerUnread() {
    return Guarded<const char*>(nullptr, [&] {
        text = card::UnreadJson(open_card->volume.Unread());
        return text.c_str();
    });
}

// Places at which decoding can begin: [count, time, offset, time, offset, ..., limit of the section].
PAGE_CALLS const double* ViewerKeyFrames(uint32_t section) {
    return Guarded<const double*>(nullptr, [&] {
        const card::Section& wanted = open_card->index.Sections().at(section);
        numbers = {0};
        for (const card::KeyFrame& key : open_card->index.KeyFrames(wanted)) {
            if (!key.fits || key.record.m_u8KeyFrameType != RECORD_KEY_FRAME_REAL) continue;
            numbers.push_back(key.record.m_u32KeyFrameTime);
            numbers.push_back(static_cast<double>(key.offset));
        }
        if (numbers.size() == 1) {  // none that can be trusted: the whole section
            numbers.push_back(wanted.Start());
            numbers.push_back(static_cast<double>(wanted.Begin()));
        }
        numbers[0] = static_cast<double>(numbers.size() / 2);
        numbers.push_back(static_cast<double>(wanted.Limit()));
        return numbers.data();
    });
}

// Begins a feed with bytes [begin, end) of a section.
PAGE_CALLS int ViewerFeedStretch(uint32_t feed, uint32_t section, double begin, double end) {
    return Guarded(-1, [&] {
        const card::Section& wanted = open_card->index.Sections().at(section);
        const card::Stretch stretch{section, static_cast<uint64_t>(begin), static_cast<uint64_t>(end), wanted.Start()};
        feeds.at(feed) = std::make_unique<viewer::ClipFeed>(open_card->index, card::Selection{{stretch}});
        return 0;
    });
}

// Begins a feed with what was recorded from second `from` to `to`; returns the stretches' number.
PAGE_CALLS int ViewerFeedTimes(uint32_t feed, uint32_t from, uint32_t to) {
    return Guarded(-1, [&] {
        card::Selection selection = card::SelectTimes(open_card->index, from, to);
        const auto count = static_cast<int>(selection.stretches.size());
        feeds.at(feed) = std::make_unique<viewer::ClipFeed>(open_card->index, std::move(selection));
        return count;
    });
}

// The feed's next samples.  Numbers in the order below, valid until the next call; [0]: the end.  Pictures are
// five numbers each (bytes, key, decoded, shown, recorded), sounds two (bytes, at); times in 90 kHz.
PAGE_CALLS const double* ViewerFeedNext(uint32_t number, double limit) {
    return Guarded<const double*>(nullptr, [&]() -> const double* {
        viewer::ClipFeed& feed = *feeds.at(number);
        static std::vector<double> samples;
        samples.clear();
        if (!feed.Next(static_cast<size_t>(limit), piece)) {
            numbers = {0};
            return numbers.data();
        }
        for (const viewer::Picture& picture : piece.pictures) {
            const double values[] = {double(picture.bytes), picture.key ? 1.0 : 0.0, Number(picture.decoded),
                                     Number(picture.shown), Number(picture.real)};
            samples.insert(samples.end(), std::begin(values), std::end(values));
        }
        for (const viewer::Sound& sound : piece.sounds) {
            samples.push_back(sound.bytes);
            samples.push_back(Number(sound.at));
        }
        const viewer::DecoderConfig& config = feed.Config();
        text = config.codec;
        numbers = {1,
                   double(piece.part),
                   piece.first ? 1.0 : 0.0,
                   Address(text.c_str()),
                   double(config.width),
                   double(config.height),
                   Address(config.record.data()),
                   double(config.record.size()),
                   Number(piece.duration),
                   Address(samples.data()),
                   double(piece.pictures.size()),
                   Address(piece.video.data()),
                   double(piece.video.size()),
                   double(piece.sounds.size()),
                   Address(piece.audio.data()),
                   double(piece.audio.size()),
                   double(static_cast<int>(piece.sound.kind)),
                   double(piece.sound.rate),
                   double(piece.sound.channels),
                   double(piece.sound.object),
                   double(feed.BytesDone()),
                   double(feed.BytesAll()),
                   double(feed.Damaged())};
        return numbers.data();
    });
}
