#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/trace.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/env_value.h"
#include "support/hex.h"
#include "support/temp_dir.h"

namespace {

using wq::test::Bytes;
using wq::test::EnvValue;
using wq::test::TempDir;

constexpr size_t stamp_length = 25; /* 24 characters and a blank */

class Trace : public ::testing::Test {
  protected:
    ~Trace() override {
        close_trace_log();
        traceStartingAndStopping = 1;
    }

    void open_quietly() {
        traceStartingAndStopping = 0;
        ASSERT_EQ(0, open_trace_log(file_.c_str()));
    }
    std::string content() const { return dir_.read("trace"); }
    std::string closed_content() const {
        close_trace_log();
        return content();
    }

    EnvValue zone_{"TZ", "UTC0"};
    TempDir dir_;
    std::string file_ = dir_.path("trace");
};

std::string stamp(time_t at) {
    std::tm local{};
    localtime_r(&at, &local);
    char text[64];
    std::strftime(text, sizeof text, "%a %b %d %H:%M:%S %Y ", &local);
    return text;
}

/* `line` begins with the stamp of a moment from `first` to now; the rest is given. */
std::string without_stamp(const std::string& line, time_t first) {
    const std::string head = line.substr(0, stamp_length);
    for (time_t at = first; at <= std::time(nullptr); ++at) {
        if (head == stamp(at)) {
            return line.substr(stamp_length);
        }
    }
    return "no time stamp: " + line;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    size_t at = 0;
    for (size_t end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        lines.push_back(text.substr(at, end - at));
    }
    EXPECT_EQ(text.size(), at) << "the last line is not ended";
    return lines;
}

size_t open_descriptors() {
    namespace fs = std::filesystem;
    return static_cast<size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/* The signal mask of the process, put back when the object goes. */
class BlockedSignals {
  public:
    explicit BlockedSignals(std::initializer_list<int> numbers) {
        sigset_t set;
        sigemptyset(&set);
        for (const int number : numbers) {
            sigaddset(&set, number);
        }
        sigprocmask(SIG_SETMASK, &set, &before_);
    }
    ~BlockedSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

    static std::vector<int> now() {
        sigset_t set;
        sigprocmask(SIG_BLOCK, nullptr, &set);
        std::vector<int> numbers;
        for (int number = 1; number < SIGRTMAX; ++number) {
            if (sigismember(&set, number) == 1) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

  private:
    sigset_t before_{};
};

TEST(TraceVariables, HaveTheirInitialValues) {
    EXPECT_EQ(nullptr, tracelogfp);
    EXPECT_EQ(nullptr, dumpFp);
    EXPECT_EQ(1, traceStartingAndStopping);
    EXPECT_EQ(0, dump_packetEMS);
    EXPECT_EQ(0, snmptracemaskEMS);
}

TEST_F(Trace, IsOffUntilOpened) {
    const Bytes bytes{1, 2, 3};
    EXPECT_EQ("", wq::test::captured_stdout([&] {
                  log_trace("routine", "message %d", 1);
                  EXPECT_EQ(0, sigblockhexdump(bytes.data(), 3));
                  EXPECT_EQ(-1, printTime());
              }));
}

TEST_F(Trace, OpeningAndClosingAreNoted) {
    const time_t before = std::time(nullptr);
    ASSERT_EQ(0, open_trace_log(file_.c_str()));
    EXPECT_NE(nullptr, tracelogfp);
    EXPECT_EQ(tracelogfp, dumpFp);
    ASSERT_EQ(1U, lines_of(content()).size()) << "written through at once";
    close_trace_log();
    EXPECT_EQ(nullptr, tracelogfp);
    EXPECT_EQ(nullptr, dumpFp);
    const auto lines = lines_of(content());
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ("Tracing Started", without_stamp(lines[0], before));
    EXPECT_EQ("Tracing Stopped", without_stamp(lines[1], before));
}

TEST_F(Trace, OpeningAndClosingCanBeSilent) {
    traceStartingAndStopping = 0;
    ASSERT_EQ(0, open_trace_log(file_.c_str()));
    EXPECT_EQ("", closed_content());
    EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_F(Trace, SwitchIsObeyedWhileOpen) {
    ASSERT_EQ(0, open_trace_log(file_.c_str()));
    traceStartingAndStopping = 0;
    EXPECT_EQ(1U, lines_of(closed_content()).size());
}

TEST_F(Trace, IsAppended) {
    dir_.write("trace", "earlier\n");
    open_quietly();
    log_trace("r", "now");
    const auto lines = lines_of(closed_content());
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ("earlier", lines[0]);
}

TEST_F(Trace, SecondOpenKeepsTheFirstFile) {
    open_quietly();
    FILE* first = tracelogfp;
    dumpFp = nullptr;
    EXPECT_EQ(0, open_trace_log(dir_.path("other").c_str()));
    EXPECT_EQ(first, tracelogfp);
    EXPECT_EQ(first, dumpFp);
    EXPECT_FALSE(std::filesystem::exists(dir_.path("other")));
    EXPECT_EQ(0, open_trace_log(nullptr)) << "the path is ignored";
}

TEST_F(Trace, UnopenablePathFails) {
    EXPECT_EQ(-1, open_trace_log(dir_.path("no/such/folder").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, open_trace_log(nullptr));
    EXPECT_EQ(nullptr, tracelogfp);
    EXPECT_EQ(nullptr, dumpFp);
}

TEST_F(Trace, DashIsTheStandardOutput) {
    const time_t before = std::time(nullptr);
    const std::string text = wq::test::captured_stdout([] {
        ASSERT_EQ(0, open_trace_log("-"));
        EXPECT_EQ(stdout, tracelogfp);
        EXPECT_EQ(stdout, dumpFp);
        log_trace("main", "hello");
        close_trace_log();
        std::fputs("still open\n", stdout);
    });
    const auto lines = lines_of(text);
    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ("Tracing Started", without_stamp(lines[0], before));
    EXPECT_EQ("main: hello", without_stamp(lines[1], before));
    EXPECT_EQ("Tracing Stopped", without_stamp(lines[2], before));
    EXPECT_EQ("still open", lines[3]);
}

TEST_F(Trace, ClosingWhatIsNotOpenClearsTheDumpStream) {
    dumpFp = stderr;
    close_trace_log();
    EXPECT_EQ(nullptr, dumpFp);
}

TEST_F(Trace, LineHoldsStampRoutineAndMessage) {
    open_quietly();
    const time_t before = std::time(nullptr);
    log_trace("recv_trap", "%d bytes from %s", 42, "10.1.2.3");
    const auto lines = lines_of(content());
    ASSERT_EQ(1U, lines.size()) << "written through at once";
    EXPECT_EQ("recv_trap: 42 bytes from 10.1.2.3", without_stamp(lines[0], before));
}

TEST_F(Trace, MessageMayBeLong) {
    open_quietly();
    const std::string text(100000, 'x');
    log_trace("r", "%s", text.c_str());
    EXPECT_EQ("r: " + text + "\n", content().substr(stamp_length));
}

TEST_F(Trace, NullTextsWriteNothing) {
    open_quietly();
    const char* none = nullptr;
    log_trace(none, "message");
    log_trace("routine", none);
    EXPECT_EQ("", closed_content());
}

TEST_F(Trace, StampIsLocalTime) {
    open_quietly();
    const time_t before = std::time(nullptr);
    const EnvValue east("TZ", "XXX-13:30");
    log_trace("r", "m");
    EXPECT_EQ("r: m\n", without_stamp(content(), before));
}

TEST_F(Trace, PrintTimeTellsWhatItWrote) {
    open_quietly();
    const time_t before = std::time(nullptr);
    EXPECT_EQ(25, printTime());
    EXPECT_EQ("", without_stamp(closed_content(), before));
}

TEST_F(Trace, WriteErrorsAreIgnored) {
    ASSERT_EQ(0, open_trace_log("/dev/full"));
    const Bytes bytes(20, 0xAA);
    log_trace("routine", "message");
    EXPECT_GE(sigblockhexdump(bytes.data(), 20), 0);
    close_trace_log();
    EXPECT_EQ(nullptr, tracelogfp);
}

TEST_F(Trace, NoDescriptorIsLeft) {
    const size_t before = open_descriptors();
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(0, open_trace_log(file_.c_str()));
        close_trace_log();
        ASSERT_EQ(-1, open_trace_log(dir_.path("no/such").c_str()));
    }
    EXPECT_EQ(before, open_descriptors());
}

struct Dump {
    const char* title;
    const char* bytes;
    const char* rows;
};

const Dump dumps[] = {
    {"nothing", "", ""},
    {"one byte", "41",
     "   0:  41 -- -- -- -- -- -- -- -- -- -- -- -- -- -- --  A...............\n"},
    {"fifteen bytes", "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f",
     "   0:  41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f --  ABCDEFGHIJKLMNO.\n"},
    {"a full row", "00 01 0f 10 1f 20 21 30 39 41 5a 61 7a 7e 7f ff",
     "   0:   0  1  f 10 1f 20 21 30 39 41 5a 61 7a 7e 7f ff  ..... !09AZaz~..\n"},
    {"twenty bytes", "30 82 01 2a 70 75 62 6c 69 63 20 7e 7f ff 00 0f 41 42 1f 80",
     "   0:  30 82  1 2a 70 75 62 6c 69 63 20 7e 7f ff  0  f  0..*public ~....\n"
     "  16:  41 42 1f 80 -- -- -- -- -- -- -- -- -- -- -- --  AB..............\n"},
};

TEST_F(Trace, DumpsRowsOfSixteen) {
    for (const Dump& dump : dumps) {
        SCOPED_TRACE(dump.title);
        std::filesystem::remove(file_);
        open_quietly();
        const Bytes bytes = wq::test::from_hex(dump.bytes);
        const unsigned char none = 0;
        sigblockhexdump(bytes.empty() ? &none : bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(dump.rows, closed_content());
    }
}

TEST_F(Trace, DumpLabelsRowsByOffset) {
    open_quietly();
    const Bytes bytes(10016, 0x20);
    sigblockhexdump(bytes.data(), 10016);
    const auto lines = lines_of(closed_content());
    ASSERT_EQ(626U, lines.size());
    EXPECT_EQ("1008:  ", lines[63].substr(0, 7));
    EXPECT_EQ("10000:  ", lines[625].substr(0, 8));
}

TEST_F(Trace, DumpIsNotFlushed) {
    open_quietly();
    const Bytes bytes(20, 0x20);
    sigblockhexdump(bytes.data(), 20);
    EXPECT_EQ("", content());
    EXPECT_NE("", closed_content());
}

TEST_F(Trace, DumpOfNothingDoesNothing) {
    open_quietly();
    const BlockedSignals blocked{SIGUSR1};
    const unsigned char byte = 'A';
    EXPECT_EQ(0, sigblockhexdump(nullptr, 4));
    EXPECT_EQ(1 << (SIGUSR1 - 1), sigblockhexdump(&byte, 0));
    EXPECT_EQ(1 << (SIGUSR1 - 1), sigblockhexdump(&byte, -5));
    EXPECT_EQ("", closed_content());
}

TEST_F(Trace, DumpGivesTheMaskInForce) {
    open_quietly();
    const unsigned char byte = 'A';
    {
        const BlockedSignals none{};
        EXPECT_EQ(0, sigblockhexdump(&byte, 1));
    }
    const BlockedSignals some{SIGHUP, SIGTERM, SIGSYS};
    EXPECT_EQ(1 | 1 << 14 | 1 << 30, sigblockhexdump(&byte, 1));
}

TEST_F(Trace, SignalMaskStaysAsItWas) {
    const std::vector<int> numbers{SIGHUP, SIGTERM, SIGRTMIN + 4};
    const BlockedSignals some{SIGHUP, SIGTERM, SIGRTMIN + 4};
    const unsigned char byte = 'A';
    EXPECT_EQ(-1, open_trace_log(dir_.path("no/such").c_str()));
    EXPECT_EQ(numbers, BlockedSignals::now());
    EXPECT_EQ(0, open_trace_log(file_.c_str()));
    EXPECT_EQ(numbers, BlockedSignals::now());
    log_trace("routine", "message");
    EXPECT_EQ(numbers, BlockedSignals::now());
    sigblockhexdump(&byte, 1);
    EXPECT_EQ(numbers, BlockedSignals::now());
    close_trace_log();
    EXPECT_EQ(numbers, BlockedSignals::now());
}

}  // namespace
