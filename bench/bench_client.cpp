// The request client against a responder that does next to nothing, both on one processor, where an
// exchange costs the sum of both sides: compared with a bare ping-pong of the same datagrams and
// with net-snmp's synchronous requests.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

// Both libraries have a function of this name; the peer's is only looked up by it.
#define snmp_parse net_snmp_parse
#include "net_snmp.h"
#undef snmp_parse
#include "ratios.h"

namespace wq::bench {
namespace {

void require(bool condition) {
    if (!condition) {
        std::perror("bench_client");
        std::abort();
    }
}

constexpr int array_size = 10;

// ---- the variables that are asked for

std::array<SnmpVarBindEMS, array_size> make_values() {
    Generator generator(1);
    std::array<SnmpVarBindEMS, array_size> values{};
    for (uint32_t i = 0; i < array_size; ++i) {
        SnmpVarBindEMS& value = values[i];
        set_oid(value, {1, 3, 6, 1, 2, 1, 2, 2, 1, 2 + i, 10});
        if (i % 3 == 0) {
            set_string(value, generator.text(12, 24));
        } else {
            value.type = i % 3 == 1 ? ASN_COUNTER09 : ASN_INTEGER09;
            value.val.integer = static_cast<int32_t>(generator.number() >> (1 + 4 * (i % 6)));
            value.val_len = sizeof value.val.integer;
        }
    }
    return values;
}

const std::array<SnmpVarBindEMS, array_size>& values() {
    static const std::array<SnmpVarBindEMS, array_size> made = make_values();
    return made;
}

std::vector<uint8_t> encode(uint8_t command, int count) {
    std::array<SnmpVarBindEMS, array_size> vars = values();
    if (command == SNMP_GET_REQ) {
        for (SnmpVarBindEMS& var : vars) {
            var.type = ASN_NULL09;
        }
    }
    snmp_info info{};
    std::memcpy(info.community, "public", 6);
    info.clen = 6;
    info.command = command;
    info.reqid = 0x12345678;
    info.vars = count;
    std::vector<uint8_t> message(EMS_TRAP_MAX);
    int length = static_cast<int>(message.size());
    require(snmpBuild09(message.data(), &length, &info, vars.data()) == 0);
    message.resize(static_cast<std::size_t>(length));
    return message;
}

// ---- the responder: a prepared answer, into which the request's id goes

// The position behind a tag and a length.
const uint8_t* contents(const uint8_t* item) {
    return item + 2 + (item[1] < 0x80 ? 0 : item[1] & 0x7F);
}

const uint8_t* id_of(const uint8_t* message) {
    const uint8_t* version = contents(message);
    const uint8_t* community = version + 2 + version[1];
    return contents(community + 2 + community[1]);
}

class Answer {
  public:
    explicit Answer(int count) {
        const std::vector<uint8_t> message = encode(SNMP_GET_RSP, count);
        const uint8_t* id = id_of(message.data());
        tail_.assign(id + 2 + id[1], message.data() + message.size());
    }

    // Lengths of three octets, so that the place of everything but the id's end is fixed.
    std::span<const uint8_t> to(const uint8_t* request) {
        static constexpr std::array<uint8_t, 19> head = {
            0x30, 0x82, 0, 0, 2, 1, 0, 4, 6, 'p', 'u', 'b', 'l', 'i', 'c', 0xA2, 0x82, 0, 0};
        const uint8_t* id = id_of(request);
        const std::size_t id_length = 2U + id[1];
        std::memcpy(message_.data(), head.data(), head.size());
        std::memcpy(message_.data() + head.size(), id, id_length);
        std::memcpy(message_.data() + head.size() + id_length, tail_.data(), tail_.size());
        set_length(17, id_length + tail_.size());
        set_length(2, head.size() - 4 + id_length + tail_.size());
        return {message_.data(), head.size() + id_length + tail_.size()};
    }

  private:
    void set_length(std::size_t at, std::size_t length) {
        message_[at] = static_cast<uint8_t>(length >> 8);
        message_[at + 1] = static_cast<uint8_t>(length);
    }

    std::vector<uint8_t> tail_;
    std::array<uint8_t, EMS_TRAP_MAX> message_{};
};

[[noreturn]] void respond(int sd, int count) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Answer answer(count);
    std::array<uint8_t, EMS_TRAP_MAX> request;
    for (;;) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        auto* sender = reinterpret_cast<sockaddr*>(&from);
        if (recvfrom(sd, request.data(), request.size(), 0, sender, &length) > 0) {
            const std::span<const uint8_t> reply = answer.to(request.data());
            sendto(sd, reply.data(), reply.size(), 0, sender, length);
        }
    }
}

class Responder {
  public:
    explicit Responder(int count) {
        const int sd = socket(AF_INET, SOCK_DGRAM, 0);
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address_;
        auto* generic = reinterpret_cast<sockaddr*>(&address_);
        require(bind(sd, generic, length) == 0 && getsockname(sd, generic, &length) == 0);
        pid_ = fork();
        require(pid_ >= 0);
        if (pid_ == 0) {
            respond(sd, count);
        }
        close(sd);
    }
    ~Responder() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    const sockaddr_in& address() const { return address_; }
    std::string port() const { return std::to_string(ntohs(address_.sin_port)); }

