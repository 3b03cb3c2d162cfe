#include "FramePacker.h"

#include <cstring>

#include "RecordFormat.h"
#include "RecorderStatus.h"
#include "libAVRecord.h"
#include "libCameraAccess.h"
#include "libLog.h"

namespace {

constexpr int kShortestPicture = 5;  // a start code and a byte that says what follows

uint8_t PsVedioBuf[RECORD_PACK_BUFFER_SIZE + kCardSector];

static_assert(RECORD_STREAM_HEAD_SIZE == record_file::kStreamHeadSize);
static_assert(RECORD_PACK_BUFFER_SIZE == record_file::kPackedFrameMax);

// What the camera says of a stream, for the packer and for players.
AVStreamParam ReadStreamParam(int channel, AVCodeType video_codec) {
    Camera_VideoConfig videos[CAMERA_VIDEO_STREAMS]{};
    Camera_AudioConfig audio{};
    Camera_DISPLAYPROPERTY display{};
    CameraGetVideoConfig(videos);
    CameraGetAudioConfig(&audio);
    CameraGetDisplayProperty(&display);
    const Camera_VideoConfig& video = videos[channel];
    const bool is_upright = display.ucRotateAngle == 1 || display.ucRotateAngle == 3;

    AVStreamParam param{};
    param.m_u8VedioCodeType = static_cast<uint16_t>(video_codec);
    param.m_u16VedioWidth = static_cast<uint16_t>(is_upright ? video.iVideoHeight : video.iVideoWidth);
    param.m_u16VedioHeight = static_cast<uint16_t>(is_upright ? video.iVideoWidth : video.iVideoHeight);
    param.m_u16VedioBitRate = static_cast<uint16_t>(video.iBitrate);
    param.m_u16VedioFrame = static_cast<uint16_t>(video.iFrameRate);
    param.m_u8AudioCodeType = static_cast<uint16_t>(audio.iEncoding);
    param.m_u16AudioSampleRate = static_cast<uint16_t>(audio.iSamplerate);
    param.m_u16AudioBitRate = static_cast<uint16_t>(audio.iBitrate);
    if (audio.iEncoding == 0 || audio.iEncoding == 1) {
        param.m_u8AudioCodeType = audio.iEncoding == 0 ? CODE_AUDIO_G711U : CODE_AUDIO_G711A;
        param.m_u16AudioSampleRate = 8000;
        param.m_u16AudioBitRate = 33000;
    }
    LOG_TRACE_AS("libAVRecordWriteFrame", " : Now RotateAngle  %d, width = %d, height = %d  framerate = %d  \n",
                 display.ucRotateAngle, param.m_u16VedioWidth, param.m_u16VedioHeight, param.m_u16VedioFrame);
    return param;
}

// The room that a video frame may need.  Only its length is asked: a frame still lies in the media server's
// ring, and bytes that change while they are read must not decide how much is written.
int64_t VideoRoom(const Frame& frame) {
    constexpr int kCuts = 2;  // of a key frame, at most; each begins a packet
    constexpr int kKeyFrameExtra = PS_KEY_FRAME_HEADERS - PS_PACK_HEADER_SIZE + kCuts * PS_PES_HEADER_SIZE;
    const int64_t size = PackedVideoSize(false, frame.data.data(), frame.Length());
    return size < 0 || !frame.found.is_key ? size : size + kKeyFrameExtra;
}

// -1, told and counted.
int Drop(const Frame& frame) {
    LOG_ERROR_AS("libAVRecordWriteFrame", " : %s of %d bytes is empty or does not fit, dropped\n",
                 frame.IsVideo() ? "a frame" : "audio", frame.Length());
    RecorderStatusFrameDropped();
    return -1;
}

}  // namespace

void FramePacker::ReadParameters(int channel, AVCodeType video_codec) {
    parameters_ = ReadStreamParam(channel, video_codec);
}

std::span<const uint8_t> FramePacker::Pack(const Frame& frame, bool is_first, uint32_t time) {
    const int length = frame.IsVideo() ? PackVideo(frame, is_first, time) : PackAudio(frame);
    const size_t packed = length < 0 ? 0 : static_cast<size_t>(length);
    std::memset(PsVedioBuf + packed, 0, kCardSector);
    return {PsVedioBuf, packed};
}

int FramePacker::PackVideo(const Frame& frame, bool is_first, uint32_t time) {
    ++frame_number_;
    const int head = is_first ? RECORD_STREAM_HEAD_SIZE : 0;
    const int64_t room = VideoRoom(frame);
    if (frame.Length() < kShortestPicture || room < 0 || room + head > RECORD_PACK_BUFFER_SIZE) {
        return Drop(frame);
    }
    std::memcpy(PsVedioBuf, record_file::kStreamHead, static_cast<size_t>(head));
    const int packed = libAVRecordVideoPsStreamWrite(frame.found.is_key ? 1 : 0, frame.data.data(), frame.Length(),
                                                     PsVedioBuf + head, frame_number_, &parameters_, time);
    return packed < 0 ? -1 : packed + head;
}

int FramePacker::PackAudio(const Frame& frame) {
    const int codec = parameters_.m_u8AudioCodeType;  // m_AudioCodec
    if (codec != CODE_AUDIO_AAC && codec != CODE_AUDIO_G711U && codec != CODE_AUDIO_G711A) {
        return -1;  // a run whose sound is not recorded
    }
    const int64_t size = PackedAudioSize(frame.Length());
    if (frame.data.empty() || size < 0 || size > RECORD_PACK_BUFFER_SIZE) {
        return Drop(frame);
    }
    return libAVRecordAudioPsStreamWrite(frame.data.data(), frame.Length(), PsVedioBuf, frame_number_ + 1);
}
