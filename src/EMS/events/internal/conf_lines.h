// The lines of a configuration file, by its rules for comments, blanks and length, and the names in
// a source list file, which is read by the same rules.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "EMS/events/internal/fd.h"

namespace wq {

// Opens a file for reading. A FIFO does not wait for its writer: without one it is an empty file. A
// directory cannot be opened (EISDIR). On failure errno tells why.
inline Fd open_conf_input(const char* path) {
    Fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (fd && (::fstat(fd.get(), &status) != 0 || S_ISDIR(status.st_mode))) {
        fd = Fd();
        errno = EISDIR;
    }
    return fd;
}

// Hands out the lines that count: without leading blanks and tabs and without their newline, up to
// a NUL; comments, whose first character that is no blank is '#', are passed over. A line lives
// until the next one is asked for.
class ConfLines {
  public:
    // Bytes of the longest line, its newline included: with the terminator and one byte to spare it
    // fits the 51200 that a line may take.
    static constexpr std::size_t line_max = 51198;

    // `fd` stays the caller's; `longest` is at most `line_max`.
    explicit ConfLines(int fd, std::size_t longest = line_max)
        : fd_(fd), longest_(longest), buffer_(std::make_unique_for_overwrite<char[]>(room)) {}

    // False at the end of the file, and from the first line on that is too long.
    bool next(std::string_view& line) {
        std::string_view raw;
        while (!too_long_ && read_raw(raw)) {
            ++number_;
            too_long_ = raw.size() > longest_;
            line = text_of(raw);
            if (!too_long_ && (line.empty() || line.front() != '#')) {
                return true;
            }
        }
        return false;
    }

    // The number of the line last read, comments counted too; 0 before the first.
    int number() const { return number_; }
    bool too_long() const { return too_long_; }

  private:
    static constexpr std::size_t room = 65536;
    // A pipe whose writer says nothing for so long has ended.
    static constexpr int patience_ms = 1000;

    // The next bytes up to and with a newline, or what there is before the end of the file; of a
    // line that is too long only as much as shows it.
    bool read_raw(std::string_view& raw) {
        const char* newline = nullptr;
        std::size_t searched = 0;
        do {
            const char* from = buffer_.get() + begin_ + searched;
            const std::size_t rest = end_ - begin_ - searched;
            newline = rest == 0 ? nullptr : static_cast<const char*>(std::memchr(from, '\n', rest));
            searched += rest;
        } while (newline == nullptr && searched <= longest_ && fill());
        const char* start = buffer_.get() + begin_;
        raw = {start,
               newline == nullptr ? searched : static_cast<std::size_t>(newline - start) + 1};
        begin_ += raw.size();
        return !raw.empty();
    }

    std::string_view text_of(std::string_view raw) const {
        if (holds_nul_) {
            raw = raw.substr(0, raw.find('\0'));
        }
        std::size_t blanks = 0;
        while (blanks < raw.size() && (raw[blanks] == ' ' || raw[blanks] == '\t')) {
            ++blanks;
        }
        raw.remove_prefix(blanks);
        if (!raw.empty() && raw.back() == '\n') {
            raw.remove_suffix(1);
        }
        return raw;
    }

    // Reads a block behind what is not handed out yet.
    bool fill() {
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        const std::size_t got = read_block(buffer_.get() + end_, room - end_);
        holds_nul_ =
            holds_nul_ || (got != 0 && std::memchr(buffer_.get() + end_, 0, got) != nullptr);
        end_ += got;
        return got != 0;
    }

    // A read that fails is the end of the file.
    std::size_t read_block(char* to, std::size_t size) const {
        ssize_t got = 0;
        do {
            got = ::read(fd_, to, size);
        } while (got < 0 && (errno == EINTR || (errno == EAGAIN && wait_for_writer())));
        return got < 0 ? 0 : static_cast<std::size_t>(got);
    }

    bool wait_for_writer() const {
        pollfd wanted{fd_, POLLIN, 0};
        int ready = 0;
        do {
            ready = ::poll(&wanted, 1, patience_ms);
        } while (ready < 0 && errno == EINTR);
        return ready > 0;
    }

    int fd_;
    std::size_t longest_;
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0;  // what has been read and not handed out
    std::size_t end_ = 0;
    int number_ = 0;
    bool too_long_ = false;
    bool holds_nul_ = false;
};

// What separates the names of nodes.
inline constexpr std::string_view node_separators = " \t\n,";

// The first name on a line, or an empty text.
inline std::string_view first_listed_word(std::string_view line) {
    const std::size_t start = line.find_first_not_of(node_separators);
    if (start == std::string_view::npos) {
        return {};
    }
    return line.substr(start, line.find_first_of(node_separators, start) - start);
}

// Calls `visit` with the first word of each line of a source list file that has one, until it
// returns false. False when the file cannot be opened; `*too_long` (may be null) is set where the
// list ends early by a line that is too long.
template <class Visit>
bool for_each_listed_node(const char* path, Visit visit, bool* too_long = nullptr) {
    const Fd fd = open_conf_input(path);
    if (!fd) {
        return false;
    }
    ConfLines lines(fd.get());
    bool wanted = true;
    for (std::string_view line; wanted && lines.next(line);) {
        const std::string_view word = first_listed_word(line);
        wanted = word.empty() || visit(word);
    }
    if (too_long != nullptr) {
        *too_long = lines.too_long();
    }
    return true;
}

}  // namespace wq
