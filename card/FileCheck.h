// One record file that is in use: its heads in the index, and its key-frame records, against its stream.
#pragma once

#include "CardIndex.h"
#include "Findings.h"
#include "StreamSurvey.h"

namespace card {

// Where the file's head lies in the index.
inline uint64_t FileHeadOffset(uint32_t number) {
    return RECORD_FILE_HEAD_BASE + uint64_t{number} * sizeof(RecordFileInfoHead_S);
}

// Adds what it finds.  Throws CardError when the file cannot be read.
void CheckRecordFile(const CardIndex& index, const FileState& file, Findings& findings, const SurveyProgress& progress);

}  // namespace card
