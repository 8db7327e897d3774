/*
 * The channel on a system that gives little at a time, interrupts, refuses and fails: the system
 * calls it makes are replaced for this program, and do what a test tells them.
 */
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <wqevents/channel.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "EMS/events/nl_recv_event.h"
#include "EMS/events/nl_send_event.h"
#include "support/capture.h"
#include "support/hex.h"
#include "support/progress_log.h"
#include "support/signal_storm.h"
#include "support/sockets.h"
#include "support/temp_dir.h"
#include "support/vectors.h"
#include "support/writer.h"

namespace {

struct Calls {
    std::function<ssize_t(int, void*, size_t, int)> recv;
    std::function<ssize_t(int, void*, size_t, int)> recvfrom;
    std::function<ssize_t(int, const msghdr*, int)> sendmsg;
    std::function<int(pollfd*)> poll;
    std::function<int(int, const sockaddr*, socklen_t)> connect;
    std::function<int()> socket;
    std::function<int()> bind;
    std::function<int(int option, void* value)> getsockopt;
};
Calls calls;

ssize_t real_recv(int sd, void* buffer, size_t size, int flags) {
    return syscall(SYS_recvfrom, sd, buffer, size, flags, nullptr, nullptr);
}
ssize_t real_sendmsg(int sd, const msghdr* message, int flags) {
    return syscall(SYS_sendmsg, sd, message, flags);
}
int real_connect(int sd, const sockaddr* address, socklen_t length) {
    return static_cast<int>(syscall(SYS_connect, sd, address, length));
}
int real_poll(pollfd* fds, nfds_t count, int timeout) {
    return static_cast<int>(syscall(SYS_poll, fds, count, timeout));
}
int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

ssize_t recv(int fd, void* buf, size_t n, int flags) {
    return calls.recv ? calls.recv(fd, buf, n, flags) : real_recv(fd, buf, n, flags);
}
ssize_t recvfrom(int fd, void* buf, size_t n, int flags, sockaddr* addr, socklen_t* addr_len) {
    return calls.recvfrom ? calls.recvfrom(fd, buf, n, flags)
                          : syscall(SYS_recvfrom, fd, buf, n, flags, addr, addr_len);
}
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return calls.sendmsg ? calls.sendmsg(fd, message, flags) : real_sendmsg(fd, message, flags);
}
int poll(pollfd* fds, nfds_t nfds, int timeout) {
    return calls.poll ? calls.poll(fds) : real_poll(fds, nfds, timeout);
}
int connect(int fd, const sockaddr* addr, socklen_t len) {
    return calls.connect ? calls.connect(fd, addr, len) : real_connect(fd, addr, len);
}
int socket(int domain, int type, int protocol) noexcept {
    return calls.socket ? calls.socket()
                        : static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}
int bind(int fd, const sockaddr* addr, socklen_t len) noexcept {
    return calls.bind ? calls.bind() : static_cast<int>(syscall(SYS_bind, fd, addr, len));
}
int getsockopt(int fd, int level, int optname, void* optval, socklen_t* optlen) noexcept {
    return calls.getsockopt
               ? calls.getsockopt(optname, optval)
               : static_cast<int>(syscall(SYS_getsockopt, fd, level, optname, optval, optlen));
}
}

