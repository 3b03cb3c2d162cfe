#include "export/Exporter.h"

#include <algorithm>
#include <utility>

#include "clip/SliceOrder.h"
#include "text/Error.h"

namespace card {

namespace {

constexpr size_t kSoundProbe = 300;  // frames in which a stretch with sound has some

VideoCodec CodecOf(const StreamParameters& parameters) {
    return parameters.video_type == record_file::kStreamH265 ? VideoCodec::H265 : VideoCodec::H264;
}

std::optional<SoundFormat> Playable(const SoundFormat& format) {
    return format.codec == AV_CODEC_ID_NONE ? std::nullopt : std::optional(format);
}

void RequireCodec(Container container, VideoCodec codec) {
    const bool h264 = codec == VideoCodec::H264;
    if (container == Container::H264 && !h264)
        throw CardError("The recording is H.265: give the file the ending .h265", kUsage);
    if (container == Container::H265 && h264)
        throw CardError("The recording is H.264: give the file the ending .h264", kUsage);
}

uint32_t ToSeconds(Ticks at) {
    return static_cast<uint32_t>(std::max<Ticks>(at, 0) / kTicksPerSecond);
}

}  // namespace

Exporter::Exporter(const CardIndex& index, const std::string& path, OutputFiles::Mode mode, const TimeStyle& times)
    : index_(index), container_(ContainerOf(path)), times_(times), files_(path, mode) {}

ExportReport Exporter::Run(const Selection& selection, const BytesDone& done, const std::function<bool()>& whole) {
    done_ = done;
    bytes_left_ = selection.StreamBytes();
    for (size_t i = 0; i < selection.stretches.size(); ++i) {
        Move(selection, i);
        bytes_left_ -= selection.stretches[i].end - selection.stretches[i].begin;
    }
    FinishPart();
    report_.aside = files_.Commit(whole());
    for (size_t i = 0; i < report_.parts.size(); ++i) report_.parts[i].path = files_.Final()[i];
    return std::move(report_);
}

void Exporter::Move(const Selection& selection, size_t number) {
    ClipReader reader(index_, selection.stretches[number], selection.from, selection.to);
    ClipStretch listed = reader.List(done_);
    report_.damaged_bytes += listed.damaged_bytes;
    report_.foreign_frames += listed.foreign_frames;
    if (listed.frames.empty()) return;
    report_.found += listed.frames.size();
    RequireCodec(container_, CodecOf(listed.parameters));
    if (!Raw()) {
        const VideoCodec codec = CodecOf(listed.parameters);
        TimePictures(reader, codec, listed, SliceOrder(codec), done_);
    }
    sound_.reset();
    const auto sound =
        std::find_if(listed.frames.begin(), listed.frames.end(), [](const ClipFrame& f) { return !f.video; });
    if (sound != listed.frames.end()) {
        sound_ = Playable(SoundFormatOf(listed.parameters, reader.Payload(*sound).value_or(ByteView())));
    }
    chapter_due_ = timeline_.Enter(listed.frames.front().at);
    for (const ClipFrame& frame : listed.frames) {
        const bool packed = container_ == Container::ProgramStream;
        done_(frame.size);
        if (!frame.video && (writer_ == nullptr || (Raw() && !packed))) continue;
        const std::optional<ByteView> unit = packed ? reader.Packed(frame) : reader.Payload(frame);
        if (!unit) {
            report_.damaged_bytes += frame.size;
        } else if (frame.video) {
            MovePicture(*unit, listed, frame, std::span(selection.stretches).subspan(number + 1));
        } else {
            writer_->Sound(*unit, packed ? 0 : timeline_.Place(frame.at));
        }
    }
}

void Exporter::MovePicture(ByteView unit, const ClipStretch& stretch, const ClipFrame& frame,
                           std::span<const Stretch> later) {
    const VideoCodec codec = CodecOf(stretch.parameters);
    const bool key = frame.key && (Raw() || IsRandomAccess(codec, unit));
    if (key && !Raw()) {
        ClipShape shape{codec, ParameterSets(codec, unit), sound_};
        if (NeedsNewPart(shape) && CanBegin(codec, unit)) {
            for (size_t i = 0; i < later.size() && !shape.sound; ++i) shape.sound = FindSound(later[i], kSoundProbe);
            StartPart(stretch, frame, unit, std::move(shape));
        }
    } else if (writer_ == nullptr && Raw()) {
        StartPart(stretch, frame, unit, {});
    }
    if (writer_ == nullptr) return;  // no file can begin with this picture
    ExportPart& part = report_.parts.back();
    const Ticks at = timeline_.Place(frame.at);
    if (std::exchange(chapter_due_, false)) {
        ++part.gaps;
        writer_->Chapter(at, times_.DateTime(ToSeconds(frame.at)));
    }
    writer_->Picture(unit, key, {timeline_.Place(frame.decoded), timeline_.Place(frame.shown), stretch.frame_duration});
    timeline_.Shown(frame.at, stretch.frame_duration);
    part.length = at + stretch.frame_duration;
    ++part.pictures;
}

// One file has one set of parameter sets and one kind of sound.
bool Exporter::NeedsNewPart(const ClipShape& shape) const {
    if (writer_ == nullptr || shape.codec != shape_.codec) return true;
    if (!shape.parameter_sets.empty() && shape.parameter_sets != shape_.parameter_sets) return true;
    return shape.sound && shape.sound != shape_.sound;
}

void Exporter::StartPart(const ClipStretch& stretch, const ClipFrame& frame, ByteView unit, ClipShape shape) {
    FinishPart();
    const std::string& path = files_.Next();
    const ClipDetails details{ToSeconds(frame.at), stretch.steady_rate, bytes_left_};
    // Players know the stream's sound by the head that stands in front of it on the card.
    const ByteView head = container_ == Container::ProgramStream ? ByteView(record_file::kStreamHead) : ByteView();
    writer_ = Raw() ? OpenRawWriter(path, head) : OpenMuxWriter(path, container_, shape, details, unit);
    timeline_.StartFile(frame.at);
    chapter_due_ = false;
    writer_->Chapter(0, times_.DateTime(details.start_time));
    report_.parts.push_back(
        {files_.Final().back(), details.start_time, 0, 0, 0, shape.sound.has_value(), stretch.parameters});
    shape_ = std::move(shape);
}

void Exporter::FinishPart() {
    if (writer_ == nullptr) return;
    writer_->Finish();
    writer_.reset();
}

std::optional<SoundFormat> Exporter::FindSound(const Stretch& stretch, size_t frames_max) const {
    const StoreFile file = index_.OpenRecordFile(index_.Sections()[stretch.section].file);
    StreamScanner scanner(
        [file](uint64_t offset, void* buffer, size_t length) { return file.ReadAt(offset, buffer, length); },
        stretch.begin, stretch.end);
    std::optional<StreamParameters> parameters;
    for (size_t i = 0; i < frames_max; ++i) {
        const StreamScanner::Found found = scanner.Next();
        if (found == StreamScanner::Found::End) break;
        if (found != StreamScanner::Found::Frame) continue;
        const StreamFrame& frame = scanner.Frame();
        if (frame.parameters) parameters = frame.parameters;
        std::vector<uint8_t> payload;
        if (frame.kind == StreamFrame::Kind::Audio && parameters && scanner.ReadPayload(frame, payload)) {
            return Playable(SoundFormatOf(*parameters, payload));
        }
    }
    return std::nullopt;
}

}  // namespace card
