// A record file's stream as a player outside sees it: FFmpeg encodes, we pack, FFmpeg's demuxer takes it
// apart again, and its decoder must not tell the difference.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "desk/Ffmpeg.h"
#include "libRecordFile.h"

using desk::Owned;
using desk::Packet;
using desk::Require;
using desk::RequireObject;

namespace {

constexpr int kFrames = 16;
constexpr int kKeyInterval = 8;
constexpr int kSoundSamples = 320;  // a packet of sound per picture: 40 ms at 8 kHz
constexpr char kPath[] = "/tmp/hi000000.mp4";

struct Plan {
    const char* encoder;
    AVCodeType video;
    AVCodecID video_id;
    AVCodeType audio;
    AVCodecID audio_id;
    int width, height;
    const char* quantizer;  // small: frames of several packets
};

constexpr Plan kPlans[] = {
    {"libx264", CODE_VIDEO_H264, AV_CODEC_ID_H264, CODE_AUDIO_G711U, AV_CODEC_ID_PCM_MULAW, 352, 288, "30"},
    {"libx264", CODE_VIDEO_H264, AV_CODEC_ID_H264, CODE_AUDIO_G711A, AV_CODEC_ID_PCM_ALAW, 704, 576, "24"},
    {"libx265", CODE_VIDEO_H265, AV_CODEC_ID_HEVC, CODE_AUDIO_G711A, AV_CODEC_ID_PCM_ALAW, 352, 288, "30"},
    {"libx265", CODE_VIDEO_H265, AV_CODEC_ID_HEVC, CODE_AUDIO_G711U, AV_CODEC_ID_PCM_MULAW, 704, 576, "24"},
};

struct Unit {
    std::string bytes;  // access unit, Annex B
    bool is_key = false;
};

// ---- the camera's side

desk::Frame NoisePicture(const Plan& plan, std::mt19937& random, int number) {
    desk::Frame picture(RequireObject(av_frame_alloc(), "picture"));
    picture->format = AV_PIX_FMT_YUV420P;
    picture->width = plan.width;
    picture->height = plan.height;
    picture->pts = number;
    Require(av_frame_get_buffer(picture.get(), 0), "picture");
    for (int plane = 0; plane < 3; ++plane) {
        const int height = plane == 0 ? plan.height : plan.height / 2;
        uint8_t* const data = picture->data[plane];
        for (int i = 0; i < height * picture->linesize[plane]; ++i) {
            data[i] = static_cast<uint8_t>(i / 64 + number * 3 + static_cast<int>(random() % 32));
        }
    }
    return picture;
}

Owned<AVCodecContext> OpenEncoder(const Plan& plan) {
    const AVCodec* codec = RequireObject(avcodec_find_encoder_by_name(plan.encoder), plan.encoder);
    Owned<AVCodecContext> encoder(RequireObject(avcodec_alloc_context3(codec), plan.encoder));
    encoder->width = plan.width;
    encoder->height = plan.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, 25};
    encoder->gop_size = kKeyInterval;
    encoder->max_b_frames = 0;
    encoder->thread_count = 1;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", "ultrafast", 0);
    av_dict_set(&options, "tune", "zerolatency", 0);
    const std::string x265 = std::string("log-level=none:qp=") + plan.quantizer;
    av_dict_set(&options, "x265-params", x265.c_str(), 0);
    av_dict_set(&options, "qp", plan.quantizer, 0);
    const int opened = avcodec_open2(encoder.get(), codec, &options);
    av_dict_free(&options);
    Require(opened, plan.encoder);
    return encoder;
}

std::vector<Unit> EncodeVideo(const Plan& plan) {
    const auto encoder = OpenEncoder(plan);
    const Packet packet(RequireObject(av_packet_alloc(), "packet"));
    std::mt19937 random(1);
    std::vector<Unit> units;
    for (int i = 0; i <= kFrames; ++i) {
        const auto picture = i < kFrames ? NoisePicture(plan, random, i) : nullptr;
        Require(avcodec_send_frame(encoder.get(), picture.get()), "encode");
        while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
            units.push_back({{reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size)},
                             (packet->flags & AV_PKT_FLAG_KEY) != 0});
            av_packet_unref(packet.get());
        }
    }
    return units;
}

