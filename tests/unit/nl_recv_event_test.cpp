#include "EMS/events/nl_recv_event.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EMS/events/internal/frame.h"
#include "support/capture.h"
#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/records.h"
#include "support/signal_storm.h"
#include "support/sockets.h"
#include "support/temp_dir.h"
#include "support/vectors.h"
#include "support/writer.h"

namespace wq::test {
namespace {

/* A trap with one binding, `text` for the value. */
Bytes trap_with(const std::string& text) {
    return ber(
        "30(02(00) 04('public') A4(06(2B 06 01 04 01 02 06 03 01) 40(0A 01 02 03) 02(06)"
        " 02(2A) 43(64) 30(30(06(2B 06 01 02 01) 04('" +
        text + "')))))");
}
const Bytes small_trap = trap_with("small");
const Bytes large_trap = trap_with(std::string(300, 'L'));

Bytes little_endian(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

/* A header with words that tell it from a made-up one. */
Bytes header_for(int32_t len) {
    Bytes header = little_endian(static_cast<uint32_t>(len));
    return append(header, from_hex("0B 00 00 00 39 30 00 00 04 03 02 01 FE FF FF FF 98 BA DC FE"));
}
Bytes framed(const Bytes& trap) {
    Bytes stream = header_for(static_cast<int32_t>(trap.size()));
    return append(stream, trap);
}

class RecvTest : public ::testing::Test {
  protected:
    int receive(int trans) { return recv_trap(*state, sd, &packet, trans, nullptr, nullptr, &th); }
    Bytes received(int length) const { return {packet, packet + length}; }
    void arrive(const Bytes& bytes) const { write_all(pair.peer, bytes); }
    /* The peer's stream holds these bytes and ends. */
    void renew(const Bytes& bytes) {
        pair = local_pair();
        sd = pair.ours.get();
        arrive(bytes);
        pair.peer = Fd();
    }

    SocketPair pair = local_pair();
    int sd = pair.ours.get();
    std::unique_ptr<RecvState> state = std::make_unique<RecvState>();
    unsigned char* packet = nullptr;
    trap_headerEMS* th = nullptr;
};

TEST(Frame, BodyNeedOfAnnouncedLength) {
    EXPECT_EQ(body_need(INT_MIN), 0U);
    EXPECT_EQ(body_need(-1), 0U);
    EXPECT_EQ(body_need(0), 0U);
    EXPECT_EQ(body_need(19), 19U);
    EXPECT_EQ(body_need(8192), 8192U);
}

TEST(Frame, AcceptableLengths) {
    struct Case {
        int len;
        bool fits, usable;
    };
    for (const Case& c : {Case{INT_MIN, true, false}, Case{-1, true, false}, Case{0, true, false},
                          Case{19, true, false}, Case{20, true, true}, Case{8192, true, true},
                          Case{8193, false, false}, Case{INT_MAX, false, false}}) {
        EXPECT_EQ(fits_packet(c.len), c.fits) << c.len;
        EXPECT_EQ(is_usable_trap(c.len), c.usable) << c.len;
    }
}

TEST(Frame, HeaderGoesWithTheDaemonsStreams) {
    for (int trans = -1; trans < 8; ++trans) {
        EXPECT_EQ(has_transmission_header(trans), trans == 2 || trans == 3) << trans;
    }
}

TEST_F(RecvTest, HeaderAndTrapAreHandedOut) {
    for (const int trans : {2, 3}) {
        arrive(framed(small_trap));
        ASSERT_EQ(receive(trans), static_cast<int>(small_trap.size()));
        EXPECT_EQ(received(th->len), small_trap);
        EXPECT_EQ(reinterpret_cast<unsigned char*>(th) + 24, packet);
        EXPECT_EQ(th->src, 11U);
        EXPECT_EQ(th->pid, 12345);
        EXPECT_EQ(th->time, 0x01020304);
        EXPECT_EQ(th->status, -2);
        EXPECT_EQ(th->target, 0xFEDCBA98);
    }
}

TEST_F(RecvTest, NothingOfTheNextTrapIsTaken) {
    Bytes stream = framed(small_trap);
    append(stream, framed(large_trap));
    arrive(stream);
    ASSERT_EQ(receive(2), static_cast<int>(small_trap.size()));
    EXPECT_EQ(read_available(pair.ours), framed(large_trap));

    stream = small_trap;
    append(stream, large_trap);
    arrive(stream);
    ASSERT_EQ(receive(6), static_cast<int>(small_trap.size()));
    EXPECT_EQ(read_available(pair.ours), large_trap);
}

TEST_F(RecvTest, AnnouncedLengthDecides) {
    struct Case {
        int32_t len;
        size_t body_read;
        int result;
    };
    for (const Case& c : {Case{8192, 8192, 8192}, Case{8193, 0, -6}, Case{INT_MAX, 0, -6},
                          Case{20, 20, 20}, Case{19, 19, -6}, Case{1, 1, -6}, Case{0, 0, -6},
                          Case{-1, 0, -6}, Case{-20, 0, -6}, Case{INT_MIN, 0, -6}}) {
        Bytes stream = header_for(c.len);
        append(stream, Bytes(8300, 0x55));
        arrive(stream);
        EXPECT_EQ(receive(2), c.result) << c.len;
        EXPECT_EQ(read_available(pair.ours).size(), 8300 - c.body_read) << c.len;
    }
}

TEST_F(RecvTest, HeaderLengthsAreTraced) {
    arrive(header_for(8193));
    EXPECT_EQ(diagnostics(0, [&] { receive(2); }).trace,
              "recv_trap: trap length (from transmission header) = 8193\n"
              "recv_trap: TCP trap = 8193 bytes is too large.\n");
    arrive(header_for(-5));
    const Diagnostics report = diagnostics(0, [&] { receive(3); });
    EXPECT_EQ(report.trace, "recv_trap: trap length (from transmission header) = -5\n");
    EXPECT_EQ(report.err, "");
}

TEST_F(RecvTest, PeerMayCloseAtAnyByteOfAFramedTrap) {
    const Bytes whole = framed(small_trap);
    for (size_t length = 0; length < whole.size(); ++length) {
        renew(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
        EXPECT_EQ(receive(length % 2 == 0 ? 2 : 3), 0) << length;
    }
    renew(whole);
    EXPECT_EQ(receive(2), static_cast<int>(small_trap.size()));
    EXPECT_EQ(receive(2), 0);
}

TEST_F(RecvTest, PeerMayCloseAtAnyByteOfARawTrap) {
    for (const Bytes& whole : {small_trap, trap_with(std::string(100, 'M')), large_trap}) {
        for (size_t length = 0; length < whole.size(); ++length) {
            renew(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
            int result = 1;
            const Diagnostics report = diagnostics(0, [&] { result = receive(6); });
            EXPECT_EQ(result, length == 1 ? -6 : 0) << length;
            EXPECT_EQ(report.err, length == 0 ? "recv_trap: Error receiving tcp traps\n" : "");
            EXPECT_EQ(report.trace, length == 0
                                        ? "recv_trap: Error receiving TCP traps from appl[" +
                                              std::to_string(sd) + "], received 0 bytes\n"
                                    : length == 1 ? "recv_trap: length of TCP trap = 1 bytes.\n"
                                                  : "");
        }
        renew(whole);
        EXPECT_EQ(receive(6), static_cast<int>(whole.size()));
    }
}

TEST_F(RecvTest, RawTrapsBackToBackKeepStep) {
    const std::vector<Bytes> traps{large_trap, small_trap, trap_with(std::string(100, 'M')),
                                   large_trap, large_trap, small_trap};
    state->header = {0, 0, 0, 11, 22, 33};
    for (const Bytes& trap : traps) {
        arrive(trap);
    }
    for (const Bytes& trap : traps) {
        const Diagnostics report =
            diagnostics(0, [&] { ASSERT_EQ(receive(6), static_cast<int>(trap.size())); });
        EXPECT_EQ(report.trace,
                  "recv_trap: length of TCP trap = " + std::to_string(trap.size()) + " bytes.\n");
        EXPECT_EQ(received(th->len), trap);
        EXPECT_EQ(th->src, 1U);
        EXPECT_EQ(th->pid, -1);
        EXPECT_EQ(th->time, 11);
        EXPECT_EQ(th->status, 22);
        EXPECT_EQ(th->target, 33U);
    }
    EXPECT_TRUE(read_available(pair.ours).empty());
}

/* The first bytes of a raw message, the bytes behind them, and what becomes of it. */
struct RawCase {
    const char* name;
    const char* start;
    size_t more;
    int result;
    size_t left;
    std::string out, err, trace;
};

TEST_F(RecvTest, RawMessages) {
    const std::string unidentified = "Error could not identify this trap\n";
    const std::string undetermined =
        "recv_trap: Error. Could not determine length of this trap; result = -1, length "
        "=0.000000 \n";
    const auto foreign = [](const std::string& byte) {
        return "recv_trap: Error: could not identify TCP message as a trap, initial hex character "
               "= " +
               byte + "\n";
    };
    const auto length = [](int bytes) {
        return "recv_trap: length of TCP trap = " + std::to_string(bytes) + " bytes.\n";
    };
    const auto too_large = [](int bytes) {
        return "recv_trap: TCP trap = " + std::to_string(bytes) + " bytes is too large.\n";
    };
    const std::vector<RawCase> cases{
        {"two length octets", "30 82 01 00", 256, 260, 0, "", "", length(260)},
        {"one length octet", "30 81 80", 128, 131, 0, "", "", length(131)},
        {"one length octet for few", "30 81 12", 18, 21, 0, "", "", length(21)},
        {"two length octets for few", "30 82 00 10", 16, 20, 0, "", "", length(20)},
        {"two length octets of 0", "30 82 00 00", 30, -6, 30, "", "", length(4)},
        {"one length octet of 0", "30 81 00", 30, -6, 30, "", "", length(3)},
        {"short form", "30 7F", 127, 129, 0, "", "", length(129)},
        {"shortest", "30 12", 18, 20, 0, "", "", length(20)},
        {"too short", "30 11", 17, -6, 0, "", "", length(19)},
        {"empty", "30 00", 5, -6, 5, "", "", length(2)},
        {"largest", "30 82 1F FC", 8188, 8192, 0, "", "", length(8192)},
        {"one more", "30 82 1F FD", 8189, -6, 8189, "", "", too_large(8189)},
        {"largest contents", "30 82 20 00", 8192, -6, 8192, "", "", too_large(8192)},
        {"too large contents", "30 82 20 01", 8193, -6, 8193, "", "", too_large(8193)},
        {"huge", "30 82 FF FF", 9, -6, 9, "", "", too_large(65535)},
        {"three length octets", "30 83 00 01 00", 256, -1, 259, "", "", ""},
        {"four length octets", "30 84 00 00 01 00", 256, -1, 260, "", "", ""},
        {"indefinite", "30 80", 60, -1, 60, unidentified,
         "get_pdu_len: Indefinite lengths are not supported\n",
         "get_pdu_len: Indefinite lengths (0) are not supported\n" + undetermined},
        {"five length octets", "30 85 00 00 00 01 00", 60, -1, 65, unidentified,
         "get_pdu_len: Data length is too long\n",
         "get_pdu_len: Data length (5) is too long\n" + undetermined},
        {"reserved form", "30 FF", 60, -1, 60, unidentified,
         "get_pdu_len: Data length is too long\n",
         "get_pdu_len: Data length (127) is too long\n" + undetermined},
        {"integer", "02 01 00", 60, -5, 61, "", "", foreign("0x2")},
        {"zero", "00 00", 60, -5, 60, "", "", foreign("00")},
        {"text", "47 45", 60, -5, 60, "", "", foreign("0x47")},
        {"set", "31 20", 60, -5, 60, "", "", foreign("0x31")},
    };
    for (const RawCase& c : cases) {
        /* What the last trap left in the packet area must not matter. */
        for (const int before : {0, 0x30, 0x82, 0xFF}) {
            state->packet.fill(static_cast<unsigned char>(before));
            Bytes message = from_hex(c.start);
            append(message, Bytes(c.more, 0x55));
            arrive(message);
            int result = 0;
            const Diagnostics report = diagnostics(0, [&] { result = receive(6); });
            EXPECT_EQ(result, c.result) << c.name;
            EXPECT_EQ(report.out, c.out) << c.name;
            EXPECT_EQ(report.err, c.err) << c.name;
            EXPECT_EQ(report.trace, c.trace) << c.name;
            EXPECT_EQ(read_available(pair.ours).size(), c.left) << c.name;
            if (c.result > 0) {
                EXPECT_EQ(to_hex(received(c.result)), to_hex(message)) << c.name;
            }
        }
    }
}

TEST_F(RecvTest, LoneFirstOctetIsRefusedAtOnce) {
    state->packet.fill(0x30);
    arrive(from_hex("30"));
    EXPECT_EQ(receive(6), -6);
    EXPECT_EQ(th->len, 1);
    arrive(from_hex("02"));
    EXPECT_EQ(receive(6), -5);
}

void pause_for(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST_F(RecvTest, BytesMayComeOneByOne) {
    state->packet.fill(0x7F);
    {
        const Writer writer([&] {
            for (const uint8_t byte : framed(large_trap)) {
                write_all(pair.peer, Bytes{byte});
                std::this_thread::yield();
            }
        });
        ASSERT_EQ(receive(2), static_cast<int>(large_trap.size()));
    }
    EXPECT_EQ(received(th->len), large_trap);
    for (const Bytes& trap : {large_trap, small_trap, trap_with(std::string(100, 'M'))}) {
        const Writer writer([&] {
            write_all(pair.peer, Bytes(trap.begin(), trap.begin() + 2));
            for (auto byte = trap.begin() + 2; byte != trap.end(); ++byte) {
                pause_for(byte - trap.begin() < 6 ? 3 : 0);
                write_all(pair.peer, Bytes{*byte});
            }
        });
        ASSERT_EQ(receive(6), static_cast<int>(trap.size()));
        EXPECT_EQ(received(th->len), trap);
    }
}

TEST_F(RecvTest, NonBlockingSocketIsWaitedFor) {
    set_nonblocking(pair.ours);
    for (const int trans : {2, 6}) {
        const Bytes stream = trans == 2 ? framed(large_trap) : large_trap;
        arrive(Bytes(stream.begin(), stream.begin() + 2));
        int result = 0;
        const std::string err = captured_stderr([&] {
            const Writer writer([&] {
                for (auto byte = stream.begin() + 2; byte != stream.end(); ++byte) {
                    pause_for(byte - stream.begin() < 30 ? 1 : 0);
                    write_all(pair.peer, Bytes{*byte});
                }
            });
            result = receive(trans);
        });
        EXPECT_EQ(result, static_cast<int>(large_trap.size()));
        EXPECT_EQ(received(th->len), large_trap);
        if (trans == 2) {
            EXPECT_EQ(err, "");
        } else {
            EXPECT_EQ(err.substr(0, 38), "recv_trap: EINTR/EWOULDBLOCK for SNMP\n");
        }
    }
    errno = 0;
    std::string err = captured_stderr([&] { EXPECT_EQ(receive(6), -1); });
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(err, "recv_trap: Error receiving tcp traps\n");
}

/* Both kinds of handler: waiting is interrupted by either. */
TEST_F(RecvTest, SignalsDoNotEndAReceive) {
    for (const bool restarts : {false, true}) {
        const Bytes stream = framed(small_trap);
        int result = 0;
        const std::string err = captured_stderr([&] {
            const SignalStorm storm(restarts, 1000);
            const Writer writer([&] {
                auto from = stream.begin();
                for (const ptrdiff_t length :
                     {ptrdiff_t{10}, ptrdiff_t{30}, stream.end() - from - 40}) {
                    SignalStorm::wait_for(10);
                    write_all(pair.peer, Bytes(from, from + length));
                    from += length;
                }
            });
            result = receive(2);
        });
        EXPECT_EQ(result, static_cast<int>(small_trap.size()));
        const std::string header_line = "recv_trap: EINTR for packet header\n";
        const std::string body_line = "recv_trap: EINTR for SNMP packet\n";
        const size_t first_body = err.find(body_line);
        ASSERT_NE(first_body, std::string::npos) << err;
        EXPECT_EQ(err.find(header_line), 0U) << err;
        EXPECT_LT(err.rfind(header_line), first_body);
        EXPECT_EQ(err.find("EWOULDBLOCK"), std::string::npos);
    }
}

TEST_F(RecvTest, SignalsDoNotEndARawReceive) {
    for (const bool restarts : {false, true}) {
        int result = 0;
        const std::string err = captured_stderr([&] {
            const SignalStorm storm(restarts, 1000);
            const Writer writer([&] {
                auto from = large_trap.begin();
                for (const ptrdiff_t length : {ptrdiff_t{2}, ptrdiff_t{1}, ptrdiff_t{1},
                                               ptrdiff_t{40}, large_trap.end() - from - 44}) {
                    SignalStorm::wait_for(10);
                    write_all(pair.peer, Bytes(from, from + length));
                    from += length;
                }
            });
            result = receive(6);
        });
        EXPECT_EQ(result, static_cast<int>(large_trap.size()));
        EXPECT_EQ(received(th->len), large_trap);
        /* Only the length octets say so, and only where the read is not restarted. */
        const std::string line = "recv_trap: EINTR/EWOULDBLOCK for SNMP\n";
        for (size_t at = 0; at < err.size(); at += line.size()) {
            EXPECT_EQ(err.substr(at, line.size()), line);
        }
        EXPECT_EQ(err.empty(), restarts);
    }
}

TEST_F(RecvTest, SignalsDoNotEndADatagramReceive) {
    const Fd sender = udp_socket();
    const Fd receiver = udp_socket();
    sd = receiver.get();
    const sockaddr_in address = loopback(port_of(receiver));
    const SignalStorm storm(false, 1000);
    const Writer writer([&] {
        SignalStorm::wait_for(10);
        sendto(sender.get(), small_trap.data(), small_trap.size(), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof address);
    });
    EXPECT_EQ(receive(1), static_cast<int>(small_trap.size()));
}

class DatagramTest : public RecvTest {
  protected:
    DatagramTest() { sd = receiver.get(); }
    void datagram(const Bytes& bytes) {
        const sockaddr_in address = loopback(port_of(receiver));
        ASSERT_EQ(sendto(sender.get(), bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  static_cast<ssize_t>(bytes.size()));
    }

    Fd sender = udp_socket();
    Fd receiver = udp_socket();
};

TEST_F(DatagramTest, HeaderIsMadeUp) {
    state->header = {0, 0, 0, 11, 22, 33};
    datagram(small_trap);
    sockaddr_in from{};
    socklen_t fromlen = sizeof from;
    ASSERT_EQ(recv_trap(*state, sd, &packet, 1, &from, &fromlen, &th),
              static_cast<int>(small_trap.size()));
    EXPECT_EQ(received(th->len), small_trap);
    EXPECT_EQ(th->src, 1U);
    EXPECT_EQ(th->pid, -1);
    EXPECT_EQ(th->time, 11);
    EXPECT_EQ(th->status, 22);
    EXPECT_EQ(th->target, 33U);
    EXPECT_EQ(fromlen, sizeof from);
    EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(from.sin_port, htons(port_of(sender)));
}

TEST_F(DatagramTest, SenderNeedNotBeAskedFor) {
    for (const bool with_address : {false, true}) {
        for (const bool with_length : {false, true}) {
            sockaddr_in from{};
            socklen_t fromlen = sizeof from;
            datagram(small_trap);
            EXPECT_EQ(recv_trap(*state, sd, &packet, 1, with_address ? &from : nullptr,
                                with_length ? &fromlen : nullptr, &th),
                      static_cast<int>(small_trap.size()));
            EXPECT_EQ(from.sin_port, with_address ? htons(port_of(sender)) : 0);
        }
    }
}

TEST_F(DatagramTest, BadOneCostsOnlyItself) {
    for (const size_t length : {0U, 1U, 19U}) {
        datagram(Bytes(length, 0x30));
        datagram(small_trap);
        EXPECT_EQ(receive(1), -6) << length;
        EXPECT_EQ(th->len, static_cast<int>(length));
        EXPECT_EQ(receive(1), static_cast<int>(small_trap.size()));
    }
}

TEST_F(DatagramTest, FailedReceiveIsTooShort) {
    set_nonblocking(receiver);
    errno = 0;
    EXPECT_EQ(receive(1), -6);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(th->len, -1);
    sd = STDIN_FILENO;
    EXPECT_EQ(receive(1), -6);
}

struct Hook {
    int calls = 0;
    int sd = -1;
    sockaddr_in* from = nullptr;
    int room = 0;
    Bytes packet;
    int len = 0;
    int result = 0;
};
Hook hook;

int call_hook(int sd, sockaddr_in* from, unsigned char* buf, int* len) {
    ++hook.calls;
    hook.sd = sd;
    hook.from = from;
    hook.room = *len;
    from->sin_port = 7;
    std::copy(hook.packet.begin(), hook.packet.end(), buf);
    *len = hook.len;
    return hook.result;
}

class HookTest : public RecvTest {
  public:
    HookTest() {
        hook = {};
        wqc_recv_event = call_hook;
        arrive(from_hex("00"));
    }
    ~HookTest() override { wqc_recv_event = nullptr; }
};

TEST_F(HookTest, ItsTrapIsTaken) {
    state->header = {0, 0, 0, 11, 22, 33};
    hook.packet = small_trap;
    hook.len = static_cast<int>(small_trap.size());
    hook.result = 1;
    sockaddr_in from{};
    socklen_t fromlen = sizeof from;
    ASSERT_EQ(recv_trap(*state, sd, &packet, 4, &from, &fromlen, &th), hook.len);
    EXPECT_EQ(received(th->len), small_trap);
    EXPECT_EQ(hook.calls, 1);
    EXPECT_EQ(hook.sd, sd);
    EXPECT_EQ(hook.from, &from);
    EXPECT_EQ(hook.room, 8192);
    EXPECT_EQ(th->src, 1U);
    EXPECT_EQ(th->pid, -1);
    EXPECT_EQ(th->time, 11);
    EXPECT_EQ(th->status, 22);
    EXPECT_EQ(th->target, 33U);
    EXPECT_EQ(receive(4), hook.len);
}

TEST_F(HookTest, ItsResultAndLengthDecide) {
    struct Case {
        int result, len, expected;
    };
    for (const Case& c : {Case{0, 100, 0}, Case{-1, 100, -1}, Case{-77, 100, -77}, Case{1, 20, 20},
                          Case{20, 19, -6}, Case{1, 8192, 8192}, Case{1, 8193, -6},
                          Case{1, INT_MAX, -6}, Case{1, -1, -6}, Case{1, INT_MIN, -6}}) {
        hook.result = c.result;
        hook.len = c.len;
        EXPECT_EQ(receive(4), c.expected) << c.len;
    }
}

TEST_F(HookTest, WaitsThroughSignals) {
    ASSERT_EQ(read_available(pair.ours).size(), 1U);
    hook.len = 100;
    hook.result = 1;
    std::atomic<bool> ready = false;
    const std::string err = captured_stderr([&] {
        const SignalStorm storm(true, 1000);
        const Writer writer([&] {
            SignalStorm::wait_for(10);
            ready = true;
            write_all(pair.peer, from_hex("00"));
        });
        EXPECT_EQ(receive(4), 100);
        EXPECT_TRUE(ready);
    });
    EXPECT_EQ(err, "");
}

TEST_F(HookTest, WithoutItNothingIsRead) {
    wqc_recv_event = nullptr;
    EXPECT_EQ(receive(4), -6);
    state->header.len = 100;
    EXPECT_EQ(receive(4), 100);
    EXPECT_EQ(read_available(pair.ours).size(), 1U);
}

TEST_F(HookTest, ClosedSocketIsNotWaitedFor) {
    pair.ours = Fd();
    errno = 0;
    EXPECT_EQ(receive(4), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(hook.calls, 0);
}

TEST_F(RecvTest, OtherModesReadNothing) {
    arrive(framed(small_trap));
    for (const int trans : {0, 5, 7, -1, 65538}) {
        state->header.len = 0;
        EXPECT_EQ(receive(trans), -6) << trans;
        state->header.len = 100;
        EXPECT_EQ(receive(trans), 100) << trans;
        state->header.len = 9000;
        EXPECT_EQ(receive(trans), -6) << trans;
    }
    EXPECT_EQ(read_available(pair.ours), framed(small_trap));
}

TEST_F(RecvTest, MissingArgumentsAndSocketsFail) {
    for (const int trans : {0, 1, 2, 3, 4, 5, 6}) {
        EXPECT_EQ(::recv_trap(sd, nullptr, trans, nullptr, nullptr, &th), -1);
        EXPECT_EQ(::recv_trap(sd, &packet, trans, nullptr, nullptr, nullptr), -1);
        state->header.len = 100;
        for (const int bad : {-1, -2, INT_MIN}) {
            sd = bad;
            EXPECT_EQ(receive(trans), -1) << trans;
        }
        sd = pair.ours.get();
    }
    const Fd gone = local_pair().ours;
    const int number = gone.get();
    sd = number + 100;
    for (const int trans : {2, 3, 6}) {
        EXPECT_EQ(receive(trans), -1);
        EXPECT_EQ(errno, EBADF);
    }
}

TEST_F(RecvTest, DumpsWhatIsReceived) {
    dump_packetEMS = 1;
    dumpFp = stderr;
    const auto dumped = [&](const Bytes& bytes, int trans) {
        arrive(bytes);
        std::string err;
        captured_stdout([&] { err = captured_stderr([&] { receive(trans); }); });
        return err;
    };
    EXPECT_EQ(dumped(framed(small_trap), 2).substr(0, 12), "30 39 02 01 ");
    EXPECT_EQ(dumped(small_trap, 6).substr(0, 12), "30 39 02 01 ");
    EXPECT_EQ(dumped(header_for(-7), 2), "");
    const std::string foreign = dumped(from_hex("02 01"), 6);
    EXPECT_EQ(foreign.substr(0, 9), "02 01 -- ");
    const std::string indefinite = dumped(from_hex("30 80"), 6);
    EXPECT_EQ(indefinite.substr(indefinite.find('\n') + 1, 12), "30 80 00 -- ");
    dump_packetEMS = 0;
    dumpFp = nullptr;
}

/* A record in which nothing but the capacity is set. */
struct Event {
    explicit Event(int maxvars) {
        std::memset(&trap, 0x5A, sizeof trap);
        trap.maxvars = maxvars;
    }
    snmp_trap_infoEMS trap;
    std::vector<SnmpVarBindEMS> vars = std::vector<SnmpVarBindEMS>(4);
    std::string text(size_t i) const {
        return {reinterpret_cast<const char*>(vars[i].val.string), vars[i].val_len};
    }
};

class EventTest : public RecvTest {
  protected:
    EventTest() {
        std::memset(&ei, 0x5A, sizeof ei);
        ei.sd = sd;
        ei.trans = 2;
    }
    event_infoEMS ei;
    Event event{4};
};

TEST_F(EventTest, TrapIsDecoded) {
    arrive(framed(small_trap));
    ASSERT_EQ(::recv_event_hdr(&ei, &event.trap, event.vars.data(), &th),
              static_cast<int>(small_trap.size()));
    EXPECT_EQ(event.trap.clen, 6);
    EXPECT_STREQ(reinterpret_cast<const char*>(event.trap.community), "public");
    EXPECT_EQ(event.trap.elen, 10);
    EXPECT_EQ(event.trap.specific, 42U);
    ASSERT_EQ(event.trap.vars, 1);
    EXPECT_EQ(event.text(0), "small");
    EXPECT_EQ(th->target, 0xFEDCBA98);
    EXPECT_EQ(ei.time, 0x01020304);
    event_infoEMS expected;
    std::memset(&expected, 0x5A, sizeof expected);
    expected.sd = sd;
    expected.trans = 2;
    expected.time = 0x01020304;
    EXPECT_EQ(fields(ei), fields(expected));

    arrive(framed(large_trap));
    ASSERT_EQ(::recv_event(&ei, &event.trap, event.vars.data()),
              static_cast<int>(large_trap.size()));
    EXPECT_EQ(event.text(0), std::string(300, 'L'));
}

TEST_F(EventTest, PeerThatClosesEndsTheChannel) {
    renew({});
    ei.sd = sd;
    for (const int mode : {2, 3}) {
        ei.trans = static_cast<uint16_t>(mode);
        EXPECT_EQ(captured_stderr(
                      [&] { EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), 0); }),
                  "recv_event: recv_trap failed\n");
    }
    ei.trans = 6;
    EXPECT_EQ(
        captured_stderr([&] { EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), 0); }),
        "recv_trap: Error receiving tcp traps\nrecv_event: recv_trap failed\n");
}

TEST_F(EventTest, UndecodableTrapFails) {
    Bytes bad = small_trap;
    bad[13] = 0xA0;
    arrive(framed(bad));
    const int32_t time = ei.time;
    const std::string err =
        captured_stderr([&] { EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), -1); });
    EXPECT_EQ(err,
              "snmp_parse_trap: packet is not a snmp trap\nrecv_event: snmp_parse_trap failed\n");
    EXPECT_EQ(ei.time, time);
    arrive(framed(small_trap));
    EXPECT_GT(::recv_event(&ei, &event.trap, event.vars.data()), 0);
}

TEST_F(EventTest, RefusedTrapKeepsItsCode) {
    arrive(header_for(8193));
    EXPECT_EQ(
        captured_stderr([&] { EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), -6); }),
        "recv_event: recv_trap failed\n");
    ei.trans = 6;
    arrive(from_hex("02 01"));
    EXPECT_EQ(
        captured_stderr([&] { EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), -5); }),
        "recv_event: recv_trap failed\n");
}

