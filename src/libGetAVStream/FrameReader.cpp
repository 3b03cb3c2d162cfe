#include "FrameReader.h"

#include <atomic>
#include <cstring>

#include "Clock.h"
#include "NalTypes.h"
#include "libLog.h"

namespace {

constexpr int kHeader = sizeof(AVDataInfo);
constexpr int kBadCheckLimit = 100;  // passes before the place counts as lost
constexpr int kNotReadyLimit = 50;
constexpr int kGapLimit = 10;
constexpr uint32_t kGapAccepted = 30;  // frames
constexpr unsigned kWriterWaitMs = 2;
constexpr unsigned kKeyFrameWaitMs = 10;

bool HasStartCode(const uint8_t* nal) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    return std::memcmp(nal, kStartCode, sizeof kStartCode) == 0;
}
h264::NalUnitType H264Type(const uint8_t* nal) {
    return h264::TypeOf(nal[4]);
}
h265::NalUnitType H265Type(const uint8_t* nal) {
    return h265::TypeOf(nal[4]);
}
bool IsJpeg(const uint8_t* payload) {
    return payload[0] == 0xFF && payload[1] == 0xD8;
}

// A video parameter set, which opens an H.265 key frame and is no slice or parameter set of H.264.
bool OpensH265KeyFrame(const uint8_t* nal) {
    switch (H264Type(nal)) {
        case h264::kCodedSliceNonIdr:
        case h264::kCodedSliceIdr:
        case h264::kSeqParameterSet:
        case h264::kPicParameterSet:
            return false;
        default:
            return H265Type(nal) == h265::kVpsNut;
    }
}

thread_local const char* t_in_hand = nullptr;  // payload of the frame that this thread's callback has

}  // namespace

// The media server writes along the ring, so what writes over a frame writes over its header first: a record that
// began in front of this one passes the header before it reaches the payload, and one that begins in the same place
// says first that it is not ready.  A header unchanged after the payload was read means that the payload was whole.
int AVStreamFrameIntact(const char* VideoData, const AVDataInfo* pDataInfo) {
    if (VideoData == nullptr || VideoData != t_in_hand || pDataInfo == nullptr) {
        return 0;
    }
    std::atomic_thread_fence(std::memory_order_acquire);  // the payload was read before this point
    AVDataInfo now;
    std::memcpy(&now, VideoData - sizeof now, sizeof now);
    return now.AVDataCheck == pDataInfo->AVDataCheck && now.SerialNumber == pDataInfo->SerialNumber &&
           now.AVDataLen == pDataInfo->AVDataLen && now.EndFlag == pDataInfo->EndFlag;
}

void FrameReader::Follow() {
    LOG_TRACE("%s %d: type = %d index = %d\n", type_, index_);
    if (ArgumentsInRange()) {
        if (const int id = RingSegment(index_); id < 0) {
            LOG_TRACE("%s %d: StreamSysInfo->StreamSharememID[%d] %d < 0\n", index_, id);
            return;
        }
        while (Running()) {
            Step();
        }
        ring_.Detach();
    }
    LOG_TRACE("%s %d: AVStreamGetAVDataThread %d %d exit!\n", type_, index_);
}

bool FrameReader::ArgumentsInRange() const {
    if (!IsStream(index_)) {
        LOG_TRACE("%s %d: VideoIndex %d is out of range!\n", index_);
        return false;
    }
    if (!IsClientType(type_)) {
        LOG_TRACE("%s %d: MsgAVType %d is out of range!\n", type_);
        return false;
    }
    return true;
}

void FrameReader::Step() {
    if (!ring_.Attached() && !ring_.Attach(RingSegment(index_)) && !ring_.Attach(RenewedRingSegment(index_))) {
        LOG_TRACE("%s %d: pAVData = NULL\n");
        SleepMs(20);
        return;
    }
    if (Paused()) {
        return;
    }
    if (VideoPos_ < 0) {
        AskWritePosition();
        return;
    }
    ReadRecord();
}

