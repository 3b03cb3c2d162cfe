// The bytes of a store that a repair may change: kept, compared and put back.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "CardFixture.h"
#include "Volume.h"
#include "libRecordFile.h"

namespace fixture {

class StoreBytes {
  public:
    StoreBytes(const Recording& recording, uint32_t files) : recording_(&recording) {
        Keep(RECORD_INDEX_NAME, 0, RECORD_SECTION_BASE + files * RECORD_SECTION_BLOCK);
        Keep(RECORD_EVENT_NAME, 0, (files + 8) * ALARM_EVENT_BLOCK);
        for (uint32_t file = 0; file < files; ++file) {
            Keep(card::Volume::RecordFileName(file), RECORD_KEY_FRAME_BASE, 64 << 10);
        }
    }

    void PutBack() const {
        for (const auto& [place, bytes] : kept_) recording_->Corrupt(place.first, place.second, bytes);
    }

    // First byte that has changed, "" when none has; events only when asked.
    std::string Difference(bool events = true) const {
        for (const auto& [place, bytes] : kept_) {
            if (!events && place.first == RECORD_EVENT_NAME) continue;
            const std::string now = recording_->Read(place.first, place.second, bytes.size());
            for (size_t i = 0; i < bytes.size(); ++i) {
                if (now.size() <= i || now[i] != bytes[i])
                    return place.first + " at " + std::to_string(place.second + i);
            }
        }
        return "";
    }

  private:
    void Keep(const std::string& file, uint64_t offset, size_t length) {
        kept_[{file, offset}] = recording_->Read(file, offset, length);
    }

    const Recording* recording_;
    std::map<std::pair<std::string, uint64_t>, std::string> kept_;
};

// A number as it lies on the card.
inline std::string Word(uint32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}
inline uint32_t FileHeadAt(uint32_t file) {
    return RECORD_FILE_HEAD_BASE + file * sizeof(RecordFileInfoHead_S);
}
inline uint32_t SectionAt(uint32_t file, uint32_t section) {
    return RECORD_SECTION_BASE + file * RECORD_SECTION_BLOCK + section * sizeof(RecordInfoHead_S);
}

}  // namespace fixture
