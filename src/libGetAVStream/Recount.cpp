#include "Recount.h"

bool Recount::IsProved(const Ring& ring, int64_t position, uint32_t seen) {
    constexpr int kRecordsMax = 10000;  // more than fit into any ring
    constexpr int kLooksMax = 100;
    if (end_ >= 0 && PassRecord(ring)) {
        Forget();
        return true;
    }
    const std::optional<AVDataInfo> key = ring.Frame(position);
    if (!key) {
        return false;
    }
    end_ = position;
    last_ = key->SerialNumber - 1;
    int records = 0;
    while (records < kRecordsMax && PassRecord(ring)) {
        ++records;
        if (last_ == seen) {
            Forget();
            return false;
        }
    }
    looks_ = records > 1 ? looks_ + 1 : 0;
    return looks_ > kLooksMax;
}

// Steps over the frame that follows, if it is there already; through the ring's end if one stands there.
bool Recount::PassRecord(const Ring& ring) {
    const std::optional<AVDataInfo> header = ring.Header(end_);
    const bool at_end = header && header->AVDataCheck == AVDATA_CHECK_WORD && header->EndFlag == AVDATA_END_RING;
    const int64_t place = at_end ? 0 : end_;
    const std::optional<AVDataInfo> frame = ring.Frame(place);
    if (!frame || frame->SerialNumber != last_ + 1) {
        return false;
    }
    end_ = Ring::After(place, *frame);
    last_ = frame->SerialNumber;
    return true;
}
