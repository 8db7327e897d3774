// Writing to log and trace targets. That never makes the program wait and never raises a signal: a
// pipe that is full or that nobody reads, and a full disk, lose what was written.
#pragma once

#include <array>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "EMS/events/internal/cancel.h"

namespace wq {

// While it lives, a write raises neither SIGPIPE nor SIGXFSZ, and the thread is not cancelled. A
// signal of these that was pending before stays so.
class WriteSignalsHeld {
  public:
    WriteSignalsHeld();
    ~WriteSignalsHeld();
    WriteSignalsHeld(const WriteSignalsHeld&) = delete;
    WriteSignalsHeld& operator=(const WriteSignalsHeld&) = delete;

    const sigset_t& mask_before() const { return before_; }

  private:
    const CancelHeld uncancelled_;
    sigset_t raised_{};  // those that only a write of this scope can raise
    sigset_t before_{};
};

// Text of any length. Without memory for a long one, what does not fit is left out.
class LogLine {
  public:
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    void vappend(const char* format, va_list args) __attribute__((format(printf, 2, 0)));
    void append(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void end_line();  // there is always room for its newline
    std::string_view text() const { return {start(), length_}; }

  private:
    struct Freer {
        void operator()(char* text) const { std::free(text); }
    };
    char* start() { return longer_ ? longer_.get() : short_.data(); }
    const char* start() const { return longer_ ? longer_.get() : short_.data(); }
    void grow(std::size_t needed);

    std::array<char, 1024> short_;
    std::unique_ptr<char, Freer> longer_;
    std::size_t room_ = sizeof(short_);
    std::size_t length_ = 0;
};

// False when a part of the text was lost. errno stays as it was.
bool write_log(int fd, std::string_view text);

enum class Flush { no, yes };
bool write_log(std::FILE* stream, std::string_view text, Flush flush = Flush::yes);

}  // namespace wq
