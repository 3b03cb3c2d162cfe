// Whatever happened to a card: after a repair no fewer pictures can be exported than before, every picture that
// can was recorded, and no section or day appears that was not.
//
// CARD_SEED (the first, 1) and CARD_SEEDS (how many, 25) choose the damage; a failure names its seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "clip/Clip.h"
#include "fixture/CardFixture.h"
#include "fixture/Mend.h"
#include "fixture/Place.h"
#include "fixture/StoreBytes.h"
#include "text/Error.h"

namespace {

using card::CardIndex;
using card::Device;
using card::Volume;
using fixture::Card;
using fixture::Mend;
using fixture::Place;
using fixture::Recording;
using fixture::WrittenFrame;

constexpr uint32_t kTimeSlack = 60;  // s; a start or end that no frame tells any more

const Card kDay{.files = 2,
                .sections = {{.seconds = 20, .rate = 5},
                             {.seconds = 10, .pause = 90, .rate = 5, .audio = CODE_AUDIO_AAC},
                             {.seconds = 8, .pause = 1, .rate = 10, .audio = CODE_AUDIO_NULL},
                             {.seconds = 6, .pause = 70000, .rate = 10}},
                .events = {{.after = 5, .seconds = 5}, {.after = 112, .seconds = 2, .type = 4}}};
// Once round and a bit: file 0 holds the beginning of the second lap, and after it the end of the first.
const Card kRing{.files = 2,
                 .sections = {{.seconds = 30, .frame_bytes = 600000},
                              {.seconds = 5, .pause = 30, .frame_bytes = 600000},
                              {.seconds = 4, .pause = 3, .frame_bytes = 600000}},
                 .keep_units = false};

uint32_t Setting(const char* name, uint32_t otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

struct Shown {
    std::set<std::pair<uint32_t, uint32_t>> pictures;  // file and offset
    std::vector<card::Section> sections;
};

// What an export of everything takes out; nothing when the card cannot be read.
Shown Show(const std::string& path) {
    Shown shown;
    try {
        const Volume volume = Volume::Open(path);
        const CardIndex index(volume);
        shown.sections = index.Sections();
        for (const card::Stretch& stretch : SelectAll(index).stretches) {
            const uint32_t file = index.Sections()[stretch.section].file;
            for (const card::ClipFrame& frame : card::ClipReader(index, stretch).List([](uint64_t) {}).frames) {
                if (frame.video) shown.pictures.emplace(file, static_cast<uint32_t>(frame.offset));
            }
        }
    } catch (const card::CardError&) {
    }
    return shown;
}

class Damager {
  public:
    Damager(const Recording& recording, uint32_t seed) : recording_(recording), generator_(seed) {
        for (const WrittenFrame& frame : recording.frames) ends_[frame.file] = frame.offset + frame.size;
    }
    ~Damager() {
        for (auto change = changes_.rbegin(); change != changes_.rend(); ++change)
            recording_.Corrupt(change->file, change->offset, change->before);
    }

    void Damage() {
        for (uint32_t left = 1 + Any(4); left != 0; --left) One();
    }
    const std::string& Told() const { return told_; }

  private:
    struct Change {
        std::string file;
        uint64_t offset;
        std::string before;
    };

    uint32_t Any(uint64_t below) { return static_cast<uint32_t>(generator_() % below); }

    void Put(const std::string& file, uint64_t offset, const std::string& bytes) {
        changes_.push_back({file, offset, recording_.Read(file, offset, bytes.size())});
        recording_.Corrupt(file, offset, bytes);
        told_ += file + " at " + std::to_string(offset) + ": " + std::to_string(bytes.size()) + " bytes\n";
    }

    void Flip(const std::string& file, uint64_t offset) {
        std::string byte = recording_.Read(file, offset, 1);
        byte[0] = static_cast<char>(byte[0] ^ 1 << Any(8));
        Put(file, offset, byte);
    }

    void One() {
        const WrittenFrame& frame = recording_.frames[Any(recording_.frames.size())];
        const std::string stream = Volume::RecordFileName(frame.file);
        const uint32_t heads[] = {Any(236), fixture::FileHeadAt(Any(2)) + Any(48),
                                  fixture::SectionAt(Any(2), 1 + Any(4)) + Any(64)};
        const uint64_t key = RECORD_KEY_FRAME_BASE + Any(1000);
        std::string noise(1 + Any(Any(2) == 0 ? 8 : 8000), '\0');
        if (Any(2) == 0) {
            for (char& c : noise) c = static_cast<char>(generator_());
        }
        switch (Any(11)) {
            case 0:
                return Flip(stream, frame.offset + 14 + Any(4));  // a picture's time
            case 1:
                return Flip(stream, frame.offset + Any(frame.size));
            case 2:
                return Flip(stream, frame.offset + Any(32));
            case 3:
                return Flip(RECORD_INDEX_NAME, heads[Any(3)]);
            case 4:
                return Flip(stream, key);
            case 5:
                return Put(stream, Any(ends_[frame.file]), noise);
            case 6:
                return Put(stream, Any(ends_[frame.file]) / 512 * 512, std::string(512 << Any(6), '\0'));
            case 7:
                return Put(RECORD_INDEX_NAME, heads[Any(3)], noise.substr(0, 1 + Any(64)));
            case 8:
                return Put(RECORD_INDEX_NAME, fixture::FileHeadAt(Any(2)), std::string(48, '\0'));
            case 9:
                return Put(RECORD_INDEX_NAME, fixture::SectionAt(Any(2), 1 + Any(4)), std::string(64, '\0'));
            default:
                return Put(stream, key, noise);
        }
    }

    const Recording& recording_;
    std::mt19937 generator_;
    std::map<uint32_t, uint32_t> ends_;
    std::vector<Change> changes_;
    std::string told_;
};

class Judge {
  public:
    explicit Judge(const Recording& recording) : recording_(recording) {
        for (const WrittenFrame& frame : recording.frames) written_.emplace(frame.file, frame.offset);
    }

    void Compare(const Shown& before, const Shown& after) const {
        EXPECT_GE(after.pictures.size(), before.pictures.size());
        for (const auto& picture : after.pictures) {
            ASSERT_TRUE(written_.count(picture) != 0) << "file " << picture.first << " at " << picture.second;
        }
        for (const card::Section& section : after.sections) {
            const bool recorded =
                std::any_of(recording_.sections.begin(), recording_.sections.end(), [&](const auto& written) {
                    return written.file == section.file && written.start <= section.Start() + kTimeSlack &&
                           section.End() <= written.end + kTimeSlack && section.Start() <= section.End();
                });
            EXPECT_TRUE(recorded) << "section " << section.file << ":" << section.number << " from " << section.Start()
                                  << " to " << section.End();
        }
    }

  private:
    const Recording& recording_;
    std::set<std::pair<uint32_t, uint32_t>> written_;
};

void LoseNothing(const Card& card, uint32_t seeds) {
    const Place place;
    const Recording recording = card.RecordFolder(place);
    const fixture::StoreBytes pristine(recording, 2);
    const Judge judge(recording);
    const uint32_t first = Setting("CARD_SEED", 1);
    for (uint32_t seed = first; seed < first + seeds && !testing::Test::HasFailure(); ++seed) {
        Damager damager(recording, seed);
        damager.Damage();
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + damager.Told());
        const Shown before = Show(place);
        Mend(place);
        judge.Compare(before, Show(place));
        pristine.PutBack();
    }
}

TEST(RepairProperty, ADayLosesNothing) {
    LoseNothing(kDay, Setting("CARD_SEEDS", 25));
}

TEST(RepairProperty, ARingLosesNothing) {
    LoseNothing(kRing, std::max(1u, Setting("CARD_SEEDS", 25) / 10));
}

}  // namespace
