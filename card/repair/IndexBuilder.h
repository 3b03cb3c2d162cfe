// Rebuilds the heads of record files, and their key-frame records, from the stream.
//
// What the stream does not tell (the exact start of a section, virtual key frames, smart encoding) is taken
// from what is left of heads and records, where it agrees with the stream.  Writes nothing but what Write is
// told to.
// Invariant: every frame of the present lap lies inside a rebuilt section; no frame of an earlier lap does.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "libRecordFile.h"
#include "stream/StreamSurvey.h"
#include "volume/Volume.h"
#include "volume/WriteJournal.h"

namespace card {

struct RebuiltFile {
    uint32_t number = 0;
    RecordFileInfoHead_S head{};             // all zero: nothing recorded
    std::vector<RecordInfoHead_S> sections;  // 1, 2, ...
    std::vector<KeyFrameInfoHead_S> key_frames;
    std::vector<uint64_t> stream_heads;  // where a lost one can stand again
    uint32_t first_time = 0;             // of its first frame: orders files
    bool stale_after = false;            // data of an earlier lap follows
    size_t pictures = 0;                 // that can be exported by these heads

    bool Empty() const { return head.m_u32FileInfoHeadFlag == 0; }
    std::vector<SectionSpan> Spans() const;
    bool Full() const { return head.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT; }
};

// A record file's rebuilt heads: as far as its times say that one lap reaches, and for the case that it
// cannot hold an earlier one, all of it.
struct Rebuilt {
    RebuiltFile lap;
    std::optional<RebuiltFile> whole;
};

class IndexBuilder {
  public:
    struct Left {  // what is left of a file's heads and records
        RecordFileInfoHead_S head{};
        std::vector<RecordInfoHead_S> sections;      // flagged and of this file
        std::vector<KeyFrameInfoHead_S> key_frames;  // the whole area, up to the last flagged one
    };

    // `index` may hold anything.
    IndexBuilder(const Volume& volume, const StoreFile& index) : volume_(&volume), index_(&index) {}

    Rebuilt Build(uint32_t number, const SurveyProgress& progress = {}) const;  // reads the whole file
    Rebuilt Build(uint32_t number, const Survey& survey) const;                 // of the whole file
    // The same from what is known of file `number` already.
    static Rebuilt BuildFrom(const Survey& survey, const Left& left, uint32_t number);

    // Writes key-frame records, section heads and file head, in this order, where they differ from what is there.
    void Write(const RebuiltFile& file, WriteJournal& journal) const;

  private:
    Left ReadLeft(const StoreFile& record, uint32_t number) const;
    static LapHints Hints(const Survey& survey, const Left& left);
    static RebuiltFile BuildLap(const Survey& survey, const LapHints& hints, const Left& left, uint32_t number);

    const Volume* volume_;
    const StoreFile* index_;
};

// The system head for these files: what can be trusted of `left` (a head, whatever it holds) is kept.
RecordSystemInfoHead_S BuildSystemHead(const RecordSystemInfoHead_S& left, uint64_t card_bytes,
                                       const std::vector<RebuiltFile>& files);

// The number of the file being written, by the heads alone; `current` when they do not contradict it.
uint32_t CurrentFile(const std::vector<RebuiltFile>& files, uint32_t current);

}  // namespace card
