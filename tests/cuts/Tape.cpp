#include "Tape.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace cuts {
namespace {

constexpr size_t kSectors = kPage / kSector;
constexpr size_t kSubsetPages = 7;  // that are combined, old and new, in every way

void Compose(const PageHistory& page, const Choice& choice, uint8_t* to) {
    std::memcpy(to, page.versions[choice.version].bytes.data(), kPage);
    for (size_t s = 0; s < kSectors; ++s) {
        if ((choice.other_sectors >> s & 1) != 0)
            std::memcpy(to + s * kSector, page.versions[choice.other].bytes.data() + s * kSector, kSector);
    }
}

}  // namespace

size_t History::Newest(size_t cut) const {
    size_t found = 0;
    while (found + 1 < versions.size() && versions[found + 1].since <= cut) ++found;
    return found;
}

size_t PageHistory::Oldest(size_t cut) const {
    size_t found = 0;
    for (const auto& [since, version] : sure) {
        if (since <= cut) found = std::max(found, version);
    }
    return found;
}

PageHistory& Tape::HistoryOf(int file, uint64_t offset) {
    const auto number = static_cast<uint32_t>(offset / kPage);
    const auto at = std::find_if(pages_.begin(), pages_.end(),
                                 [&](const PageHistory& page) { return page.file == file && page.number == number; });
    if (at != pages_.end()) return *at;
    PageHistory& page = pages_.emplace_back();
    page.file = file;
    page.number = number;
    page.versions = {{0, std::string(medium_.Bytes(file, uint64_t{number} * kPage, kPage))}};
    return page;
}

void Tape::Write(int file, uint64_t offset, const std::string& bytes) {
    const uint64_t end = offset + bytes.size();
    ++operations_;
    for (uint64_t at = offset, next; at < end; at = next) {
        next = std::min(end, (at / kPage + 1) * kPage);
        std::vector<History::Version>& versions = HistoryOf(file, at).versions;
        std::string now = versions.back().bytes;
        now.replace(at % kPage, next - at, bytes, at - offset, next - at);
        if (now != versions.back().bytes) versions.push_back({operations_, now});
    }
    if (file >= kRecord && offset < RECORD_KEY_FRAME_BASE) return;
    std::vector<History::Version>& versions = records_[{file, offset}].versions;
    if (versions.empty()) versions.push_back({0, std::string(medium_.Bytes(file, offset, bytes.size()))});
    versions.push_back({operations_, bytes});
}

void Tape::HandedOver(int file, uint64_t offset, uint64_t end, size_t began) {
    ++operations_;
    for (PageHistory& page : pages_) {
        const uint64_t begin = uint64_t{page.number} * kPage;
        if (page.file == file && begin < end && begin + kPage > offset)
            page.sure.push_back({operations_, page.Newest(began)});
    }
}

// Pages that a cut there may leave in more than one state.
std::vector<size_t> Tape::Open(size_t cut) const {
    std::vector<size_t> open;
    for (size_t i = 0; i < pages_.size(); ++i) {
        if (pages_[i].Oldest(cut) < pages_[i].Newest(cut)) open.push_back(i);
    }
    return open;
}

Cut Tape::AllOf(size_t cut, bool newest) const {
    Cut card{cut, {}};
    for (const PageHistory& page : pages_) {
        const size_t version = newest ? page.Newest(cut) : page.Oldest(cut);
        card.pages.push_back({version, version, 0});
    }
    return card;
}

size_t Tape::CountOf(size_t cut) const {
    const size_t open = Open(cut).size();
    return (size_t{1} << std::min(open, kSubsetPages)) + open * 2 * 2 * (kSectors - 1);
}

size_t Tape::Listed() {
    for (size_t at = listed_.size(); at <= operations_; ++at) listed_.push_back(CountOf(at));
    return std::accumulate(listed_.begin(), listed_.end(), size_t{0});
}

Cut Tape::Card(size_t number, size_t seed) {
    Listed();
    for (size_t at = 0; at < listed_.size(); ++at) {
        if (number < listed_[at]) return OneOf(at, number);
        number -= listed_[at];
    }
    return Drawn(std::mt19937_64(seed * 0x9E3779B97F4A7C15u + number));
}

Cut Tape::OneOf(size_t cut, size_t number) const {
    const std::vector<size_t> open = Open(cut);
    const size_t subsets = size_t{1} << std::min(open.size(), kSubsetPages);
    if (number < subsets) {
        Cut card = AllOf(cut, false);
        for (size_t i = 0; i < open.size(); ++i) {
            if ((number >> std::min(i, kSubsetPages - 1) & 1) != 0)
                card.pages[open[i]].version = pages_[open[i]].Newest(cut);
        }
        return card;
    }
    number -= subsets;
    const bool rest_is_new = number % 2 != 0;
    const bool first_is_new = number / 2 % 2 != 0;
    const size_t split = number / 4 % (kSectors - 1) + 1;
    const size_t torn = open[number / 4 / (kSectors - 1)];
    Cut card = AllOf(cut, rest_is_new);
    const auto first = static_cast<uint8_t>((1u << split) - 1);
    card.pages[torn] = {pages_[torn].Oldest(cut), pages_[torn].Newest(cut),
                        static_cast<uint8_t>(first_is_new ? first : ~first)};
    return card;
}

Cut Tape::Drawn(std::mt19937_64 draw) const {
    Cut card = AllOf(draw() % (operations_ + 1), draw() % 2 != 0);
    for (const size_t i : Open(card.at)) {
        const size_t oldest = pages_[i].Oldest(card.at);
        const auto any = [&] { return oldest + draw() % (pages_[i].Newest(card.at) - oldest + 1); };
        const uint64_t kind = draw() % 4;  // 0: as most are
        if (kind == 1) card.pages[i].version = any();
        if (kind == 2) card.pages[i].version = pages_[i].Newest(card.at);
        if (kind == 3) card.pages[i] = {any(), any(), static_cast<uint8_t>(draw())};
    }
    return card;
}

bool Tape::Show(const Cut& cut) {
    constexpr uint64_t kUnknown = std::numeric_limits<uint64_t>::max();
    shown_.resize(pages_.size(), kUnknown);
    uint64_t fingerprint = cut.at;
    for (size_t i = 0; i < pages_.size(); ++i) {
        const Choice& choice = cut.pages[i];
        uint8_t* const page = medium_.Page(pages_[i].file, pages_[i].number);
        const uint64_t key = choice.version << 32 | choice.other << 8 | choice.other_sectors;
        if (shown_[i] != key) Compose(pages_[i], choice, page);
        shown_[i] = key;
        const size_t hash = std::hash<std::string_view>{}({reinterpret_cast<const char*>(page), kPage});
        fingerprint = (fingerprint ^ hash) * 0x9E3779B97F4A7C15u;
        fingerprint ^= fingerprint >> 29;
    }
    return seen_.insert(fingerprint).second;
}

}  // namespace cuts
