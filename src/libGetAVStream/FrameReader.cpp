#include "FrameReader.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "Clock.h"
#include "KeyFrame.h"
#include "libLog.h"

namespace {

constexpr char kOperation[] = "AVStreamGetAVDataThread";  // for the log

constexpr int kHeader = sizeof(AVDataInfo);
constexpr int kBadCheckLimit = 101;  // the pass at which the place counts as lost
constexpr int kNotReadyLimit = 50;
constexpr int kGapLimit = 10;
constexpr int kRestartLimit = 4;
constexpr unsigned kAttachWaitMs = 20;  // for a ring, or a queue
constexpr unsigned kPauseMs = 50;
constexpr unsigned kRestartMs = 500;

// The passes that a sleep stands for.  Each sleeps 2 ms and wakes up a little later than that.
int PassesIn(unsigned sleep_ms) {
    return std::max(1, static_cast<int>(sleep_ms) * 20 / 41);
}

bool IsSameRecord(const AVDataInfo& a, const AVDataInfo& b) {
    return a.AVDataCheck == b.AVDataCheck && a.SerialNumber == b.SerialNumber && a.AVDataLen == b.AVDataLen &&
           a.EndFlag == b.EndFlag;
}

thread_local const char* t_in_hand = nullptr;  // payload of the frame that this thread's callback has

}  // namespace

// The media server writes along the ring, and a record's header, or its mark "not ready", before the payload.  So what
// writes over a frame has passed the frame's header before it reaches the payload, wherever in front it began.  A
// header unchanged after the payload was read means that the payload was whole.
int AVStreamFrameIntact(const char* VideoData, const AVDataInfo* pDataInfo) {
    if (VideoData == nullptr || VideoData != t_in_hand || pDataInfo == nullptr) {
        return 0;
    }
    std::atomic_thread_fence(std::memory_order_acquire);  // the payload was read before this point
    AVDataInfo now;
    std::memcpy(&now, VideoData - sizeof now, sizeof now);
    return IsSameRecord(now, *pDataInfo) ? 1 : 0;
}

void FrameReader::Follow() {
    LOG_TRACE_AS(kOperation, ": type = %d index = %d\n", type_, index_);
    if (ArgumentsInRange()) {
        if (const int id = RingSegment(index_); id < 0) {
            LOG_TRACE_AS(kOperation, ": StreamSysInfo->StreamSharememID[%d] %d < 0\n", index_, id);
            return;
        }
        while (Running()) {
            Step();
        }
        ring_.Detach();
    }
    LOG_TRACE_AS(kOperation, ": AVStreamGetAVDataThread %d %d exit!\n", type_, index_);
}

bool FrameReader::ArgumentsInRange() const {
    if (!IsStream(index_)) {
        LOG_TRACE_AS(kOperation, ": VideoIndex %d is out of range!\n", index_);
        return false;
    }
    if (!IsClientType(type_)) {
        LOG_TRACE_AS(kOperation, ": MsgAVType %d is out of range!\n", type_);
        return false;
    }
    return true;
}

void FrameReader::Step() {
    if (!ring_.Attached() && !ring_.Attach(RingSegment(index_)) && !ring_.Attach(RenewedRingSegment(index_))) {
        LOG_TRACE_AS(kOperation, ": pAVData = NULL\n");
        SleepInSilence();
        return;
    }
    if (Paused()) {
        return;
    }
    if (position_ < 0) {
        AskWritePosition();
        return;
    }
    ReadRecord();
}

int FrameReader::TransformStatus() const {
    const AVTransformStatus status = StatusCallback(type_);
    return status == nullptr ? kWanted : status(index_);
}

bool FrameReader::Paused() {
    const int status = TransformStatus();
    if (status >= kWanted) {
        return false;
    }
    if (++pauses_ % 100 == 0) {
        LOG_TRACE_AS(kOperation, ": gTransFormStatusFunc[%d](%d) == %d\n", type_, index_, status);
    }
    SleepMs(kPauseMs);
    position_ = -1;
    ring_end_ = -1;
    last_serial_.reset();
    return true;
}

// A media server that was restarted may have made its ring anew; the one attached is then nobody's.  A new ring is read
// from its beginning: all that is in it came after the restart.
bool FrameReader::FollowsNewRing() {
    if (!ring_.Removed()) {
        return false;
    }
    const int id = RenewedRingSegment(index_);
    if (id == ring_.SegmentId() || !ring_.Attach(id)) {
        return false;
    }
    position_ = 0;
    ring_end_ = -1;
    last_serial_.reset();
    delivered_.reset();
    recount_.Forget();
    rhythm_.Forget();
    return true;
}

