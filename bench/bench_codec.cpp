// Encoding and decoding of whole traps against net-snmp and against a coder that checks nothing.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>

#include "limit_coder.h"
#include "messages.h"
#include "net_snmp.h"
#include "ratios.h"

namespace wq::bench {
namespace {

using Messages = const std::vector<Message>& (*)();

constexpr std::size_t buffer_size = EMS_TRAP_MAX;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void encode(benchmark::State& state, Messages messages) {
    std::array<uint8_t, buffer_size> buffer;
    std::vector<Message> all = messages();
    std::size_t i = 0;
    for (auto _ : state) {
        Message& message = all[i++ % variants];
        int length = buffer_size;
        benchmark::DoNotOptimize(
            snmpBuildTrapEMS(buffer.data(), &length, &message.trap, nullptr, message.vars.data()));
        benchmark::ClobberMemory();
    }
}

void encode_limit(benchmark::State& state, Messages messages) {
    std::array<uint8_t, buffer_size> buffer;
    const std::vector<Message>& all = messages();
    for (const Message& message : all) {
        const uint8_t* start =
            limit_encode(buffer.data() + buffer.size(), message.trap, message.vars.data());
        require(std::equal(start, static_cast<const uint8_t*>(buffer.data() + buffer.size()),
                           message.encoded.begin(), message.encoded.end()));
    }
    std::size_t i = 0;
    for (auto _ : state) {
        const Message& message = all[i++ % variants];
        benchmark::DoNotOptimize(
            limit_encode(buffer.data() + buffer.size(), message.trap, message.vars.data()));
        benchmark::ClobberMemory();
    }
}

void encode_net_snmp(benchmark::State& state, Messages messages) {
    std::vector<netsnmp_pdu*> pdus;
    for (const Message& message : messages()) {
        pdus.push_back(make_pdu(message));
    }
    std::size_t size = buffer_size;
    auto* buffer = static_cast<u_char*>(std::malloc(size));
    std::size_t i = 0;
    for (auto _ : state) {
        std::size_t offset = 0;
        std::size_t length = size;
        benchmark::DoNotOptimize(
            net_snmp().build(&buffer, &length, &offset, &session(), pdus[i++ % variants]));
        benchmark::ClobberMemory();
    }
    std::free(buffer);
    for (netsnmp_pdu* pdu : pdus) {
        net_snmp().free_pdu(pdu);
    }
}

void decode(benchmark::State& state, Messages messages) {
    const std::vector<Message>& all = messages();
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars(32);
    trap.maxvars = static_cast<int32_t>(vars.size());
    std::size_t i = 0;
    for (auto _ : state) {
        const Message& message = all[i++ % variants];
        trap.clen = EMS_COMMUNITY_MAX - 1;
        trap.elen = EMS_OID_MAX;
        benchmark::DoNotOptimize(snmp_parse_trap(message.encoded.data(),
                                                 static_cast<int>(message.encoded.size()), &trap,
                                                 nullptr, vars.data()));
        benchmark::ClobberMemory();
    }
}

void decode_limit(benchmark::State& state, Messages messages) {
    std::vector<Message> all = messages();
    for (Message& message : all) {
        message.encoded.resize(message.encoded.size() + 4);  // its integer reader looks ahead
    }
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars(32);
    std::size_t i = 0;
    for (auto _ : state) {
        limit_decode(all[i++ % variants].encoded.data(), trap, vars.data());
        benchmark::DoNotOptimize(trap);
        benchmark::ClobberMemory();
    }
}

void decode_net_snmp(benchmark::State& state, Messages messages) {
    std::vector<Message> all = messages();
    std::size_t i = 0;
    for (auto _ : state) {
        Message& message = all[i++ % variants];
        netsnmp_pdu* pdu = net_snmp().pdu_create(SNMP_MSG_TRAP);
        const int result = net_snmp().parse(nullptr, &session(), pdu, message.encoded.data(),
                                            message.encoded.size());
        benchmark::DoNotOptimize(result);
        net_snmp().free_pdu(pdu);
    }
}

BENCHMARK_CAPTURE(encode, a, bare_messages);
BENCHMARK_CAPTURE(encode, b, event_messages);
BENCHMARK_CAPTURE(encode, c, mixed_messages);
BENCHMARK_CAPTURE(encode_limit, a, bare_messages);
BENCHMARK_CAPTURE(encode_limit, b, event_messages);
BENCHMARK_CAPTURE(encode_limit, c, mixed_messages);
BENCHMARK_CAPTURE(encode_net_snmp, a, bare_messages);
BENCHMARK_CAPTURE(encode_net_snmp, b, event_messages);
BENCHMARK_CAPTURE(encode_net_snmp, c, mixed_messages);
BENCHMARK_CAPTURE(decode, a, bare_messages);
BENCHMARK_CAPTURE(decode, b, event_messages);
BENCHMARK_CAPTURE(decode, c, mixed_messages);
BENCHMARK_CAPTURE(decode_limit, a, bare_messages);
BENCHMARK_CAPTURE(decode_limit, b, event_messages);
BENCHMARK_CAPTURE(decode_limit, c, mixed_messages);
BENCHMARK_CAPTURE(decode_net_snmp, a, bare_messages);
BENCHMARK_CAPTURE(decode_net_snmp, b, event_messages);
BENCHMARK_CAPTURE(decode_net_snmp, c, mixed_messages);

constexpr std::array<Goal, 12> goals = {{
    {"encode no bindings / net-snmp", "encode/a", "encode_net_snmp/a", 0.25},
    {"encode event / net-snmp", "encode/b", "encode_net_snmp/b", 0.19},
    {"encode 30 bindings / net-snmp", "encode/c", "encode_net_snmp/c", 0.24},
    {"encode no bindings / limit", "encode/a", "encode_limit/a", 2.0},
    {"encode event / limit", "encode/b", "encode_limit/b", 1.5},
    {"encode 30 bindings / limit", "encode/c", "encode_limit/c", 1.5},
    {"decode no bindings / net-snmp", "decode/a", "decode_net_snmp/a", 0.18},
    {"decode event / net-snmp", "decode/b", "decode_net_snmp/b", 0.12},
    {"decode 30 bindings / net-snmp", "decode/c", "decode_net_snmp/c", 0.18},
    {"decode no bindings / limit", "decode/a", "decode_limit/a", 1.9},
    {"decode event / limit", "decode/b", "decode_limit/b", 1.6},
    {"decode 30 bindings / limit", "decode/c", "decode_limit/c", 1.4},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    return wq::bench::run(argc, argv, wq::bench::goals);
}
