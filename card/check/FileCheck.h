// One record file that is in use: its heads in the index, and its key-frame records, against its stream.
#pragma once

#include "check/Findings.h"
#include "index/CardIndex.h"
#include "stream/StreamSurvey.h"

namespace card {

// Adds what it finds.  Throws CardError when the file cannot be read.
void CheckRecordFile(const CardIndex& index, const FileState& file, Findings& findings, const SurveyProgress& progress);

}  // namespace card
