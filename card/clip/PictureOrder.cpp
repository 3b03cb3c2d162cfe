#include "clip/PictureOrder.h"

#include <algorithm>
#include <numeric>

namespace card {

namespace {

constexpr size_t kHead = 4096;    // bytes of a picture in which its first slice begins, as a rule
constexpr size_t kDelayMax = 16;  // pictures a decoder can hold back, in H.264 as in H.265

std::vector<PictureNumber> Number(ClipReader& reader, VideoCodec codec, const ClipStretch& stretch,
                                  const ReadOrder& read_order, const BytesDone& done) {
    std::vector<PictureNumber> numbers;
    PictureNumber number;
    for (const ClipFrame& frame : stretch.frames) {
        if (!frame.video) continue;
        ByteView unit = reader.Payload(frame, kHead).value_or(ByteView());
        SliceRole role = RoleOf(codec, unit);
        if (role == SliceRole::None && unit.size() == kHead) {
            unit = reader.Payload(frame).value_or(ByteView());
            role = RoleOf(codec, unit);
        }
        if (role == SliceRole::SequenceStart) ++number.sequence;
        // A picture that cannot be read stays after the one before it.
        number.order = read_order(unit).value_or(number.order);
        number.decodable = role == SliceRole::DecodableLeading;
        numbers.push_back(number);
        done(0);
    }
    return numbers;
}

// Pictures [begin, begin + numbers.size()) of a stretch are one sequence.
void OrderSequence(std::span<const PictureNumber> numbers, size_t begin, ShownOrder& result) {
    std::vector<size_t> shown(numbers.size());
    std::iota(shown.begin(), shown.end(), size_t{0});
    std::stable_sort(shown.begin(), shown.end(),
                     [&](size_t a, size_t b) { return numbers[a].order < numbers[b].order; });
    size_t delay = 0;
    for (size_t place = 0; place < shown.size(); ++place) {
        if (shown[place] > place) delay = std::max(delay, shown[place] - place);
    }
    if (delay > kDelayMax) return;
    for (size_t place = 0; place < shown.size(); ++place) result.place[begin + shown[place]] = begin + place;
    result.delay = std::max(result.delay, delay);
}

// The key frame takes over the place of the last picture lost, so that no hole follows it.
void TakeOut(const std::vector<bool>& lost, size_t count, ClipStretch& stretch, std::vector<PictureNumber>& numbers) {
    std::vector<ClipFrame> kept;
    std::vector<PictureNumber> kept_numbers;
    Ticks first_at = 0;
    size_t picture = 0;
    for (const ClipFrame& frame : stretch.frames) {
        const size_t number = frame.video ? picture++ : SIZE_MAX;
        if (frame.video && number == count) first_at = frame.at;
        if (frame.video && lost[number]) continue;
        kept.push_back(frame);
        if (frame.video) kept_numbers.push_back(numbers[number]);
    }
    kept.front().at = first_at;
    stretch.frames = std::move(kept);
    numbers = std::move(kept_numbers);
}

}  // namespace

size_t LostLeading(std::span<const PictureNumber> numbers, std::vector<bool>& lost) {
    lost.assign(numbers.size(), false);
    size_t count = 0;
    for (size_t i = 1; i < numbers.size(); ++i) {
        if (numbers[i].sequence != numbers[0].sequence || numbers[i].order >= numbers[0].order) break;
        lost[i] = !numbers[i].decodable;
        count += lost[i] ? 1 : 0;
    }
    return count;
}

ShownOrder OrderPictures(std::span<const PictureNumber> numbers) {
    ShownOrder result;
    result.place.resize(numbers.size());
    std::iota(result.place.begin(), result.place.end(), size_t{0});
    for (size_t begin = 0, end = 0; begin < numbers.size(); begin = end) {
        while (end < numbers.size() && numbers[end].sequence == numbers[begin].sequence) ++end;
        OrderSequence(numbers.subspan(begin, end - begin), begin, result);
    }
    return result;
}

void TimePictures(ClipReader& reader, VideoCodec codec, ClipStretch& stretch, const ReadOrder& read_order,
                  const BytesDone& done) {
    std::vector<PictureNumber> numbers = Number(reader, codec, stretch, read_order, done);
    std::vector<bool> lost;
    const size_t count = LostLeading(numbers, lost);
    if (count > 0) TakeOut(lost, count, stretch, numbers);
    const ShownOrder order = OrderPictures(numbers);
    std::vector<Ticks> at;
    for (const ClipFrame& frame : stretch.frames) {
        if (frame.video) at.push_back(frame.at);
    }
    size_t picture = 0;
    for (ClipFrame& frame : stretch.frames) {
        if (!frame.video) continue;
        frame.shown = at[order.place[picture]];
        const auto missing = static_cast<Ticks>(order.delay - std::min(order.delay, picture));
        frame.decoded = missing > 0 ? at[0] - missing * stretch.frame_duration : at[picture - order.delay];
        ++picture;
    }
}

}  // namespace card
