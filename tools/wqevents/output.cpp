#include "output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>

#include "command.h"
#include "error_stream.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr std::size_t much = 65536;
constexpr int patience = 1000;  // milliseconds
constexpr mode_t log_mode = 0640;

bool is_regular_file(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

/* A blocked signal stays pending while nobody comes to read it. */
bool end_was_asked_for() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1;
}

FileDescriptor open_log(const std::string& name) {
    return FileDescriptor(open(
        name.c_str(),
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, log_mode));
}

std::string log_failure(const std::string& name, int error) {
    const char* const reason = error == ELOOP ? "it is a symbolic link" : std::strerror(error);
    return "cannot open the log " + quoted(name) + ": " + reason;
}

}  // namespace

Output::Output() : file_(unblocking(STDOUT_FILENO)) {
    fd_ = file_.get() >= 0 ? file_.get() : STDOUT_FILENO;
    waits_ = file_.get() < 0 && !is_regular_file(STDOUT_FILENO);
}

Output::Output(const std::string& log) : log_(log), file_(open_log(log)), fd_(file_.get()) {
    if (fd_ < 0) {
        throw Failure(log_failure(log, errno));
    }
}

void Output::written() {
    if (!log_.empty()) {
        end_record();
    }
    if (text_.size() >= much) {
        flush();
    }
}

/* What a log does not take is counted trap by trap, so each is made as it is written. */
void Output::end_record() {
    if (!raw_) {
        const std::size_t start = ends_.empty() ? 0 : ends_.back();
        std::string lines = text_.substr(start);
        show_lines(lines);
        text_.replace(start, std::string::npos, lines);
    }
    ends_.push_back(text_.size());
}

void Output::flush() {
    if (!log_.empty()) {
        flush_to_log();
    } else if (!raw_) {
        show_lines(text_);
    }
    for (std::size_t done = 0; done < text_.size();) {
        done += write_some(done);
    }
    text_.clear();
}

/* A line that was torn is ended first, so that the next one is whole. */
void Output::flush_to_log() {
    if (torn_ && !text_.empty()) {
        torn_ = write(fd_, "\n", 1) != 1;
    }
    std::size_t done = 0;
    ssize_t size = 0;
    while (!torn_ && done < text_.size() && size >= 0) {
        size = write(fd_, text_.data() + done, text_.size() - done);
        done += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
        size = size < 0 && errno == EINTR ? 0 : size;
    }
    if (done < text_.size()) {
        lose_from(done, errno);
    } else if (done > 0) {
        losing_ = false;
    }
    ends_.clear();
    text_.clear();
}

void Output::lose_from(std::size_t done, int error) {
    lost_ += static_cast<std::uint64_t>(ends_.end() -
                                        std::upper_bound(ends_.begin(), ends_.end(), done));
    torn_ = torn_ || (done > 0 && text_[done - 1] != '\n');
    if (!losing_) {
        complaint_ = "cannot write to the log " + quoted(log_) + ": " + std::strerror(error);
    }
    losing_ = true;
}

std::string Output::take_complaint() {
    return std::exchange(complaint_, "");
}

std::string Output::reopen() {
    if (log_.empty()) {
        return "";
    }
    flush();
    FileDescriptor fresh = open_log(log_);
    if (fresh.get() < 0) {
        return log_failure(log_, errno) + "; the lines go on to the one that is open";
    }
    file_ = std::move(fresh);
    fd_ = file_.get();
    torn_ = false;
    return "";
}

/* A pipe that is ready takes PIPE_BUF bytes without blocking, so a stalled reader blocks nothing.
 */
std::size_t Output::write_some(std::size_t from) {
    std::size_t size = text_.size() - from;
    if (waits_) {
        wait_for_room();
        size = std::min<std::size_t>(size, PIPE_BUF);
    }
    const ssize_t written = write(fd_, text_.data() + from, size);
    if (written < 0 && errno == EPIPE) {
        throw ReaderGone();
    }
    if (written < 0 && errno == EAGAIN) {
        wait_for_room();
    } else if (written < 0 && errno != EINTR) {
        throw Fatal(system_failure("cannot write to the standard output", errno).what());
    }
    return written < 0 ? 0 : static_cast<std::size_t>(written);
}

void Output::wait_for_room() const {
    pollfd output{fd_, POLLOUT, 0};
    for (int ready = 0; ready <= 0;) {
        ready = poll(&output, 1, patience);
        if (ready == 0 && (hurried_ || end_was_asked_for())) {
            throw Fatal("cannot write to the standard output: its reader has stopped reading");
        }
    }
}

}  // namespace wq::command
