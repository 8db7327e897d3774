#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string any_port = "127.0.0.1:0";

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
        reader = Fd(ends[0]);
        writer = Fd(ends[1]);
    }
    /* Until not a byte more goes in. */
    void fill() const {
        const int flags = fcntl(writer.get(), F_GETFL);
        checked(fcntl(writer.get(), F_SETFL, flags | O_NONBLOCK), "fcntl");
        const std::vector<char> bytes(4096, '.');
        for (std::size_t size : {bytes.size(), std::size_t{1}}) {
            while (write(writer.get(), bytes.data(), size) > 0) {
            }
        }
        checked(fcntl(writer.get(), F_SETFL, flags), "fcntl");
    }
    Fd reader, writer;
};

Bytes version(std::uint8_t number) {
    Bytes message = small_trap();
    message[4] = number;
    message[13] = 0xa7;
    return message;
}

/* A free port: what tells of it does not come through a full pipe. */
std::uint16_t free_port() {
    return port_of(tcp_listener());
}

Fd connected_patiently(std::uint16_t port) {
    for (int i = 0;; ++i) {
        try {
            return connected_to(port);
        } catch (const std::system_error&) {
            if (i == 2000) {
                throw;
            }
            usleep(10'000);
        }
    }
}

TEST(ListenErrors, AFullErrorStreamHoldsNothingUp) {
    const Pipe full;
    full.fill();
    SubprocessOptions options;
    options.error = full.writer.get();
    const std::uint16_t port = free_port();
    Subprocess listener(
        command_line({"listen", "--json", "--raw-tcp", "127.0.0.1:" + std::to_string(port)}),
        options);
    const Fd peer = connected_patiently(port);
    Bytes bad = small_trap();
    bad[13] = 0xa0;
    write_all(peer, repeated(bad, 5000));
    for (int i = 0; i < 30; ++i) {
        write_all(connected_to(port), from_hex("02 01 00"));
    }
    write_all(peer, small_trap());
    EXPECT_TRUE(listener.wait_for_out("\n"));
    listener.signal(SIGUSR1);
    write_all(peer, small_trap());
    EXPECT_TRUE(listener.gather_until(
        [&] { return std::count(listener.out().begin(), listener.out().end(), '\n') == 2; }));
    listener.signal(SIGTERM);
    EXPECT_EQ(listener.wait(), 0);
}

/* The stream of the shell that started it stays as it is for others. */
TEST(ListenErrors, TheSharedErrorStreamStaysBlocking) {
    const Pipe shared;
    SubprocessOptions options;
    options.error = shared.writer.get();
    Subprocess listener(command_line({"listen", "--raw-tcp", any_port}), options);
    const Bytes line = [&] {
        Bytes bytes(13);
        checked(static_cast<int>(read(shared.reader.get(), bytes.data(), bytes.size())), "read");
        return bytes;
    }();
    EXPECT_EQ(std::string(line.begin(), line.end()), "listening on ");
    EXPECT_EQ(fcntl(shared.writer.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(ListenErrors, AStormOfComplaintsIsSummedUp) {
    constexpr std::uint64_t sent = 3000;
    ListeningProcess listener({"--json", "--raw-tcp", any_port});
    Bytes bad = small_trap();
    bad[13] = 0xa0;
    const auto start = std::chrono::steady_clock::now();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, repeated(bad, sent));
    write_all(peer, small_trap());
    ASSERT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.terminate(), 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::uint64_t told = 0;
    std::uint64_t lines = 0;
    std::istringstream text(listener.err());
    for (std::string line; std::getline(text, line);) {
        std::smatch more;
        if (std::regex_match(line, more, std::regex("([0-9]+) more complaints in [0-9]+ s"))) {
            told += std::stoull(more[1]);
        } else if (line.starts_with("undecodable raw-tcp 127.0.0.1:")) {
            EXPECT_TRUE(line.ends_with(": not a trap")) << line;
            ++lines;
        }
    }
    EXPECT_GT(lines, 0U);
    EXPECT_LE(lines, static_cast<std::uint64_t>(10 * (taken.count() + 1)));
    EXPECT_EQ(told + lines, sent) << listener.err();
}

/* Without another complaint, and without anybody's doing. */
TEST(ListenErrors, TheSumComesByItself) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port});
    Bytes bad = small_trap();
    bad[13] = 0xa0;
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, repeated(bad, 11));
    EXPECT_TRUE(listener.wait_for_err("1 more complaints in 1 s\n"));
}

TEST(ListenErrors, NewerVersionsAreCalledByTheirNames) {
    ListeningProcess listener({"--json", "--udp", any_port, "--raw-tcp", any_port});
    const Fd sender = udp_socket();
    const Bytes of_3 = from_hex(
        "30 3e 02 01 03 30 11 02 04 12 34 56 78 02 03 00 ff e3 04 01 04 02 01 03 04 10 30 0e 04 00"
        "02 01 00 02 01 00 04 00 04 00 04 00 30 14 04 00 04 00 a0 0e 02 04 11 22 33 44 02 01 00 02"
        "01 00 30 00");
    send_datagram(sender, listener.port("udp"), version(1));
    send_datagram(sender, listener.port("udp"), of_3);
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, version(1));
    const std::string from = "udp 127.0.0.1:" + std::to_string(port_of(sender));
    EXPECT_TRUE(listener.wait_for_err("undecodable " + from + ": SNMPv2c message\n"));
    EXPECT_TRUE(listener.wait_for_err("undecodable " + from + ": SNMPv3 message\n"));
    EXPECT_TRUE(listener.wait_for_err(
        "undecodable raw-tcp 127.0.0.1:" + std::to_string(port_of(peer)) + ": SNMPv2c message\n"));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("undecodable 3: SNMPv2c message 2, SNMPv3 message 1\n"),
              std::string::npos)
        << listener.err();
}

