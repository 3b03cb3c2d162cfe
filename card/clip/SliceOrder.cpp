#include "clip/SliceOrder.h"

#include <map>
#include <memory>

#include "clip/BitReader.h"
#include "clip/SequenceParameters.h"

namespace card {

namespace {

constexpr int kH264Idr = 5;
constexpr int kH265FirstIrap = 16;
constexpr int kH265LastBla = 18;
constexpr int kH265FirstIdr = 19;
constexpr int kH265LastIdr = 20;
constexpr int kH265LastIrap = 23;
constexpr int kH265FirstRadl = 6;  // to 9, RASL: leading pictures
constexpr int kH265LastRasl = 9;
constexpr int kH265LastSubLayer = 15;  // up to here even numbers are no references of their layer

// The high part that brings `low` closest to the count before (equation 8-3; 8-1 in H.265).
int32_t HighPart(int32_t low, int32_t before_high, int32_t before_low, int bits) {
    const int32_t range = int32_t{1} << bits;
    if (low < before_low && before_low - low >= range / 2) return before_high + range;
    if (low > before_low && low - before_low > range / 2) return before_high - range;
    return before_high;
}

// Keeps the parameter sets of a stream and the picture that the next count builds on.
class Counter {
  public:
    explicit Counter(VideoCodec codec) : codec_(codec) {}

    std::optional<int32_t> Order(ByteView unit) {
        std::optional<int32_t> order;
        bool found = false;
        ForEachNal(unit, [&](ByteView nal) {
            if (IsSequenceParameters(codec_, nal)) {
                if (const auto set = ReadSequenceParameters(codec_, nal)) sequences_[set->id] = *set;
            } else if (IsPictureParameters(codec_, nal)) {
                if (const auto set = ReadPictureParameters(codec_, nal)) pictures_[set->id] = *set;
            } else if (!found && RoleOfNal(nal)) {
                found = true;
                order = codec_ == VideoCodec::H264 ? OrderH264(nal) : OrderH265(nal);
            }
        });
        return order;
    }

  private:
    bool RoleOfNal(ByteView nal) const {
        const int type = NalType(codec_, nal);
        return codec_ == VideoCodec::H264
                   ? type == 1 || type == 2 || type == kH264Idr
                   : type >= 0 && (type <= kH265LastRasl || (type >= kH265FirstIrap && type <= kH265LastIrap));
    }

    const SequenceParameters* SequenceOf(uint32_t picture, const PictureParameters*& found) const {
        const auto set = pictures_.find(picture);
        if (set == pictures_.end()) return nullptr;
        found = &set->second;
        const auto sequence = sequences_.find(set->second.sequence);
        return sequence == sequences_.end() ? nullptr : &sequence->second;
    }

    std::optional<int32_t> OrderH264(ByteView nal) {
        BitReader bits(nal);
        bits.Skip(1);
        const bool reference = bits.Bits(2) != 0;
        const bool idr = bits.Bits(5) == kH264Idr;
        bits.Unsigned();  // first macroblock
        bits.Unsigned();  // slice type
        const PictureParameters* picture = nullptr;
        const SequenceParameters* sequence = SequenceOf(bits.Unsigned(), picture);
        if (sequence == nullptr) return std::nullopt;
        if (sequence->separate_planes) bits.Skip(2);
        const auto frame_number = static_cast<int32_t>(bits.Bits(sequence->frame_number_bits));
        bool field = false;
        bool bottom = false;
        if (!sequence->frames_only) {
            field = bits.Bit() != 0;
            if (field) bottom = bits.Bit() != 0;
        }
        if (idr) bits.Unsigned();
        if (idr) high_ = low_ = number_offset_ = number_ = 0;
        if (sequence->order_type == 0) return ByLowPart(bits, *sequence, *picture, reference, field);
        if (!idr && frame_number < number_) number_offset_ += int32_t{1} << sequence->frame_number_bits;
        number_ = frame_number;
        const int32_t absolute = number_offset_ + frame_number;
        const int32_t order = sequence->order_type == 2
                                  ? 2 * absolute - (reference ? 0 : 1)
                                  : ByCycle(bits, *sequence, *picture, reference, field, bottom, absolute);
        return bits.Ok() ? std::optional(order) : std::nullopt;
    }

