// Logs and traces that cannot be written: pipes without a reader, full pipes and full disks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/channel.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/log_target.h"
#include "support/capture.h"
#include "support/env_value.h"
#include "support/temp_dir.h"

namespace {

using wq::Fd;
using wq::test::EnvValue;
using wq::test::TempDir;

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) == 0) {
            reader = Fd(ends[0]);
            writer = Fd(ends[1]);
        }
    }
    std::string read_all() {
        writer = Fd();
        std::string text(1 << 20, '\0');
        size_t length = 0;
        ssize_t got = 0;
        while ((got = read(reader.get(), text.data() + length, text.size() - length)) > 0) {
            length += static_cast<size_t>(got);
        }
        text.resize(length);
        return text;
    }
    Fd reader;
    Fd writer;
};

// Until no byte goes in any more.
void fill(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const std::string block(4096, 'x');
    while (write(fd, block.data(), block.size()) > 0 || write(fd, block.data(), 1) > 0) {
    }
    fcntl(fd, F_SETFL, flags);
}

// While it lives, `fd` leads to where `target` does.
class Redirected {
  public:
    Redirected(int fd, int target) : fd_(fd), saved_(dup(fd)) { dup2(target, fd_); }
    ~Redirected() {
        dup2(saved_, fd_);
        close(saved_);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

  private:
    int fd_;
    int saved_;
};

bool is_pending(int signal) {
    sigset_t pending{};
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

void say_by_all_means() {
    logger(1, "routine", "text %d", 7);
    log_trace("routine", "text %d", 7);
    printTime();
    const std::array<unsigned char, 20> bytes{};
    sigblockhexdump(bytes.data(), static_cast<int>(bytes.size()));
    WQuLogS(84, 2, "events.cat", 1, 0, "text %d", 7);
    hexdumpEMS(bytes.data(), static_cast<int>(bytes.size()));
    snmptracemaskEMS = 1;
    int length = 0;
    const unsigned char octet = 0;
    asnParseNull09(&octet, &length);
    snmptracemaskEMS = 0;
}

class LogTarget : public ::testing::Test {
  protected:
    ~LogTarget() override { close_trace_log(); }
    void make_fifo() { ASSERT_EQ(0, mkfifo(fifo_.c_str(), 0600)); }

    TempDir dir_;
    std::string fifo_ = dir_.path("fifo");
};

// A test whose process is killed by a signal, or never returns, fails.

TEST_F(LogTarget, PipeWithoutReaderRaisesNoSignal) {
    Pipe pipe;
    pipe.reader = Fd();
    const Redirected err(STDERR_FILENO, pipe.writer.get());
    const Redirected out(STDOUT_FILENO, pipe.writer.get());
    const EnvValue log("WQULOG", "-");
    ASSERT_EQ(0, open_trace_log("-"));
    errno = 77;
    say_by_all_means();
    EXPECT_EQ(77, errno);
    close_trace_log();
    std::fflush(stdout);
    EXPECT_FALSE(is_pending(SIGPIPE));
}

TEST_F(LogTarget, FullPipeIsNotWaitedFor) {
    Pipe pipe;
    fill(pipe.writer.get());
    const Redirected err(STDERR_FILENO, pipe.writer.get());
    const Redirected out(STDOUT_FILENO, pipe.writer.get());
    const EnvValue log("WQULOG", "-");
    ASSERT_EQ(0, open_trace_log("-"));
    errno = 77;
    say_by_all_means();
    EXPECT_EQ(77, errno);
    close_trace_log();
    EXPECT_EQ(0, std::fflush(stdout));
}

TEST_F(LogTarget, LinesComeAgainWhenThePipeHasRoom) {
    Pipe pipe;
    fill(pipe.writer.get());
    {
        const Redirected err(STDERR_FILENO, pipe.writer.get());
        logger(1, "routine", "lost");
        std::string block(65536, '\0');
        ASSERT_LT(0, read(pipe.reader.get(), block.data(), block.size()));
        logger(1, "routine", "kept");
    }
    const std::string text = pipe.read_all();
    EXPECT_EQ(std::string::npos, text.find("lost"));
    EXPECT_TRUE(text.ends_with("routine: kept\n")) << text;
}

TEST_F(LogTarget, LongLinesAreWhole) {
    Pipe pipe;
    const std::string message(20000, 'm');
    {
        const Redirected err(STDERR_FILENO, pipe.writer.get());
        logger(1, "routine", "%s%s", message.c_str(), "!");
    }
    EXPECT_EQ("routine: " + message + "!\n", pipe.read_all());
}

TEST_F(LogTarget, FifoWithoutReaderIsPassedOver) {
    make_fifo();
    const EnvValue log("WQULOG", fifo_.c_str());
    errno = 77;
    WQuLogS(84, 2, "events.cat", 1, 0, "text");
    EXPECT_EQ(77, errno);
    EXPECT_EQ(-1, open_trace_log(fifo_.c_str()));
    EXPECT_EQ(nullptr, tracelogfp);
}

TEST_F(LogTarget, FifoWithAStalledReaderIsNotWaitedFor) {
    make_fifo();
    const EnvValue log("WQULOG", fifo_.c_str());
    const Fd reader(open(fifo_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(0, open_trace_log(fifo_.c_str()));
    fill(fileno(tracelogfp));
    say_by_all_means();
    close_trace_log();
}

TEST_F(LogTarget, FifoWhoseReaderLeavesRaisesNoSignal) {
    make_fifo();
    Fd reader(open(fifo_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(0, open_trace_log(fifo_.c_str()));
    reader = Fd();
    const EnvValue log("WQULOG", fifo_.c_str());
    wq::test::captured_stderr(say_by_all_means);
    close_trace_log();
    EXPECT_FALSE(is_pending(SIGPIPE));
}

TEST_F(LogTarget, FullDiskLosesTheLine) {
    const Fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full);
    const Redirected err(STDERR_FILENO, full.get());
    const EnvValue log("WQULOG", "/dev/full");
    ASSERT_EQ(0, open_trace_log("/dev/full"));
    errno = 77;
    say_by_all_means();
    EXPECT_EQ(77, errno);
    EXPECT_EQ(0, std::ferror(stderr));
}

TEST_F(LogTarget, LimitOfFileSizesRaisesNoSignal) {
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    const std::string file = dir_.path("log");
    const EnvValue log("WQULOG", file.c_str());
    ASSERT_EQ(0, open_trace_log(dir_.path("trace").c_str()));
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
    wq::test::captured_stderr([] {
        log_trace("routine", "text");
        WQuLogS(84, 2, "events.cat", 1, 0, "text");
    });
    close_trace_log();
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
    EXPECT_FALSE(is_pending(SIGXFSZ));
    EXPECT_EQ("", dir_.read("log"));
}

TEST_F(LogTarget, SignalThatWasPendingStaysPending) {
    sigset_t pipe_signal{};
    sigset_t before{};
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    raise(SIGPIPE);
    {
        Pipe pipe;
        pipe.reader = Fd();
        const Redirected err(STDERR_FILENO, pipe.writer.get());
        logger(1, "routine", "text");
    }
    EXPECT_TRUE(is_pending(SIGPIPE));
    int taken = 0;
    sigwait(&pipe_signal, &taken);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(SIGPIPE, taken);
}

TEST_F(LogTarget, MaskIsPutBack) {
    sigset_t before{};
    sigset_t after{};
    sigemptyset(&before);
    sigaddset(&before, SIGUSR1);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    wq::test::captured_stderr([] { logger(1, "routine", "text"); });
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(1, sigismember(&after, SIGUSR1));
    EXPECT_EQ(0, sigismember(&after, SIGPIPE));
    EXPECT_EQ(0, sigismember(&after, SIGXFSZ));
    sigemptyset(&before);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(LogTarget, LineGrowsPastItsFirstRoom) {
    for (const size_t length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 5000U}) {
        const std::string text(length, 'a');
        wq::LogLine line;
        line.append("%s", text.c_str());
        EXPECT_EQ(text, line.text());
        line.append("%d", 5);
        line.end_line();
        EXPECT_EQ(text + "5\n", line.text());
    }
}

}  // namespace
