#include <gtest/gtest.h>
#include <sys/socket.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/diagnostics.h"
#include "support/exact_block.h"
#include "support/hex.h"
#include "support/random.h"
#include "support/signal_storm.h"
#include "support/sockets.h"
#include "support/traps.h"
#include "support/vectors.h"
#include "support/writer.h"

namespace {

using namespace wq::test;

constexpr int lower_layer = 32;

struct Message {
    explicit Message(size_t capacity = 0) : vars(capacity) {
        info.clen = EMS_COMMUNITY_MAX;
        info.maxvars = static_cast<int32_t>(capacity);
    }

    snmp_info info{};
    std::vector<SnmpVarBindEMS> vars;
};

/* Columns: community, PDU type, request-id, error-status, error-index, bindings. */
Message from_columns(const Vector& row) {
    Message message;
    std::copy(row[0].begin(), row[0].end(), message.info.community);
    message.info.clen = static_cast<int32_t>(row[0].size());
    message.info.command = from_hex(row[1]).at(0);
    message.info.reqid = static_cast<int32_t>(number(row[2]));
    message.info.errstat = static_cast<int32_t>(number(row[3]));
    message.info.errindex = static_cast<int32_t>(number(row[4]));
    for (const std::string& text : split(row[5], ';')) {
        message.vars.push_back(binding_from_text(trimmed(text)));
    }
    message.info.vars = static_cast<int32_t>(message.vars.size());
    return message;
}

std::string told_message(const Message& message) {
    const snmp_info& info = message.info;
    std::string text = to_hex({info.community, static_cast<size_t>(info.clen)});
    for (const int32_t number :
         {int32_t{info.command}, info.reqid, info.errstat, info.errindex, info.vars}) {
        text.append(" ").append(std::to_string(number));
    }
    for (const SnmpVarBindEMS& var : message.vars) {
        text.append("\n").append(dotted(var.oid, var.oid_length));
        text.append(" ").append(std::to_string(var.type)).append(" ").append(told_value(var));
    }
    return text;
}

int build(ExactBlock& out, int* length, Message& message) {
    return snmpBuild09(out.data(), length, &message.info, message.vars.data());
}

/* A whole message of these bindings, in the notation of the tables. */
Bytes answer_of(const std::string& bindings) {
    return ber("30(02(00) 04('p') a2(02(01) 02(00) 02(00) 30(" + bindings + ")))");
}

int parse(const Bytes& bytes, Message& message) {
    const ExactBlock exact(bytes);
    return snmp_parse(exact.data(), exact.length(), &message.info, message.vars.data());
}

TEST(BuildRequest, WritesWhatTheTableHasWithinItsRoom) {
    for (const Vector& row : read_vectors("request.txt", 7)) {
        SCOPED_TRACE(row.where);
        Message message = from_columns(row);
        const Bytes expected = ber(row[6]);
        ExactBlock out(expected.size());
        int length = out.length();
        ASSERT_EQ(build(out, &length, message), 0);
        ASSERT_EQ(length, static_cast<int>(expected.size()));
        EXPECT_EQ(to_hex(out.first(expected.size())), to_hex(expected));
        for (int room = 0; room < static_cast<int>(expected.size()); ++room) {
            ExactBlock short_of(static_cast<size_t>(room));
            length = room;
            ASSERT_EQ(build(short_of, &length, message), -2) << room;
            ASSERT_EQ(length, room);
        }
    }
}

TEST(BuildRequest, ReadsBackAsTheSameMessage) {
    for (const Vector& row : read_vectors("request.txt", 7)) {
        SCOPED_TRACE(row.where);
        const Message expected = from_columns(row);
        Message message(expected.vars.size());
        ASSERT_EQ(parse(ber(row[6]), message), 0);
        EXPECT_EQ(told_message(message), told_message(expected));
    }
}

/* Which step of the encoding finds no room, by the room there is. */
TEST(BuildRequest, TellsWhichStepFailed) {
    Message message = from_columns(read_vectors("request.txt", 7)[0]);
    const auto said_with = [&message](int room) {
        return diagnostics(lower_layer,
                           [&] {
                               ExactBlock out(static_cast<size_t>(std::max(room, 0)));
                               int length = room;
                               EXPECT_EQ(build(out, &length, message), -2);
                           })
            .err;
    };
    /* binding 14, list 16 (in the other area), fields 9, contents 25, PDU 27, wrapper 13, all 40 */
    EXPECT_EQ(said_with(13), "snmpBuild09: error 1\n");
    EXPECT_EQ(said_with(-1), "snmpBuild09: error 1\n");
    EXPECT_EQ(said_with(24), "snmpBuild09: error 5\n");
    EXPECT_EQ(said_with(39), "snmpBuild09: error 9\n");
    message.info.vars = 0;
    EXPECT_EQ(said_with(100), "snmpBuild09: No variables set!\n");
    message.info.vars = -1;
    EXPECT_EQ(said_with(100), "snmpBuild09: No variables set!\n");
}

TEST(BuildRequest, FailsWhereTheScratchAreaIsFull) {
    Message message;
    message.info.command = SNMP_GET_REQ;
    for (int i = 0; i < 8; ++i) {
        message.vars.push_back(string_binding({1, 3, 6, 1}, Bytes(1024, 'x')));
    }
    message.info.vars = 8; /* 8 * (1024 + 13): 8296 octets, and the list takes 4 more */
    ExactBlock out(16384);
    const std::string said = diagnostics(lower_layer, [&] {
                                 int length = out.length();
                                 EXPECT_EQ(build(out, &length, message), -2);
                             }).err;
    EXPECT_EQ(said, "snmpBuild09: error 10\n");
}

TEST(BuildRequest, RefusesTypesThatCannotBeSent) {
    for (const int type : {0x00, 0x44, 0x30, 0x80, 0xff}) {
        Message message;
        message.vars.push_back(binding({1, 3}, static_cast<uint8_t>(type)));
        message.info.vars = 1;
        const std::string said = diagnostics(lower_layer, [&] {
                                     ExactBlock out(256);
                                     int length = out.length();
                                     EXPECT_EQ(build(out, &length, message), -2);
                                 }).err;
        EXPECT_EQ(said, "snmpBuild09: error 1\n") << type;
    }
}

TEST(BuildRequest, NullsAreFailures) {
    Message message = from_columns(read_vectors("request.txt", 7)[0]);
    ExactBlock out(256);
    int length = out.length();
    EXPECT_EQ(snmpBuild09(nullptr, &length, &message.info, message.vars.data()), -2);
    EXPECT_EQ(snmpBuild09(out.data(), nullptr, &message.info, message.vars.data()), -2);
    EXPECT_EQ(snmpBuild09(out.data(), &length, nullptr, message.vars.data()), -2);
    EXPECT_EQ(snmpBuild09(out.data(), &length, &message.info, nullptr), -2);
}

TEST(BuildRequest, ANegativeCommunityLengthIsNone) {
    Message message = from_columns(read_vectors("request.txt", 7)[0]);
    message.info.clen = -5;
    ExactBlock out(256);
    int length = out.length();
    ASSERT_EQ(build(out, &length, message), 0);
    EXPECT_EQ(to_hex(out.first(7)), "30 20 02 01 00 04 00");
}

TEST(ParseAnswer, SaysWhatItRefuses) {
    for (const Vector& row : read_vectors("request_bad.txt", 2)) {
        SCOPED_TRACE(row.where);
        const Bytes bytes = ber(row[0]);
        const Diagnostics said = diagnostics(lower_layer, [&bytes] {
            Message message(3);
            EXPECT_EQ(parse(bytes, message), -1);
        });
        EXPECT_EQ(said.err, as_lines(row[1]));
        EXPECT_EQ(said.out, "");
        EXPECT_EQ(diagnostics(64,
                              [&bytes] {
                                  Message message(3);
                                  parse(bytes, message);
                              })
                      .err,
                  "")
            << "without the bit";
    }
}

TEST(ParseAnswer, EachProperBeginningIsRefused) {
    for (const Vector& row : read_vectors("request.txt", 7)) {
        const Bytes whole = ber(row[6]);
        for (size_t length = 0; length < whole.size(); ++length) {
            Message message(8);
            ASSERT_EQ(
                parse(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)), message), -1)
                << row.where << " cut at " << length;
        }
    }
}

