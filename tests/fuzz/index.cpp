// A hostile index file under the operations on its heads, and under a run that begins with what it says: numbers and
// counts come into their bounds, and nothing is written outside the slots of the current file.
#include <vector>

#include "RecordCard.h"
#include "RecordState.h"
#include "Store.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"

namespace {

using record_file::FileHeadOffset;
using record_file::SectionHeadOffset;

constexpr char kPath[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;

// The heads as they are now; what lies after the file's end is zero.
void ReadHeads(const fuzz::MemoryFile& index, std::vector<uint8_t>& bytes) {
    bytes.resize(fuzz::kStoreHeads);
    const size_t got = index.Read(0, bytes.data(), bytes.size());
    std::memset(bytes.data() + got, 0, bytes.size() - got);
}

void ReadSections(const fuzz::MemoryFile& index, uint32_t file_no) {
    RecordFileInfoHead_S file{};
    const int read = AV_RecordFileInfoHeadAccecsFileNoRead(index.fd(), file_no, &file);
    if (read != sizeof file && read != 0) return;
    std::vector<RecordInfoHead_S> sections(std::min(file.m_u32RecordSectionSum, RECORD_SECTION_MAX));
    AV_RecordSectionInfoHeadRead(index.fd(), &file, sections.data());
}

// What lies outside the places that a run of `file_no` may write to is as before.
void MustKeepOthers(const std::vector<uint8_t>& before, const std::vector<uint8_t>& after, uint32_t file_no) {
    const auto same = [&](uint64_t begin, uint64_t end) {
        end = std::min<uint64_t>(end, before.size());
        return begin >= end || std::memcmp(before.data() + begin, after.data() + begin, end - begin) == 0;
    };
    MUST(same(sizeof(RecordSystemInfoHead_S), FileHeadOffset(file_no)));
    MUST(same(FileHeadOffset(file_no + 1), SectionHeadOffset(file_no, 1)));
    MUST(same(SectionHeadOffset(file_no + 1, 0), fuzz::kStoreHeads));
}

// Begins a run and saves its heads, as the record loop and the writer do.
void BeginRun(const fuzz::MemoryFile& index, uint8_t cover) {
    g_control = {};
    if (AVRecordParamInit(cover) != 0) return;
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    MUST(heads.system.m_u32RecordFileNo < RECORD_FILE_MAX);
    MUST(heads.system.m_u32RecordFileNo < heads.system.m_u32RecordFileSum);
    const bool full = heads.file.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT;
    MUST(heads.file.m_u32FileInfoHeadFlag != RECORD_FILE_FLAG || !full);
    RecordInfoHead_S section{};
    MUST(AV_RecordFileConfigParamGet(&heads.system, &heads.file, &section, 0) == 0);
    const uint32_t file_no = heads.system.m_u32RecordFileNo;
    MUST(section.m_u16RecordFileNo == file_no && heads.file.m_u32FileInfoHeadNo == file_no);
    MUST(section.m_u16RecordUseNo >= 1 && section.m_u16RecordUseNo <= RECORD_SECTION_MAX);
    MUST(heads.file.m_u32RecordSectionSum == section.m_u16RecordUseNo);
    static std::vector<uint8_t> before, after;
    ReadHeads(index, before);
    MUST(AV_RecordSectionInfoHeadWrite(index.fd(), &heads.file, &section) >= 0);
    MUST(AV_RecordFileInfoHeadWrite(index.fd(), &heads.system, &heads.file) >= 0);
    AV_SystemInfoHeadUsedFileSumFresh(&heads.system, &heads.file);
    AV_SystemInfoHeadFileNoFresh(&heads.system, &heads.file);
    MUST(AV_SystemInfoHeadWrite(index.fd(), &heads.system) >= 0);
    ReadHeads(index, after);
    MustKeepOthers(before, after, file_no);
    AVRecordHeadsLock();
    *AV_RecordSystemInfoHeadGet() = heads.system;
    *AV_RecordFileInfoHeadGet() = heads.file;
    *AV_RecordInfoHeadGet() = section;
    AVRecordHeadsUnlock();
    CardRememberHeads();
}

// Another card, or the same with another content, between two looks: what is held in memory is then the card's.
void ExchangeCard(fuzz::MemoryFile& index, fuzz::Input& in) {
    fuzz::LayIndex(in, index);
    if (AVRecordParamInit(1) != 0) return;
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    RecordSystemInfoHead_S system{};
    MUST(AV_SystemInfoHeadRead(index.fd(), &system) >= 0);
    MUST(std::memcmp(&system, &heads.system, sizeof system) == 0);
    MUST(system.m_u32RecordFileNo < system.m_u32RecordFileSum);
}

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile index(kPath);
    SleepCalls([](unsigned) {});
    const uint8_t cover = in.Byte() % 2;
    const uint32_t file_no = in.Half() % (RECORD_FILE_MAX + 2);
    LayIndex(in, index);
    uint32_t space = 0;
    uint32_t free_space = 0;
    const bool holds = AV_SystemInfoInitCheck(kPath) == 0;
    MUST((AV_RecordConfigInfoGet(kPath, &space, &free_space) == 0) == holds);
    ReadSections(index, file_no);
    ReadSections(index, file_no % kStoreFiles);
    BeginRun(index, cover);
    if (!in.Empty()) ExchangeCard(index, in);
    uint32_t files = 0;
    RecordSystemInfoHead_S system{};
    const bool small = AV_SystemInfoHeadRead(index.fd(), &system) > 0 && system.m_u32RecordFileSum < 64;
    if (small && AV_RecordFileConfigClear(kPath, &files) == 0) {
        MUST(files == system.m_u32RecordFileSum && AV_SystemInfoInitCheck(kPath) != 0);
    }
}
