// Whole transfers at a 64-bit position, and a descriptor that closes itself: what the index, event and
// stream operations are made of.  The file position of a descriptor is neither used nor moved.
#pragma once

#include <cstddef>
#include <cstdint>

#include "libRecordFile.h"

namespace record_file {

// Transfer exactly `length` bytes in one call.  0, or -1: null buffer, negative descriptor or length,
// an error, a short transfer.
int WriteAt(int fd, uint64_t offset, const void* buffer, int64_t length);
int ReadAt(int fd, uint64_t offset, void* buffer, int64_t length);

// One whole record.
template <class Record>
int WriteRecord(int fd, uint64_t offset, const Record* record) {
    return WriteAt(fd, offset, record, sizeof(Record));
}
template <class Record>
int ReadRecord(int fd, uint64_t offset, Record* record) {
    return ReadAt(fd, offset, record, sizeof(Record));
}

// A file of the store for the length of one operation.
class OpenFile {
  public:
    OpenFile(const char* path, int mode) : fd_(AVFileOpen(path, mode)) {}
    ~OpenFile() { Close(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int fd() const { return fd_; }

    // The result of closing: where a card reports a write late, it is reported here.
    int Close() {
        const int result = AVFileClose(fd_);
        fd_ = -1;
        return result;
    }

  private:
    int fd_;
};

}  // namespace record_file
