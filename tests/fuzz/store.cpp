// The card tool's picture of a store whose index and event files hold anything: a section, key frame or event without
// a fault lies where it can lie.
#include "Store.h"
#include "index/CardIndex.h"
#include "text/Error.h"

namespace {

void CheckSection(const card::CardIndex& index, const card::Section& section) {
    MUST(section.file < index.FileCount() && section.number >= 1 && section.number <= RECORD_SECTION_MAX);
    const card::FileState& file = index.Files()[section.file];
    if (!section.Usable()) return;
    MUST(file.Usable() && section.Limit() <= file.Length() && section.Start() <= section.End());
    uint64_t end = section.Begin();
    for (const card::KeyFrame& key : section.file == 0 ? index.KeyFrames(section) : std::vector<card::KeyFrame>{}) {
        if (!key.fits) continue;
        MUST(key.offset >= end && key.record.m_u32KeyFrameLenth <= section.Limit() - key.offset);
        end = key.offset + key.record.m_u32KeyFrameLenth;
    }
}

void CheckOrder(const card::CardIndex& index) {
    const card::Section* previous = nullptr;  // in the same file
    for (const card::Section& section : index.Sections()) {
        MUST(section.Usable() && section.head.m_u32RecordSize != 0);
        MUST(previous == nullptr || previous->file != section.file || previous->Limit() <= section.Begin());
        previous = &section;
    }
    std::vector<uint32_t> ring = index.RingOrder();
    std::sort(ring.begin(), ring.end());
    MUST(std::adjacent_find(ring.begin(), ring.end()) == ring.end());
    MUST(ring.empty() || ring.back() < index.FileCount());
}

void CheckFind(const card::CardIndex& index, uint32_t from, uint32_t to) {
    for (const card::Stretch& stretch : index.Find(from, to)) {
        const card::Section& section = index.Sections().at(stretch.section);
        MUST(stretch.begin >= section.Begin() && stretch.begin < stretch.end && stretch.end <= section.Limit());
        MUST(section.Start() <= to && section.End() >= from);
    }
}

}  // namespace

void fuzz::Feed(Input& in) {
    static MemoryFile index_file(RECORD_STORE_DIRECTORY RECORD_INDEX_NAME);
    static MemoryFile events(RECORD_STORE_DIRECTORY RECORD_EVENT_NAME);
    static MemoryFile record(RECORD_STORE_DIRECTORY "hi000000.mp4", RECORD_FILE_SIZE);
    static const MemoryFile other(RECORD_STORE_DIRECTORY "hi000001.mp4");
    const uint32_t from = in.Word();
    const uint32_t length = in.Half();
    LayIndex(in, index_file, &events, &record);
    try {
        const card::Volume volume = card::Volume::Open(RECORD_STORE_DIRECTORY);
        const card::CardIndex index(volume);
        for (const card::Section& section : index.AllSections()) CheckSection(index, section);
        CheckOrder(index);
        for (size_t i = 0; i < index.Events().size(); ++i) {
            const card::Event& event = index.Events()[i];
            MUST(event.fits && event.number == i + 1 && event.file < index.FileCount() && event.Start() <= event.End());
            MUST(event.slot >= 1 && event.slot <= ALARM_EVENT_MAX);
        }
        for (const card::Gap& gap : index.Gaps()) {
            MUST(gap.before < index.Sections().size() && gap.from < gap.to);
        }
        CheckFind(index, from, from + length);
        if (const auto oldest = index.Oldest()) CheckFind(index, *oldest + length % 64, *index.Newest());
        index.StreamBytes();
        index.HoursKept();
    } catch (const card::CardError&) {
        // no store
    }
}
