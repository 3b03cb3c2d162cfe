// Makes reads at one place of the card fail, at the recorder's door to it.
#pragma once

#include <atomic>
#include <cerrno>

#include "CardFile.h"

namespace support {

class ReadFault {
  public:
    // `error` 0: only half of what was asked for comes.
    ReadFault(off64_t offset, int error) {
        card::ReplaceCardCalls(nullptr);
        real_ = card::CardCalls();
        offset_ = offset;
        error_ = error;
        static card::Calls faulty;
        faulty = real_;
        faulty.ReadAt = Read;
        card::ReplaceCardCalls(&faulty);
    }
    ~ReadFault() { card::ReplaceCardCalls(nullptr); }
    ReadFault(const ReadFault&) = delete;
    ReadFault& operator=(const ReadFault&) = delete;

  private:
    static ssize_t Read(int fd, void* buffer, size_t length, off64_t offset) {
        if (offset != offset_) {
            return real_.ReadAt(fd, buffer, length, offset);
        }
        if (error_ == 0) {
            return real_.ReadAt(fd, buffer, length / 2, offset);
        }
        errno = error_;
        return -1;
    }

    static inline card::Calls real_;
    static inline off64_t offset_;
    static inline int error_;
};

}  // namespace support
