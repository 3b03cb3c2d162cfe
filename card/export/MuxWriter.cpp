#include <strings.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <optional>

#include "export/ClipWriter.h"
#include "export/Ffmpeg.h"
#include "text/Error.h"

namespace card {

namespace {

constexpr AVRational kClipClock = {1, static_cast<int>(kTicksPerSecond)};
constexpr uint64_t kFastStartMax = 2ull << 30;  // bytes; moving the contents to the front costs a copy of the file

AVCodecID CodecId(VideoCodec codec) {
    return codec == VideoCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
}

std::string IsoTime(uint32_t seconds) {
    const time_t time = seconds;
    tm broken{};
    gmtime_r(&time, &broken);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &broken);
    return text;
}

void SetExtradata(AVCodecParameters* parameters, ByteView bytes) {
    parameters->extradata =
        RequireObject(static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE)), "parameter sets");
    std::copy(bytes.begin(), bytes.end(), parameters->extradata);
    parameters->extradata_size = static_cast<int>(bytes.size());
}

struct PictureFormat {
    int width = 0;  // pixels
    int height = 0;
    int format = -1;
    int profile = FF_PROFILE_UNKNOWN;
    int level = FF_LEVEL_UNKNOWN;
};

// What the stream itself says of its pictures; nothing when its parameter sets are damaged.
std::optional<PictureFormat> ReadPictureFormat(VideoCodec video, ByteView key_unit) {
    const AVCodec* codec = RequireObject(avcodec_find_decoder(CodecId(video)), "decoder of the video");
    Owned<AVCodecContext> context(RequireObject(avcodec_alloc_context3(codec), codec->name));
    Owned<AVCodecParserContext> parser(RequireObject(av_parser_init(codec->id), codec->name));
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    std::vector<uint8_t> padded(key_unit.begin(), key_unit.end());
    padded.resize(padded.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    uint8_t* out = nullptr;
    int size = 0;
    av_parser_parse2(parser.get(), context.get(), &out, &size, padded.data(), static_cast<int>(key_unit.size()),
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    if (parser->width <= 0 || parser->height <= 0) return std::nullopt;
    return PictureFormat{parser->width, parser->height, parser->format, context->profile, context->level};
}

class MuxWriter : public ClipWriter {
  public:
    MuxWriter(const std::string& path, Container container, const ClipShape& shape, const ClipDetails& details,
              ByteView key_unit)
        : path_(path), codec_(shape.codec), packet_(RequireObject(av_packet_alloc(), path)) {
        const bool mp4 = container == Container::Mp4;
        AVFormatContext* context = nullptr;
        Require(avformat_alloc_output_context2(&context, nullptr, mp4 ? "mp4" : "matroska", path.c_str()), path);
        context_.reset(context);
        AddVideo(shape, details, key_unit, mp4);
        if (shape.sound) AddSound(*shape.sound, mp4);
        av_dict_set(&context->metadata, "creation_time", IsoTime(details.start_time).c_str(), 0);
        const char* const url = path == "/dev/stdout" ? "pipe:1" : path.c_str();  // a pipe cannot be sought in
        Require(avio_open(&context->pb, url, AVIO_FLAG_WRITE), path);
        AVDictionary* options = nullptr;
        if (mp4 && details.stream_bytes <= kFastStartMax) av_dict_set(&options, "movflags", "+faststart", 0);
        const int result = avformat_write_header(context, &options);
        av_dict_free(&options);
        Require(result, path);
    }

    void Picture(ByteView unit, bool key, const PictureTimes& times) override {
        // The file's head holds the parameter sets; players want them nowhere else.
        const std::vector<uint8_t> picture = key ? WithoutParameterSets(codec_, unit) : std::vector<uint8_t>();
        if (key) unit = picture;
        if (unit.empty()) return;
        Require(av_new_packet(packet_.get(), static_cast<int>(unit.size())), path_);
        std::memcpy(packet_->data, unit.data(), unit.size());
        const AVRational clock = video_->time_base;
        packet_->dts = std::max(next_, av_rescale_q(times.decoded, kClipClock, clock));
        packet_->pts = std::max(packet_->dts, av_rescale_q(times.shown, kClipClock, clock));
        next_ = packet_->dts + 1;
        packet_->duration = av_rescale_q(times.duration, kClipClock, clock);
        packet_->stream_index = video_->index;
        if (key) packet_->flags |= AV_PKT_FLAG_KEY;
        Write(packet_.get());
        end_ = std::max(end_, times.shown + times.duration);
    }

    void Sound(ByteView payload, Ticks at) override {
        if (track_) track_->Add(payload, at);
    }

    // Added to the file's head only when it is finished, and only when there is more than one.
    void Chapter(Ticks at, const std::string& title) override { chapters_.push_back({at, title}); }

    void Finish() override {
        if (track_) track_->Finish();
        if (chapters_.size() > 1) AddChapters();
        Require(av_write_trailer(context_.get()), path_);
        Require(avio_closep(&context_->pb), path_);
    }

  private:
    struct ChapterMark {
        Ticks at;
        std::string title;
    };

    void AddVideo(const ClipShape& shape, const ClipDetails& details, ByteView key_unit, bool mp4) {
        video_ = RequireObject(avformat_new_stream(context_.get(), nullptr), path_);
        AVCodecParameters* parameters = video_->codecpar;
        parameters->codec_type = AVMEDIA_TYPE_VIDEO;
        parameters->codec_id = CodecId(shape.codec);
        const PictureFormat picture = ReadPictureFormat(shape.codec, key_unit).value_or(PictureFormat{});
        parameters->width = picture.width;
        parameters->height = picture.height;
        parameters->format = picture.format;
        parameters->profile = picture.profile;
        parameters->level = picture.level;
        SetExtradata(parameters, shape.parameter_sets);
        if (const auto turn = OrientationOf(shape.codec, key_unit)) Turn(*turn);
        // Phones play H.265 under this name only.
        if (mp4 && shape.codec == VideoCodec::H265) parameters->codec_tag = MKTAG('h', 'v', 'c', '1');
        video_->time_base = kClipClock;
        if (details.steady_rate != 0) {
            video_->avg_frame_rate = video_->r_frame_rate = {static_cast<int>(details.steady_rate), 1};
        }
    }

    // FFmpeg turns clockwise and flips afterwards, the stream flips first: each flip reverses the turn.
    void Turn(const DisplayOrientation& turn) {
        constexpr size_t kMatrix = 9 * sizeof(int32_t);
        void* const data = RequireObject(av_stream_new_side_data(video_, AV_PKT_DATA_DISPLAYMATRIX, kMatrix), path_);
        int32_t* const matrix = static_cast<int32_t*>(data);
        const bool reversed = turn.flip_horizontally != turn.flip_vertically;
        av_display_rotation_set(matrix, reversed ? turn.anticlockwise : -turn.anticlockwise);
        av_display_matrix_flip(matrix, turn.flip_horizontally, turn.flip_vertically);
    }

    void AddSound(const SoundFormat& format, bool mp4) {
        AVStream* stream = RequireObject(avformat_new_stream(context_.get(), nullptr), path_);
        const bool headers = (context_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
        track_ = std::make_unique<SoundTrack>(format, headers, mp4, [this, stream, format](AVPacket* packet) {
            packet->stream_index = stream->index;
            av_packet_rescale_ts(packet, {1, format.sample_rate}, stream->time_base);
            Write(packet);
        });
        track_->Describe(stream->codecpar);
        stream->time_base = {1, format.sample_rate};
    }

    void AddChapters() {
        context_->chapters = static_cast<AVChapter**>(av_calloc(chapters_.size(), sizeof(AVChapter*)));
        RequireObject(context_->chapters, path_);
        for (size_t i = 0; i < chapters_.size(); ++i) {
            auto* chapter = RequireObject(static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter))), path_);
            chapter->id = static_cast<int64_t>(i + 1);
            chapter->time_base = kClipClock;
            chapter->start = chapters_[i].at;
            chapter->end = i + 1 < chapters_.size() ? chapters_[i + 1].at : end_;
            av_dict_set(&chapter->metadata, "title", chapters_[i].title.c_str(), 0);
            context_->chapters[context_->nb_chapters++] = chapter;  // freed with the context
        }
    }

    void Write(AVPacket* packet) { Require(av_interleaved_write_frame(context_.get(), packet), path_); }

    std::string path_;
    VideoCodec codec_;
    Owned<AVFormatContext> context_;
    Owned<AVPacket> packet_;
    std::unique_ptr<SoundTrack> track_;
    AVStream* video_ = nullptr;  // the context's
    int64_t next_ = INT64_MIN;   // earliest time of decoding the next picture, in the video's clock
    Ticks end_ = 0;
    std::vector<ChapterMark> chapters_;
};

}  // namespace

Container ContainerOf(const std::string& path) {
    static constexpr struct {
        const char* ending;
        Container container;
    } kEndings[] = {{".mp4", Container::Mp4},
                    {".mkv", Container::Matroska},
                    {".h264", Container::H264},
                    {".h265", Container::H265},
                    {".ps", Container::ProgramStream}};
    for (const auto& [ending, container] : kEndings) {
        const size_t length = std::strlen(ending);
        if (path.size() > length && strcasecmp(path.c_str() + path.size() - length, ending) == 0) return container;
    }
    throw CardError(path + ": the file to be written has to end in .mp4, .mkv, .h264, .h265 or .ps", kUsage);
}

bool CanBegin(VideoCodec codec, ByteView key_unit) {
    return !ParameterSets(codec, key_unit).empty() && ReadPictureFormat(codec, key_unit).has_value();
}

std::unique_ptr<ClipWriter> OpenMuxWriter(const std::string& path, Container container, const ClipShape& shape,
                                          const ClipDetails& details, ByteView key_unit) {
    return std::make_unique<MuxWriter>(path, container, shape, details, key_unit);
}

}  // namespace card
