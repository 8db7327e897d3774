#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/diagnostics.h"
#include "support/hex.h"
#include "support/signal_storm.h"
#include "support/snmp_agent.h"
#include "support/sockets.h"
#include "support/traps.h"

namespace {

using namespace wq::test;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int upper_layer = 64;
const uint32_t this_host = htonl(INADDR_LOOPBACK);

struct Close {
    void operator()(snmp_call_info* client) const { close_snmp_call(client); }
};
using Client = std::unique_ptr<snmp_call_info, Close>;

Client make_client(unsigned timeout = 5, unsigned retries = 2) {
    Client client(init_snmp_call(timeout, retries));
    init_snmp_request(client.get(), this_host, "public");
    return client;
}

std::vector<SnmpVarBindEMS> bindings(int count) {
    std::vector<SnmpVarBindEMS> vars;
    for (int i = 0; i < count; ++i) {
        vars.push_back(number_binding({1, 3, 6, 1, static_cast<uint32_t>(i)}, ASN_INTEGER09, 7));
    }
    return vars;
}

/* Answers everything by counting. */
std::vector<Bytes> count_up(const Bytes& request, int /*number*/) {
    return {encoded(counting_answer(request))};
}

Clock::duration time_of(const std::function<void()>& block) {
    const auto start = Clock::now();
    block();
    return Clock::now() - start;
}

TEST(Client, IsInitialisedForCalls) {
    const Client client(init_snmp_call(7, 3));
    ASSERT_NE(client, nullptr);
    EXPECT_GE(client->sd, 0);
    EXPECT_EQ(client->timeout, 7U);
    EXPECT_EQ(client->retries, 3U);
    EXPECT_EQ(client->request.vars, 1);
    EXPECT_EQ(client->request.maxvars, 20);
    EXPECT_GE(client->request.reqid, 0);
    EXPECT_EQ(client->is_connected, 0);
    EXPECT_EQ(client->response.errstat, 0);
}

TEST(Client, ClosingGivesTheDescriptorBack) {
    const long before = open_descriptors();
    close_snmp_call(init_snmp_call(1, 1));
    EXPECT_EQ(open_descriptors(), before);
    close_snmp_call(nullptr);
}

TEST(Client, TakesAnAgentAndACommunity) {
    const Client client(init_snmp_call(1, 1));
    const Bytes community(200, 'c');
    const struct {
        int given;
        int kept;
    } rows[] = {{0, 0}, {1, 1}, {127, 127}, {128, 128}, {129, 128}, {200, 128}, {-1, 128}};
    for (const auto& row : rows) {
        client->is_connected = 1;
        EXPECT_EQ(init_snmp_2request(client.get(), 0x01020304, community.data(), row.given), 0);
        EXPECT_EQ(client->request.clen, row.kept) << row.given;
        EXPECT_EQ(client->addr, 0x01020304U);
        EXPECT_EQ(client->is_connected, 0);
    }
    EXPECT_EQ(init_snmp_request(client.get(), 5, "private"), 0);
    EXPECT_EQ(client->request.clen, 7);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(client->request.community), 7), "private");
    EXPECT_EQ(init_snmp_request(client.get(), 5, std::string(300, 'x').c_str()), 0);
    EXPECT_EQ(client->request.clen, 128);
}

TEST(GetVar, AsksAndGivesTheAnswer) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    SnmpVarBindEMS in = number_binding({1, 3, 6, 1, 2, 1, 1, 7, 0}, ASN_INTEGER09, 5);
    SnmpVarBindEMS out{};
    const int32_t id = client->request.reqid;
    ASSERT_EQ(getvar(client.get(), &in, &out), 0);
    EXPECT_EQ(in.type, ASN_NULL09);
    EXPECT_EQ(out.type, ASN_INTEGER09);
    EXPECT_EQ(out.val.integer, 1);
    EXPECT_EQ(client->request.reqid, id + 1);
    const AgentMessage request = decoded(agent.requests().at(0));
    EXPECT_EQ(request.info.command, SNMP_GET_REQ);
    EXPECT_EQ(request.info.reqid, id + 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(request.info.community), 6), "public");
    EXPECT_EQ(request.vars.at(0).type, ASN_NULL09);
}

TEST(GetNextVar, SendsItsOwnPduType) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    ASSERT_EQ(getnextvar(client.get(), &in, &out), 0);
    EXPECT_EQ(decoded(agent.requests().at(0)).info.command, SNMP_GET_NEXT_REQ);
}

