// What a recorder writes at the edges of its rules is in order, however odd it looks.
#include <gtest/gtest.h>

#include <optional>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "fixture/Mend.h"
#include "fixture/StoreWriter.h"

namespace {

constexpr uint32_t kStart = 1772352000;  // s since 1970 UTC
const std::string kKey("\0\0\0\1\x67\x42\x00\x1f\0\0\0\1\x68\xce\0\0\0\1\x65\x88\x84", 22);
const std::string kDelta("\0\0\0\1\x41\x9a\x24", 7);

class CheckEdges : public testing::Test {
  protected:
    CheckEdges() {
        fixture::Card{.files = 2}.RecordFolder(place_);
        writer_.emplace(place_);
        writer_->BeginSection(kStart, fixture::ParametersOf({}));
        writer_->Video(kKey, true, false, kStart);
    }

    std::string Findings() {
        writer_->EndSection();
        return fixture::Listed(fixture::Check(place_));
    }

    const fixture::Place place_;
    std::optional<fixture::StoreWriter> writer_;
};

TEST_F(CheckEdges, AfterTheLimitEverythingCountsButTheLengths) {
    const std::string large = kDelta + std::string(600000, 'x');
    while (!writer_->FileFull()) writer_->Video(large, false, false, kStart + 1);
    writer_->Video(kKey, true, false, kStart + 2);
    writer_->Audio(std::string(320, 's'), kStart + 2);
    writer_->Video(kDelta, false, false, kStart + 3);
    EXPECT_EQ(Findings(), "");
}

TEST_F(CheckEdges, SoundFarAheadOfThePicture) {
    for (const uint32_t ahead : {1, 5, 10, 60}) writer_->Audio(std::string(320, 's'), kStart + 1, ahead);
    writer_->Video(kDelta, false, false, kStart + 1);
    EXPECT_EQ(Findings(), "");
}

TEST_F(CheckEdges, UnitsThatHoldNothingAreARemark) {
    writer_->Video(std::string("\0\0\0\1", 4), false, false, kStart + 1);
    writer_->Video("", false, false, kStart + 1);
    writer_->Audio("", kStart + 1);
    writer_->Video(kDelta, false, false, kStart + 1);
    EXPECT_EQ(Findings(), "remark frames-bare: 3 frames of section 0:1 hold no picture and no sound\n");
}

}  // namespace