// Any byte is a sample of G.711.
std::string Sound(int number) {
    std::mt19937 random(static_cast<uint32_t>(number));
    std::string sound(kSoundSamples, '\0');
    for (char& sample : sound) {
        sample = static_cast<char>(random());
    }
    return sound;
}

// Packs a run as the writer does: the stream's head, then picture and sound in turns.
void Record(const Plan& plan, const std::vector<Unit>& units) {
    const AVStreamParam stream = {static_cast<uint16_t>(plan.video),
                                  static_cast<uint16_t>(plan.audio),
                                  static_cast<uint16_t>(plan.width),
                                  static_cast<uint16_t>(plan.height),
                                  4096,
                                  25,
                                  8000,
                                  33000};
    static constexpr char kStreamHead[40] =
        "IMKH\x01\x02\x00\x00\x02\x00\x00\x01\x01\x20\x01\x10\x80\xBB\x00\x00\x00\xFA";
    std::vector<char> out(2 << 20);
    unlink(kPath);
    const int fd = AV_RecordStreamFileOpen(kPath, AVFILE_READ_WRITE);
    ASSERT_GE(fd, 0);
    uint32_t offset = sizeof kStreamHead;
    uint32_t count = 0;
    ASSERT_EQ(AV_RecordStreamInfoWrite(fd, 0, kStreamHead, sizeof kStreamHead), 40);
    for (const Unit& unit : units) {
        ++count;
        const int length = static_cast<int>(unit.bytes.size());
        ASSERT_LE(PackedVideoSize(unit.is_key, unit.bytes.data(), length), static_cast<int64_t>(out.size()));
        const int video = libAVRecordVideoPsStreamWrite(unit.is_key, unit.bytes.data(), length, out.data(), count,
                                                        &stream, 0x5F000000 + count / 25);
        ASSERT_EQ(AV_RecordStreamInfoWrite(fd, offset, out.data(), video), video);
        offset += static_cast<uint32_t>(video);
        const std::string sound = Sound(static_cast<int>(count));
        const int audio = libAVRecordAudioPsStreamWrite(sound.data(), kSoundSamples, out.data(), count + 1);
        ASSERT_EQ(AV_RecordStreamInfoWrite(fd, offset, out.data(), audio), audio);
        offset += static_cast<uint32_t>(audio);
    }
    ASSERT_EQ(AV_RecordStreamFileClose(fd), 0);
}

// ---- the player's side

struct Demuxed {
    std::string format;
    std::vector<AVCodecID> codecs;
    std::vector<Unit> units;
    std::vector<int64_t> video_pts;
    std::vector<int64_t> audio_pts;
    std::string sound;
};

Demuxed Demux() {
    AVFormatContext* opened = nullptr;
    Require(avformat_open_input(&opened, kPath, nullptr, nullptr), kPath);  // told by its bytes alone
    const Owned<AVFormatContext> input(opened);
    Require(avformat_find_stream_info(input.get(), nullptr), "stream info");
    Demuxed found{input->iformat->name, {}, {}, {}, {}, {}};
    const Packet packet(RequireObject(av_packet_alloc(), "packet"));
    while (av_read_frame(input.get(), packet.get()) == 0) {
        const std::string bytes(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
        if (input->streams[packet->stream_index]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            found.units.push_back({bytes, (packet->flags & AV_PKT_FLAG_KEY) != 0});
            found.video_pts.push_back(packet->pts);
        } else {
            found.sound += bytes;
            found.audio_pts.push_back(packet->pts);
        }
        av_packet_unref(packet.get());
    }
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        found.codecs.push_back(input->streams[i]->codecpar->codec_id);
    }
    return found;
}

