/*
 * What a block of code reports: on the standard output, on the standard error stream under a given
 * trace mask, and in the trace log (its lines without their time stamps).
 */
#ifndef WQEVENTS_TESTS_SUPPORT_DIAGNOSTICS_H
#define WQEVENTS_TESTS_SUPPORT_DIAGNOSTICS_H

#include <wqevents/trace.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/capture.h"

namespace wq::test {

struct Diagnostics {
    std::string out;
    std::string err;
    std::string trace;
};

/* The trace log kept in memory for as long as the object lives. */
class MemoryTrace {
  public:
    MemoryTrace() : stream_(open_memstream(&text_, &size_)), before_(tracelogfp) {
        if (stream_ == nullptr) {
            throw std::runtime_error("open_memstream");
        }
        tracelogfp = stream_;
    }
    ~MemoryTrace() {
        tracelogfp = before_;
        fclose(stream_);
        free(text_);
    }
    MemoryTrace(const MemoryTrace&) = delete;
    MemoryTrace& operator=(const MemoryTrace&) = delete;

    std::string lines() {
        constexpr size_t stamp = 25; /* 24 characters of time and a blank */
        fflush(stream_);
        const std::string text(text_, size_);
        std::string result;
        for (size_t at = 0; at < text.size();) {
            const size_t end = text.find('\n', at);
            if (end == std::string::npos || end - at < stamp || text[at + stamp - 1] != ' ') {
                throw std::runtime_error("not a trace line: " + text.substr(at));
            }
            result += text.substr(at + stamp, end - at - stamp + 1);
            at = end + 1;
        }
        return result;
    }

  private:
    char* text_ = nullptr;
    size_t size_ = 0;
    FILE* stream_;
    FILE* before_;
};

class TraceMask {
  public:
    explicit TraceMask(int mask) : before_(snmptracemaskEMS) { snmptracemaskEMS = mask; }
    ~TraceMask() { snmptracemaskEMS = before_; }
    TraceMask(const TraceMask&) = delete;
    TraceMask& operator=(const TraceMask&) = delete;

  private:
    int before_;
};

template <class Block>
Diagnostics diagnostics(int mask, Block&& block) {
    const TraceMask masked(mask);
    MemoryTrace trace;
    Capture err(STDERR_FILENO);
    Capture out(STDOUT_FILENO);
    std::forward<Block>(block)();
    Diagnostics result;
    result.out = out.stop();
    result.err = err.stop();
    result.trace = trace.lines();
    return result;
}

/* The lines of a table's column, each with its newline: none for an empty column. */
inline std::string as_lines(const std::string& column) {
    return column.empty() ? column : column + "\n";
}

}  // namespace wq::test

#endif
