// The heads that are rebuilt from a stream of any bytes and from whatever is left of the old ones: what they list lies
// in the stream, every frame of the lap lies in a section, and counts agree.
#include "repair/IndexBuilder.h"

#include "Stream.h"

namespace {

using card::RebuiltFile;

card::IndexBuilder::Left TakeLeft(fuzz::Input& in, uint32_t number) {
    card::IndexBuilder::Left left;
    left.head = in.Get<RecordFileInfoHead_S>();
    for (int i = in.Byte() % 8; i > 0; --i) {
        auto head = in.Get<RecordInfoHead_S>();
        head.m_u32RecordInfoHeadFlag = RECORD_SECTION_FLAG;
        head.m_u16RecordFileNo = static_cast<uint16_t>(number);
        left.sections.push_back(head);
    }
    for (int i = in.Byte() % 32; i > 0; --i) left.key_frames.push_back(in.Get<KeyFrameInfoHead_S>());
    return left;
}

void CheckKeyFrames(const RebuiltFile& file, const RecordInfoHead_S& section, const std::vector<uint8_t>& stream) {
    uint64_t end = 0;  // of the one before, from the section's start
    const size_t first = section.m_u32StartKeyFramePos / sizeof(KeyFrameInfoHead_S);
    for (size_t i = first; i < first + section.m_u32KeyFrameSum; ++i) {
        const KeyFrameInfoHead_S& record = file.key_frames.at(i);
        MUST(record.m_u32KeyFrameHeadFlag == RECORD_KEY_FRAME_FLAG && record.m_u32KeyFilePos >= end);
        end = uint64_t{record.m_u32KeyFilePos} + record.m_u32KeyFrameLenth;
        MUST(record.m_u32KeyFrameLenth >= PS_PACK_HEADER_SIZE && end <= section.m_u32RecordSize);
        const uint8_t* const at = stream.data() + section.m_u32RecordStartPos + record.m_u32KeyFilePos;
        const bool first_of_section = record.m_u32KeyFilePos == 0;  // may begin with a stream head, also a lost one
        MUST(first_of_section || std::memcmp(at, "\0\0\1\xBA", 4) == 0);
    }
}

void CheckFile(const RebuiltFile& file, const card::Survey& survey, const std::vector<uint8_t>& stream) {
    MUST(file.Empty() == file.sections.empty() && file.sections.size() == file.head.m_u32RecordSectionSum);
    MUST(file.sections.size() <= std::min<size_t>(survey.runs.size(), RECORD_SECTION_MAX));
    MUST(file.head.m_u32RecordFileSumLenth <= stream.size());
    uint64_t end = 0;
    uint64_t video = 0;
    size_t key = 0;
    for (const RecordInfoHead_S& section : file.sections) {
        MUST(section.m_u16RecordUseNo == &section - file.sections.data() + 1);
        MUST(section.m_u32RecordStartPos >= end && section.m_u32RecordStartTime <= section.m_u32RecordEndTime);
        end = uint64_t{section.m_u32RecordStartPos} + section.m_u32RecordSize;
        MUST(section.m_u32StartKeyFramePos == key * sizeof(KeyFrameInfoHead_S));
        CheckKeyFrames(file, section, stream);
        key += section.m_u32KeyFrameSum;
        video += section.m_u32FrameSum;
    }
    MUST(end == file.head.m_u32RecordFileSumLenth);
    MUST(key == file.key_frames.size() && key == file.head.m_u32RecordKeyFrameSum);
    for (const uint64_t offset : file.stream_heads) {
        MUST(offset + record_file::kStreamHeadSize <= stream.size());
    }
    uint64_t reached = 0;
    for (const card::SectionSpan& span : file.Spans()) {
        for (const card::SurveyedFrame* frame : card::FramesOf(survey, span)) reached += frame->video ? 1 : 0;
    }
    MUST(video == reached && file.pictures <= reached);
}

void CheckSystem(const std::vector<RebuiltFile>& files, const RecordSystemInfoHead_S& left) {
    const RecordSystemInfoHead_S head = card::BuildSystemHead(left, uint64_t{2} << 30, files);
    MUST(AV_SystemInfoHeadCheck(&head) == 0 && head.m_u32RecordFileSum == files.size());
    MUST(head.m_u32RecordFileNo < files.size() && head.m_u32RecordUsedFileSum <= files.size());
}

}  // namespace

void fuzz::Feed(Input& in) {
    const uint32_t number = in.Byte() % 4;
    const card::IndexBuilder::Left left = TakeLeft(in, number);
    const auto system = in.Get<RecordSystemInfoHead_S>();
    const std::vector<uint8_t>& stream = LayStream(in);
    card::Surveyor surveyor(ReaderOf(stream), stream.size());
    surveyor.GoToEnd();
    const card::Survey survey = surveyor.Result();
    const card::Rebuilt rebuilt = card::IndexBuilder::BuildFrom(survey, left, number);
    CheckFile(rebuilt.lap, survey, stream);
    if (rebuilt.whole) CheckFile(*rebuilt.whole, survey, stream);
    CheckSystem({rebuilt.lap, rebuilt.whole.value_or(RebuiltFile{})}, system);
}