// There may be no queue, or no ring at all.
void FrameReader::SleepInSilence() {
    const unsigned wait = WaitInSilence(silence_ms_, kAttachWaitMs);
    SleepMs(wait);
    silence_ms_ += wait;
}

void FrameReader::AskWritePosition() {
    LOG_TRACE_AS(kOperation, ": MsgAVType = %d VideoIndex = %d\n", type_, index_);
    const std::optional<int> answer =
        RequestPosition([this] { return Wanted(); }, silence_ms_, AVSTREAM_CMD_CURRENT_FRAME, type_, index_);
    if (!answer) {
        SleepInSilence();
        return;
    }
    FollowsNewRing();
    int64_t position = *answer;
    if (index_ == 0) {
        LOG_TRACE_AS(kOperation, ": VideoPos = %d\n", static_cast<int>(position));
    }
    if (position < 0) {
        GetLastIFrame({}, position);
    }
    if (position >= 0 && !CheckOutOfPos(position)) {
        position_ = position;
        return;
    }
    LOG_TRACE_AS(kOperation, ": VideoIndex = %d\n", index_);
    SleepMs(kWriterWaitMs);
}

bool FrameReader::CheckOutOfPos(int64_t position) const {
    if (position < kRingSize[index_]) {
        return false;
    }
    LOG_TRACE(" iVideoIndex = %d VideoPos = %d\n", index_, static_cast<int>(position));
    return true;
}

void FrameReader::ReadRecord() {
    std::optional<AVDataInfo> header = ring_.Header(position_);
    if (!header || header->AVDataCheck != AVDATA_CHECK_WORD) {
        Garbage(header ? header->AVDataCheck : 0);
        return;
    }
    if (header->EndFlag == AVDATA_END_RESTART) {
        RestartRing(*header);
        return;
    }
    restarts_ = 0;
    if (header->EndFlag == AVDATA_END_RING) {
        EndOfRing(*header);
    } else if (header->EndFlag == AVDATA_END_FRAME) {
        TakeFrame(*header);
    } else {
        NotReady(counts_.not_ready, header->EndFlag);
    }
}

// Sleeps until something may have come, in place of the passes that would look in vain; at `limit` it returns false.
bool FrameReader::AwaitsWriter(int& passes, int limit) {
    if (++passes >= limit) {
        return false;
    }
    const unsigned until_due = static_cast<unsigned>(rhythm_.NothingAt(SteadyUs()) / 1000);
    const unsigned left = static_cast<unsigned>(limit - passes) * kWriterWaitMs;
    const unsigned wait = std::min(IsUrgent(type_, index_) ? until_due : kIdleMs, left);
    SleepMs(wait);
    passes += PassesIn(wait) - 1;
    return true;
}

void FrameReader::Garbage(int check_word) {
    if (AwaitsWriter(counts_.bad_check, kBadCheckLimit)) {
        return;
    }
    LOG_TRACE_AS(kOperation, ": VideoIndex = %d VideoPos = %d AVDataCheck == %d\n", index_, static_cast<int>(position_),
                 check_word);
    Resynchronise();
}

void FrameReader::NotReady(int& count, int end_flag) {
    if (AwaitsWriter(count, kNotReadyLimit)) {
        return;
    }
    LOG_TRACE_AS(kOperation, ": VideoIndex = %d VideoPos = %d Endflag == %d\n", index_, static_cast<int>(position_),
                 end_flag);
    Resynchronise();
}

void FrameReader::EndOfRing(const AVDataInfo& header) {
    if (counts_.ring_ends == 0) {
        LOG_TRACE_AS(kOperation, ": MsgAVType = %d  Index = %d Endflag == %d\n", type_, index_, header.EndFlag);
    }
    if (++counts_.ring_ends > kNotReadyLimit) {
        Resynchronise();
        return;
    }
    if (counts_.ring_ends > 1) {
        SleepMs(kWriterWaitMs);  // once around without a frame: there is nothing to read yet
    }
    if (position_ != 0) {
        ring_end_ = position_;
    }
    position_ = 0;
}

