// The rings and queues of the media server, seen by a reader that follows their rules.
#include <random>

#include "MediaServer.h"
#include "Support.h"
#include "libAVServerAccess.h"

using namespace desk;
using namespace desk_test;

namespace {

constexpr key_t kKeys[] = {0x61766C79, 0x61766C7A};
constexpr uint32_t kSizes[] = {614400, 131072};

AccessUnit Unit(size_t length, bool key, uint32_t seed = 1) {
    std::mt19937 random(seed);
    AccessUnit unit{Bytes(length), key};
    for (uint8_t& byte : unit.bytes) byte = static_cast<uint8_t>(random());
    const uint8_t head[] = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x67 : 0x41)};
    std::copy(std::begin(head), std::end(head), unit.bytes.begin());
    return unit;
}

class MediaServerTest : public testing::Test {
  protected:
    MediaServerTest() { AVServerAccessCleanup(); }  // the client may hold an earlier camera's queue

    void Publish(int stream, const AccessUnit& unit) {
        const auto turn = media_.BeginFrame(stream);
        media_.PublishVideo(stream, unit, 0);
    }

    Journal journal_;
    MediaServer media_{journal_, nullptr};
};

TEST_F(MediaServerTest, AFrameTooLargeIsDroppedAndSoIsAllUpToTheNextKeyFrame) {
    RingReader reader(kKeys[1], kSizes[1], 1);
    Publish(1, Unit(100, false));  // nobody could decode it
    Publish(1, Unit(100, true, 1));
    Publish(1, Unit(kSizes[1], false));
    Publish(1, Unit(100, false));
    Publish(1, Unit(kSizes[1] - 2000, true, 2));
    EXPECT_EQ(media_.Dropped(1), 3U);
    EXPECT_EQ(reader.Next()->payload, Unit(100, true, 1).bytes);
    EXPECT_EQ(reader.Next()->payload, Unit(kSizes[1] - 2000, true, 2).bytes);
}

TEST_F(MediaServerTest, ARestartSendsReadersToTheBeginning) {
    RingReader reader(kKeys[0], kSizes[0], 0);
    Publish(0, Unit(1000, true));
    Publish(0, Unit(1000, false));
    ASSERT_TRUE(reader.Next() && reader.Next());
    EXPECT_EQ(AVServerVideoRestart(AVACCESS_1ST_STREAM), 0);
    EXPECT_TRUE(media_.BeginFrame(0).key_wanted);
    Publish(0, Unit(500, true));
    const auto frame = reader.Next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(reader.restarts, 1);
    EXPECT_EQ(frame->header.SerialNumber, 3U);
    EXPECT_EQ(frame->header.AVDataPos, 0);
}

TEST_F(MediaServerTest, AnswersPositionsAndRefusesWhatItDoesNotKnow) {
    RingReader reader(kKeys[0], kSizes[0], 0);
    Publish(0, Unit(1000, true));
    Publish(0, Unit(2000, false));
    Publish(0, Unit(3000, true));
    Publish(0, Unit(4000, false));
    EXPECT_EQ(reader.Ask(0x2001), 4 * 64 + 10000U);
    reader.GoTo(reader.Ask(0x2002));
    EXPECT_EQ(reader.Next()->payload.size(), 3000U);
    EXPECT_EQ(reader.Ask(0x2003), 2 * 64 + 3000U);

    int32_t result = -1;
    reader.Ask(0x1001, &result);
    EXPECT_EQ(result, 0);
    reader.Ask(0x7777, &result);
    EXPECT_EQ(result, 101);
    RingReader(kKeys[0], kSizes[0], 2).Ask(0x2001, &result);
    EXPECT_EQ(result, 102);
    EXPECT_EQ(AVServerVideoForceIFrame(AVACCESS_3RD_STREAM), 102);
    EXPECT_EQ(AVServerSetBrightness(), 0);
}

}  // namespace
