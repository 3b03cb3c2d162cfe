#include "FrameRing.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace desk {
namespace {

constexpr uint32_t kHeader = sizeof(AVDataInfo);
constexpr std::chrono::milliseconds kRestartPause{100};  // many of a reader's polls

// Headers lie at any byte, so their words are copied; the fences order the copies for readers in other processes.
void StoreWord(uint8_t* place, int32_t value) {
    std::atomic_thread_fence(std::memory_order_release);
    std::memcpy(place, &value, sizeof value);
    std::atomic_thread_fence(std::memory_order_release);
}

void StoreCheckWord(uint8_t* header, int32_t value) {
    StoreWord(header + offsetof(AVDataInfo, AVDataCheck), value);
}
void StoreEndFlag(uint8_t* header, int32_t value) {
    StoreWord(header + offsetof(AVDataInfo, EndFlag), value);
}

}  // namespace

FrameRing::FrameRing(int key, uint32_t ring_size)
    : segment_(key, static_cast<int>(ring_size + kHeader), "frame ring"), ring_size_(ring_size) {
    TakeOver();
}

AVDataInfo FrameRing::HeaderAt(uint32_t position) const {
    AVDataInfo header;
    std::memcpy(&header, At(position), kHeader);
    return header;
}

// Walks the records from the ring's beginning; they end at an invalid header, where every reader that has caught up
// waits.  A new segment is all zero and ends at once.
void FrameRing::TakeOver() {
    uint32_t position = 0;
    while (position + kHeader <= ring_size_) {
        const AVDataInfo header = HeaderAt(position);
        const bool good = header.AVDataCheck == AVDATA_CHECK_WORD && header.EndFlag == AVDATA_END_FRAME &&
                          header.AVDataLen > 0 && header.AVDataLen <= static_cast<int32_t>(LargestPayload()) &&
                          (position == 0 || header.SerialNumber == serial_ + 1);
        const uint32_t next = position + kHeader + static_cast<uint32_t>(header.AVDataLen);
        if (!good || next + kHeader > ring_size_) break;
        if (position == 0) first_header_ = header;
        serial_ = header.SerialNumber;
        position = next;
    }
    write_position_ = position;
    Invalidate(position);
}

void FrameRing::Invalidate(uint32_t position) {
    StoreCheckWord(At(position), 0);
    StoreEndFlag(At(position), 0);
    if (position == 0) first_header_ = {};
}

void FrameRing::WriteMarker(AVDataEndFlag flag) {
    AVDataInfo marker{};
    marker.AVDataCheck = AVDATA_CHECK_WORD;
    marker.SerialNumber = serial_;
    marker.AVDataPos = static_cast<int32_t>(write_position_);
    std::memcpy(At(write_position_), &marker, kHeader);
    StoreEndFlag(At(write_position_), flag);
}

// A reader that meets AVDATA_END_RESTART writes that header over position 0; one that comes late would do so
// over a record that is already there.
void FrameRing::RepairFirstHeader() {
    if (first_header_.AVDataCheck == 0 || std::memcmp(At(0), &first_header_, kHeader) == 0) return;
    std::memcpy(At(0), &first_header_, kHeader);
}

std::optional<FrameRing::Place> FrameRing::Publish(const Record& record) {
    const auto length = static_cast<uint32_t>(record.payload.size());
    if (length == 0 || record.payload.size() > LargestPayload()) return std::nullopt;
    RepairFirstHeader();
    if (write_position_ + kHeader + length + kHeader > ring_size_) {
        Invalidate(0);
        WriteMarker(AVDATA_END_RING);
        write_position_ = 0;
    }
    const uint32_t position = write_position_;
    const uint32_t next = position + kHeader + length;
    Invalidate(position);
    Invalidate(next);

    AVDataInfo header{};
    header.AVDataCheck = AVDATA_CHECK_WORD;
    header.SerialNumber = serial_ + 1;
    header.AVDataLen = static_cast<int32_t>(length);
    header.AVDataPos = static_cast<int32_t>(position);
    header.AVSource = record.kind;
    header.TimeStamp = record.time_stamp;
    std::memcpy(At(position + kHeader), record.payload.data(), length);
    std::memcpy(At(position), &header, kHeader);
    StoreEndFlag(At(position), AVDATA_END_FRAME);

    header.EndFlag = AVDATA_END_FRAME;
    if (position == 0) first_header_ = header;
    serial_ = header.SerialNumber;
    if (record.key) key_position_ = position;
    write_position_ = next;
    return Place{header.SerialNumber, position};
}

void FrameRing::Restart() {
    WriteMarker(AVDATA_END_RESTART);
    first_header_ = {};
    write_position_ = 0;
    key_position_ = 0;
    std::this_thread::sleep_for(kRestartPause);
    Invalidate(0);
}

void FrameRing::Spoil(const AVDataInfo& header, View payload) {
    const size_t room = ring_size_ - write_position_ - kHeader;
    std::memcpy(At(write_position_ + kHeader), payload.data(), std::min(room, payload.size()));
    std::memcpy(At(write_position_), &header, kHeader);
}

}  // namespace desk
