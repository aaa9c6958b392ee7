// A file descriptor that is closed on every way out.
#pragma once

#include <unistd.h>

#include <utility>

namespace sim {

class Descriptor {
  public:
    /// Owns fd; -1 for none.
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset();
        fd_ = std::exchange(other.fd_, -1);
        return *this;
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Gives it away: the caller closes it.
    int release() { return std::exchange(fd_, -1); }
    void reset() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

  private:
    int fd_;
};

}  // namespace sim