bool FrameReader::Paused() {
    const AVTransformStatus wanted = StatusCallback(type_);
    const int status = wanted == nullptr ? 1 : wanted(index_);
    if (status >= 1) {
        return false;
    }
    if (++pauses_ % 100 == 0) {
        LOG_TRACE("%s %d: gTransFormStatusFunc[%d](%d) == %d\n", type_, index_, status);
    }
    SleepMs(50);
    VideoPos_ = -1;
    oldSerialNumber_ = 0;
    return true;
}

// A media server that was restarted may have made its ring anew; the one attached is then nobody's.
bool FrameReader::FollowsNewRing() {
    if (!ring_.Removed()) {
        return false;
    }
    const int id = RenewedRingSegment(index_);
    return id != ring_.SegmentId() && ring_.Attach(id);
}

void FrameReader::AskWritePosition() {
    LOG_TRACE("%s %d: MsgAVType = %d VideoIndex = %d\n", type_, index_);
    const std::optional<int> answer =
        RequestPosition([this] { return Running(); }, AVSTREAM_CMD_CURRENT_FRAME, type_, index_);
    if (!answer) {
        SleepMs(kWriterWaitMs);
        return;
    }
    FollowsNewRing();
    int position = *answer;
    if (index_ == 0) {
        LOG_TRACE("%s %d: VideoPos = %d\n", position);
    }
    if (position < 0) {
        position = GetLastIFrame(0);
    }
    if (position >= 0 && !CheckOutOfPos(position)) {
        VideoPos_ = position;
        return;
    }
    LOG_TRACE("%s %d: VideoIndex = %d\n", index_);
    SleepMs(kWriterWaitMs);
}

bool FrameReader::CheckOutOfPos(int position) const {
    if (position < kRingSize[index_]) {
        return false;
    }
    LOG_TRACE("%s %d iVideoIndex = %d VideoPos = %d\n", index_, position);
    return true;
}

// A stream of few frames a second lets every wait end before its next frame comes.  True when, at the place that was
// given up behind `old_serial`, what follows it has come.
bool FrameReader::PlaceIsReadable(uint32_t old_serial) const {
    const std::optional<AVDataInfo> header = ring_.Header(VideoPos_);
    if (old_serial == 0 || !header || header->AVDataCheck != AVDATA_CHECK_WORD || header->AVDataLen < 0) {
        return false;
    }
    if (header->EndFlag == AVDATA_END_FRAME) {
        return header->SerialNumber - old_serial - 1 < kGapAccepted && header->AVDataLen < kRingSize[index_] &&
               ring_.Bytes(VideoPos_ + kHeader, header->AVDataLen) != nullptr;
    }
    return header->EndFlag == AVDATA_END_RING || header->EndFlag == AVDATA_END_RESTART;
}

// Position of the media server's last key frame, newer than `old_serial` when one is given (not 0), or the place
// given up when that can be read meanwhile; otherwise the position asked last, -1 if none: the reader is to stop.
int FrameReader::GetLastIFrame(uint32_t old_serial) {
    int position = -1;
    uint32_t refused = 0;
    while (Running()) {
        if (PlaceIsReadable(old_serial)) {
            position = static_cast<int>(VideoPos_);
            break;
        }
        const std::optional<int> answer =
            RequestPosition([this] { return Running(); }, AVSTREAM_CMD_LAST_I_FRAME, type_, index_);
        if (!answer) {
            SleepMs(kKeyFrameWaitMs);
            continue;
        }
        if (FollowsNewRing()) {
            old_serial = 0;
        }
        position = *answer;
        if (static_cast<int64_t>(position) + kHeader + 4 >= kRingSize[index_]) {
            continue;
        }
        if (TakesKeyFrame(position, old_serial, refused)) {
            break;
        }
        SleepMs(kKeyFrameWaitMs);
    }
    const uint8_t* const nal = ring_.NalStart(position);
    LOG_TRACE("%s %d: VideoPos = %d nalu = 0x%02X\n", position, nal == nullptr ? 0 : nal[4]);
    return position;
}

