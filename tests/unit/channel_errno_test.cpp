// The reason of a failed call of the channel: errno is never 0 after a -1.
#include <gtest/gtest.h>
#include <wqevents/channel.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "support/capture.h"
#include "support/hex.h"
#include "support/records.h"
#include "support/sockets.h"

namespace wq::test {
namespace {

struct Failure {
    const char* what;
    int error;
    std::function<int()> call;
};

void expect_failures(const std::vector<Failure>& failures) {
    for (const Failure& failure : failures) {
        captured_stderr([&] {
            errno = 0;
            EXPECT_EQ(-1, failure.call()) << failure.what;
            EXPECT_EQ(failure.error, errno) << failure.what;
        });
    }
}

event_infoEMS channel_on(const Fd& sd, int trans) {
    event_infoEMS channel{};
    channel.sd = sd.get();
    channel.trans = static_cast<uint16_t>(trans);
    channel.source = 12;
    return channel;
}

TEST(ChannelErrno, OfOpeningAndClosing) {
    event_infoEMS closed{};
    closed.sd = -1;
    closed.source = 4;
    expect_failures({
        {"no record to open", EINVAL, [] { return open_event(nullptr, 1, nullptr, 5); }},
        {"no record to close", EINVAL, [] { return close_event(nullptr); }},
        {"not open", EBADF, [&] { return close_event(&closed); }},
    });
}

TEST(ChannelErrno, OfSending) {
    SocketPair pair = local_pair();
    event_infoEMS channel = channel_on(pair.ours, 2);
    snmp_trap_infoEMS trap{};
    trap.vars = 1;
    static std::array<SnmpVarBindEMS, 10> large;
    for (SnmpVarBindEMS& var : large) {
        var.oid_length = 10;
        var.type = 4;
        var.val_len = EMS_STRING_MAX;
    }
    snmp_trap_infoEMS too_large = trap;
    too_large.vars = 10;
    const unsigned char byte = 0;
    expect_failures({
        {"no channel", EINVAL, [&] { return send_trap(nullptr, &trap, nullptr); }},
        {"no trap", EINVAL, [&] { return send_trap(&channel, nullptr, nullptr); }},
        {"no bindings", EINVAL, [&] { return send_trap(&channel, &trap, nullptr); }},
        {"too large", EINVAL, [&] { return send_trap(&channel, &too_large, large.data()); }},
        {"no channel", EINVAL, [&] { return send_hex_buffer(nullptr, &byte, 1); }},
        {"no buffer", EINVAL, [&] { return send_hex_buffer(&channel, nullptr, 1); }},
        {"negative", EINVAL, [&] { return send_hex_buffer(&channel, &byte, -1); }},
        {"no channel", EINVAL,
         [&] { return send_event(nullptr, 1, nullptr, "text", nullptr, nullptr); }},
        {"no text", EINVAL,
         [&] { return send_event(&channel, 1, nullptr, nullptr, nullptr, nullptr); }},
    });
    pair.peer = Fd();
    expect_failures({{"peer is gone", EPIPE,
                      [&] { return send_event(&channel, 1, nullptr, "text", nullptr, nullptr); }}});
}

// What the descriptor of a receiving channel holds.
struct Stream {
    const char* bytes;
    int trans;
};

TEST(ChannelErrno, OfReceivedBytes) {
    const char* const undecodable =
        "1400000001000000FFFFFFFF000000000000000000000000"
        "3012020100040670756263696300000000000000";
    for (const Stream& stream :
         {Stream{undecodable, 2}, Stream{"3080", 6}, Stream{"30850000", 6}, Stream{"308300", 6}}) {
        const SocketPair pair = local_pair();
        write_all(pair.peer, from_hex(stream.bytes));
        event_infoEMS channel = channel_on(pair.ours, stream.trans);
        snmp_trap_infoEMS trap{};
        captured_stdout([&] {
            expect_failures(
                {{stream.bytes, EBADMSG, [&] { return recv_event(&channel, &trap, nullptr); }}});
        });
    }
}

TEST(ChannelErrno, OfReceiving) {
    event_infoEMS channel{};
    channel.sd = -1;
    channel.trans = 2;
    snmp_trap_infoEMS trap{};
    snmp_trap_infoEMS for_one{};
    for_one.maxvars = 1;
    unsigned char* buffer = nullptr;
    trap_headerEMS* header = nullptr;
    wqc_recv_event = [](int, sockaddr_in*, unsigned char*, int*) { return -1; };
    const SocketPair pair = local_pair();
    write_all(pair.peer, from_hex("00"));
    int32_t length = 0;
    const unsigned char indefinite = 0x80;
    expect_failures({
        {"no channel", EINVAL, [&] { return recv_event(nullptr, &trap, nullptr); }},
        {"no trap", EINVAL, [&] { return recv_event(&channel, nullptr, nullptr); }},
        {"no bindings", EINVAL, [&] { return recv_event(&channel, &for_one, nullptr); }},
        {"no header", EINVAL, [&] { return recv_event_hdr(&channel, &trap, nullptr, nullptr); }},
        {"not open", EBADF, [&] { return recv_event(&channel, &trap, nullptr); }},
        {"no buffer", EINVAL, [&] { return recv_trap(0, nullptr, 2, nullptr, nullptr, &header); }},
        {"no header", EINVAL, [&] { return recv_trap(0, &buffer, 2, nullptr, nullptr, nullptr); }},
        {"a hook that says nothing", EIO,
         [&] { return recv_trap(pair.ours.get(), &buffer, 4, nullptr, nullptr, &header); }},
        {"no length", EINVAL, [&] { return get_pdu_len(nullptr, &length); }},
        {"no room", EINVAL, [&] { return get_pdu_len(&indefinite, nullptr); }},
        {"indefinite", EBADMSG, [&] { return get_pdu_len(&indefinite, &length); }},
    });
    wqc_recv_event = nullptr;
}

// A broken standard error stream does not hide why the receive failed.
TEST(ChannelErrno, SurvivesLogging) {
    for (const int trans : {2, 6}) {
        const Fd file(open("/dev/null", O_RDWR | O_CLOEXEC));
        event_infoEMS channel = channel_on(file, trans);
        snmp_trap_infoEMS trap{};
        const int saved = dup(STDERR_FILENO);
        close(STDERR_FILENO);
        errno = 0;
        const int result = recv_event(&channel, &trap, nullptr);
        const int error = errno;
        dup2(saved, STDERR_FILENO);
        close(saved);
        EXPECT_EQ(-1, result) << trans;
        EXPECT_EQ(ENOTSOCK, error) << trans;
    }
}

// ---- what a close leaves on its way

// The peer writes something that is never read, and reads what was sent only after the close.
TEST(Closing, TcpPeerGetsAllThatWasSent) {
    SocketPair pair = tcp_pair();
    write_all(pair.peer, from_hex("00"));
    event_infoEMS channel = channel_on(pair.ours, 3);
    pair.ours.release();
    size_t received = 0;
    std::thread peer([&] {
        std::array<unsigned char, 8192> block{};
        for (ssize_t got = 0; (got = recv(pair.peer.get(), block.data(), block.size(), 0)) > 0;) {
            received += static_cast<size_t>(got);
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    });
    const std::vector<unsigned char> trap(150);
    constexpr size_t traps = 2000;
    for (size_t i = 0; i < traps; ++i) {
        ASSERT_EQ(0, send_hex_buffer(&channel, trap.data(), static_cast<int>(trap.size())));
    }
    channel.source = 4;
    EXPECT_EQ(0, close_event(&channel));
    peer.join();
    EXPECT_EQ(traps * (24 + trap.size()), received);
}

std::chrono::milliseconds time_to_close(event_infoEMS& channel) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(0, close_event(&channel));
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 before);
}

// Sends until neither system takes more.
void fill(const Fd& sd) {
    const std::vector<unsigned char> block(65536);
    while (send(sd.get(), block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
}

TEST(Closing, TcpPeerThatNeverReadsIsWaitedForASecond) {
    SocketPair pair = tcp_pair();
    fill(pair.ours);
    event_infoEMS channel = channel_on(pair.ours, 3);
    channel.source = 4;
    EXPECT_LE(std::chrono::milliseconds(990), time_to_close(channel));
    pair.ours.release();
}

}  // namespace
}  // namespace wq::test
