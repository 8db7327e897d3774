// The lines of a file in pieces of bounded length, whatever kind of file it is.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "EMS/events/internal/fd.h"

namespace wq {

// Opens a file for reading and never waits for it: a FIFO that nobody writes is as good as empty.
// A directory cannot be opened.
inline Fd open_for_reading(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return Fd();
    }
    Fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (fd && ::fstat(fd.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return Fd();
    }
    return fd;
}

class LineReader {
  public:
    static constexpr std::size_t longest_piece = 8192;

    explicit LineReader(const char* path) : fd_(open_for_reading(path)) {}

    // Whether the file could be opened; errno says why not.
    explicit operator bool() const { return static_cast<bool>(fd_); }

    // The next bytes up to and including a newline, but at most `limit` of them, itself at most
    // `longest_piece`; empty at the end. What does not end in a newline is a part of a longer line
    // or the file's last. The text stays until the next call and may hold NUL bytes.
    std::string_view piece(std::size_t limit) {
        for (;;) {
            const std::string_view ahead(buffer_.data() + begin_, std::min(end_ - begin_, limit));
            const std::size_t newline = ahead.find('\n');
            if (newline != std::string_view::npos) {
                return take(newline + 1);
            }
            if (ahead.size() == limit || !fill()) {
                return take(ahead.size());
            }
        }
    }

    // Passes over the rest of a line of which piece() gave only a part.
    void skip_line() {
        for (std::string_view rest = piece(longest_piece); !rest.empty() && rest.back() != '\n';) {
            rest = piece(longest_piece);
        }
    }

  private:
    // A writer of a FIFO that keeps silent for so long is not waited for any more.
    static constexpr int patience = 5000;  // milliseconds

    std::string_view take(std::size_t size) {
        const std::string_view text(buffer_.data() + begin_, size);
        begin_ += size;
        return text;
    }

    // Adds bytes behind those that are there; false at the end and after an error.
    bool fill() {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        for (;;) {
            const ssize_t got = ::read(fd_.get(), buffer_.data() + end_, buffer_.size() - end_);
            if (got > 0) {
                end_ += static_cast<std::size_t>(got);
            }
            if (got >= 0 || (errno != EINTR && (errno != EAGAIN || !wait()))) {
                return got > 0;
            }
        }
    }

    bool wait() const {
        pollfd file{fd_.get(), POLLIN, 0};
        const int ready = ::poll(&file, 1, patience);
        return ready > 0 || (ready < 0 && errno == EINTR);
    }

    Fd fd_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::array<char, 2 * longest_piece> buffer_;  // what lies from begin_ to end_ is to be taken
};

}  // namespace wq
