/* The client on a transport of the program's own, which fails as it is told to. */
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqplatform.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/diagnostics.h"
#include "support/env_value.h"
#include "support/sandbox.h"
#include "support/sockets.h"
#include "support/temp_dir.h"

namespace {

using namespace wq::test;

struct Transport {
    int opened = -1;
    int sent = 0;
    int received = 0;
    int error = 0;
    int32_t id_offset = 0;
    int32_t error_status = 0;
    std::vector<uint32_t> addresses;
    int32_t last_id = 0;
    std::chrono::milliseconds receiving{0};
    int receipts = 0;
};
Transport transport;

constexpr int upper_layer = 64;

/* A client on a socket that always has something to read. */
struct Readable {
    Readable() : pair(local_pair(SOCK_DGRAM)) {
        write_all(pair.peer, from_hex("00"));
        client.sd = pair.ours.get();
        client.retries = 1;
        client.timeout = 1;
        client.addr = 0x0100007f;
        client.request.command = SNMP_GET_REQ;
    }

    std::string said_by(int& result) {
        return diagnostics(upper_layer, [&] { result = snmp_call(&client, &var, &var, 1); }).err;
    }

    SocketPair pair;
    snmp_call_info client{};
    SnmpVarBindEMS var{};
};

TEST(Opening, AFailureIsReported) {
    transport = {};
    errno = 0;
    const std::string said =
        diagnostics(upper_layer, [] { EXPECT_EQ(init_snmp_call(1, 1), nullptr); }).err;
    EXPECT_EQ(said, "ERROR: init_snmp_call(): Could not open socket: Too many open files.\n");
}

TEST(Sending, FailuresBecomeCodes) {
    const struct {
        int result;
        int error;
        int code;
        const char* text;
    } rows[] = {
        {-2, 0, -3, "Internal error building SNMP packet."},
        {-1, EPERM, -2, "Could not send SNMP packet:  Operation not permitted."},
        {-5, EPERM, -1, "Unknown SNMP ERROR:  Success."},
    };
    for (const auto& row : rows) {
        transport = {};
        transport.sent = row.result;
        transport.error = row.error;
        Readable on;
        on.client.is_connected = 1;
        int result = 0;
        const std::string said = on.said_by(result);
        EXPECT_EQ(result, row.code);
        EXPECT_EQ(
            said,
            std::string("snmp_call(): send_snmp returned error: ").append(row.text).append("\n"));
        EXPECT_EQ(on.client.is_connected, 0);
        EXPECT_EQ(transport.addresses.at(0), 0U) << "connected";
    }
}

TEST(Sending, ThatWouldBlockGoesOnToTheWait) {
    transport = {};
    transport.sent = -1;
    transport.error = EWOULDBLOCK;
    Readable on;
    int result = -100;
    on.said_by(result);
    EXPECT_EQ(result, 0) << "the answer was there";
    EXPECT_EQ(transport.addresses.at(0), 0x0100007fU) << "unconnected";
}

TEST(Receiving, FailuresBecomeCodes) {
    transport = {};
    transport.received = -1;
    transport.error = EIO;
    Readable on;
    on.client.is_connected = 1;
    int result = 0;
    EXPECT_EQ(on.said_by(result),
              "snmp_call(): recv_snmp returned error: Error on SNMP recvfrom():  Input/output "
              "error.\n");
    EXPECT_EQ(result, -6);
    EXPECT_EQ(on.client.save_errno, EIO);
    EXPECT_EQ(on.client.is_connected, 0);

    transport = {};
    transport.received = -3;
    Readable other;
    EXPECT_EQ(other.said_by(result),
              "snmp_call(): recv_snmp returned error: Could not parse incoming SNMP packet.\n");
    EXPECT_EQ(result, -7);
}

TEST(Receiving, ThatWouldBlockWaitsAgain) {
    transport = {};
    transport.received = -1;
    transport.error = EAGAIN;
    Readable on;
    EXPECT_EQ(snmp_call_recv(&on.client, &on.var, 1), 0);
    EXPECT_EQ(on.client.response.errstat, -6);
    EXPECT_EQ(on.client.save_errno, EAGAIN);
}

TEST(Receiving, GivesTheAgentsStatus) {
    transport = {};
    transport.error_status = 5;
    Readable on;
    EXPECT_EQ(snmp_call(&on.client, &on.var, &on.var, 1), 5);
    EXPECT_EQ(on.client.response.maxvars, 1);
}

TEST(Receiving, OnlyItResetsTheResult) {
    transport = {};
    Readable on;
    on.client.response.errstat = 77;
    EXPECT_EQ(snmp_call_send(&on.client, &on.var, 1), 0);
    EXPECT_EQ(snmp_call_select(&on.client), 1);
    EXPECT_EQ(on.client.response.errstat, 77);
    EXPECT_EQ(snmp_call_recv(&on.client, &on.var, 1), 1);
    EXPECT_EQ(on.client.response.errstat, 0);
}

TEST(Waiting, OnAClosedDescriptorFails) {
    transport = {};
    Readable on;
    constexpr int never_open = 987654;
    on.client.sd = never_open;
    on.client.is_connected = 1;
    int result = 0;
    EXPECT_EQ(on.said_by(result),
              "snmp_call(): Select returned error: Internal error in select():  Bad file "
              "descriptor.\n");
    EXPECT_EQ(result, -5);
    EXPECT_EQ(on.client.save_errno, EBADF);
    EXPECT_EQ(on.client.is_connected, 0);
}

TEST(Waiting, AFailedConnectEndsTheCallWithWhatTheResultWas) {
    transport = {};
    transport.opened = udp_socket().release();
    close_snmp_call(init_snmp_call(1, 1)); /* the first client sets the family of the addresses */
    Readable on;
    on.pair = local_pair(SOCK_DGRAM); /* nothing to read, and no place for an IPv4 address */
    on.client.sd = on.pair.ours.get();
    on.client.timeout = 0;
    on.client.retries = 3;
    on.client.response.errstat = 42;
    int result = 0;
    EXPECT_EQ(on.said_by(result), "snmp_call(): select timed out -- connecting..returned -1\n");
    EXPECT_EQ(result, 42);
    EXPECT_EQ(transport.addresses.size(), 1U);
    EXPECT_EQ(on.client.is_connected, 0);
}

TEST(Waiting, OnDescriptorsAbove1023Works) {
    transport = {};
    Readable on;
    const wq::Fd high(fcntl(on.pair.ours.get(), F_DUPFD, 1024));
    if (!high) {
        GTEST_SKIP() << "fewer than 1024 descriptors are allowed";
    }
    on.client.sd = high.get();
    EXPECT_EQ(snmp_call_select(&on.client), 1);
}

// The catalogue opens once a process, so this is a child's.
TEST(ErrorText, OfARefusalComesFromTheCatalogue) {
    const TempDir dir;
    dir.write("events.msg", "$quote \"\n$set 1\n1 \"<1>\"\n2 \"<2>\"\n");
    const std::string command =
        "gencat '" + dir.path("events.cat") + "' '" + dir.path("events.msg") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const EnvValue path("NLSPATH", dir.path("events.cat").c_str());
    const int result = sandbox::run_in_child([] {
        snmp_call_info client{};
        client.response.errstat = -6;
        client.save_errno = ECONNREFUSED;
        return std::string(snmpcall_error(&client)) == "<1>" ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

// There is always something to read, and reading it takes longer than the attempt.
TEST(Attempt, SlowReceiptOfAStrayAnswerEndsIt) {
    transport = {};
    transport.id_offset = 1;
    transport.receiving = std::chrono::milliseconds(1100);
    Readable on;
    on.client.is_connected = 1;
    EXPECT_EQ(snmp_call(&on.client, &on.var, &on.var, 1), -4);
    EXPECT_EQ(transport.receipts, 1);
}

}  // namespace

int init_async_snmp(void) {
    errno = EMFILE;
    return transport.opened;
}

int send_snmp(int /*sd*/, uint32_t addr, snmp_info* request, SnmpVarBindEMS* /*vars*/) {
    transport.addresses.push_back(addr);
    transport.last_id = request->reqid;
    errno = transport.error;
    return transport.sent;
}

int recv_snmp(int /*sd*/, uint32_t* /*from*/, snmp_info* response, SnmpVarBindEMS* /*vars*/) {
    ++transport.receipts;
    std::this_thread::sleep_for(transport.receiving);
    response->reqid = transport.last_id + transport.id_offset;
    if (transport.received >= 0) {
        response->errstat = transport.error_status;
    }
    errno = transport.error;
    return transport.received;
}