TEST(ParseAnswer, OtherVersionsAreReportedAndRead) {
    const std::string said = diagnostics(lower_layer, [] {
                                 Message message(1);
                                 EXPECT_EQ(parse(ber("30(02(01) 04('p') a2(02(07) 02(00) 02(00) "
                                                     "30()))"),
                                                 message),
                                           0);
                                 EXPECT_EQ(message.info.reqid, 7);
                             }).err;
    EXPECT_EQ(said, "snmp_parse: Wrong version: 1...Continuing anyway\n");
}

TEST(ParseAnswer, TakesWhateverPduType) {
    Message message(1);
    ASSERT_EQ(parse(ber("30(02(00) 04('p') 91(02(07) 02(00) 02(00) 30()))"), message), 0);
    EXPECT_EQ(message.info.command, 0x91);
    EXPECT_EQ(message.info.vars, 0);
}

TEST(ParseAnswer, CountsOneMoreThanItStores) {
    const std::string three = "30(06(2b) 02(01)) 30(06(2b) 02(02)) 30(06(2b) 02(03))";
    const struct {
        int capacity;
        int counted;
    } rows[] = {{4, 3}, {3, 3}, {2, 3}, {1, 2}, {0, 1}};
    for (const auto& row : rows) {
        Message message(static_cast<size_t>(row.capacity));
        ASSERT_EQ(parse(answer_of(three), message), 0);
        EXPECT_EQ(message.info.vars, row.counted) << row.capacity;
        for (int i = 0; i < std::min(row.capacity, 3); ++i) {
            EXPECT_EQ(message.vars[static_cast<size_t>(i)].val.integer, i + 1);
        }
    }
    Message none;
    none.info.maxvars = -3;
    ASSERT_EQ(parse(answer_of(three), none), 0);
    EXPECT_EQ(none.info.vars, 1);
}

