// Owners of descriptors and streams, and of errno.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "EMS/events/internal/cancel.h"

namespace wq {

// Gives errno back what it held, whatever the calls of the scope do to it.
class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    const int saved_ = errno;
};

// A descriptor that is closed when its owner goes. Closing keeps errno: the failure that made the
// owner give up is the one to be reported.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(other.release()) {}
    Fd& operator=(Fd&& other) noexcept {
        Fd old(std::exchange(fd_, other.release()));
        return *this;
    }
    ~Fd() {
        if (fd_ >= 0) {
            const ErrnoKeeper keeper;
            const CancelHeld held;
            ::close(fd_);
        }
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};

struct StreamCloser {
    void operator()(std::FILE* stream) const {
        const CancelHeld held;
        std::fclose(stream);
    }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

}  // namespace wq
