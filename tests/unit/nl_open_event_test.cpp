#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <wqevents/channel.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "EMS/events/internal/frame.h"
#include "support/env_value.h"
#include "support/hex.h"
#include "support/progress_log.h"
#include "support/records.h"
#include "support/sandbox.h"
#include "support/signal_storm.h"
#include "support/sockets.h"
#include "support/temp_dir.h"
#include "support/vectors.h"
#include "support/writer.h"

namespace wq::test {
namespace {

using Texts = std::vector<std::string>;

constexpr int wakeup = 0x03870030;
constexpr int disconnect = 0x03870031;

/* open_event() with a name that can be written to, as the raw mode asks for. */
int open_channel(event_infoEMS& ei, int source, std::string name, int trans) {
    return open_event(&ei, source, name.data(), trans);
}

/* Longer than any name, so that no name service is asked for it. */
const std::string unknown_host(2000, 'h');

/* The part of an event's encoding that the sender's address and clock have no influence on. */
struct Announcement {
    int number;
    int source;
    std::string text;
};
Bytes specific_trap(int number) {
    Bytes item{2, 4};
    for (int shift = 24; shift >= 0; shift -= 8) {
        item.push_back(static_cast<uint8_t>(number >> shift));
    }
    return item;
}
Bytes bindings_of(const Announcement& a) {
    const std::string prefix = "30(06(2B 06 01 04 01 02 06 03 01 01 0";
    return ber("30(" + prefix + "2 00) 02(" + to_hex(Bytes{static_cast<uint8_t>(a.source)}) + "))" +
               prefix + "3 00) 04('<none>'))" + prefix + "4 00) 04('" + a.text + "'))" + prefix +
               "5 00) 04())" + prefix + "6 00) 04()))");
}
void expect_announcement(const Bytes& trap, const Announcement& expected) {
    const Bytes start = ber("02(00) 04('public')");
    const Bytes specific = specific_trap(expected.number);
    const Bytes bindings = bindings_of(expected);
    ASSERT_GE(trap.size(), bindings.size() + 20);
    EXPECT_EQ(trap[0], 0x30);
    EXPECT_NE(std::search(trap.begin(), trap.end(), start.begin(), start.end()), trap.end());
    EXPECT_NE(std::search(trap.begin(), trap.end(), specific.begin(), specific.end()), trap.end());
    EXPECT_EQ(to_hex(Bytes(trap.end() - static_cast<ptrdiff_t>(bindings.size()), trap.end())),
              to_hex(bindings));
}

int32_t word(const Bytes& bytes, size_t index) {
    int32_t value = 0;
    std::memcpy(&value, &bytes.at(index * 4 + 3) - 3, sizeof value);
    return value;
}

/* A header and exactly one trap behind it. */
void expect_framed(const Bytes& stream, const Announcement& expected) {
    ASSERT_GE(stream.size(), 24U);
    EXPECT_EQ(word(stream, 0), static_cast<int32_t>(stream.size()) - 24);
    EXPECT_EQ(word(stream, 1), expected.source);
    EXPECT_EQ(word(stream, 2), getpid());
    EXPECT_EQ(word(stream, 3), 0);
    expect_announcement(Bytes(stream.begin() + 24, stream.end()), expected);
}

/* Nothing in a record is what a test could take for an answer. */
event_infoEMS unused_record() {
    event_infoEMS ei;
    std::memset(&ei, 0x5A, sizeof ei);
    return ei;
}

void expect_failure(int source, std::optional<std::string> name, int trans, int error) {
    const long before = open_descriptors();
    event_infoEMS ei = unused_record();
    errno = 0;
    EXPECT_EQ(open_event(&ei, source, name ? name->data() : nullptr, trans), -1) << trans;
    EXPECT_EQ(errno, error) << trans;
    EXPECT_EQ(ei.sd, -1);
    EXPECT_EQ(ei.status, 0x5A5A5A5A);
    EXPECT_EQ(ei.target, 0x5A5A5A5AU);
    EXPECT_EQ(open_descriptors(), before) << trans;
}

class OpenTest : public ::testing::Test {
  protected:
    void SetUp() override { progress.clear(); }