TEST(ParseAnswer, AddressesLieInWireOrder) {
    Message message(1);
    ASSERT_EQ(parse(answer_of("30(06(2b) 40(0a 01 02 03))"), message), 0);
    EXPECT_EQ(std::memcmp(&message.vars[0].val.integer, "\x0a\x01\x02\x03", 4), 0);
}

TEST(ParseAnswer, PassesOverValuesThatDoNotDecode) {
    const struct {
        const char* value;
        const char* said;
    } rows[] = {
        {"02(01 02 03 04 05 06)", ""},
        {"04(61*1025)", ""},
        {"06(2b 86)", ""},
        {"44('ab')", "snmp_parse: bad type returned (44)\n"},
        {"07(05)", "snmp_parse: bad type returned (7)\n"},
        {"80()", "snmp_parse: bad type returned (80)\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const Bytes bytes =
            answer_of(std::string("30(06(2b) ").append(row.value).append(") 30(06(2b 06) 02(09))"));
        Message message(2);
        const std::string said =
            diagnostics(lower_layer, [&] { ASSERT_EQ(parse(bytes, message), 0); }).err;
        EXPECT_EQ(said, row.said);
        EXPECT_EQ(message.info.vars, 2);
        EXPECT_EQ(message.vars[1].val.integer, 9);
    }
}

TEST(ParseAnswer, ACommunityFillsAllButTheTerminator) {
    const struct {
        int capacity;
        int length;
        int result;
    } rows[] = {{128, 127, 0}, {127, 127, 0}, {128, 128, -1}, {5, 5, 0},
                {5, 6, -1},    {0, 0, 0},     {-4, 1, -1},    {INT_MAX, 127, 0}};
    for (const auto& row : rows) {
        Message message(1);
        message.info.clen = row.capacity;
        const std::string community = std::string("61*").append(std::to_string(row.length));
        const Bytes bytes = ber(std::string("30(02(00) 04(")
                                    .append(row.length == 0 ? "" : community)
                                    .append(") a2(02(01) 02(00) 02(00) 30()))"));
        EXPECT_EQ(parse(bytes, message), row.result) << row.capacity << " " << row.length;
        if (row.result == 0) {
            EXPECT_EQ(message.info.clen, row.length);
            EXPECT_EQ(message.info.community[row.length], 0);
        }
    }
}

TEST(ParseAnswer, NullsAreFailures) {
    Message message(1);
    const Bytes bytes = answer_of("");
    const int length = static_cast<int>(bytes.size());
    EXPECT_EQ(snmp_parse(nullptr, length, &message.info, message.vars.data()), -1);
    EXPECT_EQ(snmp_parse(bytes.data(), length, nullptr, message.vars.data()), -1);
    EXPECT_EQ(snmp_parse(bytes.data(), length, &message.info, nullptr), -1);
    EXPECT_EQ(snmp_parse(bytes.data(), -1, &message.info, message.vars.data()), -1);
}

TEST(ParseAnswer, SurvivesFlippedOctets) {
    const Bytes whole = ber(read_vectors("request.txt", 7)[3][6]);
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xff}) {
            Bytes bytes = whole;
            bytes[at] ^= static_cast<uint8_t>(flip);
            Message message(2);
            const int result = parse(bytes, message);
            EXPECT_TRUE(result == 0 || result == -1);
            EXPECT_LE(message.info.vars, 3);
        }
    }
}

