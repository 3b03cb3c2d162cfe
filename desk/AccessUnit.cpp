#include "AccessUnit.h"

#include <algorithm>
#include <array>

#include "NalTypes.h"

namespace desk {
namespace {

constexpr std::array<uint8_t, 4> kStartCode = {0, 0, 0, 1};

// Offset of the next 00 00 01 at or after `from`; the size when there is none.
size_t FindStartCode(View data, size_t from) {
    static constexpr std::array<uint8_t, 3> kShort = {0, 0, 1};
    return static_cast<size_t>(
        std::search(data.begin() + static_cast<std::ptrdiff_t>(from), data.end(), kShort.begin(), kShort.end()) -
        data.begin());
}

void Append(Bytes& out, View nal) {
    out.insert(out.end(), kStartCode.begin(), kStartCode.end());
    out.insert(out.end(), nal.begin(), nal.end());
}

}  // namespace

std::vector<View> SplitAtStartCodes(View data) {
    std::vector<View> nals;
    size_t at = FindStartCode(data, 0);
    while (at < data.size()) {
        const size_t begin = at + 3;
        at = FindStartCode(data, begin);
        size_t end = at;
        while (end > begin && data[end - 1] == 0) --end;  // a NAL unit never ends in zero: these belong to what follows
        if (end > begin) nals.push_back(data.subspan(begin, end - begin));
    }
    return nals;
}

std::vector<View> SplitAtLengths(View data, int length_size) {
    std::vector<View> nals;
    const size_t width = static_cast<size_t>(length_size);
    while (data.size() > width) {
        size_t length = 0;
        for (size_t i = 0; i < width; ++i) length = length << 8 | data[i];
        data = data.subspan(width);
        if (length > data.size()) break;
        if (length > 0) nals.push_back(data.first(length));
        data = data.subspan(length);
    }
    return nals;
}

AccessUnitMaker::AccessUnitMaker(VideoCodec codec, View extradata, int quarter_turns)
    : codec_(codec), orientation_(quarter_turns != 0 ? OrientationMessage(quarter_turns) : Bytes{}) {
    const bool start_codes = extradata.size() >= 4 && extradata[0] == 0 && extradata[1] == 0;
    if (start_codes) {
        Remember(SplitAtStartCodes(extradata));
    } else if (!extradata.empty()) {
        Remember(ReadConfigurationRecord(extradata));
    }
}

// The ISO configuration record: H.264 lists SPS and PPS, H.265 arrays of NAL units by type; both tell the width
// of the packets' length fields.
std::vector<View> AccessUnitMaker::ReadConfigurationRecord(View record) {
    const bool is_h264 = codec_ == VideoCodec::kH264;
    const size_t lists_at = is_h264 ? 5 : 22;
    if (record.size() <= lists_at) return {};
    length_size_ = (record[is_h264 ? 4 : 21] & 3) + 1;

    std::vector<View> nals;
    size_t at = lists_at;
    const auto take_nals = [&](size_t count) {
        while (count-- > 0 && at + 2 <= record.size()) {
            const size_t length = static_cast<size_t>(record[at] << 8 | record[at + 1]);
            at += 2;
            if (length > record.size() - at) return;
            nals.push_back(record.subspan(at, length));
            at += length;
        }
    };
    if (is_h264) {
        take_nals(record[at++] & 31);
        if (at < record.size()) take_nals(record[at++]);
        return nals;
    }
    for (int arrays = record[at++]; arrays > 0 && at + 3 <= record.size(); --arrays) {
        const size_t count = static_cast<size_t>(record[at + 1] << 8 | record[at + 2]);
        at += 3;
        take_nals(count);
    }
    return nals;
}

int AccessUnitMaker::TypeOf(View nal) const {
    return codec_ == VideoCodec::kH264 ? int{h264::TypeOf(nal[0])} : int{h265::TypeOf(nal[0])};
}

bool AccessUnitMaker::IsParameterSet(int type) const {
    return codec_ == VideoCodec::kH264 ? type == h264::kSeqParameterSet || type == h264::kPicParameterSet
                                       : type == h265::kVpsNut || type == h265::kSpsNut || type == h265::kPpsNut;
}

bool AccessUnitMaker::IsDelimiter(int type) const {
    return type == (codec_ == VideoCodec::kH264 ? int{h264::kAccessUnitDelimiter} : int{h265::kAudNut});
}

bool AccessUnitMaker::IsRandomAccess(int type) const {
    return codec_ == VideoCodec::kH264 ? type == h264::kCodedSliceIdr : type >= h265::kBlaWLp && type <= h265::kCraNut;
}

bool AccessUnitMaker::IsSlice(int type) const {
    return codec_ == VideoCodec::kH264 ? type >= h264::kCodedSliceNonIdr && type <= h264::kCodedSliceIdr
                                       : type < h265::kVpsNut;
}

// No cancelling, no flip, the turn in 1/65536 of a circle, good until another one comes.
Bytes AccessUnitMaker::OrientationMessage(int quarter_turns) const {
    constexpr uint8_t kDisplayOrientation = 47, kPayloadBytes = 3, kTrailing = 0x80;
    const auto turn = static_cast<uint8_t>(quarter_turns << 3);  // after three flags; its other 14 bits are zero
    if (codec_ == VideoCodec::kH264) return {h264::kSei, kDisplayOrientation, kPayloadBytes, turn, 0, 0x09, kTrailing};
    return {h265::kPrefixSeiNut << 1, 1, kDisplayOrientation, kPayloadBytes, turn, 0, 0x18, kTrailing};
}

// Each type's sets are replaced together: a stream that sends one set of a type again sends them all.
void AccessUnitMaker::Remember(const std::vector<View>& nals) {
    std::map<int, std::vector<Bytes>> seen;
    for (const View nal : nals) {
        if (const int type = TypeOf(nal); IsParameterSet(type)) seen[type].emplace_back(nal.begin(), nal.end());
    }
    for (auto& [type, sets] : seen) parameter_sets_[type] = std::move(sets);
}

AccessUnit AccessUnitMaker::Make(View packet) {
    if (codec_ == VideoCodec::kJpeg) return {Bytes(packet.begin(), packet.end()), false};

    std::vector<View> nals = length_size_ > 0 ? SplitAtLengths(packet, length_size_) : SplitAtStartCodes(packet);
    std::erase_if(nals, [this](View nal) { return IsDelimiter(TypeOf(nal)); });
    Remember(nals);

    AccessUnit unit;
    if (nals.empty()) return unit;
    unit.bytes.reserve(packet.size() + 256);
    const int first_set = codec_ == VideoCodec::kH264 ? int{h264::kSeqParameterSet} : int{h265::kVpsNut};
    unit.key = TypeOf(nals.front()) == first_set;
    const bool random_access = std::ranges::any_of(nals, [this](View nal) { return IsRandomAccess(TypeOf(nal)); });
    if (!unit.key && random_access && parameter_sets_.contains(first_set)) {
        for (const auto& [type, sets] : parameter_sets_) {
            for (const Bytes& set : sets) Append(unit.bytes, set);
        }
        unit.key = true;
    }
    bool is_told = !unit.key || orientation_.empty();
    for (const View nal : nals) {
        if (!is_told && IsSlice(TypeOf(nal))) {
            Append(unit.bytes, orientation_);
            is_told = true;
        }
        Append(unit.bytes, nal);
    }
    return unit;
}

}  // namespace desk
