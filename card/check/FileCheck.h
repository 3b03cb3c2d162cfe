// One record file that is in use: its heads in the index, and its key-frame records, against its stream.
#pragma once

#include "check/Findings.h"
#include "index/CardIndex.h"
#include "stream/StreamSurvey.h"

namespace card {

// Gets the survey of a file: of what its head counts, or of the whole file when its heads need mending.
using SurveyVisitor = std::function<void(uint32_t file, const Survey& survey, bool mend)>;

// Adds what it finds.  Throws CardError when the file cannot be read.
void CheckRecordFile(const CardIndex& index, const FileState& file, Findings& findings, const SurveyProgress& progress,
                     const SurveyVisitor& visit = {});

// The frame that fills a file names the next one before the heads count it: a power cut can leave the file short by
// all that came after the last hand-over.
bool CutBeforeFull(const FileState& file);

SectionSpan SpanOf(const Section& section);

}  // namespace card