/* An agent that answers one request as it is told to. */
struct Agent {
    wq::Fd socket = udp_socket();
    sockaddr_in address = loopback(port_of(socket));

    void answer(const Bytes& reply) const {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        Bytes request(4096);
        const ssize_t got = recvfrom(socket.get(), request.data(), request.size(), 0,
                                     reinterpret_cast<sockaddr*>(&from), &length);
        ASSERT_GT(got, 0);
        ASSERT_EQ(sendto(socket.get(), reply.data(), reply.size(), 0,
                         reinterpret_cast<const sockaddr*>(&from), length),
                  static_cast<ssize_t>(reply.size()));
    }
};

struct Exchange {
    Message request;
    Message response{3};
    wq::Fd socket = udp_socket();

    Exchange() {
        request.info.community[0] = 'p';
        request.info.clen = 1;
        request.info.command = SNMP_GET_REQ;
        request.info.reqid = 1;
        request.info.vars = 1;
        request.vars.push_back(binding({1, 3, 6, 1}, ASN_NULL09));
    }

    int with(Agent& agent) {
        return send_request(socket.get(), &agent.address, &request.info, &response.info,
                            request.vars.data(), response.vars.data());
    }
    int answered_by(const Bytes& reply) {
        Agent agent;
        const Writer writer([&] { agent.answer(reply); });
        return with(agent);
    }
};

TEST(SendRequest, GivesTheAnswer) {
    Exchange exchange;
    ASSERT_EQ(exchange.answered_by(answer_of("30(06(2b 06 01) 02(2a))")), 1);
    EXPECT_EQ(exchange.response.info.vars, 1);
    EXPECT_EQ(exchange.response.vars[0].val.integer, 42);
}

TEST(SendRequest, RefusesOtherMessages) {
    const char* const replies[] = {
        "30(02(00) 04('p') a2(02(02) 02(00) 02(00) 30()))",  /* another id */
        "30(02(00) 04('q') a2(02(01) 02(00) 02(00) 30()))",  /* another community */
        "30(02(00) 04('pp') a2(02(01) 02(00) 02(00) 30()))", /* a longer one */
        "30(02(00) 04() a2(02(01) 02(00) 02(00) 30()))",     /* none */
        "30(02(00) 04('p') a0(02(01) 02(00) 02(00) 30()))",  /* another PDU */
        "30(02(00) 04('p') a2(02(01) 02(00) 02(00)))",       /* undecodable */
        "00",
    };
    for (const char* reply : replies) {
        Exchange exchange;
        EXPECT_EQ(exchange.answered_by(ber(reply)), -1) << reply;
    }
}