TEST(ArrayCalls, GoInChunksOfTen) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in = bindings(25);
    std::vector<SnmpVarBindEMS> out(25);
    ASSERT_EQ(getvar_array(client.get(), in.data(), out.data(), 25), 0);
    ASSERT_EQ(agent.requests().size(), 3U);
    const size_t sizes[] = {10, 10, 5};
    for (size_t i = 0; i < 3; ++i) {
        const AgentMessage request = decoded(agent.requests()[i]);
        EXPECT_EQ(request.vars.size(), sizes[i]);
        EXPECT_EQ(request.vars[0].oid[4], 10 * i);
        EXPECT_EQ(request.vars[0].type, ASN_NULL09);
    }
    EXPECT_EQ(out[9].val.integer, 10);
    EXPECT_EQ(out[10].val.integer, 1);
    EXPECT_EQ(out[24].val.integer, 5);
}

TEST(ArrayCalls, StopAtTheFirstChunkThatFails) {
    const SnmpAgent agent([](const Bytes& request, int number) {
        AgentMessage answer = counting_answer(request);
        answer.info.errstat = number == 1 ? 2 : 0;
        answer.info.errindex = number == 1 ? 4 : 0;
        return std::vector<Bytes>{encoded(answer)};
    });
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in = bindings(25);
    std::vector<SnmpVarBindEMS> out(25);
    EXPECT_EQ(getnextvar_array(client.get(), in.data(), out.data(), 25), 2);
    EXPECT_EQ(agent.requests().size(), 2U);
    EXPECT_EQ(client->response.errindex, 4);
}

TEST(ArrayCalls, OfNothingSendNothing) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    SnmpVarBindEMS var{};
    EXPECT_EQ(getvar_array(client.get(), &var, &var, 0), 0);
    EXPECT_EQ(getvar_array(client.get(), &var, &var, -1), 0);
    EXPECT_TRUE(agent.requests().empty());
}

TEST(SetVars, KeepTypesAndValues) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in = bindings(2);
    in[1] = string_binding({1, 3, 6}, {'a', 'b'});
    std::vector<SnmpVarBindEMS> out(2);
    ASSERT_EQ(setvar_array(client.get(), in.data(), out.data(), 2), 0);
    const AgentMessage request = decoded(agent.requests().at(0));
    EXPECT_EQ(request.info.command, SNMP_SET_REQ);
    EXPECT_EQ(request.vars.at(0).val.integer, 7);
    EXPECT_EQ(told_value(request.vars.at(1)), "61 62");
}

TEST(SetVars, OfAnUnknownTypeSendNothing) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in = bindings(12);
    in[11].type = ASN_OPAQUE09;
    std::vector<SnmpVarBindEMS> out(12);
    EXPECT_EQ(setvar_array(client.get(), in.data(), out.data(), 12), -9);
    EXPECT_EQ(client->response.errstat, -9);
    EXPECT_TRUE(agent.requests().empty());
    EXPECT_STREQ(snmpcall_error(client.get()), "Internal Error: Invalid data type for set.");
}

TEST(SetVars, OfAnUnknownTypeSendNothingInASingleCallEither) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    client->request.command = SNMP_SET_REQ;
    SnmpVarBindEMS in = binding({1, 3}, ASN_OPAQUE09);
    SnmpVarBindEMS out{};
    EXPECT_EQ(snmp_call(client.get(), &in, &out, 1), -9);
    EXPECT_EQ(client->response.errstat, -9);
    EXPECT_TRUE(agent.requests().empty());
}

TEST(Calls, AnswersOfOtherRequestsAreDropped) {
    const SnmpAgent agent([](const Bytes& request, int) {
        AgentMessage stale = counting_answer(request);
        --stale.info.reqid;
        stale.vars[0].val.integer = 99;
        return std::vector<Bytes>{encoded(stale), encoded(stale),
                                  encoded(counting_answer(request))};
    });
    const Client client = make_client();
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    const Diagnostics said =
        diagnostics(upper_layer, [&] { EXPECT_EQ(getvar(client.get(), &in, &out), 0); });
    EXPECT_EQ(out.val.integer, 1);
    EXPECT_EQ(said.err, "snmp_call(): req_id's don't match\nsnmp_call(): req_id's don't match\n");
}

TEST(Calls, StrayAnswersDoNotExtendTheWait) {
    const SnmpAgent agent([](const Bytes& request, int) {
        AgentMessage stale = counting_answer(request);
        --stale.info.reqid;
        std::this_thread::sleep_for(700ms);
        return std::vector<Bytes>{encoded(stale)};
    });
    const Client client = make_client(1, 1);
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    const auto took = time_of([&] { EXPECT_EQ(getvar(client.get(), &in, &out), -4); });
    EXPECT_GE(took, 1s);
    EXPECT_LT(took, 1600ms);
}

