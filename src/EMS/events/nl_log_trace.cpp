#include <wqevents/trace.h>

#include <signal.h>
#include <wqplatform.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>

FILE* tracelogfp = nullptr;
FILE* dumpFp = nullptr;
int traceStartingAndStopping = 1;
int dump_packetEMS = 0;
int snmptracemaskEMS = 0;

namespace wq {
namespace {

constexpr int row_length = 16;

/*
 * Signals held off while the trace file is written: none, so that a handler may still interrupt a
 * long dump. What remains of it is that the process's mask is saved and put back.
 */
const sigset_t held_off{};

class SignalsHeld {
  public:
    SignalsHeld() { pthread_sigmask(SIG_BLOCK, &held_off, &before_); }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

    /* Signals 1 to 32 as bits 0 to 31, the form of sigblock(). */
    int mask() const {
        uint32_t bits = 0;
        for (int number = 1; number <= 32; ++number) {
            bits |= uint32_t{sigismember(&before_, number) == 1} << (number - 1);
        }
        return static_cast<int>(bits);
    }

  private:
    sigset_t before_{};
};

void write_start_or_stop(const char* text) {
    if (traceStartingAndStopping != 0) {
        printTime();
        std::fprintf(tracelogfp, "%s\n", text);
    }
}

/* The text column of one row of a dump; what has not been put into it stays a dot. */
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
    void end_row(FILE* stream) {
        std::fprintf(stream, " %s\n", text.data());
        clear();
    }
};

void dump(FILE* stream, const unsigned char* bytes, int length) {
    TextColumn column;
    for (int i = 0; i < length; ++i) {
        const int position = i % row_length;
        if (position == 0) {
            std::fprintf(stream, "%4d:  ", i);
        }
        std::fprintf(stream, "%2x ", bytes[i]);
        column.put(position, bytes[i]);
        if (position == row_length - 1) {
            column.end_row(stream);
        }
    }
    if (length > 0 && length % row_length != 0) {
        for (int position = length % row_length; position < row_length; ++position) {
            std::fputs("-- ", stream);
        }
        column.end_row(stream);
    }
}

}  // namespace
}  // namespace wq

int open_trace_log(const char* path) noexcept {
    if (tracelogfp != nullptr) {
        dumpFp = tracelogfp;
        return 0;
    }
    if (path == nullptr) {
        return -1;
    }
    const wq::SignalsHeld held;
    tracelogfp = strcoll_new(path, "-") == 0 ? stdout : std::fopen(path, "ae");
    if (tracelogfp == nullptr) {
        return -1;
    }
    dumpFp = tracelogfp;
    wq::write_start_or_stop("Tracing Started");
    if (traceStartingAndStopping != 0) {
        std::fflush(tracelogfp);
    }
    return 0;
}

void close_trace_log(void) noexcept {
    if (tracelogfp != nullptr) {
        const wq::SignalsHeld held;
        wq::write_start_or_stop("Tracing Stopped");
        if (tracelogfp != stdout) {
            std::fclose(tracelogfp);
        }
        tracelogfp = nullptr;
    }
    dumpFp = nullptr;
}

void log_trace(const char* routine, const char* fmt, ...) noexcept {
    if (tracelogfp == nullptr || routine == nullptr || fmt == nullptr) {
        return;
    }
    const wq::SignalsHeld held;
    printTime();
    std::fprintf(tracelogfp, "%s: ", routine);
    va_list args;
    va_start(args, fmt);
    std::vfprintf(tracelogfp, fmt, args);
    va_end(args);
    std::fputc('\n', tracelogfp);
    std::fflush(tracelogfp);
}

int sigblockhexdump(const unsigned char* bufp, int len) noexcept {
    if (tracelogfp == nullptr || bufp == nullptr) {
        return 0;
    }
    const wq::SignalsHeld held;
    wq::dump(tracelogfp, bufp, len);
    return held.mask();
}

int printTime(void) noexcept {
    if (tracelogfp == nullptr) {
        return -1;
    }
    std::array<char, 99> text{};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset();
    if (localtime_r(&now, &local) != nullptr) {
        std::strftime(text.data(), text.size(), "%a %b %d %H:%M:%S %Y", &local);
    }
    return std::fprintf(tracelogfp, "%-24.24s ", text.data());
}