TEST(SendRequest, SendsTheEncodedRequest) {
    Exchange exchange;
    Agent agent;
    Bytes request(64);
    const Writer writer([&] {
        request.resize(static_cast<size_t>(
            recv(agent.socket.get(), request.data(), request.size(), MSG_PEEK)));
        agent.answer(answer_of(""));
    });
    EXPECT_EQ(exchange.with(agent), 1);
    EXPECT_EQ(to_hex(request), to_hex(ber("30(02(00) 04('p') a0(02(01) 02(00) 02(00) "
                                          "30(30(06(2b 06 01) 05()))))")));
}

TEST(SendRequest, ReportsTheSystemsErrors) {
    Exchange exchange;
    Agent agent;
    exchange.socket = wq::Fd();
    const std::string said =
        diagnostics(lower_layer, [&] { EXPECT_EQ(exchange.with(agent), -1); }).err;
    EXPECT_EQ(said, "sendto: Bad file descriptor\n");
    EXPECT_EQ(diagnostics(0, [&] { exchange.with(agent); }).err, "");
}

TEST(SendRequest, ARefusalShowsOnReceiving) {
    Exchange exchange;
    Agent agent;
    ASSERT_EQ(connect(exchange.socket.get(), reinterpret_cast<const sockaddr*>(&agent.address),
                      sizeof agent.address),
              0);
    agent.socket = wq::Fd();
    const std::string said =
        diagnostics(lower_layer, [&] { EXPECT_EQ(exchange.with(agent), -1); }).err;
    EXPECT_EQ(said, "recvfrom: Connection refused\n");
}

TEST(SendRequest, WaitsFiveSeconds) {
    Exchange exchange;
    Agent agent;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange.with(agent), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(SendRequest, ASignalEndsTheWait) {
    Exchange exchange;
    Agent agent;
    const SignalStorm storm(false, 20000);
    const std::string said =
        diagnostics(lower_layer, [&] { EXPECT_EQ(exchange.with(agent), -1); }).err;
    EXPECT_EQ(said, "snmp_request:Interupted\n");
}

TEST(SendRequest, DumpsWhatItSendsAndReceives) {
    Exchange exchange;
    char* dump = nullptr;
    size_t size = 0;
    dumpFp = open_memstream(&dump, &size);
    dump_packetEMS = 1;
    const std::string out =
        captured_stdout([&] { EXPECT_EQ(exchange.answered_by(answer_of("")), 1); });
    dump_packetEMS = 0;
    fclose(std::exchange(dumpFp, tracelogfp));
    const std::string text(dump, size);
    free(dump);
    /* The dumps tell their offsets on the standard output. */
    EXPECT_EQ(out, "     0:      16:  received 21 bytes from 127.0.0.1:\n     0:      16:  ");
    EXPECT_EQ(text.find("30 1c 02 01 00 04 01 70 a0 14"), 0U) << text;
    EXPECT_NE(text.find("\n30 13 02 01 00 04 01 70 a2 0b"), std::string::npos) << text;
}

TEST(SendRequest, ARequestTakesAtMost1024Octets) {
    Exchange exchange;
    exchange.request.vars[0] = string_binding({1, 3, 6, 1}, Bytes(1000, 'x'));
    Agent agent;
    EXPECT_EQ(exchange.with(agent), -1);
    EXPECT_TRUE(read_available(agent.socket).empty());
}

TEST(SendRequest, NullsAreFailures) {
    Exchange exchange;
    Agent agent;
    const int sd = exchange.socket.get();
    snmp_info* const request = &exchange.request.info;
    snmp_info* const response = &exchange.response.info;
    SnmpVarBindEMS* const vars = exchange.request.vars.data();
    EXPECT_EQ(send_request(sd, nullptr, request, response, vars, vars), -1);
    EXPECT_EQ(send_request(sd, &agent.address, nullptr, response, vars, vars), -1);
    EXPECT_EQ(send_request(sd, &agent.address, request, nullptr, vars, vars), -1);
    EXPECT_EQ(send_request(sd, &agent.address, request, response, nullptr, vars), -1);
    EXPECT_EQ(send_request(sd, &agent.address, request, response, vars, nullptr), -1);
}

}  // namespace
