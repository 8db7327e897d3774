/*
 * What a block of code writes to the standard output or the standard error stream, by whatever
 * means: the descriptor itself is redirected for as long as the block runs.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_CAPTURE_H
#define WQEVENTS_TESTS_SUPPORT_CAPTURE_H

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>

namespace wq::test {

class Capture {
  public:
    explicit Capture(int fd) : fd_(fd) {
        flush();
        sink_ = memfd_create("capture", MFD_CLOEXEC);
        saved_ = dup(fd_);
        if (sink_ < 0 || saved_ < 0 || dup2(sink_, fd_) < 0) {
            throw std::system_error(errno, std::generic_category(), "capture");
        }
    }
    ~Capture() { stop(); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /* Ends the redirection and gives the text; a second call gives an empty one. */
    std::string stop() {
        std::string text;
        if (saved_ < 0) {
            return text;
        }
        flush();
        dup2(saved_, fd_);
        std::array<char, 4096> block{};
        off_t at = 0;
        for (ssize_t n = 0; (n = pread(sink_, block.data(), block.size(), at)) > 0; at += n) {
            text.append(block.data(), static_cast<size_t>(n));
        }
        close(saved_);
        close(sink_);
        saved_ = -1;
        return text;
    }

  private:
    static void flush() {
        fflush(stdout);
        fflush(stderr);
    }

    int fd_;
    int sink_ = -1;
    int saved_ = -1;
};

template <class Block>
std::string captured_stdout(Block&& block) {
    Capture capture(STDOUT_FILENO);
    std::forward<Block>(block)();
    return capture.stop();
}

template <class Block>
std::string captured_stderr(Block&& block) {
    Capture capture(STDERR_FILENO);
    std::forward<Block>(block)();
    return capture.stop();
}

}  // namespace wq::test

#endif