    std::optional<int32_t> ByLowPart(BitReader& bits, const SequenceParameters& sequence,
                                     const PictureParameters& picture, bool reference, bool field) {
        const auto low = static_cast<int32_t>(bits.Bits(sequence.order_bits));
        const int32_t delta = picture.bottom_order && !field ? bits.Signed() : 0;
        if (!bits.Ok()) return std::nullopt;
        const int32_t high = HighPart(low, high_, low_, sequence.order_bits);
        if (reference) {
            high_ = high;
            low_ = low;
        }
        return high + low + (delta < 0 ? delta : 0);
    }

    static int32_t ByCycle(BitReader& bits, const SequenceParameters& sequence, const PictureParameters& picture,
                           bool reference, bool field, bool bottom, int32_t absolute) {
        const auto count = static_cast<int32_t>(sequence.offsets_for_reference.size());
        int32_t number = count != 0 ? absolute : 0;
        if (!reference && number > 0) --number;
        int64_t expected = 0;
        if (number > 0) {
            int64_t cycle = 0;
            for (const int32_t offset : sequence.offsets_for_reference) cycle += offset;
            expected = (number - 1) / count * cycle;
            for (int32_t i = 0; i <= (number - 1) % count; ++i) {
                expected += sequence.offsets_for_reference[static_cast<size_t>(i)];
            }
        }
        if (!reference) expected += sequence.offset_for_non_reference;
        int64_t bottom_order = sequence.offset_top_to_bottom;
        if (!sequence.delta_always_zero) {
            expected += bits.Signed();
            if (picture.bottom_order && !field) bottom_order += bits.Signed();
        }
        const int64_t order =
            field ? (bottom ? expected + bottom_order : expected) : expected + (bottom_order < 0 ? bottom_order : 0);
        return static_cast<int32_t>(order);
    }

    std::optional<int32_t> OrderH265(ByteView nal) {
        const int type = NalType(codec_, nal);
        const bool random_access = type >= kH265FirstIrap;
        BitReader bits(nal);
        bits.Skip(13);
        const uint32_t layer = bits.Bits(3) - 1;
        if (bits.Bit() == 0) return std::nullopt;  // not the picture's first slice
        if (random_access) bits.Skip(1);
        const PictureParameters* picture = nullptr;
        const SequenceParameters* sequence = SequenceOf(bits.Unsigned(), picture);
        if (sequence == nullptr) return std::nullopt;
        bits.Skip(picture->extra_slice_bits);
        bits.Unsigned();  // slice type
        if (picture->output_flag) bits.Skip(1);
        if (sequence->separate_planes) bits.Skip(2);
        const bool idr = type >= kH265FirstIdr && type <= kH265LastIdr;
        const auto low = idr ? 0 : static_cast<int32_t>(bits.Bits(sequence->order_bits));
        if (!bits.Ok()) return std::nullopt;
        const bool anew = idr || (random_access && type <= kH265LastBla);
        const int32_t high = anew ? 0 : HighPart(low, high_, low_, sequence->order_bits);
        const bool leading = type >= kH265FirstRadl && type <= kH265LastRasl;
        const bool no_reference = type < kH265LastSubLayer && type % 2 == 0;
        if (layer == 0 && !leading && !no_reference) {
            high_ = high;
            low_ = low;
        }
        return high + low;
    }

    VideoCodec codec_;
    std::map<uint32_t, SequenceParameters> sequences_;
    std::map<uint32_t, PictureParameters> pictures_;
    int32_t high_ = 0;  // of the picture that the next count builds on
    int32_t low_ = 0;
    int32_t number_ = 0;  // of the picture before (order types 1 and 2)
    int32_t number_offset_ = 0;
};

}  // namespace

ReadOrder SliceOrder(VideoCodec codec) {
    return [counter = std::make_shared<Counter>(codec)](ByteView unit) { return counter->Order(unit); };
}

}  // namespace card
