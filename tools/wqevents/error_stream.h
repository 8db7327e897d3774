// What a listener says on the standard error stream, which it never waits for.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "file_descriptor.h"

namespace wq::command {

// unblocking: a descriptor of its own for the pipe or terminal that `fd` leads to, on which a write
// never waits; nobody else who shares `fd` notices. Empty if `fd` is something else, or if the
// system does not open it again.
FileDescriptor unblocking(int fd);

// never_wait_for_errors: from now on report() drops what the standard error stream does not take at
// once, and what the library writes to that stream by itself is dropped.
void never_wait_for_errors();

// errors_never_wait: whether never_wait_for_errors() was called.
bool errors_never_wait();

// write_error: writes the text, whole lines, and never waits. False if a line of it was dropped.
// Only after never_wait_for_errors().
bool write_error(std::string_view text);

// Complaints about what peers do: a storm of them neither fills a log nor holds anything up.
class Complaints {
  public:
    using Clock = std::chrono::steady_clock;

    // Writes a complaint, a text without its last newline, made fit for a terminal: at most 10 in a
    // second. The others are
    // counted, and so are those that the standard error stream does not take.
    void add(std::string_view text);

    // Writes a complaint about something that is not a peer's doing, whatever the peers do. It is
    // counted only if the stream does not take it.
    void tell(std::string_view text);

    // Writes "N more complaints in S s" if the second is over and there are such.
    void settle(Clock::time_point now);

    // The same without waiting for the second to be over.
    void finish();

    // When settle() has something to do; the end of time if never.
    Clock::time_point next() const;

  private:
    void count();
    void sum_up(Clock::time_point now);

    Clock::time_point start_ = {};  // of the second
    Clock::time_point since_ = {};  // of the first that was counted
    int written_ = 0;               // in this second
    std::uint64_t more_ = 0;
};

}  // namespace wq::command
