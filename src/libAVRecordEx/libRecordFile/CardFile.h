// The door to the card: every access of the recorder to a file of the store goes through here.
//
// Owns the record of what fails (CardHealth.h) and nothing else.  Never creates a file unless a caller of the library
// asks for it, never blocks on anything but the card, never moves a descriptor's position, never allocates.
// Threads: any function by any thread; who shares a descriptor orders its users.
// Tests cut, fail or delay single calls with a table of their own (ReplaceCardCalls).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "Descriptor.h"
#include "libRecordFile.h"

namespace card {

inline constexpr char kIndexPath[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;
inline constexpr char kEventsPath[] = RECORD_STORE_DIRECTORY RECORD_EVENT_NAME;

// What a file holds; failures are told apart by it.
enum class Kind : uint8_t {
    kIndex,   // "index000.bin"
    kRecord,  // "hi%06d.mp4"
    kEvents,  // "event000.bin"
    kOther,   // none of the recorder's own: the caller alone reports its failures
};

enum class Result : uint8_t {
    kDone,
    kEndOfFile,  // the file is too short for all of it
    kFailed,     // errno says why; this does not mean that nothing is there
};

// Opens a file that is there and is a regular one: `mode` is AVFILE_READ or AVFILE_READ_WRITE.  Nothing is ever
// created: once the card is gone its directory is the camera's own flash.  None, and errno, on failure.
Descriptor OpenExisting(Kind kind, const char* path, int mode);
Descriptor OpenIndex(int mode);
Descriptor OpenEvents(int mode);
Descriptor OpenRecordFile(uint32_t file_no, int mode);

// The open of the C interface: as OpenExisting, but creates (0666) where `flags` say so.  The descriptor or -1.
int OpenAs(Kind kind, const char* path, int flags);

// Closes; 0, or -1 with errno.
int CloseAs(Kind kind, int fd);

// Transfer `length` bytes at `offset`, all of them or not done.  A transfer that comes short is not continued.
Result ReadAt(Kind kind, int fd, uint64_t offset, void* buffer, int64_t length);
Result WriteAt(Kind kind, int fd, uint64_t offset, const void* buffer, int64_t length);

// Makes the system write what was written into `length` bytes at `offset` (kToTheEnd: and into all that follows), and
// waits until the card has it.  Descriptors of the same file may go on writing meanwhile.
inline constexpr uint64_t kToTheEnd = 0;
Result SyncRange(Kind kind, int fd, uint64_t offset, uint64_t length);

// One whole record.
template <class Record>
Result ReadRecord(Kind kind, int fd, uint64_t offset, Record* record) {
    return ReadAt(kind, fd, offset, record, sizeof(Record));
}
template <class Record>
Result WriteRecord(Kind kind, int fd, uint64_t offset, const Record* record) {
    return WriteAt(kind, fd, offset, record, sizeof(Record));
}

// A result as the C interface returns it: 0, or -1.
inline int AsInt(Result result) {
    return result == Result::kDone ? 0 : -1;
}

// A result of reading a head as AVHeadLoad returns it.
inline AVHeadLoad AsHeadLoad(Result result) {
    return result == Result::kDone ? AV_HEAD_LOADED : result == Result::kEndOfFile ? AV_HEAD_ABSENT : AV_HEAD_FAILED;
}

// The system calls behind the door.
struct Calls {
    int (*Open)(const char* path, int flags, mode_t mode);
    int (*Close)(int fd);
    ssize_t (*ReadAt)(int fd, void* buffer, size_t length, off64_t offset);
    ssize_t (*WriteAt)(int fd, const void* buffer, size_t length, off64_t offset);
    ssize_t (*Read)(int fd, void* buffer, size_t length);  // at the descriptor's position
    ssize_t (*Write)(int fd, const void* buffer, size_t length);
    int (*Status)(int fd, struct stat64* status);
    int (*SyncRange)(int fd, off64_t offset, off64_t length);
};

// The calls in force: the system's own, or those of a test.
const Calls& CardCalls();

// Makes `calls` the way to the card for the whole process and forgets all failures; null restores the system's.
// `calls` must outlive its use.
void ReplaceCardCalls(const Calls* calls);

}  // namespace card