  private:
    sockaddr_in address_{};
    pid_t pid_ = -1;
};

// ---- the clients

void ask_library(benchmark::State& state, int count) {
    const Responder responder(count);
    setenv("WQSNMPPORT", responder.port().c_str(), 1);
    snmp_call_info* client = init_snmp_call(5, 1);
    require(client != nullptr);
    init_snmp_request(client, responder.address().sin_addr.s_addr, "public");
    std::array<SnmpVarBindEMS, array_size> in = values();
    std::array<SnmpVarBindEMS, array_size> out{};
    for (auto _ : state) {
        require((count == 1 ? getvar(client, in.data(), out.data())
                            : getvar_array(client, in.data(), out.data(), count)) == 0);
    }
    close_snmp_call(client);
}

void ping_pong(benchmark::State& state, int count) {
    const Responder responder(count);
    const int sd = socket(AF_INET, SOCK_DGRAM, 0);
    require(connect(sd, reinterpret_cast<const sockaddr*>(&responder.address()),
                    sizeof(sockaddr_in)) == 0);
    const std::vector<uint8_t> request = encode(SNMP_GET_REQ, count);
    std::array<uint8_t, EMS_TRAP_MAX> answer;
    for (auto _ : state) {
        require(send(sd, request.data(), request.size(), 0) > 0);
        require(recv(sd, answer.data(), answer.size(), 0) > 0);
    }
    close(sd);
}

struct NetSnmpRequests {
    template <typename Function>
    static Function symbol(Function, const char* name) {
        return net_snmp().symbol<Function>(name);
    }
    decltype(&::init_snmp) init = symbol(&::init_snmp, "init_snmp");
    decltype(&::snmp_open) open = symbol(&::snmp_open, "snmp_open");
    decltype(&::snmp_close) close = symbol(&::snmp_close, "snmp_close");
    decltype(&::snmp_add_null_var) add_null_var = symbol(&::snmp_add_null_var, "snmp_add_null_var");
    decltype(&::snmp_synch_response) synch_response =
        symbol(&::snmp_synch_response, "snmp_synch_response");
};

const NetSnmpRequests& net_snmp_requests() {
    static const NetSnmpRequests requests = [] {
        NetSnmpRequests fresh;
        setenv("SNMPCONFPATH", "/nonexistent", 1);
        setenv("MIBS", "", 1);
        fresh.init("bench_client");
        return fresh;
    }();
    return requests;
}

netsnmp_pdu* make_request(const std::array<std::vector<oid>, array_size>& names, int count) {
    netsnmp_pdu* pdu = net_snmp().pdu_create(SNMP_MSG_GET);
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        net_snmp_requests().add_null_var(pdu, names[i].data(), names[i].size());
    }
    return pdu;
}

void ask_net_snmp(benchmark::State& state, int count) {
    const NetSnmpRequests& requests = net_snmp_requests();
    const Responder responder(count);
    std::string place = "127.0.0.1:" + responder.port();
    netsnmp_session fresh = session();
    fresh.peername = place.data();
    netsnmp_session* opened = requests.open(&fresh);
    require(opened != nullptr);
    std::array<std::vector<oid>, array_size> names;
    for (std::size_t i = 0; i < names.size(); ++i) {
        names[i].assign(values()[i].oid, values()[i].oid + values()[i].oid_length);
    }
    for (auto _ : state) {
        netsnmp_pdu* answer = nullptr;
        require(requests.synch_response(opened, make_request(names, count), &answer) ==
                    STAT_SUCCESS &&
                answer->errstat == 0);
        net_snmp().free_pdu(answer);
    }
    requests.close(opened);
}

#define FOR_ONE_AND_TEN(name)                       \
    BENCHMARK_CAPTURE(name, one, 1)->UseRealTime(); \
    BENCHMARK_CAPTURE(name, ten, array_size)->UseRealTime()

FOR_ONE_AND_TEN(ask_library);
FOR_ONE_AND_TEN(ping_pong);
FOR_ONE_AND_TEN(ask_net_snmp);

constexpr std::array<Goal, 4> goals = {{
    {"getvar / net-snmp", "ask_library/one", "ask_net_snmp/one", 0.84},
    {"getvar / ping-pong", "ask_library/one", "ping_pong/one", 1.18},
    {"getvar_array of 10 / net-snmp", "ask_library/ten", "ask_net_snmp/ten", 0.75},
    {"getvar_array of 10 / ping-pong", "ask_library/ten", "ping_pong/ten", 1.22},
}};

// Client and responder share the processor that the program happens to be on.
void stay_on_one_processor() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &set);
    sched_setaffinity(0, sizeof set, &set);
}

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    wq::bench::stay_on_one_processor();
    return wq::bench::run(argc, argv, wq::bench::goals);
}