void FrameReader::RestartRing(const AVDataInfo& header) {
    if (++restarts_ > kRestartLimit && position_ == 0) {
        Resynchronise();  // the media server goes on elsewhere
        return;
    }
    if (restarts_ == 1) {
        LOG_TRACE_AS(kOperation, ": Endflag == %d\n", header.EndFlag);
        if (!last_serial_ || !NextFrameIsAt(0)) {  // else it has begun anew already: that frame is not written over
            AVDataInfo restart = header;
            restart.SerialNumber = 0;
            restart.AVDataLen = 0;
            restart.AVDataPos = 0;
            std::memcpy(ring_.Bytes(0, kHeader), &restart, sizeof restart);
        }
    }
    FollowsNewRing();
    rhythm_.Forget();
    position_ = 0;
    ring_end_ = -1;
    counts_.bad_check = 0;
    last_serial_.reset();
    SleepMs(kRestartMs);
}

void FrameReader::TakeFrame(AVDataInfo& header) {
    const uint32_t distance = last_serial_ ? header.SerialNumber - *last_serial_ : 1;
    if (header.AVDataLen >= kRingSize[index_]) {
        LOG_TRACE_AS(kOperation, ": pDataInfo->AVDataLen = %d up to Max %d\n", header.AVDataLen, kRingSize[index_]);
        Garbage(header.AVDataCheck);
    } else if (ring_.Bytes(position_ + kHeader, header.AVDataLen) == nullptr) {
        Garbage(header.AVDataCheck);  // a negative length, or one over the ring's end
    } else if (distance == 0) {
        Repeated(header);
    } else if (distance <= kGapAccepted) {
        if (distance > 1) {
            LOG_TRACE_AS(kOperation, ":MsgAVType = %d VideoIndex = %d sub = %u - %u = %u pos = %u \n", type_, index_,
                         header.SerialNumber, *last_serial_, distance, static_cast<unsigned>(position_));
        }
        Deliver(header);
    } else if (*last_serial_ > header.SerialNumber) {
        NotReady(counts_.behind, header.EndFlag);
    } else {
        Gap(header);
    }
}

void FrameReader::Repeated(const AVDataInfo& header) {
    LOG_TRACE_AS(kOperation, ": VideoIndex = %d pos = %d pDataInfo->SerialNumber %d oldSerialNumber %d\n", index_,
                 static_cast<int>(position_), static_cast<int>(header.SerialNumber), static_cast<int>(*last_serial_));
    SleepMs(kWriterWaitMs);
    if (const int64_t next = Ring::After(position_, header); RepeatIsFollowed(next)) {
        position_ = next;
    } else {
        Resynchronise();
    }
}

bool FrameReader::RepeatIsFollowed(int64_t next) const {
    const std::optional<AVDataInfo> header = ring_.Header(next);
    const uint8_t* const nal = ring_.NalStart(next);
    if (!header || header->AVDataCheck != AVDATA_CHECK_WORD || nal == nullptr) {
        return false;
    }
    const h264::NalUnitType type = h264::TypeOf(nal[4]);
    return NextFrameIsAt(next) ||
           (HasStartCode(nal) && (type == h264::kCodedSliceNonIdr || type == h264::kSeqParameterSet));
}

void FrameReader::Gap(const AVDataInfo& header) {
    if (++counts_.gap <= kGapLimit) {
        return;
    }
    LOG_TRACE_AS(kOperation, ": MsgAVType = %d index = %d sub = %u - %u = %u pos = %u \n", type_, index_,
                 header.SerialNumber, *last_serial_, header.SerialNumber - *last_serial_,
                 static_cast<unsigned>(position_));
    Resynchronise();
    LOG_TRACE_AS(kOperation, ": VideoPos = %d\n", static_cast<int>(position_));
    SleepMs(kWriterWaitMs);
}

void FrameReader::Deliver(AVDataInfo& header) {
    rhythm_.Found(header.AVSource, SteadyUs());
    const AVDataInfo frame = header;  // before the client gets hold of it
    const int64_t place = position_;
    if (const AVStreamCallback take = FrameCallback(type_); take != nullptr) {
        auto* const payload = reinterpret_cast<char*>(ring_.Bytes(place + kHeader, frame.AVDataLen));
        t_in_hand = payload;
        take(frame.AVSource, index_, payload, &header);
        t_in_hand = nullptr;
    }
    delivered_ = last_serial_ = frame.SerialNumber;
    position_ = Ring::After(place, frame);
    ring_end_ = -1;
    counts_ = Counts{};
    pauses_ = 0;
    // Written over meanwhile, the reader is a whole ring late.  The oldest frames that are left come next; if the
    // media server is past those too, waiting here would only cost more.
    const std::optional<AVDataInfo> now = ring_.Header(place);
    if ((!now || !IsSameRecord(*now, frame)) && !PlaceGoesOn()) {
        Resynchronise();
    }
}
