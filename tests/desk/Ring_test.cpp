// What the media server puts into its rings, and what it answers.
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <cstring>

#include "MediaServer.h"
#include "libAVServerAccess.h"

using namespace desk;

namespace {

constexpr size_t kSecondRing = 131072;  // bytes

AccessUnit Unit(size_t length, bool key) {
    AccessUnit unit{Bytes(length, key ? 'k' : 'd'), key};
    const uint8_t head[] = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x67 : 0x41)};
    std::copy(std::begin(head), std::end(head), unit.bytes.begin());
    return unit;
}

struct Record {
    AVDataInfo header;
    Bytes payload;
};

class MediaServerTest : public testing::Test {
  protected:
    MediaServerTest() { AVServerAccessCleanup(); }  // the client may hold an earlier camera's queue

    void Publish(int stream, const AccessUnit& unit) {
        const auto turn = media_.BeginFrame(stream);
        media_.PublishVideo(stream, unit, 0);
    }
    // What a client finds at that place.
    static Record At(int stream, uint32_t position) {
        const int id = shmget(0x61766C79 + stream, 0, 0);
        const auto* const ring = static_cast<const uint8_t*>(shmat(id, nullptr, SHM_RDONLY));
        Record record{};
        std::memcpy(&record.header, ring + position, 64);
        EXPECT_EQ(record.header.AVDataCheck, 0x12345678);
        record.payload.assign(ring + position + 64, ring + position + 64 + record.header.AVDataLen);
        shmdt(ring);
        return record;
    }
    AVMsgBuf Answer(int command, int stream = 0) {
        AVMsgBuf request{};
        request.cmd = command;
        request.video_index = stream;
        return media_.Answer(request);
    }

    Journal journal_;
    MediaServer media_{journal_, nullptr};
};

TEST_F(MediaServerTest, AFrameTooLargeIsDroppedAndSoIsAllUpToTheNextKeyFrame) {
    Publish(1, Unit(100, false));  // nobody could decode it
    Publish(1, Unit(100, true));
    Publish(1, Unit(kSecondRing, false));
    Publish(1, Unit(100, false));
    Publish(1, Unit(kSecondRing - 2000, true));
    EXPECT_EQ(media_.Dropped(1), 3U);
    EXPECT_EQ(At(1, 0).payload, Unit(100, true).bytes);
    EXPECT_EQ(At(1, 164).payload, Unit(kSecondRing - 2000, true).bytes);
    Publish(1, Unit(5000, false));
    EXPECT_EQ(At(1, 164 + 64 + kSecondRing - 2000).header.EndFlag, 255) << "the ring's end";
    EXPECT_EQ(At(1, 0).payload, Unit(5000, false).bytes);
}

TEST_F(MediaServerTest, ARestartSendsReadersToTheBeginning) {
    Publish(0, Unit(1000, true));
    Publish(0, Unit(1000, false));
    EXPECT_EQ(AVServerVideoRestart(AVACCESS_1ST_STREAM), 0);
    EXPECT_TRUE(media_.BeginFrame(0).key_wanted);
    Publish(0, Unit(500, true));
    EXPECT_EQ(At(0, 2 * 1064).header.EndFlag, 253);
    const Record first = At(0, 0);
    EXPECT_EQ(first.payload, Unit(500, true).bytes);
    EXPECT_EQ(first.header.EndFlag, 254);
    EXPECT_EQ(first.header.SerialNumber, 3U);
    EXPECT_EQ(first.header.AVDataPos, 0);
}

TEST_F(MediaServerTest, AnswersPositionsAndRefusesWhatItDoesNotKnow) {
    Publish(0, Unit(1000, true));
    Publish(0, Unit(2000, false));
    Publish(0, Unit(3000, true));
    Publish(0, Unit(4000, false));
    EXPECT_EQ(Answer(0x2001).video_pos, 4 * 64 + 10000U);
    EXPECT_EQ(Answer(0x2002).video_pos, 2 * 64 + 3000U);
    EXPECT_EQ(Answer(0x2003).video_pos, 2 * 64 + 3000U);
    EXPECT_EQ(Answer(0x1001).msg_ret, 0);
    EXPECT_EQ(Answer(0x7777).msg_ret, 101);
    EXPECT_EQ(Answer(0x2001, 2).msg_ret, 102);
    EXPECT_EQ(AVServerVideoForceIFrame(AVACCESS_3RD_STREAM), 102);
    EXPECT_EQ(AVServerSetBrightness(), 0);
}

}  // namespace