namespace wq::test {
namespace {

using Texts = std::vector<std::string>;

const char* const beginning = "Beginning of  send_trap().\n";
const char* const calling = "calling send() SNMP packet from send_trap().\n";
const char* const completed = "send_trap() completed.\n";

/* A trap with one binding of `length` characters, numbered by `specific`; and its encoding. */
struct Trap {
    explicit Trap(uint32_t specific, size_t length = 200) {
        info.agent = 0x0A010203;
        info.specific = specific;
        info.vars = 1;
        constexpr std::array<uint32_t, 4> name{1, 3, 6, 1};
        std::copy(name.begin(), name.end(), var.oid);
        var.oid_length = name.size();
        var.type = ASN_OCTETSTR09;
        var.val_len = static_cast<uint32_t>(length);
        std::memset(var.val.string, 'v', length);
    }
    snmp_trap_infoEMS info = first_event_trap();
    SnmpVarBindEMS var{};
};
const Bytes encoded_trap =
    ber("30(02(00) 04('public') A4(06(2B 06 01 04 01 02 06 03 01) 40(0A 01 02 03) 02(06) 02(2A)"
        " 43(01) 30(30(06(2B 06 01) 04(76*200 )))))");

Bytes framed_trap() {
    trap_headerEMS header{static_cast<int32_t>(encoded_trap.size()), 11, getpid(), 0, -7, 77};
    Bytes stream(sizeof header);
    std::memcpy(stream.data(), &header, sizeof header);
    return append(stream, encoded_trap);
}

class FaultTest : public ::testing::Test {
  public:
    FaultTest() {
        use_mode(2);
        ei.source = 11;
        ei.status = -7;
        ei.target = 77;
        progress.clear();
    }
    ~FaultTest() override { calls = {}; }

  protected:
    void use_mode(int mode) {
        ei.sd = pair.ours.get();
        ei.trans = static_cast<uint16_t>(mode);
    }
    Bytes stream_of(int mode) const { return mode == 6 ? encoded_trap : framed_trap(); }
    int send() { return send_trap(&ei, &trap.info, &trap.var); }
    int receive(int mode) {
        return recv_trap(*state, pair.ours.get(), &packet, mode, nullptr, nullptr, &th);
    }
    Bytes received(int length) const { return {packet, packet + length}; }

