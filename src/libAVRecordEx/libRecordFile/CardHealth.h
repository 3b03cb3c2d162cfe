// What works and what does not at the door to the card: reports it once in the log, and judges the card.
//
// For every operation on every kind of file the first failure is logged with file, place and errno, then once a
// minute with a count while it lasts, and its end.  A card that fails now and then costs two lines a minute.
// Threads: any.  While all works a success costs one load.
#pragma once

#include <cstdint>

#include "CardFile.h"

namespace card {

enum class Operation : uint8_t { kOpen, kClose, kRead, kWrite, kSync };

struct Place {
    const char* path;  // null: the descriptor's
    int fd;
    uint64_t offset;
    int64_t length;
};

// `error` is the errno.  Files of kind kOther are not watched.
void TellFailure(Operation operation, Kind kind, const Place& place, int error);
void TellSuccess(Operation operation, Kind kind);

// The card turned read-only, is gone, has refused what it was handed for 3 s, or every write for 10 s.  Ends with the
// next write that works.
bool IsFailing();

// A record file refuses to be written since the last run began, or to be read, which is tried before it, and not
// because the file system is read-only.  Not said again before a record file has taken something: where each of them
// refuses, the ring's heads are not to be spent on trying.
bool RecordFileFails();

// Footage was handed over, and the card has it.
void RecordFileTook();

// A new run begins: the failures before it no longer count against the card.
void Pardon();

// All is as at the start of the process.
void ForgetFailures();

}  // namespace card