uint64_t Checksum(const AVFrame& picture) {
    uint64_t sum = 0xcbf29ce484222325;  // FNV-1a
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        for (int y = 0; y < picture.height >> shift; ++y) {
            const uint8_t* const row = picture.data[plane] + y * picture.linesize[plane];
            for (int x = 0; x < picture.width >> shift; ++x) {
                sum = (sum ^ row[x]) * 0x100000001b3;
            }
        }
    }
    return sum;
}

std::vector<uint64_t> DecodedChecksums(AVCodecID codec_id, const std::vector<Unit>& units) {
    const AVCodec* codec = RequireObject(avcodec_find_decoder(codec_id), "decoder");
    const Owned<AVCodecContext> decoder(RequireObject(avcodec_alloc_context3(codec), "decoder"));
    decoder->thread_count = 1;
    Require(avcodec_open2(decoder.get(), codec, nullptr), "decoder");
    const desk::Frame picture(RequireObject(av_frame_alloc(), "picture"));
    std::vector<uint64_t> sums;
    for (size_t i = 0; i <= units.size(); ++i) {
        const Packet packet(RequireObject(av_packet_alloc(), "packet"));
        if (i < units.size()) {
            Require(av_new_packet(packet.get(), static_cast<int>(units[i].bytes.size())), "packet");
            units[i].bytes.copy(reinterpret_cast<char*>(packet->data), units[i].bytes.size());
        }
        Require(avcodec_send_packet(decoder.get(), i < units.size() ? packet.get() : nullptr), "decode");
        while (avcodec_receive_frame(decoder.get(), picture.get()) == 0) {
            sums.push_back(Checksum(*picture));
        }
    }
    return sums;
}

// The HEVC encoder's library keeps some of its own memory.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265\n";
}

class ProgramStream : public testing::TestWithParam<Plan> {};

TEST_P(ProgramStream, IsTakenApartIntoWhatWasPacked) {
    av_log_set_level(AV_LOG_ERROR);
    const Plan& plan = GetParam();
    const auto units = EncodeVideo(plan);
    ASSERT_EQ(units.size(), static_cast<size_t>(kFrames));
    ASSERT_EQ(units[0].bytes.substr(0, 4), std::string("\0\0\0\1", 4));
    EXPECT_EQ(units[0].bytes.size() > 2 * PS_PES_PAYLOAD_MAX, plan.width > 400) << units[0].bytes.size();
    ASSERT_NO_FATAL_FAILURE(Record(plan, units));

    const Demuxed found = Demux();
    EXPECT_EQ(found.format, "mpeg");
    EXPECT_THAT(found.codecs, testing::UnorderedElementsAre(plan.video_id, plan.audio_id));
    ASSERT_EQ(found.units.size(), units.size());
    std::string packed;
    std::string unpacked;
    std::string sound;
    for (size_t i = 0; i < units.size(); ++i) {
        packed += units[i].bytes;
        unpacked += found.units[i].bytes;
        EXPECT_EQ(found.units[i].is_key, units[i].is_key) << "frame " << i;
        EXPECT_EQ(found.video_pts[i], 3600 * static_cast<int64_t>(i + 1));
        sound += Sound(static_cast<int>(i + 1));
    }
    // Joined: a parser may count the first zero of a four-byte start code to the unit before it.
    EXPECT_TRUE(unpacked == packed);
    EXPECT_TRUE(found.sound == sound);
    ASSERT_FALSE(found.audio_pts.empty());
    EXPECT_EQ(found.audio_pts[0], 3600 * 3) << "sound after frame n carries the clock of frame n + 2";

    const auto expected = DecodedChecksums(plan.video_id, units);
    EXPECT_EQ(expected.size(), static_cast<size_t>(kFrames));
    EXPECT_EQ(DecodedChecksums(plan.video_id, found.units), expected);
}

INSTANTIATE_TEST_SUITE_P(All, ProgramStream, testing::ValuesIn(kPlans), [](const auto& plan) {
    return std::string(plan.param.encoder) + (plan.param.width > 400 ? "LargeFrames" : "SmallFrames");
});

}  // namespace
