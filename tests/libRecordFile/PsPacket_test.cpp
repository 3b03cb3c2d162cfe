// Packed frames against bytes worked out by hand from the standard's tables.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <numeric>
#include <vector>

#include "Bytes.h"
#include "Packed.h"
#include "support/Stderr.h"

using test::BytesOf;
using test::Frame;
using test::Hex;
using test::kStream;

namespace {

constexpr uint32_t kTime = 0x5F000000;

// What the packer must write for frame 1 of kStream: clock 3600 = 0x0E10.
const char kPack[] = "000001BA 44 00 04 70 84 01 00A003 FC 0000005F";
const char kSystem[] = "000001BB 000C 827331 04 E1 7F E0E080 C0C008";
const char kMap[] =
    "000001BC 002A E1FF 0000 0020"
    "1B E0 000C 8007 3804 0010 19 081FFEF087"
    "91 C0 000C 401F E880 0102030405050708 00000000";

// The packet header of frame 1.
std::string Packet(const char* stream_id, int payload) {
    const int length = payload + 8;
    const char bytes[] = {static_cast<char>(length >> 8), static_cast<char>(length)};
    return Hex("000001") + Hex(stream_id) + std::string(bytes, 2) + Hex("8080 05 21 0001 1C21");
}

// `length` bytes without a start code, different at every place.
std::string Payload(int length, char first = 0x65) {
    std::string bytes(static_cast<size_t>(length), '\0');
    for (int i = 0; i < length; ++i) {
        bytes[static_cast<size_t>(i)] = static_cast<char>(0x40 | ((i * 7) & 0x3F));
    }
    if (length > 0) {
        bytes[0] = first;
    }
    return bytes;
}

const std::string kStartCode = Hex("00000001");
const std::string kKeyFrameHeaders = Hex(kPack) + Hex(kSystem) + Hex(kMap);

std::string PackVideo(bool is_key, const std::string& frame) {
    return test::Pack({is_key ? Frame::kKey : Frame::kOther, frame});
}
std::string PackAudio(const std::string& payload) {
    return test::Pack({Frame::kSound, payload});
}

TEST(PsPacket, AKeyFrameIsCutAtItsFirstThreeStartCodes) {
    const std::string sps = kStartCode + Payload(20, 0x67);
    const std::string pps = kStartCode + Payload(5, 0x68);
    const std::string sei = kStartCode + Payload(9, 0x06);
    const std::string idr = kStartCode + Payload(300, 0x65);
    const std::string rest = sei + idr;
    EXPECT_EQ(PackVideo(true, sps + pps + sei + idr), kKeyFrameHeaders + Packet("E0", 24) + sps + Packet("E0", 9) +
                                                          pps + Packet("E0", static_cast<int>(rest.size())) + rest);
    EXPECT_EQ(PackVideo(true, sps + idr), kKeyFrameHeaders + Packet("E0", 24) + sps + Packet("E0", 304) + idr);
    EXPECT_EQ(PackVideo(true, idr), kKeyFrameHeaders + Packet("E0", 304) + idr);
}

TEST(PsPacket, AKeyFrameCountsOnlyStartCodesWithDataAfterThem) {
    struct {
        const char* frame;
        const char* packed;  // its first packet's payload; null: the headers alone
    } const cases[] = {
        {"", nullptr},
        {"0000", nullptr},
        {"00000001", nullptr},                         // a bare start code
        {"0000000167", "0000000167"},                  // one byte after it is enough
        {"000000010000000001", "000000010000000001"},  // a second code at the very end does not cut
        {"ff00000001", nullptr},                       // neither does it begin a piece there
        {"ffff0000000165", "0000000165"},              // what lies in front of the first is not written
        {"0000016742", nullptr},                       // three bytes are no start code here
    };
    for (const auto& c : cases) {
        const std::string payload = c.packed == nullptr ? "" : Hex(c.packed);
        const std::string packets = payload.empty() ? "" : Packet("E0", static_cast<int>(payload.size())) + payload;
        EXPECT_EQ(PackVideo(true, Hex(c.frame)), kKeyFrameHeaders + packets) << c.frame;
    }
}

TEST(PsPacket, LongPayloadsBecomeSeveralPacketsOfOneClock) {
    const std::vector<int> cases[] = {{}, {1}, {65469}, {65470}, {65470, 1}, {65470, 4530}, {65470, 65470, 65470}};
    for (const std::vector<int>& packets : cases) {
        const int length = std::accumulate(packets.begin(), packets.end(), 0);
        const std::string frame = Payload(length, 0x41);
        std::string expected = Hex(kPack);
        size_t at = 0;
        for (const int packet : packets) {
            expected += Packet("E0", packet) + frame.substr(at, static_cast<size_t>(packet));
            at += static_cast<size_t>(packet);
        }
        EXPECT_TRUE(PackVideo(false, frame) == expected) << length;
    }
    // Of a key frame, every piece by itself.
    const std::string sps = kStartCode + Payload(8, 0x67);
    const std::string idr = kStartCode + Payload(65467, 0x65);
    EXPECT_TRUE(PackVideo(true, sps + idr) == kKeyFrameHeaders + Packet("E0", 12) + sps + Packet("E0", 65470) +
                                                  idr.substr(0, 65470) + Packet("E0", 1) + idr.substr(65470));
}

using LoggedPacket = support::LoggedTest;

TEST_F(LoggedPacket, AFrameOf64KiBIsWorthALine) {
    PackVideo(false, Payload(65535));
    EXPECT_EQ(log_.Text(), "");
    PackVideo(false, Payload(65536));
    EXPECT_TRUE(Logged(" ####################################################### uiDataLen =  65536\n"));
}

TEST(PsPacket, SoundIsOnePacketWithTheNextClock) {
    const std::string payload = Payload(320);
    EXPECT_EQ(PackAudio(payload), Packet("C0", 320) + payload);
    EXPECT_EQ(PackAudio(""), Hex("000001C0 0000 8080 05 21 0001 1C21")) << "no payload has length 0";
    EXPECT_EQ(PackAudio(Payload(65527)).substr(0, 6), Hex("000001C0 FFFF"));
    // One byte more would wrap the packet's 16-bit length: nothing is written.
    char untouched = 'u';
    EXPECT_EQ(PackedAudioSize(65528), -1);
    EXPECT_EQ(libAVRecordAudioPsStreamWrite(payload.data(), 65528, &untouched, 0), -1);
    EXPECT_EQ(libAVRecordAudioPsStreamWrite(payload.data(), -1, &untouched, 0), -1);
    EXPECT_EQ(untouched, 'u');
}

TEST(PsPacket, TheMapTellsCodecsAndParameters) {
    struct {
        uint16_t video, audio;
        uint8_t video_type, audio_type;
    } const cases[] = {
        {CODE_VIDEO_H264, CODE_AUDIO_AAC, 0x1B, 0x0F},
        {CODE_VIDEO_H265, CODE_AUDIO_G711A, 0x24, 0x90},
        {CODE_VIDEO_H265, CODE_AUDIO_G711U, 0x24, 0x91},
        {0, CODE_AUDIO_PCM, 0x1B, 0},
        {0xFFFF, CODE_AUDIO_NULL, 0x1B, 0},
    };
    for (const auto& c : cases) {
        AVStreamParam stream = kStream;
        stream.m_u8VedioCodeType = c.video;
        stream.m_u8AudioCodeType = c.audio;
        stream.m_u16VedioFrame = 0x0219;  // the map holds its low byte
        std::string expected = Hex(kMap);
        expected[12] = static_cast<char>(c.video_type);
        expected[28] = static_cast<char>(c.audio_type);
        PSM_tag map;
        memset(&map, 0xEE, sizeof map);
        EXPECT_EQ(PSM_tag_Init(&map, &stream), 0);
        EXPECT_EQ(BytesOf(map), expected) << c.video << ' ' << c.audio;
    }
    EXPECT_EQ(PSM_tag_Init(nullptr, &kStream), -1);
}

TEST(PsPacket, TheClockIsThreeThousandSixHundredAFrame) {
    struct {
        uint32_t index;
        uint64_t clock;
    } const cases[] = {
        {0, 0},
        {1, 3600},
        {74565, 268434000},     // 225 * 74565 is just below 2^24: exact
        {1000001, 3600003584},  // single precision from here on
        {0xFFFFFFFF, 15461882265600 & 0x1FFFFFFFF},
    };
    for (const auto& c : cases) {
        struct {
            PS_HEADER_tag pack;
            PES_HEADER_tag packet;
            PTS_tag pts;
        } out;
        EXPECT_EQ(make_ps_packet_header(&out, c.index, 25, kTime), PS_PACK_HEADER_SIZE);
        EXPECT_EQ(make_pes_packet_header(&out.packet, c.index, AV_FRAME_TYPE_VIDEO, 25, 9), PS_PES_HEADER_SIZE);
        EXPECT_EQ(PS_HEADER_tag_GetSystem_clock_reference_base(&out.pack), c.clock) << c.index;
        EXPECT_EQ(PTS_Tag_GetPTS(&out.pts), c.clock) << c.index;
    }
}

TEST(PsPacket, FieldsAreSetAlone) {
    PS_HEADER_tag pack;
    EXPECT_EQ(PS_HEADER_tag_Init(&pack), 0);
    EXPECT_EQ(BytesOf(pack), Hex("000001BA 44 00 04 00 04 01 000003 FC 00000000"));
    PS_HEADER_tag_SetSystem_clock_reference_base(&pack, 0x1'0000'0001);
    PS_HEADER_tag_SetProgram_mux_rate(&pack, 0x200001);
    EXPECT_EQ(BytesOf(pack), Hex("000001BA 64 00 04 00 0C 01 800007 FC 00000000"));
    EXPECT_EQ(PS_HEADER_tag_GetSystem_clock_reference_base(&pack), 0x1'0000'0001u);
    EXPECT_EQ(PS_HEADER_tag_GetProgram_mux_rate(&pack), 0x200001u);

    Ps_System_Header_tag system;
    EXPECT_EQ(Ps_System_Header_tag_Init(&system), 0);
    Ps_System_Header_tag_SetRateBound(&system, 80280);
    EXPECT_EQ(Ps_System_Header_tag_GetRateBound(&system), 80280u);
    Ps_System_Header_tag_SetPstdBufSizeBound2(&system, 8);
    Ps_System_Header_tag_SetPstdBufSizeBound1(&system, 0xFFFF);  // 13 bits; scale and '11' stay
    EXPECT_EQ(BytesOf(system), Hex("000001BB 000C 827331 04 E1 7F E0FFFF C0C008"));

    PTS_tag pts;
    EXPECT_EQ(PTS_tag_Init(&pts), 0);
    PTS_Tag_SetPTS(&pts, 0x1'2345'6789);
    EXPECT_EQ(PTS_Tag_GetPTS(&pts), 0x1'2345'6789u);
    EXPECT_EQ(BytesOf(pts), Hex("29 8D15 CF13"));
}

TEST(PsPacket, WhatCannotBePackedIsRefusedUntouched) {
    char out[100];
    memset(out, 'u', sizeof out);
    const std::string untouched(out, sizeof out);
    const std::string frame = kStartCode + Payload(10);
    const int length = static_cast<int>(frame.size());
    for (const int is_key : {0, 1}) {
        EXPECT_EQ(libAVRecordVideoPsStreamWrite(is_key, nullptr, length, out, 1, &kStream, kTime), -1);
        EXPECT_EQ(libAVRecordVideoPsStreamWrite(is_key, frame.data(), length, nullptr, 1, &kStream, kTime), -1);
        EXPECT_EQ(libAVRecordVideoPsStreamWrite(is_key, frame.data(), -1, out, 1, &kStream, kTime), -1);
        EXPECT_EQ(PackedVideoSize(is_key, frame.data(), -1), -1);
    }
    EXPECT_EQ(PackedVideoSize(false, frame.data(), INT_MAX), -1) << "the packed size passes an int";
    EXPECT_EQ(libAVRecordVideoPsStreamWrite(0, frame.data(), INT_MAX, out, 1, &kStream, kTime), -1);
    EXPECT_EQ(makeIFrameHeader(frame.data(), length, out, 1, AV_FRAME_TYPE_VIDEO, nullptr, kTime), -1);
    EXPECT_EQ(libAVRecordAudioPsStreamWrite(nullptr, 0, out, 1), -1);
    EXPECT_EQ(make_pes_packet_header(out, 1, 2, 25, 10), -1);
    EXPECT_EQ(make_pes_packet_header(out, 1, AV_FRAME_TYPE_AUDIO, 25, 65528), -1);
    EXPECT_EQ(make_iframe_pes_packet(frame.data(), 0, out, 1, AV_FRAME_TYPE_VIDEO), 0);
    EXPECT_EQ(make_Pframe_pes_packet(frame.data(), 5, out, 1, 7), -1);
    EXPECT_EQ(std::string(out, sizeof out), untouched);
}

TEST(PsPacket, HeadersAloneLeaveThePayloadToTheCaller) {
    char out[PS_PACK_HEADER_SIZE + PS_PES_HEADER_SIZE];
    EXPECT_EQ(makePFrameHeader2(out, 1, AV_FRAME_TYPE_VIDEO, 1000, kTime), 32);
    EXPECT_EQ(std::string(out, 32), Hex(kPack) + Packet("E0", 1000));
    EXPECT_EQ(makeAudioFrameHeader(out, 1, AV_FRAME_TYPE_AUDIO, 1000), 14);
    EXPECT_EQ(std::string(out, 14), Packet("C0", 1000));
}

}  // namespace
