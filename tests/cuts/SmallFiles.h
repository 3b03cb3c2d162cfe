// Record files of a mebibyte instead of 256, full after 32 KiB: a million cards can be judged that way.
//
// Put in front of every source of the recorder and the card tool that this folder builds for itself; all else of the
// format, and all of the code, is the product's own.
#pragma once

#include "libRecordFile.h"

#undef RECORD_FILE_SIZE
#undef RECORD_STREAM_LIMIT
#undef RECORD_KEY_FRAME_BASE
#define RECORD_FILE_SIZE 0x110000u
#define RECORD_STREAM_LIMIT 0x8000u
#define RECORD_KEY_FRAME_BASE 0x100000u  // further than the longest packed frame can reach beyond the limit
