#include "Hostility.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <thread>

namespace desk {
namespace {

const char* Name(Hostility::Act act) {
    static constexpr std::array<const char*, Hostility::kActs> kNames = {"bad check word",
                                                                         "negative length",
                                                                         "huge length",
                                                                         "record over the ring's end",
                                                                         "stale serial",
                                                                         "repeated serial",
                                                                         "serial far ahead",
                                                                         "never ready",
                                                                         "random header",
                                                                         "ring end in the middle",
                                                                         "restart in the middle",
                                                                         "answers late",
                                                                         "answers with wrong positions"};
    return kNames[static_cast<size_t>(act)];
}

}  // namespace

Hostility::Hostility(uint32_t seed) : random_(seed), answer_random_(seed + 1) {
    for (int i = 0; i < kRounds * kActs; ++i) script_.push_back(static_cast<Act>(i % kActs));
    std::shuffle(script_.begin(), script_.end(), random_);
}

int64_t Hostility::Between(int64_t lowest, int64_t highest) {
    return std::uniform_int_distribution<int64_t>(lowest, highest)(random_);
}

AVDataInfo Hostility::Header(Act act, const FrameRing& ring) {
    AVDataInfo header{};
    header.AVDataCheck = AVDATA_CHECK_WORD;
    header.SerialNumber = ring.LastSerial() + 1;
    header.AVDataLen = static_cast<int32_t>(Between(5, 5000));
    header.EndFlag = AVDATA_END_FRAME;
    switch (act) {
        case Act::kNegativeLength:
            header.AVDataLen = static_cast<int32_t>(Between(INT_MIN, -1));
            break;
        case Act::kHugeLength:
            header.AVDataLen = static_cast<int32_t>(Between(ring.RingSize(), INT_MAX));
            break;
        case Act::kOverRingEnd:
            header.AVDataLen = static_cast<int32_t>(ring.RingSize()) - 1;
            break;
        case Act::kStaleSerial:
            header.SerialNumber = static_cast<uint32_t>(Between(0, ring.LastSerial() / 2));
            break;
        case Act::kRepeatedSerial:
            header.SerialNumber = ring.LastSerial();
            header.AVDataLen = static_cast<int32_t>(Between(-1000, ring.RingSize() - 1));
            break;
        case Act::kFarSerial:
            header.SerialNumber += static_cast<uint32_t>(Between(31, INT_MAX));
            break;
        case Act::kNotReady:
            header.EndFlag = static_cast<int32_t>(Between(0, 252));
            break;
        case Act::kSpuriousRingEnd:
            header.EndFlag = AVDATA_END_RING;
            break;
        case Act::kSpuriousRestart:
            header.EndFlag = AVDATA_END_RESTART;
            break;
        case Act::kRandomHeader:
            for (int i = 0; i < 16; ++i) {
                const auto word = static_cast<uint32_t>(random_());
                std::memcpy(reinterpret_cast<uint8_t*>(&header) + i * 4, &word, sizeof word);
            }
            [[fallthrough]];
        case Act::kBadCheckWord:
        case Act::kSilence:
        case Act::kLies:
            header.AVDataCheck = static_cast<int32_t>(Between(0, 0x12345677));
            break;
    }
    return header;
}

void Hostility::BeforeRecord(const std::vector<FrameRing*>& rings,
                             const std::function<void(const std::string&)>& remark) {
    if (Over() || --records_to_go_ > 0) return;
    const Act act = script_.back();
    script_.pop_back();
    records_to_go_ = static_cast<int>(Between(5, 25));
    remark(std::string("hostile: ") + Name(act));

    Bytes payload(6000);
    std::ranges::generate(payload, [this] { return static_cast<uint8_t>(random_()); });
    static constexpr std::array<uint8_t, 5> kLooksLikeKey = {0, 0, 0, 1, 0x67};
    if (Between(0, 1) == 1) std::ranges::copy(kLooksLikeKey, payload.begin());
    for (FrameRing* ring : rings) ring->Spoil(Header(act, *ring), payload);
    silent_ = act == Act::kSilence;
    lying_ = act == Act::kLies;
    std::this_thread::sleep_for(std::chrono::milliseconds(Between(30, 600)));
    silent_ = lying_ = false;
    if (Over()) remark("hostile: over");
}

int Hostility::AnswerDelay_ms() {
    return silent_ ? std::uniform_int_distribution<int>(200, 800)(answer_random_) : 0;
}

uint32_t Hostility::AnswerPosition(uint32_t truth, uint32_t ring_size) {
    if (!lying_) return truth;
    const std::array<uint32_t, 7> lies = {UINT32_MAX,
                                          0x80000000U,
                                          ring_size,
                                          ring_size + 63,
                                          ring_size - 1,
                                          ring_size - 68,
                                          static_cast<uint32_t>(answer_random_()) % ring_size};
    return lies[answer_random_() % lies.size()];
}

}  // namespace desk
