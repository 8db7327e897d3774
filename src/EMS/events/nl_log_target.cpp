// Writes to logs and traces without waiting and without signals.
#include "EMS/events/internal/log_target.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include "EMS/events/internal/fd.h"

namespace wq {
namespace {

constexpr std::array write_signals{SIGPIPE, SIGXFSZ};

// A descriptor of the program's own may wait; one that is ready takes PIPE_BUF bytes at once.
bool is_ready(int fd) {
    pollfd waited{fd, POLLOUT, 0};
    constexpr timespec at_once{};
    int ready = 0;
    do {
        ready = ppoll(&waited, 1, &at_once, nullptr);
    } while (ready == -1 && errno == EINTR);
    return ready == 1 && (waited.revents & (POLLERR | POLLNVAL)) == 0;  // a pipe that nobody reads
}

// Bytes that go out in one write: all to a file, so that lines of several processes do not mix.
std::size_t piece_for(int fd) {
    struct stat status {};
    const bool is_file = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    return is_file ? SIZE_MAX : PIPE_BUF;
}

// `put` gives the bytes that went out, and 0 or less when no more may.
template <class Put>
bool put_pieces(int fd, std::string_view text, Put put) {
    const std::size_t most = text.size() > PIPE_BUF ? piece_for(fd) : PIPE_BUF;
    ssize_t gone = 1;
    while (gone > 0 && !text.empty() && is_ready(fd)) {
        gone = put(text.substr(0, most));
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(gone, 0)));
    }
    return text.empty();
}

ssize_t put_piece(int fd, std::string_view piece) {
    ssize_t gone = 0;
    do {
        gone = ::write(fd, piece.data(), piece.size());
    } while (gone == -1 && errno == EINTR);
    return gone;
}

ssize_t put_piece(std::FILE* stream, std::string_view piece, Flush flush) {
    const bool gone = std::fwrite(piece.data(), 1, piece.size(), stream) == piece.size() &&
                      (flush == Flush::no || std::fflush(stream) == 0);
    return gone ? static_cast<ssize_t>(piece.size()) : -1;
}

}  // namespace

WriteSignalsHeld::WriteSignalsHeld() {
    sigset_t pending{};
    sigset_t held{};
    sigpending(&pending);
    sigemptyset(&held);
    sigemptyset(&raised_);
    for (const int signal : write_signals) {
        sigaddset(&held, signal);
        if (sigismember(&pending, signal) == 0) {
            sigaddset(&raised_, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &held, &before_);
}

WriteSignalsHeld::~WriteSignalsHeld() {
    const ErrnoKeeper keeper;
    constexpr timespec at_once{};
    while (sigtimedwait(&raised_, nullptr, &at_once) > 0 || errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void LogLine::grow(std::size_t needed) {
    const std::size_t wanted = std::max(needed, 2 * room_);
    char* const grown = static_cast<char*>(std::malloc(wanted));
    if (grown != nullptr) {
        std::memcpy(grown, start(), length_);
        longer_.reset(grown);
        room_ = wanted;
    }
}

void LogLine::vappend(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(start() + length_, room_ - length_, format, args);
    if (length > 0) {
        const std::size_t needed = length_ + static_cast<std::size_t>(length) + 1;
        if (needed > room_) {
            grow(needed);
            std::vsnprintf(start() + length_, room_ - length_, format, again);
        }
        length_ = std::min(needed, room_) - 1;
    }
    va_end(again);
}

// It takes the place of the terminator.
void LogLine::end_line() {
    if (length_ < room_) {
        start()[length_++] = '\n';
    }
}

void LogLine::append(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vappend(format, args);
    va_end(args);
}

bool write_log(int fd, std::string_view text) {
    const ErrnoKeeper keeper;
    const WriteSignalsHeld held;
    return put_pieces(fd, text, [fd](std::string_view piece) { return put_piece(fd, piece); });
}

bool write_log(std::FILE* stream, std::string_view text, Flush flush) {
    const ErrnoKeeper keeper;
    const WriteSignalsHeld held;
    const auto put = [=](std::string_view piece) { return put_piece(stream, piece, flush); };
    const bool had_failed = std::ferror(stream) != 0;
    const int fd = fileno(stream);
    const bool gone = fd >= 0 ? put_pieces(fd, text, put) : put(text) > 0;  // no fd: in memory
    if (!had_failed) {
        std::clearerr(stream);
    }
    return gone;
}

}  // namespace wq
