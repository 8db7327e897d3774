// The trace file: its lines and dumps.
#include <wqevents/trace.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include <wqplatform.h>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/log_target.h"

FILE* tracelogfp = nullptr;
FILE* dumpFp = nullptr;
int traceStartingAndStopping = 1;
int dump_packetEMS = 0;
int snmptracemaskEMS = 0;

namespace wq {
namespace {

constexpr int row_length = 16;

// The calling thread's signal mask: signals 1 to 32 as bits 0 to 31, the form of sigblock().
int signal_mask() {
    sigset_t mask{};
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    uint32_t bits = 0;
    for (int number = 1; number <= 32; ++number) {
        bits |= uint32_t{sigismember(&mask, number) == 1} << (number - 1);
    }
    return static_cast<int>(bits);
}

// Without waiting for a reader, should the path be a pipe's; what such a pipe does not take is
// lost.
Stream open_to_append(const char* path) {
    constexpr mode_t for_all = 0666;
    const CancelHeld held;
    Fd fd(open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, for_all));
    Stream stream(fd ? fdopen(fd.get(), "a") : nullptr);
    if (stream) {
        fd.release();
    }
    return stream;
}

void append_stamp(LogLine& line) {
    std::array<char, 99> text{};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset();
    if (localtime_r(&now, &local) != nullptr) {
        std::strftime(text.data(), text.size(), "%a %b %d %H:%M:%S %Y", &local);
    }
    line.append("%-24.24s ", text.data());
}

void write_start_or_stop(const char* text) {
    if (traceStartingAndStopping != 0) {
        LogLine line;
        append_stamp(line);
        line.append("%s", text);
        line.end_line();
        write_log(tracelogfp, line.text());
    }
}

// The text column of one row of a dump; what has not been put into it stays a dot.
struct TextColumn {
    std::array<char, row_length + 1> text{};

    TextColumn() { clear(); }
    void clear() {
        text.fill('.');
        text.back() = '\0';
    }
    void put(int position, unsigned char byte) {
        text[static_cast<size_t>(position)] =
            byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
    }
    void end_row(LogLine& dump) {
        dump.append(" %s\n", text.data());
        clear();
    }
};

void append_dump(LogLine& dump, const unsigned char* bytes, int length) {
    TextColumn column;
    for (int i = 0; i < length; ++i) {
        const int position = i % row_length;
        if (position == 0) {
            dump.append("%4d:  ", i);
        }
        dump.append("%2x ", bytes[i]);
        column.put(position, bytes[i]);
        if (position == row_length - 1) {
            column.end_row(dump);
        }
    }
    if (length > 0 && length % row_length != 0) {
        for (int position = length % row_length; position < row_length; ++position) {
            dump.append("-- ");
        }
        column.end_row(dump);
    }
}

}  // namespace
}  // namespace wq

int open_trace_log(const char* path) WQEVENTS_NOEXCEPT {
    if (tracelogfp != nullptr) {
        dumpFp = tracelogfp;
        return 0;
    }
    if (path == nullptr) {
        return -1;
    }
    tracelogfp = strcoll_new(path, "-") == 0 ? stdout : wq::open_to_append(path).release();
    if (tracelogfp == nullptr) {
        return -1;
    }
    dumpFp = tracelogfp;
    wq::write_start_or_stop("Tracing Started");
    return 0;
}

void close_trace_log(void) WQEVENTS_NOEXCEPT {
    if (tracelogfp != nullptr) {
        wq::write_start_or_stop("Tracing Stopped");
        if (tracelogfp != stdout) {
            const wq::WriteSignalsHeld held;
            const wq::Stream closed(tracelogfp);
        }
        tracelogfp = nullptr;
    }
    dumpFp = nullptr;
}

void log_trace(const char* routine, const char* fmt, ...) WQEVENTS_NOEXCEPT {
    if (tracelogfp == nullptr || routine == nullptr || fmt == nullptr) {
        return;
    }
    const wq::ErrnoKeeper keeper;
    wq::LogLine line;
    wq::append_stamp(line);
    line.append("%s: ", routine);
    va_list args;
    va_start(args, fmt);
    line.vappend(fmt, args);
    va_end(args);
    line.end_line();
    wq::write_log(tracelogfp, line.text());
}

int sigblockhexdump(const unsigned char* bufp, int len) WQEVENTS_NOEXCEPT {
    if (tracelogfp == nullptr || bufp == nullptr) {
        return 0;
    }
    wq::LogLine dump;
    wq::append_dump(dump, bufp, len);
    wq::write_log(tracelogfp, dump.text(), wq::Flush::no);
    return wq::signal_mask();
}

int printTime(void) WQEVENTS_NOEXCEPT {
    if (tracelogfp == nullptr) {
        return -1;
    }
    wq::LogLine stamp;
    wq::append_stamp(stamp);
    const bool written = wq::write_log(tracelogfp, stamp.text(), wq::Flush::no);
    return written ? static_cast<int>(stamp.text().size()) : -1;
}