    TempDir folder;
    std::string path = folder.path("socket");
};

TEST_F(OpenTest, LocalStream) {
    const Fd daemon = local_listener(path);
    event_infoEMS ei = unused_record();
    const int sd = open_channel(ei, 27, path, 2);
    ASSERT_GE(sd, 0);
    const std::string values =
        "Values of vars[0] 27 vars[1] <none> vars[2] dunmark connected to vortd. vars [3]  "
        "vars[4]  .\n";
    EXPECT_EQ(
        take_progress(),
        (Texts{"Beginning of open_event() call.\n",
               "send the application wakeup event open_event().\n", "Beginning of send_event()\n",
               values, "call send_trap from send_event().\n", "Beginning of  send_trap().\n",
               "calling send() SNMP packet from send_trap().\n", "send_trap() completed.\n",
               "end of open_event().\n"}));
    sockaddr_in own{};
    get_myaddress(&own);
    EXPECT_EQ(ei.sd, sd);
    EXPECT_EQ(ei.trans, 2);
    EXPECT_EQ(ei.source, 27U);
    EXPECT_EQ(ei.agent, own.sin_addr.s_addr);
    EXPECT_EQ(ei.status, 0x5A5A5A5A);
    EXPECT_EQ(ei.target, 0x5A5A5A5AU);
    EXPECT_EQ(fcntl(ei.sd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    const Fd peer = accepted(daemon);
    const Bytes stream = read_available(peer);
    expect_framed(stream, {wakeup, 27, "dunmark connected to vortd."});
    EXPECT_EQ(word(stream, 4), 0x5A5A5A5A);

    const event_infoEMS opened = ei;
    EXPECT_EQ(close_event(&ei), 0);
    EXPECT_EQ(fields(ei), fields(opened));
    const Texts closing = take_progress();
    ASSERT_EQ(closing.size(), 8U);
    EXPECT_EQ(closing.front(), "send application disconnect event from close_event().\n");
    EXPECT_EQ(closing.back(), " end of close_event().\n");
    expect_framed(read_to_end(peer), {disconnect, 27, "dunmark disconnecting from vortd."});
}

TEST_F(OpenTest, SourceIsAnApplicationNumber) {
    const Fd daemon = local_listener(path);
    for (const int source : {0, 28, -1, -24, INT_MIN, INT_MAX, 65537}) {
        expect_failure(source, path, 2, EINVAL);
    }
    EXPECT_EQ(open_event(nullptr, 1, path.data(), 2), -1);
    EXPECT_EQ(take_progress(), Texts(8, "Beginning of open_event() call.\n"));
    pollfd waiting{daemon.get(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
    for (const int source : {1, 27}) {
        event_infoEMS ei{};
        EXPECT_GE(open_channel(ei, source, path, 2), 0);
        EXPECT_EQ(close_event(&ei), 0);
    }
}

TEST_F(OpenTest, OtherModesAreRefused) {
    const Fd daemon = local_listener(path);
    for (const int trans : {0, 4, 7, 1000, -1, -2, 65538, INT_MIN}) {
        expect_failure(1, path, trans, EINVAL);
    }
    EXPECT_EQ(take_progress(), Texts(8, "Beginning of open_event() call.\n"));
}

TEST_F(OpenTest, MissingNameIsRefused) {
    for (const int trans : {1, 2, 3, 6}) {
        expect_failure(1, std::nullopt, trans, EINVAL);
    }
}

TEST_F(OpenTest, LocalStreamFailures) {
    expect_failure(1, path, 2, ENOENT);
    expect_failure(1, folder.path() + "/none/socket", 2, ENOENT);
    expect_failure(1, folder.write("file", ""), 2, ECONNREFUSED);
    expect_failure(1, "", 2, ENOENT);
    { const Fd gone = local_listener(path); }
    expect_failure(1, path, 2, ECONNREFUSED);
    const std::string long_path = folder.path() + "/" + std::string(108, 'p');
    folder.write(std::string(108, 'p'), "");
    expect_failure(1, long_path, 2, ENAMETOOLONG);
}

TEST_F(OpenTest, LongestPathIsConnected) {
    const std::string longest =
        folder.path() + "/" +
        std::string(sizeof(sockaddr_un{}.sun_path) - folder.path().size() - 1, 'p');
    const Fd daemon = local_listener(longest);
    event_infoEMS ei{};
    EXPECT_GE(open_channel(ei, 1, longest, 2), 0);
    EXPECT_EQ(close_event(&ei), 0);
    expect_failure(1, longest + "p", 2, ENOENT);
}

TEST_F(OpenTest, RawTcpToAPort) {
    const Fd daemon = tcp_listener();
    const std::string port = std::to_string(port_of(daemon));
    const std::vector<std::string> destinations{
        "127.0.0.1+/" + port,
        "127.0.0.1+what/" + port,
        "127.0.0.1+/" + port + "and more",
        "127.0.0.1+/" + port + "+/1",
        "127.0.0.1+/" + std::to_string(port_of(daemon) + 65536),
    };
    for (const std::string& destination : destinations) {
        event_infoEMS ei{};
        std::string name = destination;
        ASSERT_GE(open_event(&ei, 9, name.data(), 6), 0) << destination;
        EXPECT_EQ(name, destination);
        EXPECT_EQ(ei.trans, 6);
        const Fd peer = accepted(daemon);
        expect_announcement(read_available(peer), {wakeup, 9, "kmevents connected to vortd."});
        EXPECT_EQ(close_event(&ei), 0);
        expect_announcement(read_to_end(peer),
                            {disconnect, 9, "kmevents disconnecting from vortd."});
    }
}

TEST_F(OpenTest, RawTcpFailures) {
    uint16_t free_port = 0;
    { free_port = port_of(tcp_listener()); }
    expect_failure(1, "127.0.0.1+/" + std::to_string(free_port), 6, ECONNREFUSED);

    event_infoEMS ei = unused_record();
    std::string name = unknown_host + "+/1162";
    EXPECT_EQ(open_event(&ei, 1, name.data(), 6), -1);
    EXPECT_EQ(name, unknown_host + std::string("\0/1162", 6));
    expect_failure(1, "", 6, ENOENT);
    expect_failure(1, "+/1162", 6, ENOENT);
    expect_failure(1, unknown_host, 1, ENOENT);
    expect_failure(1, unknown_host, 3, ENOENT);
}

/* In the sandbox each port and service is what the test makes it. */
struct RawTarget {
    const char* destination;
    uint16_t port;
};
void expect_raw_target(const RawTarget& target) {
    const Fd daemon = tcp_listener(target.port);
    event_infoEMS ei{};
    EXPECT_GE(open_channel(ei, 1, target.destination, 6), 0) << target.destination;
    pollfd waiting{daemon.get(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 0), 1) << target.destination;
    close_event(&ei);
}

TEST_F(OpenTest, RawTcpByService) {
    REQUIRE_SANDBOX();
    const std::string other = "other-trap 2162/tcp\nudp-trap 3162/udp\n";
    run_in_sandbox({.services = other}, [] {
        for (const RawTarget& target :
             {RawTarget{"localhost+/1162", 1162}, RawTarget{"localhost+/other-trap", 2162},
              RawTarget{"localhost+/udp-trap", 162}, RawTarget{"localhost+/unknown", 162},
              RawTarget{"localhost+/", 162}, RawTarget{"localhost+", 162},
              RawTarget{"localhost+1162", 162}, RawTarget{"localhost", 162},
              RawTarget{"sandbox-host", 162}}) {
            expect_raw_target(target);
        }
    });
    run_in_sandbox({.services = other + "kmvortd-trap 4162/tcp\n"}, [] {
        for (const RawTarget& target :
             {RawTarget{"localhost+/other-trap", 2162}, RawTarget{"localhost+/unknown", 4162},
              RawTarget{"localhost+", 4162}, RawTarget{"localhost", 4162}}) {
            expect_raw_target(target);
        }
        expect_failure(1, "localhost+/0", 6, ECONNREFUSED);
    });
}

TEST_F(OpenTest, TcpToTheClientService) {
    REQUIRE_SANDBOX();
    run_in_sandbox({.services = "kmvortd-client 1666/tcp\n"}, [] {
        expect_failure(1, "localhost", 3, ECONNREFUSED);
        const Fd daemon = tcp_listener(1666);
        event_infoEMS ei{};
        ASSERT_GE(open_channel(ei, 24, "localhost", 3), 0);
        EXPECT_EQ(ei.trans, 3);
        const Fd peer = accepted(daemon);
        expect_framed(read_available(peer), {wakeup, 24, "Remote vortd connected to vortd."});
        EXPECT_EQ(close_event(&ei), 0);
        expect_framed(read_to_end(peer),
                      {disconnect, 24, "Remote vortd disconnecting from vortd."});
        expect_failure(1, "elsewhere", 3, ENOENT);
    });
}

TEST_F(OpenTest, TcpWithoutTheServiceLeavesNoSocket) {
    REQUIRE_SANDBOX();
    run_in_sandbox({.services = "kmvortd-client 1666/udp\n"}, [] {
        const Fd daemon = tcp_listener(1666);
        expect_failure(1, "localhost", 3, ENOENT);
    });
}

TEST_F(OpenTest, Datagram) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const Fd daemon = udp_socket(162);
        event_infoEMS ei = unused_record();
        ASSERT_GE(open_channel(ei, 12, "localhost", 1), 0);
        EXPECT_EQ(ei.trans, 1);
        EXPECT_EQ(ei.manager, htonl(INADDR_LOOPBACK));
        EXPECT_EQ(ei.agent, htonl(INADDR_LOOPBACK));
        sockaddr_in local{};
        socklen_t length = sizeof local;
        EXPECT_EQ(getsockname(ei.sd, reinterpret_cast<sockaddr*>(&local), &length), 0);
        EXPECT_EQ(local.sin_addr.s_addr, htonl(INADDR_ANY));
        EXPECT_NE(local.sin_port, 0);
        expect_announcement(read_available(daemon), {wakeup, 12, "zelcollect connected to vortd."});
        EXPECT_EQ(close_event(&ei), 0);
        expect_announcement(read_available(daemon),
                            {disconnect, 12, "zelcollect disconnecting from vortd."});
        expect_failure(1, "elsewhere", 1, ENOENT);
    });
}

TEST_F(OpenTest, AutomaticOnTheServer) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue server("WQSERVER", nullptr);
        expect_failure(1, std::nullopt, 5, ENOENT);
        mkdir("/usr/WQ/sockets", 0755);
        const Fd daemon = local_listener("/usr/WQ/sockets/vortd.socket");
        progress.clear();
        event_infoEMS ei{};
        ASSERT_GE(open_event(&ei, 2, nullptr, 5), 0);
        EXPECT_EQ(ei.trans, 2);
        const Texts log = take_progress();
        EXPECT_EQ(std::count(log.begin(), log.end(), "Beginning of open_event() call.\n"), 2);
        EXPECT_EQ(std::count(log.begin(), log.end(), "end of open_event().\n"), 1);
        const Fd peer = accepted(daemon);
        expect_framed(read_available(peer), {wakeup, 2, "talvex connected to vortd."});
        EXPECT_EQ(close_event(&ei), 0);
        expect_failure(0, std::nullopt, 5, EINVAL);
    });
}

