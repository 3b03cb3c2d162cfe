#include "clip/FrameClock.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace card {

namespace {

constexpr double kLateness = 0.5;     // s a frame may have waited before it was written
constexpr double kSeamless = 0.5;     // s by which neighbouring pieces may miss each other and still join
constexpr double kFallbackRate = 25;  // frames a second
constexpr double kMaxRate = 240;

// Frames [begin, end) at one rate: frame i happened at `start` + (index of i - index of `begin`) / `rate`.
struct Piece {
    size_t begin = 0;
    size_t end = 0;
    double rate = 0;
    double start = 0;  // s after the first mark's second
};

class Fitter {
  public:
    Fitter(std::span<const FrameMark> marks, uint32_t nominal_rate) : marks_(marks), nominal_(nominal_rate) {}

    // Cuts the run into pieces of an even rate each, coarse ones first: one piece is the usual result.
    std::vector<Piece> Pieces() {
        std::vector<std::pair<size_t, size_t>> todo = {{0, marks_.size()}};
        std::vector<Piece> pieces;
        while (!todo.empty()) {
            const auto [begin, end] = todo.back();
            todo.pop_back();
            if (const auto piece = Fit(begin, end)) {
                pieces.push_back(*piece);
                continue;
            }
            const size_t border = Border(begin, end);
            todo.emplace_back(border, end);
            todo.emplace_back(begin, border);
        }
        return pieces;
    }

  private:
    double Second(size_t i) const { return static_cast<double>(int64_t{marks_[i].second} - marks_[0].second); }
    double Index(size_t i, size_t from) const { return static_cast<double>(marks_[i].index - marks_[from].index); }

    std::optional<Piece> Fit(size_t begin, size_t end) const {
        if (nominal_ > 0) {
            if (const auto piece = FitAt(nominal_, begin, end)) return piece;
        }
        const double measured = Measure(begin, end);
        const double whole = std::round(measured);
        if (whole >= 1) {
            if (const auto piece = FitAt(whole, begin, end)) return piece;
        }
        return FitAt(measured, begin, end);
    }

    // Every frame gives a window of one second to the start of the piece; at the right rate they meet.
    std::optional<Piece> FitAt(double rate, size_t begin, size_t end) const {
        double earliest = -INFINITY;
        double latest = INFINITY;
        for (size_t i = begin; i < end; ++i) {
            const double start = Second(i) - Index(i, begin) / rate;
            earliest = std::max(earliest, start);
            latest = std::min(latest, start + 1);
        }
        if (earliest > latest + kLateness) return std::nullopt;
        return Piece{begin, end, rate, std::min(earliest, latest)};  // written late, never early
    }

    // Least squares of the seconds over the indexes.
    double Measure(size_t begin, size_t end) const {
        const double n = static_cast<double>(end - begin);
        double mean_index = 0, mean_second = 0;
        for (size_t i = begin; i < end; ++i) {
            mean_index += Index(i, begin) / n;
            mean_second += Second(i) / n;
        }
        double both = 0, square = 0;
        for (size_t i = begin; i < end; ++i) {
            const double index = Index(i, begin) - mean_index;
            both += index * (Second(i) - mean_second);
            square += index * index;
        }
        const double rate = both > 0 ? square / both : 0;
        return rate > 0 && rate <= kMaxRate ? rate : kFallbackRate;
    }

    // Where a run that is not even is best cut: where the seconds jump, else in the middle.
    size_t Border(size_t begin, size_t end) const {
        size_t border = begin + (end - begin) / 2;
        double widest = 1.5;  // s; one is the grain of the seconds
        for (size_t i = begin + 1; i < end; ++i) {
            const double rate = nominal_ > 0 ? nominal_ : kFallbackRate;
            const double jump = std::abs(Second(i) - Second(i - 1) - Index(i, i - 1) / rate);
            if (jump > widest) {
                widest = jump;
                border = i;
            }
        }
        return border;
    }

    std::span<const FrameMark> marks_;
    uint32_t nominal_;
};

Ticks ToTicks(double seconds) {
    return std::llround(seconds * kTicksPerSecond);
}

}  // namespace

FrameTimes TimeFrames(std::span<const FrameMark> marks, uint32_t nominal_rate) {
    FrameTimes times;
    if (marks.empty()) return times;
    times.at.reserve(marks.size());
    const Ticks origin = Ticks{marks[0].second} * kTicksPerSecond;
    const std::vector<Piece> pieces = Fitter(marks, nominal_rate).Pieces();
    Ticks next = 0;  // earliest time of a piece's first frame
    for (const Piece& piece : pieces) {
        Ticks start = origin + ToTicks(piece.start);
        const bool joins = std::abs(start - next) < ToTicks(kSeamless);
        if (piece.begin > 0 && (joins || start < next)) start = next;
        const uint64_t first = marks[piece.begin].index;
        for (size_t i = piece.begin; i < piece.end; ++i) {
            times.at.push_back(start + ToTicks(static_cast<double>(marks[i].index - first) / piece.rate));
        }
        times.frame_duration = std::max<Ticks>(ToTicks(1 / piece.rate), 1);
        next = times.at.back() + times.frame_duration;
    }
    const double rate = pieces[0].rate;
    if (pieces.size() == 1 && rate == std::round(rate)) times.steady_rate = static_cast<uint32_t>(rate);
    return times;
}

}  // namespace card
