// A file descriptor that closes itself; -1 or any negative number: none.
#pragma once

#include <unistd.h>

#include <utility>

class Descriptor {
  public:
    using Closer = int (*)(int);

    Descriptor() = default;
    // `closer` closes it in place of close(), with the same result.
    explicit Descriptor(int fd, Closer closer = close) : fd_(fd), closer_(closer) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)), closer_(other.closer_) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            fd_ = std::exchange(other.fd_, -1);
            closer_ = other.closer_;
        }
        return *this;
    }
    ~Descriptor() { Close(); }

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }

    // 0, or -1 with errno: a file may report here that an earlier write failed.  Closing none is -1.
    int Close() { return fd_ < 0 ? -1 : closer_(std::exchange(fd_, -1)); }

  private:
    int fd_ = -1;
    Closer closer_ = close;
};