TEST(Calls, ASilentAttemptIsRepeatedOverAConnection) {
    const SnmpAgent agent([](const Bytes& request, int number) {
        return number < 2 ? std::vector<Bytes>() : count_up(request, number);
    });
    const Client client = make_client(1, 3);
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    const Diagnostics said =
        diagnostics(upper_layer, [&] { EXPECT_EQ(getvar(client.get(), &in, &out), 0); });
    EXPECT_EQ(said.err,
              "snmp_call(): select timed out -- connecting..returned 0\n"
              "snmp_call(): select timed out -- disconnecting\n");
    ASSERT_EQ(agent.requests().size(), 3U);
    EXPECT_EQ(agent.requests()[0], agent.requests()[2]) << "one id for all attempts";
    EXPECT_EQ(client->is_connected, 0);
}

TEST(Calls, WithoutAnyAnswerTimeOut) {
    const SnmpAgent agent([](const Bytes&, int) { return std::vector<Bytes>(); });
    const Client client = make_client(1, 1);
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(client.get(), &in, &out), -4);
    EXPECT_STREQ(snmpcall_error(client.get()), "TIMED OUT: No SNMP response.");
    EXPECT_EQ(client->is_connected, 1);
}

TEST(Calls, WithoutRetriesSendNothing) {
    const SnmpAgent agent(count_up);
    const Client client = make_client(5, 0);
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    const int32_t id = client->request.reqid;
    EXPECT_EQ(getvar(client.get(), &in, &out), -4);
    EXPECT_EQ(client->request.reqid, id + 1);
    EXPECT_TRUE(agent.requests().empty());
}

TEST(Calls, AClosedPortRefusesTheSecondAttempt) {
    uint16_t port = 0;
    {
        const wq::Fd taken = udp_socket();
        port = port_of(taken);
    }
    const EnvValue variable("WQSNMPPORT", std::to_string(port));
    const Client client = make_client(1, 2);
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(client.get(), &in, &out), -6);
    EXPECT_EQ(client->save_errno, ECONNREFUSED);
    EXPECT_EQ(client->is_connected, 0);
    EXPECT_STREQ(snmpcall_error(client.get()), "Remote does not support SNMP.");
}

TEST(Calls, UndecodableAnswersEndThem) {
    const SnmpAgent agent([](const Bytes& request, int) {
        Bytes answer = encoded(counting_answer(request));
        answer.pop_back();
        return std::vector<Bytes>{answer};
    });
    const Client client = make_client();
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(client.get(), &in, &out), -7);
    EXPECT_STREQ(snmpcall_error(client.get()), "Could not parse incoming SNMP packet.");
}

/* No byte of an answer may be such that a client crashes on it, hangs or writes too far. */
TEST(Calls, SurviveFlippedOctets) {
    size_t at = 0;
    const SnmpAgent agent([&at](const Bytes& request, int) {
        Bytes answer = encoded(counting_answer(request));
        answer[at % answer.size()] ^= 0xff;
        AgentMessage good = counting_answer(request);
        return std::vector<Bytes>{answer, encoded(good)};
    });
    for (; at < 40; ++at) {
        const Client client = make_client(2, 1);
        SnmpVarBindEMS in = binding({1, 3, 6, 1}, ASN_NULL09);
        SnmpVarBindEMS out{};
        const int result = getvar(client.get(), &in, &out);
        EXPECT_NE(result, -4) << at;
        EXPECT_LE(client->response.vars, 2) << at;
    }
}

TEST(Calls, MoreBindingsThanAskedForAreCountedOnly) {
    const SnmpAgent agent([](const Bytes& request, int) {
        AgentMessage answer = counting_answer(request);
        answer.vars.resize(20, answer.vars[0]);
        return std::vector<Bytes>{encoded(answer)};
    });
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in = bindings(1);
    const auto out = std::make_unique<SnmpVarBindEMS>();
    EXPECT_EQ(getvar(client.get(), in.data(), out.get()), 0);
    EXPECT_EQ(client->response.vars, 2);
}

TEST(Calls, GoOnAfterSignals) {
    const SnmpAgent agent([](const Bytes& request, int number) {
        std::this_thread::sleep_for(300ms);
        return count_up(request, number);
    });
    const Client client = make_client();
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    const SignalStorm storm(false);
    EXPECT_EQ(getvar(client.get(), &in, &out), 0);
}

TEST(Calls, RequestsThatDoNotFitAreNotSent) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    std::vector<SnmpVarBindEMS> in(10, string_binding({1, 3}, Bytes(1024, 'x')));
    std::vector<SnmpVarBindEMS> out(10);
    const Diagnostics said = diagnostics(
        upper_layer, [&] { EXPECT_EQ(setvar_array(client.get(), in.data(), out.data(), 10), -3); });
    EXPECT_EQ(said.err,
              "snmp_call(): send_snmp returned error: Internal error building SNMP packet.\n");
    EXPECT_TRUE(agent.requests().empty());
}

