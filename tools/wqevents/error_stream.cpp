// The standard error stream of a listener: written without waiting, and not too often.
#include "error_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "shown_text.h"

namespace wq::command {
namespace {

using std::chrono::seconds;

constexpr int complaints_max = 10;  // in a second

struct ErrorStream {
    bool never_waits = false;
    bool is_file = false;
    FileDescriptor own;  // the stream opened again; empty if it cannot be
};

ErrorStream& stream() {
    static ErrorStream the_stream;
    return the_stream;
}

bool is_of_type(int fd, mode_t type) {
    struct stat status {};
    return fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == type;
}

ssize_t drop(void* /*cookie*/, const char* /*text*/, std::size_t size) {
    return static_cast<ssize_t>(size);
}

// The library reports each trap that does not decode by stdio, which waits.
void silence_library() {
    std::FILE* nowhere = fopencookie(nullptr, "w", {nullptr, drop, nullptr, nullptr});
    if (nowhere != nullptr) {
        stderr = nowhere;
    }
}

bool takes_now(int fd) {
    pollfd waited{fd, POLLOUT, 0};
    return poll(&waited, 1, 0) == 1 && (waited.revents & POLLOUT) != 0;
}

// A pipe that takes anything takes PIPE_BUF bytes, so a line of that length is never torn.
bool write_line(std::string_view line) {
    const ErrorStream& to = stream();
    const int fd = to.own.get() >= 0 ? to.own.get() : STDERR_FILENO;
    if (!to.is_file && !takes_now(fd)) {
        return false;
    }
    const std::size_t size = std::min<std::size_t>(line.size(), PIPE_BUF);
    ssize_t written = 0;
    do {
        written = write(fd, line.data(), size);
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(size);
}

std::string seconds_text(Complaints::Clock::duration time) {
    const auto whole = std::chrono::round<seconds>(time).count();
    return std::to_string(std::max<std::int64_t>(whole, 1)) + " s";
}

bool write_complaint(std::string_view text) {
    std::string lines = indented(text) + "\n";
    show_lines(lines);
    return write_error(lines);
}

}  // namespace

FileDescriptor unblocking(int fd) {
    if (!is_of_type(fd, S_IFIFO) && isatty(fd) != 1) {
        return FileDescriptor();
    }
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return FileDescriptor(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

void never_wait_for_errors() {
    ErrorStream& to = stream();
    to.never_waits = true;
    to.is_file = is_of_type(STDERR_FILENO, S_IFREG);
    to.own = unblocking(STDERR_FILENO);
    silence_library();
}

bool errors_never_wait() {
    return stream().never_waits;
}

bool write_error(std::string_view text) {
    bool taken = true;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
        taken = write_line(text.substr(0, size)) && taken;
        text.remove_prefix(size);
    }
    return taken;
}

void Complaints::add(std::string_view text) {
    const Clock::time_point now = Clock::now();
    settle(now);
    start_ = written_ == 0 ? now : start_;
    const bool allowed = written_ < complaints_max;
    written_ += allowed ? 1 : 0;
    if (!allowed || !write_complaint(text)) {
        count();
    }
}

void Complaints::tell(std::string_view text) {
    if (!write_complaint(text)) {
        start_ = written_ == 0 ? Clock::now() : start_;
        written_ = std::max(written_, 1);
        count();
    }
}

void Complaints::count() {
    since_ = more_ == 0 ? start_ : since_;
    ++more_;
}

void Complaints::settle(Clock::time_point now) {
    if (written_ != 0 && now >= start_ + seconds(1)) {
        sum_up(now);
        // What could not be told now is told after another second.
        start_ = now;
        written_ = more_ == 0 ? 0 : 1;
    }
}

void Complaints::finish() {
    sum_up(Clock::now());
}

Complaints::Clock::time_point Complaints::next() const {
    return more_ == 0 ? Clock::time_point::max() : start_ + seconds(1);
}

void Complaints::sum_up(Clock::time_point now) {
    if (more_ != 0 && write_error(std::to_string(more_) + " more complaints in " +
                                  seconds_text(now - since_) + "\n")) {
        more_ = 0;
    }
}

}  // namespace wq::command