TEST_F(OpenTest, AutomaticOnAClient) {
    REQUIRE_SANDBOX();
    run_in_sandbox({.services = "kmvortd-client 1666/tcp\n"}, [] {
        const EnvValue server("WQSERVER", "sandbox-host");
        expect_failure(1, std::nullopt, 5, ECONNREFUSED);
        const Fd daemon = tcp_listener(1666);
        event_infoEMS ei{};
        ASSERT_GE(open_event(&ei, 2, nullptr, 5), 0);
        EXPECT_EQ(ei.trans, 3);
        expect_framed(read_available(accepted(daemon)), {wakeup, 2, "talvex connected to vortd."});
        EXPECT_EQ(close_event(&ei), 0);
    });
}

TEST_F(OpenTest, SilentApplicationAnnouncesNothing) {
    const Fd daemon = local_listener(path);
    event_infoEMS ei{};
    ASSERT_GE(open_channel(ei, 4, path, 2), 0);
    EXPECT_EQ(take_progress(), (Texts{"Beginning of open_event() call.\n",
                                      "send the application wakeup event open_event().\n",
                                      "end of open_event().\n"}));
    const Fd peer = accepted(daemon);
    EXPECT_EQ(close_event(&ei), 0);
    EXPECT_EQ(take_progress(), (Texts{"send application disconnect event from close_event().\n",
                                      " end of close_event().\n"}));
    EXPECT_TRUE(read_to_end(peer).empty());
}