    SocketPair pair = local_pair();
    event_infoEMS ei{};
    Trap trap{42};
    std::unique_ptr<RecvState> state = std::make_unique<RecvState>();
    unsigned char* packet = nullptr;
    trap_headerEMS* th = nullptr;
};

size_t size_of(const msghdr* message) {
    size_t size = 0;
    for (size_t i = 0; i < message->msg_iovlen; ++i) {
        size += message->msg_iov[i].iov_len;
    }
    return size;
}

/* sendmsg() that takes at most `most` bytes. */
ssize_t short_sendmsg(int sd, const msghdr* message, int flags, size_t most) {
    std::vector<iovec> parts(message->msg_iov, message->msg_iov + message->msg_iovlen);
    for (iovec& part : parts) {
        part.iov_len = std::min(part.iov_len, most);
        most -= part.iov_len;
    }
    msghdr shorter = *message;
    shorter.msg_iov = parts.data();
    return real_sendmsg(sd, &shorter, flags);
}

TEST_F(FaultTest, OneCallSendsATrapAndTwoReceiveIt) {
    std::vector<size_t> sent;
    std::vector<size_t> asked;
    int waits = 0;
    calls.sendmsg = [&](int sd, const msghdr* message, int flags) {
        sent.push_back(size_of(message));
        EXPECT_EQ(flags, MSG_NOSIGNAL);
        return real_sendmsg(sd, message, flags);
    };
    calls.recv = [&](int sd, void* buffer, size_t size, int flags) {
        asked.push_back(size);
        return real_recv(sd, buffer, size, flags);
    };
    calls.poll = [&](pollfd*) { return ++waits; };
    for (const int mode : {2, 3}) {
        use_mode(mode);
        EXPECT_EQ(send(), 0);
        EXPECT_EQ(recv_trap(*state, pair.peer.get(), &packet, mode, nullptr, nullptr, &th),
                  static_cast<int>(encoded_trap.size()));
        EXPECT_EQ(to_hex(received(th->len)), to_hex(encoded_trap));
    }
    const size_t n = encoded_trap.size();
    EXPECT_EQ(sent, (std::vector<size_t>{24 + n, 24 + n}));
    EXPECT_EQ(asked, (std::vector<size_t>{24, n, 24, n}));
    EXPECT_EQ(waits, 0);
}

TEST_F(FaultTest, ShortWritesAreContinued) {
    for (const int mode : {2, 3, 6}) {
        use_mode(mode);
        for (const size_t most : {1U, 2U, 5U, 23U, 24U, 25U, 100U}) {
            Bytes arrived;
            bool interrupted = false;
            calls.sendmsg = [&](int sd, const msghdr* message, int flags) -> ssize_t {
                append(arrived, read_available(pair.peer));
                interrupted = !interrupted;
                return interrupted ? fail(EINTR) : short_sendmsg(sd, message, flags, most);
            };
            EXPECT_EQ(send(), 0);
            append(arrived, read_available(pair.peer));
            EXPECT_EQ(to_hex(arrived), to_hex(stream_of(mode))) << most;
            EXPECT_EQ(take_progress(), (Texts{beginning, calling, completed}));
        }
    }
}

/* A write that fails after any number of bytes. */
TEST_F(FaultTest, FailedWriteEndsTheCall) {
    for (const int mode : {2, 6}) {
        use_mode(mode);
        const Bytes stream = stream_of(mode);
        for (size_t length = 0; length < stream.size(); ++length) {
            const int error = std::array{EAGAIN, ENOBUFS, ECONNRESET, EPIPE}[length % 4];
            size_t left = length;
            calls.sendmsg = [&](int sd, const msghdr* message, int flags) -> ssize_t {
                if (left == 0) {
                    return fail(error);
                }
                const ssize_t sent = short_sendmsg(sd, message, flags, left);
                left -= static_cast<size_t>(sent);
                return sent;
            };
            errno = 0;
            ASSERT_EQ(send(), -1) << length;
            EXPECT_EQ(errno, error);
            EXPECT_EQ(read_available(pair.peer),
                      Bytes(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(length)));
            EXPECT_EQ(take_progress(),
                      mode == 6 || length >= 24 ? (Texts{beginning, calling}) : Texts{beginning});
        }
    }
}

TEST_F(FaultTest, DatagramGoesToTheManager) {
    use_mode(1);
    ei.manager = htonl(0xC0000201);
    int attempts = 0;
    calls.sendmsg = [&](int, const msghdr* message, int flags) -> ssize_t {
        EXPECT_EQ(flags, MSG_NOSIGNAL);
        sockaddr_in to{};
        EXPECT_EQ(message->msg_namelen, sizeof to);
        std::memcpy(&to, message->msg_name, sizeof to);
        EXPECT_EQ(to.sin_family, AF_INET);
        EXPECT_EQ(to.sin_addr.s_addr, htonl(0xC0000201));
        EXPECT_EQ(to.sin_port, htons(162));
        EXPECT_EQ(size_of(message), encoded_trap.size());
        return ++attempts < 4 ? fail(EINTR) : static_cast<ssize_t>(size_of(message));
    };
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(attempts, 4);
    EXPECT_EQ(take_progress(), (Texts{beginning, completed}));
    for (const int error : {ENOBUFS, EAGAIN, ENETUNREACH, EPERM}) {
        calls.sendmsg = [&](int, const msghdr*, int) { return fail(error); };
        EXPECT_EQ(send(), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(take_progress(), Texts{beginning});
    }
}

TEST_F(FaultTest, PeerThatStopsReading) {
    const int small = 4096;
    ASSERT_EQ(setsockopt(ei.sd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    const auto fill = [&] {
        int sent = 0;
        while (sent < 10000 && send() == 0) {
            ++sent;
        }
        return sent;
    };
    set_nonblocking(pair.ours);
    EXPECT_LT(fill(), 10000);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(read_available(pair.peer).empty());

    checked(fcntl(ei.sd, F_SETFL, 0), "fcntl");
    const timeval limit{0, 20000};
    ASSERT_EQ(setsockopt(ei.sd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit), 0);
    EXPECT_LT(fill(), 10000);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(FaultTest, ReadsOfOneByte) {
    const Bytes next = from_hex("AB");
    for (const int mode : {2, 3, 6}) {
        Bytes stream = stream_of(mode);
        append(stream, next);
        write_all(pair.peer, stream);
        bool first = mode == 6; /* the first two octets of a raw message come together */
        calls.recv = [&](int sd, void* buffer, size_t size, int flags) {
            const size_t most = std::exchange(first, false) ? size : 1;
            return real_recv(sd, buffer, std::min(size, most), flags);
        };
        const std::string err = captured_stderr(
            [&] { EXPECT_EQ(receive(mode), static_cast<int>(encoded_trap.size())); });
        EXPECT_EQ(err, "");
        EXPECT_EQ(received(th->len), encoded_trap);
        EXPECT_EQ(read_available(pair.ours), next);
    }
}

/* What the n-th read of a receive does instead of reading. */
struct Stalls {
    std::vector<int> errors; /* 0: it reads */
    size_t at = 0;
    ssize_t operator()(int sd, void* buffer, size_t size, int flags) {
        const int error = at < errors.size() ? errors[at] : 0;
        ++at;
        return error != 0 ? fail(error) : real_recv(sd, buffer, size, flags);
    }
};

TEST_F(FaultTest, StalledReadsAreLogged) {
    const std::string header_line = "recv_trap: EINTR or EWOULDBLOCK for hdr\n";
    const std::string body_line = "recv_trap: EINTR/EWOULDBLOCK for SNMP\n";
    const std::string both = body_line + body_line;
    struct Case {
        int mode;
        std::vector<int> errors;
        std::string log;
    };
    const std::vector<Case> cases{
        {2, {EAGAIN, 0, 0}, ""},
        {2, {EAGAIN, EAGAIN, 0, 0}, header_line},
        {2, {EAGAIN, EAGAIN, EINTR, 0, 0}, header_line + header_line},
        {3, {EINTR, 0, 0}, header_line},
        {2, {EINTR, EINTR, EAGAIN, 0, 0}, header_line + header_line + header_line},
        {2, {0, EAGAIN, 0}, ""},
        {2, {0, EAGAIN, EAGAIN, 0}, body_line},
        {3, {0, EINTR, 0}, body_line},
        {2, {EINTR, 0, EINTR, 0}, header_line + body_line},
        {6, {EINTR, EINTR, 0, 0, 0}, ""},
        {6, {0, EINTR, 0, 0}, body_line},
        {6, {0, EAGAIN, EINTR, 0, 0}, both},
        {6, {0, 0, EAGAIN, EAGAIN, EINTR, 0}, ""},
    };
    for (const Case& c : cases) {
        write_all(pair.peer, stream_of(c.mode));
        calls.recv = Stalls{c.errors};
        const std::string err = captured_stderr(
            [&] { EXPECT_EQ(receive(c.mode), static_cast<int>(encoded_trap.size())); });
        EXPECT_EQ(err, c.log);
        EXPECT_EQ(received(th->len), encoded_trap);
    }
}

TEST_F(FaultTest, InterruptedWaitsAreLogged) {
    int interruptions = 0;
    calls.poll = [&](pollfd* fds) {
        EXPECT_EQ(fds->fd, pair.ours.get());
        EXPECT_EQ(fds->events, POLLIN);
        return interruptions-- > 0 ? fail(EINTR) : real_poll(fds, 1, -1);
    };
    write_all(pair.peer, framed_trap());
    interruptions = 2;
    calls.recv = Stalls{{EAGAIN, 0, 0}};
    EXPECT_EQ(captured_stderr([&] { EXPECT_GT(receive(2), 0); }),
              "recv_trap: EINTR for packet header\nrecv_trap: EINTR for packet header\n");
    write_all(pair.peer, framed_trap());
    interruptions = 1;
    calls.recv = Stalls{{0, EAGAIN, 0}};
    EXPECT_EQ(captured_stderr([&] { EXPECT_GT(receive(2), 0); }),
              "recv_trap: EINTR for SNMP packet\n");
    write_all(pair.peer, encoded_trap);
    interruptions = 1;
    calls.recv = Stalls{{0, 0, EAGAIN, 0}};
    EXPECT_EQ(captured_stderr([&] { EXPECT_GT(receive(6), 0); }), "");
}

TEST_F(FaultTest, FailedReadsAndWaitsEndTheReceive) {
    struct Case {
        int mode;
        std::vector<int> errors;
        std::string log;
    };
    const std::vector<Case> cases{
        {2, {ECONNRESET}, ""},
        {2, {EAGAIN, ENOMEM}, ""},
        {3, {0, ECONNRESET}, ""},
        {6, {0, ECONNRESET}, ""},
        {6, {0, 0, ECONNRESET}, ""},
        {6, {ECONNRESET}, "recv_trap: Error receiving tcp traps\n"},
        {6, {EAGAIN}, "recv_trap: Error receiving tcp traps\n"},
    };
    for (const Case& c : cases) {
        pair = local_pair();
        write_all(pair.peer, stream_of(c.mode));
        calls.recv = Stalls{c.errors};
        errno = 0;
        const std::string err = captured_stderr([&] {
            EXPECT_EQ(receive(c.mode), -1);
            EXPECT_EQ(errno, c.errors.back());
        });
        EXPECT_EQ(err, c.log);
    }
    pair = local_pair();
    calls.recv = Stalls{};
    calls.poll = [](pollfd*) { return fail(ENOMEM); };
    EXPECT_EQ(receive(2), -1);
    EXPECT_EQ(errno, ENOMEM);
    calls.poll = [](pollfd* fds) {
        fds->revents = POLLNVAL;
        return 1;
    };
    EXPECT_EQ(receive(3), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FaultTest, InterruptedDatagramReceiveIsRepeated) {
    int attempts = 0;
    calls.recvfrom = [&](int, void* buffer, size_t size, int flags) -> ssize_t {
        EXPECT_EQ(size, 8192U);
        EXPECT_EQ(flags, 0);
        if (++attempts < 5) {
            return fail(EINTR);
        }
        std::memcpy(buffer, encoded_trap.data(), encoded_trap.size());
        return static_cast<ssize_t>(encoded_trap.size());
    };
    EXPECT_EQ(receive(1), static_cast<int>(encoded_trap.size()));
    EXPECT_EQ(attempts, 5);
    for (const int error : {EAGAIN, ENOBUFS, ECONNREFUSED}) {
        calls.recvfrom = [&](int, void*, size_t, int) { return fail(error); };
        EXPECT_EQ(receive(1), -6);
        EXPECT_EQ(errno, error);
    }
}

TEST_F(FaultTest, ConnectionIsFinishedAfterASignal) {
    const Fd daemon = tcp_listener();
    std::string name = "127.0.0.1+/" + std::to_string(port_of(daemon));
    int connects = 0;
    int waits = 0;
    calls.connect = [&](int sd, const sockaddr* address, socklen_t length) {
        ++connects;
        EXPECT_EQ(real_connect(sd, address, length), 0);
        return fail(EINTR);
    };
    calls.poll = [&](pollfd* fds) {
        EXPECT_EQ(fds->events, POLLOUT);
        return ++waits < 3 ? fail(EINTR) : real_poll(fds, 1, -1);
    };
    event_infoEMS opened{};
    EXPECT_GE(open_event(&opened, 1, name.data(), 6), 0);
    EXPECT_EQ(connects, 1);
    EXPECT_EQ(waits, 3);
    const Fd peer = accepted(daemon);
    EXPECT_FALSE(read_available(peer).empty());
    EXPECT_EQ(close_event(&opened), 0);
}

TEST_F(FaultTest, ConnectionThatFailsAfterASignal) {
    std::string name = "127.0.0.1+/162";
    const long before = open_descriptors();
    calls.connect = [](int, const sockaddr*, socklen_t) { return fail(EINTR); };
    calls.getsockopt = [](int option, void* value) {
        EXPECT_EQ(option, SO_ERROR);
        const int error = ETIMEDOUT;
        std::memcpy(value, &error, sizeof error);
        return 0;
    };
    event_infoEMS opened{};
    EXPECT_EQ(open_event(&opened, 1, name.data(), 6), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    calls.getsockopt = [](int, void*) { return fail(ENOBUFS); };
    EXPECT_EQ(open_event(&opened, 1, name.data(), 6), -1);
    EXPECT_EQ(errno, ENOBUFS);
    calls.poll = [](pollfd*) { return fail(ENOMEM); };
    EXPECT_EQ(open_event(&opened, 1, name.data(), 6), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(opened.sd, -1);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(name, "127.0.0.1+/162");
}

TEST_F(FaultTest, OpeningReportsWhatFailed) {
    const TempDir folder;
    const std::string path = folder.path("socket");
    const Fd daemon = local_listener(path);
    const long before = open_descriptors();
    const auto expect_error = [&](std::string name, int trans, int error) {
        event_infoEMS opened{};
        errno = 0;
        EXPECT_EQ(open_event(&opened, 1, name.data(), trans), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(opened.sd, -1);
        EXPECT_EQ(open_descriptors(), before);
    };
    calls.bind = [] { return fail(EADDRNOTAVAIL); };
    expect_error("127.0.0.1", 1, EADDRNOTAVAIL);
    calls.connect = [](int, const sockaddr*, socklen_t) { return fail(ECONNRESET); };
    expect_error(path, 2, ECONNRESET);
    expect_error("127.0.0.1", 6, ECONNRESET);
    calls.socket = [] { return fail(EMFILE); };
    expect_error(path, 2, EMFILE);
    expect_error("127.0.0.1", 1, EMFILE);
    expect_error("127.0.0.1", 6, EMFILE);
}

TEST_F(FaultTest, OpeningSurvivesFailingOptionsAndWakeup) {
    const TempDir folder;
    std::string path = folder.path("socket");
    const Fd daemon = local_listener(path);
    calls.getsockopt = [](int, void*) { return fail(ENOPROTOOPT); };
    calls.sendmsg = [](int, const msghdr*, int) { return fail(EPIPE); };
    event_infoEMS opened{};
    EXPECT_GE(open_event(&opened, 1, path.data(), 2), 0);
    EXPECT_EQ(close_event(&opened), 0);
    EXPECT_TRUE(read_to_end(accepted(daemon)).empty());
}

/* Both ends at work under a storm of signals, with little room between them. */
void run_storm(const SocketPair& pair, int mode, bool restarts) {
    constexpr uint32_t traps = 400;
    const int small = 4096;
    setsockopt(pair.ours.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::atomic<int> refused = 0;
    const SignalStorm storm(restarts, 100);
    std::thread sender([&] { /* takes signals, too */
                             event_infoEMS ei{};
                             ei.sd = pair.ours.get();
                             ei.trans = static_cast<uint16_t>(mode);
                             for (uint32_t i = 0; i < traps; ++i) {
                                 Trap trap(i, i % 1000);
                                 refused += send_trap(&ei, &trap.info, &trap.var) != 0 ? 1 : 0;
                             }
    });
    event_infoEMS ei{};
    ei.sd = pair.peer.get();
    ei.trans = static_cast<uint16_t>(mode);
    for (uint32_t i = 0; i < traps; ++i) {
        snmp_trap_infoEMS info{};
        SnmpVarBindEMS var{};
        info.maxvars = 1;
        const int length = recv_event(&ei, &info, &var);
        if (length <= 0 || info.specific != i || var.val_len != i % 1000) {
            ADD_FAILURE() << "trap " << i << " of mode " << mode << ": " << length;
            shutdown(ei.sd, SHUT_RDWR);
            break;
        }
    }
    sender.join();
    EXPECT_EQ(refused, 0);
}

TEST_F(FaultTest, StormOfSignals) {
    for (const bool restarts : {false, true}) {
        captured_stderr([&] {
            run_storm(local_pair(), 2, restarts);
            run_storm(local_pair(), 6, restarts);
            run_storm(tcp_pair(), 3, restarts);
        });
    }
    progress.clear();
}

}  // namespace
}  // namespace wq::test
