// Frames written by the packer and read back, and the reader on bytes that nobody packed.
#include <gmock/gmock.h>

#include <memory>
#include <numeric>
#include <optional>
#include <vector>

#include "Bytes.h"
#include "Packed.h"
#include "support/MemoryFile.h"
#include "support/Stderr.h"

using support::MemoryFile;
using test::Frame;
using test::Hex;
using test::Pack;

namespace {

struct Played {
    int kind;
    std::string payload;
    uint32_t time = 0;
    uint32_t pts;
};

// A record file and the place a player has reached in it.
class Player {
  public:
    MemoryFile file;
    uint32_t offset = 0;

    void Append(std::string_view bytes) { file.Put(file.Size(), bytes); }

    std::optional<Played> Next() {
        Played played;
        uint32_t length = 0;
        if (libAVRecordPlayBackGetPSFrame(file.fd(), &offset, &played.kind, buffer_.get(), &length, &played.time,
                                          &played.pts) != 0) {
            return std::nullopt;
        }
        played.payload.assign(buffer_.get(), length);
        return played;
    }

    // What the reader says about a file of these bytes.
    static std::string Refusal(std::string_view bytes) {
        Player player;
        player.Append(bytes);
        support::Captured out;
        LogInit(nullptr, LOG_MODE_ALL);
        EXPECT_FALSE(player.Next()) << bytes.substr(0, 40);
        LogCleanup();
        return out.Text();
    }

