// Makes some accesses to the card fail, at the recorder's door to it, while the object lives.  One at a time.
#pragma once

#include <atomic>
#include <cerrno>
#include <climits>

#include "CardFile.h"

namespace support {

struct Refused {  // say only what matters
    enum Access { kReads, kWrites } access = kWrites;
    off64_t offset = -1;  // only there; -1: anywhere
    size_t length = 0;    // only so many bytes; 0: any
    int error = EIO;      // 0: only half of what was asked for is done
    int times = INT_MAX;  // then it works
};

class CardFault {
  public:
    explicit CardFault(const Refused& refused) {
        access_ = refused.access;
        offset_ = refused.offset;
        length_ = refused.length;
        Again(refused.times, refused.error);
        card::ReplaceCardCalls(&kCalls);
    }
    ~CardFault() { card::ReplaceCardCalls(nullptr); }
    void Again(int times, int error = EIO) {
        error_ = error;
        times_ = times;
    }
    CardFault(const CardFault&) = delete;
    CardFault& operator=(const CardFault&) = delete;

  private:
    static inline std::atomic<Refused::Access> access_;
    static inline std::atomic<off64_t> offset_;
    static inline std::atomic<size_t> length_;
    static inline std::atomic<int> error_, times_;

    template <class Call>
    static ssize_t Try(Refused::Access access, size_t length, off64_t offset, Call call) {
        const bool is_meant = access_ == access && (offset_ == -1 || offset_ == offset) &&
                              (length_ == 0 || length_ == length) && times_ > 0 && times_-- > 0;
        if (!is_meant || error_ == 0) return call(is_meant ? length / 2 : length);
        errno = error_;
        return -1;
    }

    // A thread of the recorder may be at the card: what it sees of a fault never moves, and changes in one step.
    static inline const card::Calls kReal = card::CardCalls();
    static inline const card::Calls kCalls = [] {
        card::Calls calls = kReal;
        calls.ReadAt = [](int fd, void* buffer, size_t length, off64_t offset) {
            return Try(Refused::kReads, length, offset, [&](size_t n) { return kReal.ReadAt(fd, buffer, n, offset); });
        };
        calls.WriteAt = [](int fd, const void* buffer, size_t length, off64_t offset) {
            return Try(Refused::kWrites, length, offset,
                       [&](size_t n) { return kReal.WriteAt(fd, buffer, n, offset); });
        };
        return calls;
    }();
};

}  // namespace support