// `refused` keeps the serial number that was too old in an earlier pass, 0 at first.
bool FrameReader::TakesKeyFrame(int position, uint32_t old_serial, uint32_t& refused) {
    const std::optional<AVDataInfo> header = ring_.Header(position);
    const uint8_t* const nal = ring_.NalStart(position);
    if (!header || nal == nullptr) {
        return false;
    }
    if (IsJpeg(nal)) {
        return true;
    }
    if (old_serial != 0 && header->SerialNumber <= old_serial) {
        // Another key frame that is too old as well: the media server counts anew, as after its restart.
        const bool counts_anew = refused != 0 && refused != header->SerialNumber;
        refused = header->SerialNumber;
        if (!counts_anew) {
            LOG_TRACE("%s %d: pDataInfo->SerialNumber %u <= oldsn %u\n", header->SerialNumber, old_serial);
            return false;
        }
    }
    if (OpensH265KeyFrame(nal)) {
        LOG_TRACE("%s %d: 3516A nalu = 0x%02X\n", nal[4]);
        return true;
    }
    if (HasStartCode(nal) && H264Type(nal) == h264::kSeqParameterSet) {
        LOG_TRACE("%s %d: AVType = %d VideoIndex = %d VideoPos = %d\n", header->AVSource, index_, position);
        return true;
    }
    return false;
}

void FrameReader::Resynchronise() {
    VideoPos_ = GetLastIFrame(oldSerialNumber_);
    oldSerialNumber_ = 0;  // the frame found is newer; how much newer does not matter any more
    counts_ = Counts{};
}

void FrameReader::ReadRecord() {
    std::optional<AVDataInfo> header = ring_.Header(VideoPos_);
    if (!header || header->AVDataCheck != AVDATA_CHECK_WORD || header->AVDataLen < 0) {
        Garbage(header ? header->AVDataCheck : 0);
        return;
    }
    if (header->EndFlag == AVDATA_END_RESTART) {
        RestartRing(*header);
        return;
    }
    restart_seen_ = false;
    if (header->EndFlag == AVDATA_END_RING) {
        LOG_TRACE("%s %d: MsgAVType = %d  Index = %d Endflag == %d\n", type_, index_, header->EndFlag);
        if (VideoPos_ == 0) {
            SleepMs(kWriterWaitMs);  // a ring that ends where it begins: nothing to read yet
        }
        VideoPos_ = 0;
    } else if (header->EndFlag == AVDATA_END_FRAME) {
        TakeFrame(*header);
    } else {
        NotReady(counts_.not_ready, header->EndFlag);
    }
}

void FrameReader::Garbage(int check_word) {
    if (++counts_.bad_check <= kBadCheckLimit) {
        SleepMs(kWriterWaitMs);
        return;
    }
    LOG_TRACE("%s %d: VideoIndex = %d VideoPos = %d AVDataCheck == %d\n", index_, static_cast<int>(VideoPos_),
              check_word);
    Resynchronise();
}

void FrameReader::NotReady(int& count, int end_flag) {
    if (++count < kNotReadyLimit) {
        SleepMs(kWriterWaitMs);
        return;
    }
    LOG_TRACE("%s %d: VideoIndex = %d VideoPos = %d Endflag == %d\n", index_, static_cast<int>(VideoPos_), end_flag);
    Resynchronise();
}