  private:
    // Of exactly the size the header asks for: a sanitizer sees the first byte after it.
    std::unique_ptr<char[]> buffer_{new char[PLAYBACK_BUFFER_SIZE]};
};

std::string Payload(bool is_key, int length) {
    std::string bytes = Hex(is_key ? "00000001 67 42001E 00000001 68 CE3C80 00000001 65" : "00000001 41");
    bytes.resize(static_cast<size_t>(length), 'p');
    return bytes;
}

TEST(PlayBack, GivesBackWhatWasPacked) {
    std::vector<Frame> frames;
    uint32_t index = 0;
    for (const int length : {17, 100, 65469 + 16, 65470 + 16, 65471 + 16, 2 * 65470 + 16, 2 * 65470 + 17, 400000}) {
        frames.push_back({Frame::kKey, Payload(true, length), 0x5F000000 + index, ++index});
        frames.push_back({Frame::kSound, std::string(static_cast<size_t>(index), 's'), 0, index + 1});
        frames.push_back({Frame::kOther, Payload(false, length), 0x80000000 + index, ++index});
    }
    frames.push_back({Frame::kSound, std::string(65527, 's'), 0, 74565});
    frames.push_back({Frame::kKey, Payload(true, 4), 8, ++index});  // the headers alone
    Player player;
    for (const Frame& frame : frames) {
        player.Append(Pack(frame));
    }
    for (const Frame& frame : frames) {
        const uint64_t end = player.offset + Pack(frame).size();
        const auto played = player.Next();
        ASSERT_TRUE(played) << frame.index;
        EXPECT_EQ(player.offset, end) << frame.index;
        const bool is_sound = frame.kind == Frame::kSound, is_bare = frame.payload.size() == 4;
        EXPECT_EQ(played->kind, is_sound ? AV_FRAME_TYPE_AUDIO : AV_FRAME_TYPE_VIDEO) << frame.index;
        EXPECT_TRUE(played->payload == (is_bare ? "" : frame.payload)) << frame.index;
        EXPECT_EQ(played->pts, is_bare ? 0 : static_cast<uint32_t>(uint64_t{3600} * frame.index)) << frame.index;
        EXPECT_EQ(played->time, frame.time) << frame.index;
    }
    EXPECT_FALSE(player.Next()) << "after the last frame";
}

TEST(PlayBack, SaysWhyItStops) {
    const std::string pack = Pack({Frame::kOther, ""});
    const std::string packet = Hex("000001E0 0007 8080 05 21 0001 0001");
    const std::string fill(200, '\0');
    struct {
        std::string bytes;
        const char* text;
    } const cases[] = {
        {"short", " Read Data Error FileOffset = 0 \n"},
        {Hex("494D4B48") + fill, " :pack_start_code Error FileOffset = 0 \n"},
        {fill, " :pack_start_code Error FileOffset = 0 \n"},
        {Hex("000001BB") + fill, " : data error \n"},
        {Hex("000001E0") + fill, " : data error \n"},
        {pack + Hex("000001C0") + fill, " Read Data Error databuf = 0 0 0x1 0xc0 !!!!\n"},
        {pack + fill, " AV_RecordStreamInfoRead System Head Fail \n"},
        {pack + packet + fill, " : lenth -1 error!\n"},
        {Hex("000001C0 0000") + packet.substr(6) + fill, " : lenth -8 error!\n"},
        {Hex("000001C0 1000") + packet.substr(6) + fill, " Read data error  Offset = 14 offset = 14 \n"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(Player::Refusal(c.bytes), testing::EndsWith(c.text)) << c.bytes.substr(0, 40);
    }
}

// A frame of packets with so many bytes each.
std::string LongFrame(bool is_key, const std::vector<int>& packets) {
    std::string bytes = Pack(is_key ? Frame{Frame::kKey, Payload(true, 4)} : Frame{Frame::kOther, ""});
    for (const int payload : packets) {
        char header[PS_PES_HEADER_SIZE];
        EXPECT_EQ(make_pes_packet_header(header, 1, AV_FRAME_TYPE_VIDEO, 25, payload), PS_PES_HEADER_SIZE);
        bytes.append(header, sizeof header).append(static_cast<size_t>(payload), 'p');
    }
    return bytes + std::string(100, '\0');
}

TEST(PlayBack, NeverGathersMoreThanTheBuffer) {
    constexpr int kToTheLimit = PLAYBACK_GATHER_MAX - 6 * 65470;
    struct Case {
        int full_packets;
        std::vector<int> then;
        bool key_fits, other_fits;
    };
    for (const Case& c : {Case{6, {65470}, true, true}, Case{6, {65527}, true, true}, Case{7, {1}, false, true},
                          Case{7, {2444}, false, true}, Case{7, {2445}, false, false}, Case{400, {1}, false, false},
                          Case{6, {kToTheLimit, 65470}, true, true}, Case{6, {kToTheLimit, 65471}, false, false}}) {
        std::vector<int> packets(static_cast<size_t>(c.full_packets), 65470);
        packets.insert(packets.end(), c.then.begin(), c.then.end());
        for (const bool is_key : {true, false}) {
            Player player;
            player.Append(LongFrame(is_key, packets));
            const auto played = player.Next();
            EXPECT_EQ(played.has_value(), is_key ? c.key_fits : c.other_fits) << c.full_packets << ' ' << c.then[0];
            const int length = std::accumulate(packets.begin(), packets.end(), 0);
            EXPECT_TRUE(!played || played->payload.size() == static_cast<size_t>(length));
        }
    }
}

TEST(PlayBack, RefusesPlacesAndPointersItCannotServe) {
    Player player;
    player.file.Resize(uint64_t{1} << 32);
    for (const uint32_t offset : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        player.offset = offset;
        EXPECT_FALSE(player.Next()) << offset;
    }
    const std::string frame = Pack({Frame::kOther, Payload(false, 30)});
    player.file.Put(0x7FFFFFF0, frame);  // it would end where no call could read on
    player.offset = 0x7FFFFFF0;
    EXPECT_FALSE(player.Next());

    char buffer[100];
    int kind = 0;
    uint32_t offset = 0, length = 0, time = 0, pts = 0;
    EXPECT_EQ(libAVRecordPlayBackGetPSFrame(player.file.fd(), nullptr, &kind, buffer, &length, &time, &pts), -1);
    EXPECT_EQ(libAVRecordPlayBackGetPSFrame(player.file.fd(), &offset, &kind, nullptr, &length, &time, &pts), -1);
}

}  // namespace