TEST_F(EventTest, MissingRecordsFail) {
    arrive(framed(small_trap));
    EXPECT_EQ(::recv_event(nullptr, &event.trap, event.vars.data()), -1);
    EXPECT_EQ(::recv_event(&ei, nullptr, event.vars.data()), -1);
    EXPECT_EQ(::recv_event(&ei, &event.trap, nullptr), -1);
    captured_stderr([&] {
        EXPECT_EQ(::recv_event_hdr(&ei, &event.trap, event.vars.data(), nullptr), -1);
        ei.sd = -1;
        EXPECT_EQ(::recv_event(&ei, &event.trap, event.vars.data()), -1);
    });
    EXPECT_EQ(read_available(pair.ours), framed(small_trap));
}

TEST_F(EventTest, AlternatingChannelsDoNotDisturbEachOther) {
    const SocketPair other = tcp_pair();
    event_infoEMS other_ei{};
    other_ei.sd = other.ours.get();
    other_ei.trans = 6;
    Event other_event(4);
    for (int i = 0; i < 20; ++i) {
        const std::string first = "first " + std::to_string(i);
        const std::string second(static_cast<size_t>(100 + i * 30), 's');
        arrive(framed(trap_with(first)));
        write_all(other.peer, trap_with(second));
        ASSERT_GT(::recv_event(&ei, &event.trap, event.vars.data()), 0);
        ASSERT_GT(::recv_event(&other_ei, &other_event.trap, other_event.vars.data()), 0);
        EXPECT_EQ(event.text(0), first);
        EXPECT_EQ(other_event.text(0), second);
    }
}

