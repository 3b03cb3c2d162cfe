// Whatever happened to a card: after a repair no fewer pictures can be exported than before, every picture that
// can was recorded, and no section or day appears that was not.  What heads and key-frame records alone have lost
// comes back whole.
//
// CARD_SEED (the first, 1) and CARD_SEEDS (how many, 25) choose the damage; a failure names its seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>

#include "fixture/Folder.h"
#include "fixture/Mend.h"
#include "fixture/Plans.h"
#include "fixture/StoreBytes.h"

namespace {

using namespace fixture;
using card::Section;
using card::Volume;

constexpr uint32_t kTimeSlack = 60;  // s; a start or end that no frame tells any more
constexpr uint32_t kHeads = RECORD_SECTION_BASE + 2 * RECORD_SECTION_BLOCK;

uint32_t Setting(const char* name, uint32_t otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class Damager {
  public:
    // `heads`: only what can be made again from the stream.
    Damager(const Recording& recording, uint32_t seed, bool heads)
        : recording_(recording), generator_(seed), heads_(heads) {
        for (const WrittenFrame& frame : recording.frames) ends_[frame.file] = frame.offset + frame.size;
    }
    ~Damager() {
        for (auto change = changes_.rbegin(); change != changes_.rend(); ++change)
            recording_.Corrupt(change->file, change->offset, change->before);
    }

    void Damage() {
        for (uint32_t left = 1 + Any(4); left != 0; --left) One();
    }
    void Put(const std::string& file, uint64_t offset, const std::string& bytes) {
        changes_.push_back({file, offset, recording_.Read(file, offset, bytes.size())});
        recording_.Corrupt(file, offset, bytes);
        told_ += file + " at " + std::to_string(offset) + ": " + std::to_string(bytes.size()) + " bytes\n";
    }
    uint32_t Any(uint64_t below) { return static_cast<uint32_t>(generator_() % below); }
    const std::string& Told() const { return told_; }

  private:
    struct Change {
        std::string file;
        uint64_t offset;
        std::string before;
    };

    void Flip(const std::string& file, uint64_t offset) {
        std::string byte = recording_.Read(file, offset, 1);
        byte[0] = static_cast<char>(byte[0] ^ 1 << Any(8));
        Put(file, offset, byte);
    }

    void One() {
        const WrittenFrame& frame = recording_.frames[Any(recording_.frames.size())];
        const std::string stream = Volume::RecordFileName(frame.file);
        const uint32_t heads[] = {Any(236), FileHeadAt(Any(2)) + Any(48), SectionAt(Any(2), 1 + Any(4)) + Any(64)};
        const uint64_t key = RECORD_KEY_FRAME_BASE + Any(1000);
        std::string noise(1 + Any(Any(2) == 0 ? 8 : 8000), '\0');
        if (Any(2) == 0) {
            for (char& c : noise) c = static_cast<char>(generator_());
        }
        switch (heads_ ? 5 + Any(6) : Any(11)) {
            case 0:
                return Flip(stream, frame.offset + 14 + Any(4));  // a picture's time
            case 1:
                return Flip(stream, frame.offset + Any(frame.size));
            case 2:
                return Flip(stream, frame.offset + Any(32));
            case 3:
                return Put(stream, Any(ends_[frame.file]), noise);
            case 4:
                return Put(stream, Any(ends_[frame.file]) / 512 * 512, std::string(512 << Any(6), '\0'));
            case 5:
                return Flip(RECORD_INDEX_NAME, heads[Any(3)]);
            case 6:
                return Flip(stream, key);
            case 7:
                return Put(RECORD_INDEX_NAME, heads[Any(3)], noise.substr(0, heads_ ? noise.npos : 1 + Any(64)));
            case 8:
                return Put(RECORD_INDEX_NAME, FileHeadAt(Any(2)), std::string(48, '\0'));
            case 9:
                return Put(RECORD_INDEX_NAME, SectionAt(Any(2), 1 + Any(4)), std::string(64, '\0'));
            default:
                return Put(stream, key, noise);
        }
    }

    const Recording& recording_;
    std::mt19937 generator_;
    bool heads_;
    std::map<uint32_t, uint32_t> ends_;
    std::vector<Change> changes_;
    std::string told_;
};

class RepairProperty : public testing::Test {
  protected:
    void Record(const Card& card) {
        recording_ = card.RecordFolder(place_);
        intact_.emplace(recording_, 2);
        pristine_ = Show(place_);
        EXPECT_EQ(Listed(Check(place_)), "");
        for (const WrittenFrame& frame : recording_.frames) written_.emplace(frame.file, frame.offset);
    }

    // Every second damage leaves the stream alone.
    void LoseNothing(const Card& card, uint32_t seeds) {
        Record(card);
        const uint32_t first = Setting("CARD_SEED", 1);
        for (uint32_t seed = first; seed < first + seeds && !HasFailure(); ++seed) {
            const bool heads = seed % 2 == 0;
            Damager damager(recording_, seed, heads);
            damager.Damage();
            SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + damager.Told());
            const Shown before = Show(place_);
            Mend(place_);
            const Shown after = Show(place_);
            EXPECT_GE(after.pictures.size(), before.pictures.size());
            if (heads) {
                EXPECT_EQ(after.pictures, pristine_.pictures);
                EXPECT_EQ(after.bytes, pristine_.bytes) << "sound, too";
                EXPECT_EQ(card::Errors(Check(place_)), 0u) << Listed(Check(place_));
            }
            ExpectRecorded(after);
            intact_->PutBack();
        }
    }

    void ExpectRecorded(const Shown& shown) const {
        for (const auto& [file, offset] : shown.pictures)
            ASSERT_TRUE(written_.contains({file, offset})) << "file " << file << " at " << offset;
        for (const Section& section : shown.sections) {
            const auto holds = [&](const WrittenSection& written) {
                return written.file == section.file && written.start <= section.Start() + kTimeSlack &&
                       section.End() <= written.end + kTimeSlack && section.Start() <= section.End();
            };
            EXPECT_TRUE(std::ranges::any_of(recording_.sections, holds))
                << "section " << section.file << ":" << section.number << " from " << section.Start() << " to "
                << section.End();
        }
    }

    const Place place_;
    Recording recording_;
    std::optional<StoreBytes> intact_;
    Shown pristine_;
    std::set<std::pair<uint32_t, uint32_t>> written_;  // frames: file and offset
};

TEST_F(RepairProperty, ADayLosesNothing) {
    LoseNothing(kDay, Setting("CARD_SEEDS", 25));
}

TEST_F(RepairProperty, ARingLosesNothing) {
    LoseNothing(kRing, std::max(1u, Setting("CARD_SEEDS", 25) / 5));
}

// The index gone, and a stretch of the stream: all that can be decoded beside it is in a section again.
TEST_F(RepairProperty, ADamagedStreamGivesWhatIsLeftOfIt) {
    Record(kDay);
    const uint32_t end = recording_.frames.back().offset;
    const uint32_t first = Setting("CARD_SEED", 1);
    for (uint32_t seed = first; seed < first + Setting("CARD_SEEDS", 25) / 2; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Damager damager(recording_, seed, false);
        const uint32_t length = 512 << damager.Any(6);
        const uint32_t offset = damager.Any(end - length) / 512 * 512;
        damager.Put("hi000000.mp4", offset, std::string(length, '\0'));
        damager.Put(RECORD_INDEX_NAME, 0, std::string(kHeads, '\0'));
        Mend(place_);
        const std::vector<Section> sections = Show(place_).sections;
        bool decodable = false;
        for (const WrittenFrame& frame : recording_.frames) {
            const bool hit = frame.offset < offset + length && frame.offset + frame.size > offset;
            if (frame.first_of_run) decodable = false;  // until its key frame has been seen
            decodable = (decodable || frame.key) && !(hit && frame.first_of_run);
            if (hit || !decodable) continue;
            const auto holds = [&](const Section& section) {  // sound has no time of its own
                return section.Begin() <= frame.offset && frame.offset + frame.size <= section.Limit() &&
                       (!frame.video || (section.Start() <= frame.time && frame.time <= section.End() + 1));
            };
            EXPECT_TRUE(std::ranges::any_of(sections, holds))
                << "frame at " << frame.offset << ", damage at " << offset << " of " << length;
        }
        for (const card::Finding& left : Check(place_)) {
            const bool of_stream =
                left.kind == "stream-damaged" || left.kind == "stream-foreign" || left.kind == "section-begin";
            EXPECT_TRUE(of_stream || left.level == card::Finding::Level::Remark) << left.kind << ": " << left.what;
        }
        intact_->PutBack();
    }
}

}  // namespace