void FrameReader::RestartRing(const AVDataInfo& header) {
    if (!restart_seen_) {
        restart_seen_ = true;
        LOG_TRACE("%s %d: Endflag == %d\n", header.EndFlag);
        const std::optional<AVDataInfo> first = ring_.Header(0);
        const bool next_is_there = first && first->AVDataCheck == AVDATA_CHECK_WORD &&
                                   first->EndFlag == AVDATA_END_FRAME && oldSerialNumber_ != 0 &&
                                   first->SerialNumber - oldSerialNumber_ - 1 < kGapAccepted;
        if (!next_is_there) {  // else the media server has begun anew already: its frame is not written over
            AVDataInfo restart = header;
            restart.SerialNumber = 0;
            restart.AVDataLen = 0;
            restart.AVDataPos = 0;
            std::memcpy(ring_.Bytes(0, kHeader), &restart, sizeof restart);
        }
    }
    VideoPos_ = FollowsNewRing() ? -1 : 0;
    counts_.bad_check = 0;
    oldSerialNumber_ = 0;
    SleepMs(500);
}

void FrameReader::TakeFrame(AVDataInfo& header) {
    if (header.AVDataLen >= kRingSize[index_]) {
        LOG_TRACE("%s %d: pDataInfo->AVDataLen = %d up to Max %d\n", header.AVDataLen, kRingSize[index_]);
        SleepMs(kWriterWaitMs);
        return;
    }
    if (ring_.Bytes(VideoPos_ + kHeader, header.AVDataLen) == nullptr) {
        Garbage(header.AVDataCheck);  // it says that it reaches over the ring's end
        return;
    }
    if (oldSerialNumber_ == 0) {
        Deliver(header);
    } else if (header.SerialNumber == oldSerialNumber_) {
        Repeated(header);
    } else if (oldSerialNumber_ > header.SerialNumber) {
        NotReady(counts_.behind, header.EndFlag);
    } else if (GapAccepted(header)) {
        Deliver(header);
    }
}

void FrameReader::Repeated(const AVDataInfo& header) {
    LOG_TRACE("%s %d: VideoIndex = %d pos = %d pDataInfo->SerialNumber %d oldSerialNumber %d\n", index_,
              static_cast<int>(VideoPos_), static_cast<int>(header.SerialNumber), static_cast<int>(oldSerialNumber_));
    const uint8_t* const nal = ring_.NalStart(Next(header));
    if (nal != nullptr && HasStartCode(nal) &&
        (H264Type(nal) == h264::kCodedSliceNonIdr || H264Type(nal) == h264::kSeqParameterSet)) {
        VideoPos_ = Next(header);
    } else {
        Resynchronise();
    }
}

bool FrameReader::GapAccepted(const AVDataInfo& header) {
    const uint32_t distance = header.SerialNumber - oldSerialNumber_;
    const auto position = static_cast<unsigned>(VideoPos_);
    if (distance > kGapAccepted) {
        if (++counts_.gap > kGapLimit) {
            LOG_TRACE("%s %d: MsgAVType = %d index = %d sub = %u - %u = %u pos = %u \n", type_, index_,
                      header.SerialNumber, oldSerialNumber_, distance, position);
            Resynchronise();
            LOG_TRACE("%s %d: VideoPos = %d\n", static_cast<int>(VideoPos_));
            SleepMs(kWriterWaitMs);
        }
        return false;
    }
    if (distance > 1) {
        LOG_TRACE("%s %d:MsgAVType = %d VideoIndex = %d sub = %u - %u = %u pos = %u \n", type_, index_,
                  header.SerialNumber, oldSerialNumber_, distance, position);
    }
    return true;
}

void FrameReader::Deliver(AVDataInfo& header) {
    const int64_t next = Next(header);  // before the client gets hold of the header
    const uint32_t serial = header.SerialNumber;
    if (const AVStreamCallback take = FrameCallback(type_); take != nullptr) {
        auto* const payload = reinterpret_cast<char*>(ring_.Bytes(VideoPos_ + kHeader, header.AVDataLen));
        t_in_hand = payload;
        take(header.AVSource, index_, payload, &header);
        t_in_hand = nullptr;
    }
    oldSerialNumber_ = serial;
    counts_ = Counts{};
    pauses_ = 0;
    VideoPos_ = next;
}

int64_t FrameReader::Next(const AVDataInfo& header) const {
    return VideoPos_ + kHeader + header.AVDataLen;
}