TEST_F(RecvTest, DescriptorsBeyondThoseOfSelect) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    if (before.rlim_max < 1600) {
        GTEST_SKIP() << "no more than " << before.rlim_max << " descriptors";
    }
    const rlimit raised{1600, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    const Fd high(dup2(pair.ours.get(), 1500));
    ASSERT_EQ(high.get(), 1500);
    sd = 1500;
    for (const int trans : {2, 6}) {
        const Writer writer([&] {
            pause_for(10);
            arrive(trans == 2 ? framed(large_trap) : large_trap);
        });
        EXPECT_EQ(receive(trans), static_cast<int>(large_trap.size()));
    }
    event_infoEMS ei{};
    ei.sd = 1500;
    ei.trans = 6;
    EXPECT_EQ(send_hex_buffer(&ei, small_trap.data(), 20), 0);
    EXPECT_EQ(read_available(pair.peer).size(), 20U);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(RecvTest, ReceivingOpensNoDescriptor) {
    const long before = open_descriptors();
    for (const Bytes& stream :
         {framed(small_trap), header_for(8193), header_for(-1), from_hex("0201"), small_trap}) {
        for (const int trans : {2, 6}) {
            renew(stream);
            captured_stderr([&] { captured_stdout([&] { receive(trans); }); });
        }
    }
    EXPECT_EQ(open_descriptors(), before - 1); /* the peer's end is closed */
}

TEST(PduLength, OfEveryForm) {
    struct Case {
        const char* octets;
        int result;
        int32_t length;
    };
    constexpr int32_t untouched = -99;
    for (const Case& c : {
             Case{"00", 0, 0},
             Case{"01", 0, 1},
             Case{"7F", 0, 127},
             Case{"80", -1, untouched},
             Case{"81 00", 1, 1},
             Case{"81 01", 0, 1},
             Case{"81 FF", 0, 255},
             Case{"82 00 FF", 1, 2},
             Case{"82 01 00", 0, 256},
             Case{"82 FF FF", 0, 65535},
             Case{"83 00", 1, 3},
             Case{"83 01 02 03", 0, 0x010203},
             Case{"84 00", 1, 4},
             Case{"84 01 02 03 04", 0, 0x01020304},
             Case{"84 FF FF FF FE", 0, -2},
             Case{"85 01 02 03 04 05", -1, untouched},
             Case{"FF 01", -1, untouched},
         }) {
        const Bytes octets = from_hex(c.octets);
        const ExactBlock data(octets);
        int32_t length = untouched;
        captured_stderr(
            [&] { EXPECT_EQ(get_pdu_len(data.data(), &length), c.result) << c.octets; });
        EXPECT_EQ(length, c.length) << c.octets;
    }
    int32_t length = 0;
    EXPECT_EQ(get_pdu_len(nullptr, &length), -1);
    const unsigned char octet = 5;
    EXPECT_EQ(get_pdu_len(&octet, nullptr), -1);
}

TEST(Logger, WritesALine) {
    EXPECT_EQ(captured_stderr([] { logger(1, "routine", "number %d of %s", 7, "nine"); }),
              "routine: number 7 of nine\n");
    EXPECT_EQ(captured_stderr([] { logger(-1, "", "%s", ""); }), ": \n");
    EXPECT_EQ(captured_stderr([] { logger(0, "routine", "silent"); }), "");
    EXPECT_EQ(captured_stderr([] {
                  logger(1, nullptr, "x");
                  logger(1, "routine", nullptr);
              }),
              "");
    errno = EPIPE;
    captured_stderr([] { logger(1, "r", "x"); });
    const std::string error_text = std::strerror(EAGAIN);
    EXPECT_EQ(captured_stderr([] {
                  errno = EAGAIN;
                  logger(1, "r", "%m");
                  EXPECT_EQ(errno, EAGAIN);
              }),
              "r: " + error_text + "\n");
}

TEST(SendSignal, GoesToTheProcessOfTheFile) {
    const TempDir folder;
    const auto pid_file = [&](const std::string& content) { return folder.write("pid", content); };
    EXPECT_EQ(sendsig(SIGUSR1, "daemon", folder.path("missing").c_str()), 1);
    EXPECT_EQ(sendsig(SIGUSR1, "daemon", folder.path().c_str()), 1);
    EXPECT_EQ(sendsig(SIGUSR1, "daemon", nullptr), 1);
    for (const char* content :
         {"", "\n", "none", "x1", "-", "0", "-1", "99999999999999999999", "4294967297"}) {
        EXPECT_EQ(sendsig(0, "daemon", pid_file(content).c_str()), 1) << content;
    }

    static volatile sig_atomic_t arrived;
    arrived = 0;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { arrived = arrived + 1; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const std::string own = std::to_string(getpid());
    EXPECT_EQ(sendsig(SIGUSR1, nullptr, pid_file(own).c_str()), 0);
    EXPECT_EQ(arrived, 1);
    EXPECT_EQ(sendsig(SIGUSR1, "ignored", pid_file("  \n" + own + " and more\n").c_str()), 0);
    EXPECT_EQ(arrived, 2);
    EXPECT_EQ(sendsig(-5, "daemon", pid_file(own).c_str()), 0);
    const std::string blanks = std::string(100000, ' ') + "\t\v\f\r\n";
    EXPECT_EQ(sendsig(SIGUSR1, nullptr, pid_file(blanks + "+000" + own).c_str()), 0);
    EXPECT_EQ(arrived, 3);
    EXPECT_EQ(sendsig(SIGUSR1, nullptr, pid_file(blanks).c_str()), 1);
    EXPECT_EQ(sendsig(SIGUSR1, nullptr, pid_file("+ " + own).c_str()), 1);
    EXPECT_EQ(arrived, 3);
    sigaction(SIGUSR1, &before, nullptr);

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_NE(sendsig(0, "daemon", pid_file(std::to_string(child)).c_str()), 0);
    const long descriptors = open_descriptors();
    sendsig(0, "daemon", pid_file("none").c_str());
    sendsig(0, "daemon", pid_file(own).c_str());
    EXPECT_EQ(open_descriptors(), descriptors);
}

}  // namespace
}  // namespace wq::test