TEST_F(OpenTest, RelayingDaemonAnnouncesItsGoingWithAHeader) {
    const Fd daemon = tcp_listener();
    event_infoEMS ei{};
    ASSERT_GE(open_channel(ei, 24, "127.0.0.1+/" + std::to_string(port_of(daemon)), 6), 0);
    EXPECT_EQ(ei.trans, 6);
    const Fd peer = accepted(daemon);
    EXPECT_EQ(close_event(&ei), 0);
    EXPECT_EQ(ei.trans, 3);
    expect_framed(read_to_end(peer), {disconnect, 24, "Remote vortd disconnecting from vortd."});

    const Fd local = local_listener(path);
    ASSERT_GE(open_channel(ei, 24, path, 2), 0);
    const Fd local_peer = accepted(local);
    EXPECT_TRUE(read_available(local_peer).empty());
    EXPECT_EQ(close_event(&ei), 0);
}

TEST_F(OpenTest, ClosingWhatIsNotOpenTouchesNoDescriptor) {
    EXPECT_EQ(close_event(nullptr), -1);
    EXPECT_TRUE(take_progress().empty());
    const SocketPair bystander = local_pair();
    const long before = open_descriptors();
    for (const int mode : {1, 2, 3, 6}) {
        event_infoEMS ei{};
        EXPECT_EQ(open_channel(ei, 11, unknown_host, mode), -1);
        ei.source = 11;
        ei.trans = static_cast<uint16_t>(mode);
        errno = 0;
        EXPECT_EQ(close_event(&ei), -1);
        EXPECT_EQ(errno, EBADF);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(read_available(bystander.peer).empty());
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST_F(OpenTest, PeerThatIsGoneDoesNotKeepAChannelFromClosing) {
    const Fd daemon = local_listener(path);
    event_infoEMS ei{};
    ASSERT_GE(open_channel(ei, 1, path, 2), 0);
    { const Fd peer = accepted(daemon); }
    const long before = open_descriptors();
    EXPECT_EQ(close_event(&ei), 0);
    EXPECT_EQ(open_descriptors(), before - 1);
}

TEST_F(OpenTest, ChannelsDoNotLeak) {
    const Fd local = local_listener(path);
    const Fd tcp = tcp_listener();
    const std::string raw = "127.0.0.1+/" + std::to_string(port_of(tcp));
    const long before = open_descriptors();
    for (int i = 0; i < 50; ++i) {
        event_infoEMS first{};
        event_infoEMS second{};
        ASSERT_GE(open_channel(first, 11, path, 2), 0);
        ASSERT_GE(open_channel(second, 11, raw, 6), 0);
        EXPECT_EQ(open_descriptors(), before + 2);
        { const Fd peer = accepted(local); }
        EXPECT_EQ(close_event(&second), 0);
        EXPECT_EQ(close_event(&first), 0);
        { const Fd peer = accepted(tcp); }
    }
    EXPECT_EQ(open_descriptors(), before);
}

int buffer_size(int sd, int option) {
    int size = 0;
    socklen_t length = sizeof size;
    EXPECT_EQ(getsockopt(sd, SOL_SOCKET, option, &size, &length), 0);
    return size;
}

TEST(SocketBuffers, AreOnlyEverEnlarged) {
    const Fd sd = udp_socket();
    for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
        const int small = 8192;
        ASSERT_EQ(setsockopt(sd.get(), SOL_SOCKET, option, &small, sizeof small), 0);
        ASSERT_LT(buffer_size(sd.get(), option), 65536);
        EXPECT_EQ(set_sock_buf_size_if_larger(sd.get(), option, 65536), 0);
        const int enlarged = buffer_size(sd.get(), option);
        EXPECT_GE(enlarged, 65536);
        for (const int wanted : {65536, enlarged, 1, 0, -1, INT_MIN}) {
            EXPECT_EQ(set_sock_buf_size_if_larger(sd.get(), option, wanted), 0);
            EXPECT_EQ(buffer_size(sd.get(), option), enlarged) << wanted;
        }
    }
    EXPECT_EQ(set_sock_buf_size_if_larger(-1, SO_SNDBUF, 65536), 0);
    EXPECT_EQ(set_sock_buf_size_if_larger(sd.get(), -1, 65536), 0);
    EXPECT_EQ(set_sock_buf_size_if_larger(STDOUT_FILENO, SO_RCVBUF, 65536), 0);
}

TEST_F(OpenTest, ChannelsHaveLargeBuffers) {
    const Fd daemon = local_listener(path);
    event_infoEMS ei{};
    ASSERT_GE(open_channel(ei, 1, path, 2), 0);
    EXPECT_GE(buffer_size(ei.sd, SO_SNDBUF), 65536);
    EXPECT_GE(buffer_size(ei.sd, SO_RCVBUF), 65536);
    EXPECT_EQ(close_event(&ei), 0);
}

/* The daemon's queue is full: the connection waits in connect() while the signals come. */
TEST_F(OpenTest, SignalsDoNotMakeALocalConnectionFail) {
    const Fd daemon = local_listener(path, 0);
    event_infoEMS first{};
    ASSERT_GE(open_channel(first, 4, path, 2), 0);
    for (const bool restarts : {false, true}) {
        event_infoEMS ei{};
        {
            const SignalStorm storm(restarts);
            const Writer late([&] {
                SignalStorm::wait_for(20);
                const Fd peer = accepted(daemon);
            });
            EXPECT_GE(open_channel(ei, 4, path, 2), 0);
        }
        EXPECT_EQ(close_event(&ei), 0);
        progress.clear();
    }
    close_event(&first);
}

TEST(ApplicationName, OfEveryNumber) {
    const std::string other = "talvex-related Application";
    const std::array<std::string, 30> names{other,
                                            other,
                                            "talvex",
                                            "wqtopmd",
                                            other,
                                            other,
                                            "snmpGlean",
                                            other,
                                            "OSI Application",
                                            "kmevents",
                                            "zelloadmib",
                                            "zeltrap",
                                            "zelcollect",
                                            "Lindmap",
                                            other,
                                            "Vendor Application",
                                            other,
                                            "quorind",
                                            "ferlod",
                                            other,
                                            other,
                                            "wqactiond",
                                            other,
                                            "brisel",
                                            "Remote vortd",
                                            other,
                                            "kmcold",
                                            "dunmark",
                                            other,
                                            other};
    for (size_t number = 0; number < names.size(); ++number) {
        EXPECT_EQ(getApplName(static_cast<uint16_t>(number)), names[number]) << number;
    }
    EXPECT_EQ(getApplName(65535), other);
}

}  // namespace
}  // namespace wq::test
