// The request client: attempts, time-outs and their texts.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/internal/log_target.h"
#include "EMS/events/nl_asn1.h"
#include "EMS/events/nl_snmp.h"

namespace wq {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int chunk_size = 10;
constexpr int32_t bindings_max = 20;

// The result codes that are the client's own.
enum Code : int32_t {
    transport_failed = -1,
    not_sent = -2,
    not_encoded = -3,
    timed_out = -4,
    wait_failed = -5,
    not_received = -6,
    not_decoded = -7,
    out_of_memory = -8,
    not_settable = -9,
};

struct ClientState {
    sockaddr_in agent{};  // family and port; the address is set before each connect
    std::array<char, 512> text{};
};
constinit ClientState clients;

bool traced() {
    return (snmptracemaskEMS & trace_call) != 0;
}

[[gnu::cold]] void say(const char* text) {
    if (traced()) {
        write_log(stderr, text);
    }
}

// The format has one "%s".
[[gnu::cold]] void say_with(const char* format, const char* detail) {
    if (traced()) {
        LogLine line;
        line.append(format, detail);  // NOLINT(clang-diagnostic-format-nonliteral)
        write_log(stderr, line.text());
    }
}

[[gnu::cold]] void say_result(snmp_call_info& client, const char* format) {
    if (traced()) {
        say_with(format, snmpcall_error(&client));
    }
}

bool would_block(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

int connect_to(int sd, const sockaddr_in& address) {
    return connect(sd, reinterpret_cast<const sockaddr*>(&address), sizeof address);  // NOLINT
}

// A connection of a datagram socket ends with one to no address.
void dissolve(snmp_call_info& client) {
    const sockaddr_in nobody{};
    connect_to(client.sd, nobody);
    client.is_connected = 0;
}

void dissolve_if_connected(snmp_call_info& client) {
    if (client.is_connected != 0) {
        dissolve(client);
    }
}

void fail(snmp_call_info& client, Code code, int error) {
    client.response.errstat = code;
    client.save_errno = error;
}

// Not rand(): its sequence may be the program's.
int32_t random_request_id() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    constexpr int64_t second = 1'000'000;
    std::mt19937 generator(static_cast<uint32_t>(micros / second) ^
                           static_cast<uint32_t>(micros % second));
    return std::uniform_int_distribution<int32_t>(0)(generator);
}

void add_one(int32_t& number) {
    number = static_cast<int32_t>(static_cast<uint32_t>(number) + 1U);
}

Clock::time_point attempt_deadline(const snmp_call_info& client) {
    return Clock::now() + std::chrono::seconds(client.timeout);
}

// What poll() takes, rounded up so that the wait does not end before the deadline.
int milliseconds_until(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    constexpr int most = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, most));
}

// After a silent attempt the next one goes over a connected socket, so that a host without an agent
// answers with a refusal; after a silent connected one the socket goes back to unconnected.
int end_silent_attempt(snmp_call_info& client) {
    say("snmp_call(): select timed out -- ");
    if (client.is_connected != 0) {
        say("disconnecting\n");
        dissolve(client);
        return 0;
    }
    say("connecting..");
    clients.agent.sin_addr.s_addr = client.addr;
    const int result = connect_to(client.sd, clients.agent);
    if (result == 0) {
        client.is_connected = 1;
    }
    say_with("returned %s\n", result == 0 ? "0" : "-1");
    return result;
}

int fail_wait(snmp_call_info& client, int error) {
    fail(client, wait_failed, error);
    say_result(client, "snmp_call(): Select returned error: %s\n");
    dissolve_if_connected(client);
    return -1;
}

int wait_until(snmp_call_info& client, Clock::time_point deadline) {
    if (client.sd < 0) {  // which poll() would pass over
        return fail_wait(client, EBADF);
    }
    for (;;) {
        pollfd waited{client.sd, POLLIN, 0};
        const int ready = poll(&waited, 1, milliseconds_until(deadline));
        if (ready == -1 && errno != EINTR) {
            return fail_wait(client, errno);
        }
        if (ready == 1) {
            return (waited.revents & POLLNVAL) != 0 ? fail_wait(client, EBADF) : 1;
        }
        if (ready == 0 && Clock::now() >= deadline) {
            return end_silent_attempt(client);
        }
    }
}

int fail_receive(snmp_call_info& client, Code code, int error) {
    fail(client, code, error);
    say_result(client, "snmp_call(): recv_snmp returned error: %s\n");
    return -1;
}

