// The alarm events of a hostile event file: counts and numbers stay in their bounds, and nothing is read or written
// outside the blocks of the record file that is asked for.
#include <vector>

#include "Fuzz.h"
#include "RecordFormat.h"

namespace {

// The next event of a file whose head says anything, as the alarm thread adds it.
void AddEvent(fuzz::MemoryFile& file, uint32_t file_no, AlarmEventHead_S head) {
    const uint64_t size = file.Size();
    AlarmFileInfoHead_S record{};
    AV_AlarmEventInfoEventSumFresh(&head);
    MUST(AV_AlarmEventFileInfoAdd(&head, &record, 1, 1) == 0);
    const uint32_t slot = head.m_u32AlarmEventSum;
    const bool in_place = head.m_u32AlarmFileNo < ALARM_EVENT_FILE_MAX && slot >= 1 && slot <= ALARM_EVENT_MAX;
    MUST((AV_AlarmEventFileInfoWrite(file.fd(), &head, &record) == 0) == in_place);
    if (!in_place) {
        MUST(file.Size() == size);
        return;
    }
    const uint64_t at = record_file::EventOffset(head.m_u32AlarmFileNo, slot);
    MUST(file.Size() == std::max(size, at + sizeof record));
    AlarmFileInfoHead_S written{};
    MUST(file.Read(at, &written, sizeof written) == sizeof written);
    MUST(std::memcmp(&written, &record, sizeof record) == 0);
    MUST((AV_AlarmEventInfoWrite(file.fd(), file_no, &head) == 0) == (file_no < ALARM_EVENT_FILE_MAX));
}

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile file;
    const uint32_t file_no = in.Half() % (ALARM_EVENT_FILE_MAX + 2);
    const uint64_t block = record_file::EventOffset(file_no, 1);
    const uint32_t length = in.Word() % (2u << 20);  // most of the files end early
    file.Clear(in.Byte() % 2 == 0 ? block + length : length);
    const auto stored = in.Get<AlarmEventHead_S>();
    file.Write(file_no * sizeof stored, &stored, sizeof stored);
    const Bytes records = in.Rest();
    file.Write(block, records);

    AlarmEventHead_S head{};
    const bool read = AV_AlarmEventInfoRead(file.fd(), file_no, &head) == 0;
    MUST(read == (file_no < ALARM_EVENT_FILE_MAX));
    if (!read) return;
    const uint32_t count = head.m_u32AlarmEventSum;
    std::vector<AlarmFileInfoHead_S> events(std::min(count, ALARM_EVENT_READ_MAX));
    const AlarmEventHead_S before = head;
    if (AV_AlarmEventFileInfoRead(file.fd(), &head, events.data()) == 0) {
        MUST(head.m_u32AlarmEventSum >= 1 && head.m_u32AlarmEventSum == events.size());
        const size_t known = std::min(records.size(), events.size() * sizeof events[0]);
        MUST(head.m_u32AlarmFileNo != file_no || std::memcmp(events.data(), records.data(), known) == 0);
    }
    AddEvent(file, file_no, before);
    if (file_no < 16) {
        MUST(AV_AlarmEventInfoClear(file.Path().c_str(), file_no + 1) == 0);
        MUST(AV_AlarmEventInfoRead(file.fd(), file_no, &head) == 0 && head.m_u32AlarmEventFlag == 0);
    }
}
