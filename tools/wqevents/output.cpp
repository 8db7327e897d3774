#include "output.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

#include "command.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr std::size_t much = 65536;
constexpr int patience = 1000;  // milliseconds

bool is_regular_file() {
    struct stat status {};
    return fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode);
}

/* A blocked signal stays pending while nobody comes to read it. */
bool end_was_asked_for() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1;
}

}  // namespace

void Output::written() {
    if (text_.size() >= much) {
        flush();
    }
}

void Output::flush() {
    if (!raw_) {
        show_lines(text_);
    }
    for (std::size_t done = 0; done < text_.size();) {
        done += write_some(done);
    }
    text_.clear();
}

/* A pipe that is ready takes PIPE_BUF bytes without blocking, so a stalled reader blocks nothing.
 */
std::size_t Output::write_some(std::size_t from) {
    std::size_t size = text_.size() - from;
    if (!is_regular_file()) {
        wait_for_room();
        size = std::min<std::size_t>(size, PIPE_BUF);
    }
    const ssize_t written = write(STDOUT_FILENO, text_.data() + from, size);
    if (written < 0 && errno == EPIPE) {
        throw ReaderGone();
    }
    if (written < 0 && errno != EINTR && errno != EAGAIN) {
        throw Fatal(system_failure("cannot write to the standard output", errno).what());
    }
    return written < 0 ? 0 : static_cast<std::size_t>(written);
}

void Output::wait_for_room() const {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    for (int ready = 0; ready <= 0;) {
        ready = poll(&output, 1, patience);
        if (ready == 0 && (hurried_ || end_was_asked_for())) {
            throw Fatal("cannot write to the standard output: its reader has stopped reading");
        }
    }
}

}  // namespace wq::command