// One send and the wait for its answer. 0: nothing came, the next attempt may follow; else the call
// has ended.
int attempt(snmp_call_info& client, SnmpVarBindEMS* request, SnmpVarBindEMS* response, int count) {
    const int sent = snmp_call_send(&client, request, count);
    if (sent != 0 && !(sent == not_sent && would_block(client.save_errno))) {
        return sent;
    }
    const Clock::time_point deadline = attempt_deadline(client);
    for (;;) {
        const int waited = wait_until(client, deadline);
        if (waited != 1) {
            return waited;
        }
        if (const int received = snmp_call_recv(&client, response, count); received != 0) {
            return received;
        }
        if (Clock::now() >= deadline) {  // a stray answer, however long it took to receive it
            return end_silent_attempt(client);
        }
    }
}

bool all_settable(const SnmpVarBindEMS* vars, int count) {
    return std::all_of(vars, vars + count,
                       [](const SnmpVarBindEMS& var) { return is_buildable(var.type); });
}

// The bindings of get and get-next carry no values (RFC 1157 4.1.2).
void clear_values(SnmpVarBindEMS* vars, int count) {
    for (int i = 0; i < count; ++i) {
        vars[i].type = ASN_NULL09;
    }
}

int do_array_call(snmp_call_info* client, SnmpVarBindEMS* in, SnmpVarBindEMS* out, int size,
                  uint8_t command) {
    if (client == nullptr || in == nullptr || out == nullptr) {
        return transport_failed;
    }
    client->request.command = command;
    const bool sets = command == SNMP_SET_REQ;
    if (sets && !all_settable(in, std::max(size, 0))) {
        client->response.errstat = not_settable;
        return not_settable;
    }
    for (int done = 0; done < size; done += chunk_size) {
        const int count = std::min(size - done, chunk_size);
        if (!sets) {
            clear_values(in + done, count);
        }
        if (const int result = snmp_call(client, in + done, out + done, count); result != 0) {
            return result;
        }
    }
    return 0;
}

int call_one(snmp_call_info* client, SnmpVarBindEMS* in, SnmpVarBindEMS* out, uint8_t command) {
    return do_array_call(client, in, out, 1, command);
}

struct Freer {
    void operator()(snmp_call_info* client) const { std::free(client); }
};
using OwnedClient = std::unique_ptr<snmp_call_info, Freer>;

void initialise(snmp_call_info& client, unsigned int timeout, unsigned int retries) {
    client.request.vars = 1;
    client.request.maxvars = bindings_max;
    client.request.reqid = random_request_id();
    client.timeout = timeout;
    client.retries = retries;
    clients.agent.sin_family = AF_INET;
    clients.agent.sin_port = getSnmpPort();
}

enum class Detail { none, system_error };

struct CodeText {
    int32_t code;
    const char* text;
    Detail detail;
};

constexpr std::array<CodeText, 9> code_texts{{
    {transport_failed, "Unknown SNMP ERROR:  ", Detail::system_error},
    {not_sent, "Could not send SNMP packet:  ", Detail::system_error},
    {not_encoded, "Internal error building SNMP packet.", Detail::none},
    {timed_out, "TIMED OUT: No SNMP response.", Detail::none},
    {wait_failed, "Internal error in select():  ", Detail::system_error},
    {not_received, "Error on SNMP recvfrom():  ", Detail::system_error},
    {not_decoded, "Could not parse incoming SNMP packet.", Detail::none},
    {out_of_memory, "Out of memory.", Detail::none},
    {not_settable, "Internal Error: Invalid data type for set.", Detail::none},
}};

// A number that is none of the codes came from an agent and says as little as the first.
const CodeText& text_of(int32_t code) {
    const auto* const found =
        std::find_if(code_texts.begin(), code_texts.end(),
                     [code](const CodeText& row) { return row.code == code; });
    return found == code_texts.end() ? code_texts.front() : *found;
}

}  // namespace
}  // namespace wq

snmp_call_info* init_snmp_call(unsigned int timeout, unsigned int retries) {
    wq::OwnedClient client(static_cast<snmp_call_info*>(std::calloc(1, sizeof(snmp_call_info))));
    if (client == nullptr) {
        wq::say("ERROR: init_snmp_call(): Out of memory.\n");
        return nullptr;
    }
    client->sd = init_async_snmp();
    if (client->sd < 0) {
        wq::say_with("ERROR: init_snmp_call(): Could not open socket: %s.\n", std::strerror(errno));
        return nullptr;
    }
    wq::initialise(*client, timeout, retries);
    return client.release();
}

void close_snmp_call(snmp_call_info* sci) {
    if (sci != nullptr) {
        const wq::CancelHeld held;
        close(sci->sd);
        std::free(sci);
    }
}

int init_snmp_2request(snmp_call_info* sci, uint32_t addr, const unsigned char* community,
                       int length) {
    if (sci == nullptr || community == nullptr) {
        return -1;
    }
    const int kept = length < 0 || length > EMS_COMMUNITY_MAX ? EMS_COMMUNITY_MAX : length;
    sci->addr = addr;
    std::memcpy(sci->request.community, community, static_cast<std::size_t>(kept));
    sci->request.clen = kept;
    wq::dissolve(*sci);
    return 0;
}

