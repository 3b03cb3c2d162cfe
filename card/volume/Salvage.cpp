#include "volume/Salvage.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "text/Error.h"

namespace card {

namespace {

constexpr uint64_t kPage = 4096;  // bytes; a system reads no less

}  // namespace

uint64_t UnreadPart::Bytes() const {
    uint64_t bytes = 0;
    for (const Extent& place : places) bytes += place.length;
    return bytes;
}

size_t Salvage::ReadAt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer, size_t length,
                       const std::string& file, uint64_t at) {
    const std::lock_guard lock(mutex_);
    const auto known = notes_.find(file);
    Notes fresh;
    Notes& notes = known == notes_.end() ? fresh : known->second;
    size_t done = 0;
    while (done < length) {
        const uint64_t place = at + done;
        uint8_t* const into = static_cast<uint8_t*>(buffer) + done;
        auto bad = notes.bad.upper_bound(place);  // the next one; the one before may hold `place`
        if (bad != notes.bad.begin() && std::prev(bad)->second > place) {
            const size_t part = static_cast<size_t>(std::min<uint64_t>(length - done, std::prev(bad)->second - place));
            std::memset(into, 0, part);
            done += part;
            continue;
        }
        const uint64_t limit = bad == notes.bad.end() ? UINT64_MAX : bad->first;
        const size_t part = static_cast<size_t>(std::min<uint64_t>(length - done, limit - place));
        const size_t got = ReadPiece(device, {offset + done, place, into, part}, notes);
        done += got;
        if (got != part) break;
    }
    if (known == notes_.end() && !fresh.why.empty()) notes_.emplace(file, std::move(fresh));
    return done;
}

std::optional<size_t> Salvage::TryAt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer,
                                     size_t length) {
    const std::lock_guard lock(mutex_);
    std::string why;
    return Attempt(device, offset, buffer, length, why);
}

// In halves where it fails, down to a page.
size_t Salvage::ReadPiece(const std::shared_ptr<const Device>& device, const Piece& piece, Notes& notes) {
    std::string why;
    if (const auto got = Attempt(device, piece.offset, piece.into, piece.length, why)) return *got;
    if (notes.why.empty()) notes.why = std::move(why);
    uint64_t middle = (piece.offset + piece.length / 2) / kPage * kPage;
    if (middle <= piece.offset) middle += kPage;
    const bool page = middle >= piece.offset + piece.length;
    if (page || failing_ >= patience_) {
        std::memset(piece.into, 0, piece.length);
        uint64_t& end = (page ? notes.bad : notes.unsearched)[piece.at];
        end = std::max(end, piece.at + piece.length);
        return piece.length;
    }
    const size_t half = static_cast<size_t>(middle - piece.offset);
    const size_t got = ReadPiece(device, {piece.offset, piece.at, piece.into, half}, notes);
    if (got != half) return got;
    return half + ReadPiece(device, {middle, piece.at + half, piece.into + half, piece.length - half}, notes);
}

std::optional<size_t> Salvage::Attempt(const std::shared_ptr<const Device>& device, uint64_t offset, void* buffer,
                                       size_t length, std::string& why) {
    const auto begun = std::chrono::steady_clock::now();
    try {
        const size_t got = device->ReadAt(offset, buffer, length);
        if (got != 0) latest_ = {device, offset};
        if (!first_) first_ = latest_;
        return got;
    } catch (const CardError& error) {
        if (WitnessesFail()) {
            throw CardGone("The card is gone, or answers no more; put it in again and repeat this (" +
                           std::string(error.what()) + ")");
        }
        failing_ += std::chrono::steady_clock::now() - begun;
        why = error.what();
        return std::nullopt;
    }
}

bool Salvage::Gone() const {
    const std::lock_guard lock(mutex_);
    return WitnessesFail();
}

// Two places, for either may have become bad since.
bool Salvage::WitnessesFail() const {
    return first_ && !first_->device->ReadsAgain(first_->offset) && !latest_->device->ReadsAgain(latest_->offset);
}

std::vector<UnreadPart> Salvage::Unread() const {
    const std::lock_guard lock(mutex_);
    std::vector<UnreadPart> parts;
    for (const auto& [file, notes] : notes_) {
        UnreadPart part{.file = file, .places = {}, .why = notes.why, .unsearched = 0};
        for (const auto& [begin, end] : notes.bad) part.places.push_back({begin, end - begin});
        for (const auto& [begin, end] : notes.unsearched) {
            part.places.push_back({begin, end - begin});
            part.unsearched += end - begin;
        }
        std::sort(part.places.begin(), part.places.end(),
                  [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
        parts.push_back(std::move(part));
    }
    return parts;
}

}  // namespace card