TEST(Calls, ASocketThatIsGoneIsReported) {
    const Client client = make_client(1, 1);
    close(std::exchange(client->sd, -1));
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(client.get(), &in, &out), -2);
    EXPECT_EQ(client->save_errno, EBADF);
    EXPECT_STREQ(snmpcall_error(client.get()), "Could not send SNMP packet:  Bad file descriptor.");
    EXPECT_EQ(snmp_call_select(client.get()), -1);
    EXPECT_EQ(client->response.errstat, -5);
}

TEST(Steps, GiveTheirResults) {
    const SnmpAgent agent(count_up);
    const Client client = make_client();
    SnmpVarBindEMS in = binding({1, 3}, ASN_NULL09);
    SnmpVarBindEMS out{};
    client->request.command = SNMP_GET_REQ;
    ASSERT_EQ(snmp_call_send(client.get(), &in, 1), 0);
    ASSERT_EQ(snmp_call_select(client.get()), 1);
    ASSERT_EQ(snmp_call_recv(client.get(), &out, 1), 1);
    EXPECT_EQ(out.val.integer, 1);
    EXPECT_EQ(client->response.maxvars, 1);
}

TEST(ErrorTexts, AreThoseOfTheCodes) {
    snmp_call_info client{};
    const struct {
        int32_t code;
        int error;
        const char* text;
    } rows[] = {
        {0, 0, "SNMP Error:  noError"},
        {1, 0, "SNMP Error:  tooBig"},
        {5, 0, "SNMP Error:  genErr"},
        {77, 0, "SNMP Error:  unknown error 77"},
        {-1, EIO, "Unknown SNMP ERROR:  Input/output error."},
        {-2, ENETUNREACH, "Could not send SNMP packet:  Network is unreachable."},
        {-3, EIO, "Internal error building SNMP packet."},
        {-4, EIO, "TIMED OUT: No SNMP response."},
        {-5, EBADF, "Internal error in select():  Bad file descriptor."},
        {-6, EIO, "Error on SNMP recvfrom():  Input/output error."},
        {-6, ECONNREFUSED, "Remote does not support SNMP."},
        {-7, EIO, "Could not parse incoming SNMP packet."},
        {-8, EIO, "Out of memory."},
        {-9, EIO, "Internal Error: Invalid data type for set."},
        {-10, EIO, "Unknown SNMP ERROR:  Input/output error."},
    };
    for (const auto& row : rows) {
        client.response.errstat = row.code;
        client.save_errno = row.error;
        EXPECT_STREQ(snmpcall_error(&client), row.text);
    }
}

TEST(Nulls, Fail) {
    const Client client = make_client();
    snmp_call_info* const sci = client.get();
    SnmpVarBindEMS var{};
    const unsigned char community = 'c';
    EXPECT_EQ(init_snmp_2request(nullptr, 0, &community, 1), -1);
    EXPECT_EQ(init_snmp_2request(sci, 0, nullptr, 1), -1);
    EXPECT_EQ(init_snmp_request(nullptr, 0, "c"), -1);
    EXPECT_EQ(init_snmp_request(sci, 0, nullptr), -1);
    EXPECT_EQ(getvar(nullptr, &var, &var), -1);
    EXPECT_EQ(getvar(sci, nullptr, &var), -1);
    EXPECT_EQ(getvar(sci, &var, nullptr), -1);
    EXPECT_EQ(getnextvar(nullptr, &var, &var), -1);
    EXPECT_EQ(getvar_array(sci, nullptr, &var, 1), -1);
    EXPECT_EQ(getnextvar_array(sci, &var, nullptr, 1), -1);
    EXPECT_EQ(setvar_array(nullptr, &var, &var, 1), -1);
    EXPECT_EQ(snmp_call(nullptr, &var, &var, 1), -1);
    EXPECT_EQ(snmp_call(sci, nullptr, &var, 1), -1);
    EXPECT_EQ(snmp_call(sci, &var, nullptr, 1), -1);
    EXPECT_EQ(snmp_call_send(nullptr, &var, 1), -1);
    EXPECT_EQ(snmp_call_send(sci, nullptr, 1), -1);
    EXPECT_EQ(snmp_call_select(nullptr), -1);
    EXPECT_EQ(snmp_call_recv(nullptr, &var, 1), -1);
    EXPECT_EQ(snmp_call_recv(sci, nullptr, 1), -1);
    EXPECT_EQ(snmpcall_error(nullptr), nullptr);
}

}  // namespace
