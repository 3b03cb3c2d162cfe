// Whether a cut card keeps every promise, and which rows of the table its losses fall into.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Medium.h"
#include "Reader.h"
#include "Recorder.h"
#include "Tape.h"
#include "volume/Volume.h"

namespace cuts {

// Rows of the table "The power is lost" in docs/card-format.md.
enum class Row {
    kNothing,
    kBoth,
    kStream,
    kHeads,
    kKeyRecord,
    kKeyRecordTorn,
    kSectionBehind,
    kSectionAhead,
    kFileTorn,
    kFileAtSwitch,
    kNextNamed,
    kEventHead,
    kEvent,
    kEventTorn,
};
inline constexpr size_t kRows = static_cast<size_t>(Row::kEventTorn) + 1;
struct RowRule {
    const char* name;
    std::set<std::string> errors;  // that the checker may find then
};
const RowRule& RuleOf(Row row);

struct Verdict {
    std::set<Row> rows;
    uint32_t lost = 0;             // frames that were recorded and are not found by the index, or not whole
    uint32_t claimed = 0;          // of these, frames that the index counts
    std::set<std::string> errors;  // of the checker, by kind
    std::string fault;             // the first promise that is broken; empty: none

    void Blame(const std::string& promise) {
        if (fault.empty()) fault = promise;
    }
};

class Judge {
  public:
    // `rows_before`: of an earlier cut, whose damage the card still has.
    Judge(const Medium& medium, Recorder& recorder, const Tape& tape, std::vector<Frame> frames,
          std::set<Row> rows_before);

    Verdict Of(const Cut& cut);
    // Repairs the card that is shown, judges what that leaves and puts it back.
    std::string AfterRepair(const Cut& cut) const;
    // The frames that the card may show to the next process; those that it lists and counts are to be kept.
    std::vector<Frame> Carried(const Cut& cut) const;
    // What is on the card that is shown, in words.
    void Describe(const Cut& cut) const;

  private:
    enum class State { kNew, kOld, kTorn };

    RecordFileInfoHead_S HeadOf(uint32_t file) const;
    RecordInfoHead_S SectionOf(uint32_t file, uint32_t number) const;
    bool IsIntact(const Frame& frame) const;
    State StateOf(int file, uint64_t offset, const History& record, size_t at) const;
    bool HasOldHead(const Frame& frame, const Cut& cut) const;
    void JudgeFrames(const Cut& cut, const Listing& listing, Verdict& verdict) const;
    void JudgeListed(const Cut& cut, const Listing& listing, Verdict& verdict) const;
    void JudgeRecords(const Cut& cut, const Listing& listing, Verdict& verdict) const;
    void JudgeStart(const Cut& cut, Verdict& verdict) const;
    void JudgeCheck(Verdict& verdict) const;
    Row WhyNotListed(const Frame& frame) const;

    const Medium& medium_;
    Recorder& recorder_;
    const Tape& tape_;
    const std::vector<Frame> frames_;
    const std::set<Row> rows_before_;
    std::multimap<std::pair<uint32_t, uint32_t>, const Frame*> by_place_;
    card::Volume volume_;
};

}  // namespace cuts