/* The library's own reports would be lines without a sender, and without a limit. */
TEST(ListenErrors, OnlyTheCommandItselfComplains) {
    ListeningProcess listener({"--json", "--udp", any_port});
    const Fd sender = udp_socket();
    send_datagram(sender, listener.port("udp"), Bytes(40, 0x30));
    ASSERT_TRUE(listener.wait_for_err(": message header\n"));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_EQ(listener.err().find("snmp_parse_trap"), std::string::npos) << listener.err();
}

class ListenLog : public testing::Test {
  protected:
    bool holds(std::size_t lines) const {
        for (int i = 0; i < 2000; ++i) {
            const std::string text = folder_.read("log");
            if (static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) == lines) {
                return true;
            }
            usleep(10'000);
        }
        return false;
    }

    const TempDir folder_;
    const std::string log_ = folder_.path("log");
};

TEST_F(ListenLog, IsMadeForItsGroupAndAppendedTo) {
    for (std::size_t run = 1; run <= 2; ++run) {
        ListeningProcess listener({"--json", "--raw-tcp", any_port, "--log", log_});
        write_all(connected_to(listener.port("raw-tcp")), small_trap());
        EXPECT_TRUE(holds(run));
        EXPECT_EQ(listener.terminate(), 0);
        EXPECT_EQ(listener.out(), "");
        EXPECT_NE(listener.err().find("\nnot logged 0\n"), std::string::npos) << listener.err();
    }
    struct stat status {};
    ASSERT_EQ(stat(log_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0137, 0U) << std::oct << status.st_mode;
}

TEST_F(ListenLog, IsNeverFoundByASymbolicLink) {
    const std::string precious = folder_.write("precious", "kept\n");
    std::filesystem::create_symlink(precious, log_);
    const CommandRun run({"listen", "--raw-tcp", any_port, "--log", log_});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "wqevents listen: cannot open the log '" + log_ + "': it is a symbolic link\n");
    EXPECT_EQ(folder_.read("precious"), "kept\n");
}

TEST_F(ListenLog, IsOpenedAgainAfterAHangup) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--log", log_});
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, small_trap());
    ASSERT_TRUE(holds(1));
    std::filesystem::rename(log_, folder_.path("old"));
    write_all(peer, small_trap());
    listener.signal(SIGHUP);
    write_all(peer, small_trap());
    for (int i = 0; i < 2000 && !std::filesystem::exists(log_); ++i) {
        usleep(10'000);
    }
    write_all(peer, small_trap());
    EXPECT_EQ(listener.terminate(), 0);
    const std::string all = folder_.read("old") + folder_.read("log");
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 4);
    EXPECT_TRUE(folder_.read("old").ends_with("}\n"));
    EXPECT_TRUE(folder_.read("log").ends_with("}\n"));
}

TEST_F(ListenLog, GoesOnInTheOldFileIfTheNewOneCannotBeOpened) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--log", log_});
    const Fd peer = connected_to(listener.port("raw-tcp"));
    std::filesystem::rename(log_, folder_.path("old"));
    std::filesystem::create_directory(log_);
    listener.signal(SIGHUP);
    EXPECT_TRUE(listener.wait_for_err("cannot open the log '" + log_ +
                                      "': Is a directory; the lines go on to the one that is "
                                      "open\n"));
    write_all(peer, small_trap());
    EXPECT_EQ(listener.terminate(), 0);
    const std::string old = folder_.read("old");
    EXPECT_EQ(std::count(old.begin(), old.end(), '\n'), 1);
}

TEST_F(ListenLog, CountsWhatTheDiskDoesNotTake) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--log", "/dev/full"});
    write_all(connected_to(listener.port("raw-tcp")), repeated(small_trap(), 3));
    EXPECT_TRUE(
        listener.wait_for_err("cannot write to the log '/dev/full': No space left on device\n"));
    write_all(connected_to(listener.port("raw-tcp")), repeated(small_trap(), 2));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("received 5 traps\nnot logged 5\n"), std::string::npos)
        << listener.err();
}

/* A file may grow to so many bytes and no further: what was torn there is no line of another's. */
TEST_F(ListenLog, EndsATornLineBeforeTheNext) {
    folder_.write("log", std::string(1000, 'x') + "\n");
    ListeningProcess listener(
        {"--json", "--raw-tcp", any_port, "--log", log_}, {},
        {"sh", "-c", "trap '' XFSZ; ulimit -f 2; exec \"$@\"", "sh", WQEVENTS_COMMAND, "listen"});
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, repeated(small_trap(), 3));
    ASSERT_TRUE(listener.wait_for_err("cannot write to the log"));
    EXPECT_EQ(folder_.read("log").size(), 1024U);
    std::filesystem::resize_file(log_, 1010);
    write_all(peer, small_trap());
    listener.signal(SIGUSR1);
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_EQ(folder_.read("log")[1010], '\n');
}

TEST(ListenSignals, AHangupAloneDoesNothing) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port});
    listener.signal(SIGHUP);
    write_all(connected_to(listener.port("raw-tcp")), small_trap());
    EXPECT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.terminate(), 0);
}

}  // namespace
}  // namespace wq::test
