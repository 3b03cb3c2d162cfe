// The search of a reader that lost its place, or its patience.
#include "FrameReader.h"

#include "Clock.h"
#include "KeyFrame.h"
#include "RecorderStatus.h"
#include "libLog.h"

namespace {

constexpr int kKeyFrameRoom = 68;  // header, and start code of the payload
constexpr unsigned kKeyFrameWaitMs = 10;

}  // namespace

// The serial number is forgotten for a key frame alone.  At the old place it still tells what was read already.
void FrameReader::Resynchronise() {
    int64_t position = -1;
    const Found found = GetLastIFrame(delivered_, position);
    if (found == Found::kKeyFrame) {
        last_serial_.reset();
        ring_end_ = -1;
        rhythm_.Forget();
        RecorderStatusResynchronised();
    }
    position_ = position;
    counts_ = Counts{};
}

// Fills in the position of the media server's last key frame, newer than the frame given, or of the old place once what
// follows there has come: a stream of few frames a second lets every wait end before its next frame.  Finds nothing
// (-1) only when the reader is to stop or to pause.
FrameReader::Found FrameReader::GetLastIFrame(Serial newer_than, int64_t& position) {
    Found found = Found::kNothing;
    bool asked_in_vain = false;
    while (Wanted() && found == Found::kNothing) {
        if (PlaceGoesOn()) {
            found = Found::kPlace;
            break;
        }
        const std::optional<int> answer = RequestPosition([this] { return Wanted() && !PlaceGoesOn(); }, silence_ms_,
                                                          AVSTREAM_CMD_LAST_I_FRAME, type_, index_);
        if (FollowsNewRing()) {
            newer_than.reset();
            continue;
        }
        const bool in_range = answer && int64_t{*answer} + kKeyFrameRoom < kRingSize[index_];
        if (in_range && TakesKeyFrame(*answer, newer_than)) {
            // It may have come right after the frame waited for.
            found = last_serial_ && PlaceGoesOn() ? Found::kPlace : Found::kKeyFrame;
            position = *answer;
        } else if (!answer) {
            SleepInSilence();
        } else if (in_range || asked_in_vain) {
            SleepMs(IsUrgent(type_, index_) ? kKeyFrameWaitMs : kIdleMs);
        }
        asked_in_vain = answer && !in_range;  // once it asks again at once
    }
    if (found == Found::kPlace) {
        position = position_;
    }
    const uint8_t* const nal = ring_.NalStart(position);
    LOG_TRACE(": VideoPos = %d nalu = 0x%02X\n", static_cast<int>(position), nal == nullptr ? 0 : nal[4]);
    return found;
}

bool FrameReader::TakesKeyFrame(int64_t position, Serial newer_than) {
    const std::optional<AVDataInfo> header = ring_.Frame(position);
    const uint8_t* const nal = ring_.NalStart(position);
    if (!header || nal == nullptr) {
        return false;
    }
    if (IsJpeg(nal)) {
        return true;
    }
    if (newer_than && header->SerialNumber <= *newer_than && !recount_.IsProved(ring_, position, *newer_than)) {
        LOG_TRACE_AS("GetLastIFrame", ": pDataInfo->SerialNumber %u <= oldsn %u\n", header->SerialNumber, *newer_than);
        return false;
    }
    if (OpensH265KeyFrame(nal)) {
        LOG_TRACE_AS("GetLastIFrame", ": 3516A nalu = 0x%02X\n", nal[4]);
        return true;
    }
    if (OpensH264KeyFrame(nal)) {
        LOG_TRACE_AS("GetLastIFrame", ": AVType = %d VideoIndex = %d VideoPos = %d\n", header->AVSource, index_,
                     static_cast<int>(position));
        return true;
    }
    return false;
}

// Whether there is something to read at the old place now.  A ring's end that led here may have been none: then the
// place is where it stood.
bool FrameReader::PlaceGoesOn() {
    if (GoesOnAt(position_)) {
        return true;
    }
    if (ring_end_ < 0 || !last_serial_ || !NextFrameIsAt(ring_end_)) {
        return false;
    }
    position_ = ring_end_;
    ring_end_ = -1;
    return true;
}

bool FrameReader::GoesOnAt(int64_t place) const {
    const std::optional<AVDataInfo> header = ring_.Header(place);
    if (!header || header->AVDataCheck != AVDATA_CHECK_WORD) {
        return false;
    }
    switch (header->EndFlag) {
        case AVDATA_END_RING:  // not before something follows it: it would only lead into the next wait
            return place != 0 && GoesOnAt(0);
        case AVDATA_END_RESTART:
            return place != 0 || last_serial_;
        default:
            return NextFrameIsAt(place);
    }
}

bool FrameReader::NextFrameIsAt(int64_t place) const {
    const std::optional<AVDataInfo> frame = ring_.Frame(place);
    return frame && (!last_serial_ || frame->SerialNumber - *last_serial_ - 1 < kGapAccepted);
}