int init_snmp_request(snmp_call_info* sci, uint32_t addr, const char* community) {
    if (community == nullptr) {
        return -1;
    }
    return init_snmp_2request(sci, addr, reinterpret_cast<const unsigned char*>(community),
                              static_cast<int>(strnlen(community, EMS_COMMUNITY_MAX)));
}

int getvar(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out) {
    return wq::call_one(sci, in, out, SNMP_GET_REQ);
}

int getnextvar(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out) {
    return wq::call_one(sci, in, out, SNMP_GET_NEXT_REQ);
}

int getvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out, int size) {
    return wq::do_array_call(sci, in, out, size, SNMP_GET_REQ);
}

int getnextvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out, int size) {
    return wq::do_array_call(sci, in, out, size, SNMP_GET_NEXT_REQ);
}

int setvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out, int size) {
    return wq::do_array_call(sci, in, out, size, SNMP_SET_REQ);
}

int snmp_call(snmp_call_info* sci, SnmpVarBindEMS* request, SnmpVarBindEMS* response, int count) {
    if (sci == nullptr || request == nullptr || response == nullptr) {
        return wq::transport_failed;
    }
    if (sci->request.command == SNMP_SET_REQ && !wq::all_settable(request, std::max(count, 0))) {
        sci->response.errstat = wq::not_settable;
        return wq::not_settable;
    }
    wq::add_one(sci->request.reqid);
    for (uint32_t tried = 0; tried < sci->retries; ++tried) {
        if (wq::attempt(*sci, request, response, count) != 0) {
            return sci->response.errstat;
        }
    }
    sci->response.errstat = wq::timed_out;
    return wq::timed_out;
}

int snmp_call_send(snmp_call_info* sci, SnmpVarBindEMS* request, int count) {
    if (sci == nullptr || request == nullptr) {
        return wq::transport_failed;
    }
    sci->request.vars = count;
    const uint32_t address = sci->is_connected != 0 ? 0 : sci->addr;
    const int result = send_snmp(sci->sd, address, &sci->request, request);
    if (result >= 0) {
        return 0;
    }
    switch (result) {
        case -2:
            sci->response.errstat = wq::not_encoded;
            break;
        case -1:
            wq::fail(*sci, wq::not_sent, errno);
            break;
        default:
            sci->response.errstat = wq::transport_failed;
            break;
    }
    wq::say_result(*sci, "snmp_call(): send_snmp returned error: %s\n");
    wq::dissolve_if_connected(*sci);
    return sci->response.errstat;
}

int snmp_call_select(snmp_call_info* sci) {
    return sci == nullptr ? -1 : wq::wait_until(*sci, wq::attempt_deadline(*sci));
}

int snmp_call_recv(snmp_call_info* sci, SnmpVarBindEMS* response, int count) {
    if (sci == nullptr || response == nullptr) {
        return wq::transport_failed;
    }
    sci->response.maxvars = count;
    sci->response.clen = EMS_COMMUNITY_MAX;
    sci->response.errstat = 0;
    uint32_t from = 0;
    const int result = recv_snmp(sci->sd, &from, &sci->response, response);
    if (result == -1) {
        const int error = errno;
        wq::fail_receive(*sci, wq::not_received, error);
        if (wq::would_block(error)) {
            return 0;
        }
        wq::dissolve_if_connected(*sci);
        return -1;
    }
    if (result < 0) {
        wq::fail_receive(*sci, wq::not_decoded, sci->save_errno);
        return result;
    }
    if (sci->response.reqid != sci->request.reqid) {
        wq::say("snmp_call(): req_id's don't match\n");
        return 0;
    }
    return 1;
}

const char* snmpcall_error(snmp_call_info* sci) WQEVENTS_NOEXCEPT {
    if (sci == nullptr) {
        return nullptr;
    }
    auto& text = wq::clients.text;
    const int32_t code = sci->response.errstat;
    if (code >= 0) {
        std::snprintf(text.data(), text.size(), "SNMP Error:  %s", errstring(code));
    } else if (code == wq::not_received && sci->save_errno == ECONNREFUSED) {
        std::snprintf(text.data(), text.size(), "%s",
                      _eventsMsg(1, 1, "Remote does not support SNMP."));
    } else if (const wq::CodeText& row = wq::text_of(code);
               row.detail == wq::Detail::system_error) {
        std::snprintf(text.data(), text.size(), "%s%s.", row.text, std::strerror(sci->save_errno));
    } else {
        std::snprintf(text.data(), text.size(), "%s", row.text);
    }
    return text.data();
}
