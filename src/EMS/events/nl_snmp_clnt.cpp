// One exchange with an agent, and the codec of its messages.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include "EMS/events/internal/build_area.h"
#include "EMS/events/internal/log_target.h"
#include "EMS/events/nl_asn1.h"
#include "EMS/events/nl_snmp.h"
#include "EMS/events/nl_snmp_auth.h"

using wq::ber::Item;
using wq::ber::Reader;

namespace wq {
namespace {

constexpr int32_t snmp_version_1 = 0;
constexpr int exchange_octets = 1024;
constexpr int exchange_timeout = 5000;  // milliseconds

// A value takes up at most a string of EMS_STRING_MAX with its header.
constexpr std::ptrdiff_t value_room = EMS_STRING_MAX + 4;

[[gnu::cold]] void say(const char* text) {
    if ((snmptracemaskEMS & trace_request) != 0) {
        write_log(stderr, text);
    }
}

[[gnu::cold]] void say_number(const char* format, int number) {
    if ((snmptracemaskEMS & trace_request) != 0) {
        // The formats are this file's own, each with one conversion.
        LogLine line;
        line.append(format, number);  // NOLINT(clang-diagnostic-format-nonliteral)
        write_log(stderr, line.text());
    }
}

// The system's error, as perror() tells it.
[[gnu::cold]] int say_errno(const char* prefix) {
    if ((snmptracemaskEMS & trace_request) != 0) {
        LogLine line;
        line.append("%s: %s\n", prefix, std::strerror(errno));
        write_log(stderr, line.text());
    }
    return -1;
}

// ---- encoding

std::span<const SnmpVarBindEMS> bindings_of(const snmp_info& request, const SnmpVarBindEMS* vars) {
    return {vars, static_cast<std::size_t>(std::max(request.vars, 0))};
}

// The text of the first step that failed, or null.
const char* build_list(Area& list, Area& area, std::span<const SnmpVarBindEMS> bindings) {
    if (bindings.empty()) {
        return "snmpBuild09: No variables set!\n";
    }
    const auto fits = [&area](const SnmpVarBindEMS& var) { return build_binding(area, var); };
    if (!std::all_of(bindings.begin(), bindings.end(), fits)) {
        return "snmpBuild09: error 1\n";
    }
    return build_item_around(list, ASN_SEQUENCE09, area) ? nullptr : "snmpBuild09: error 10\n";
}

const char* build_fields(Area& area, const snmp_info& request, const Area& list) {
    struct Field {
        const int32_t* value;
        const char* failure;
    };
    const std::array<Field, 3> fields{{{&request.reqid, "snmpBuild09: error 2\n"},
                                       {&request.errstat, "snmpBuild09: error 3\n"},
                                       {&request.errindex, "snmpBuild09: error 4\n"}}};
    for (const Field& field : fields) {
        if (!area.put(asnBuildInt09(area.position, &area.room, field.value, sizeof *field.value))) {
            return field.failure;
        }
    }
    return area.append(list) ? nullptr : "snmpBuild09: error 5\n";
}

const char* build_pdu(Area& pdu, const snmp_info& request, const Area& contents) {
    if (!pdu.put(asnBuildHeader09(pdu.position, &pdu.room, request.command, contents.length()))) {
        return "snmpBuild09: error 6\n";
    }
    return pdu.append(contents) ? nullptr : "snmpBuild09: error 7\n";
}

const char* build_message(Area& message, const snmp_info& request, const Area& pdu) {
    const int community_length = checked_length(request.clen, EMS_COMMUNITY_MAX);
    if (!message.put(auth_build(message.position, &message.room, request.community,
                                &community_length, &snmp_version_1, pdu.length()))) {
        return "snmpBuild09: error 8\n";
    }
    return message.append(pdu) ? nullptr : "snmpBuild09: error 9\n";
}

// Inside out, each layer from the area that holds its contents into the other one.
const char* build_request(std::span<uint8_t> out, const snmp_info& request,
                          const SnmpVarBindEMS* vars, int& length) {
    std::array<uint8_t, EMS_TRAP_MAX> scratch;
    Area bindings(out);
    Area list(scratch);
    const char* failure = build_list(list, bindings, bindings_of(request, vars));
    Area contents(out);
    if (failure == nullptr) {
        failure = build_fields(contents, request, list);
    }
    Area pdu(scratch);
    if (failure == nullptr) {
        failure = build_pdu(pdu, request, contents);
    }
    Area message(out);
    if (failure == nullptr) {
        failure = build_message(message, request, pdu);
    }
    length = message.length();
    return failure;
}

// ---- decoding

bool fail(const char* text) {
    say(text);
    return false;
}

bool parse_wrapper(Reader& reader, snmp_info& response) {
    int32_t version = 0;
    // The terminator must fall inside the array.
    auto community_length =
        static_cast<uint32_t>(checked_length(response.clen, EMS_COMMUNITY_MAX - 1));
    if (!parse_auth(reader, response.community, community_length, version)) {
        return fail("snmp_parse: parse error 1\n");
    }
    response.clen = static_cast<int32_t>(community_length);
    if (version != snmp_version_1) {
        say_number("snmp_parse: Wrong version: %d...Continuing anyway\n", version);
    }
    Item pdu;
    if (!parse_header(reader, pdu)) {
        return fail("snmp_parse: parse error 2\n");
    }
    response.command = pdu.type;
    reader = Reader(pdu);
    return true;
}

// Reads the fields in front of the bindings; `reader` then holds the list of bindings.
bool parse_fields(Reader& reader, snmp_info& response) {
    if (!parse_integer(reader, response.reqid)) {
        return fail("snmp_parse: parse error 4\n");
    }
    if (!parse_integer(reader, response.errstat)) {
        return fail("snmp_parse: parse error 5\n");
    }
    if (!parse_integer(reader, response.errindex)) {
        return fail("snmp_parse: parse error 6\n");
    }
    Item list;
    if (!parse_header(reader, list)) {
        return fail("snmp_parse: parse error 7\n");
    }
    if (list.type != ASN_SEQUENCE09) {
        return fail("snmp_parse: parse error 8\n");
    }
    reader = Reader(list);
    return true;
}

// A value that does not decode is passed over: the binding then holds none.
void parse_value(const Item& value, SnmpVarBindEMS& binding) {
    const bool fits = value.contents + value.length - value.start <= value_room;
    binding.val_len = 0;
    switch (value.type) {
        case ASN_NULL09:
            break;
        case ASN_INTEGER09:
        case ASN_IPADDR09:
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
            if (fits && parse_integer_value(value, binding.val.integer)) {
                binding.val_len = sizeof binding.val.integer;
            }
            break;
        case ASN_OCTETSTR09:
            if (uint32_t length = EMS_STRING_MAX;
                fits && parse_string_value(value, binding.val.string, length)) {
                binding.val_len = length;
            }
            break;
        case ASN_OBJID09:
            if (uint32_t count = EMS_OID_MAX;
                fits && parse_objid_value(value, binding.val.objid, count)) {
                binding.val_len = count;
            }
            break;
        default:
            say_number("snmp_parse: bad type returned (%x)\n", value.type);
            break;
    }
}

bool parse_bindings(Reader& list, snmp_info& response, SnmpVarBindEMS* vars) {
    const int32_t capacity = std::max(response.maxvars, 0);
    int32_t counted = 0;
    // A list that is longer than the array counts one more than is stored, so that it shows.
    while (!list.empty() && counted++ < capacity) {
        SnmpVarBindEMS& binding = vars[counted - 1];
        Item value;
        if (!parse_binding(list, binding.oid, binding.oid_length, value)) {
            return fail("snmp_parse: parse error 80\n");
        }
        binding.type = value.type;
        parse_value(value, binding);
    }
    response.vars = counted;
    return true;
}

// ---- one exchange

void dump_packet(std::span<const uint8_t> packet) {
    if (dump_packetEMS != 0) {
        hexdumpEMS(packet.data(), static_cast<int>(packet.size()));
    }
}

int send_packet(int sd, const sockaddr_in& agent, std::span<const uint8_t> packet) {
    dump_packet(packet);
    const ssize_t sent =
        sendto(sd, packet.data(), packet.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&agent), sizeof agent);  // NOLINT: POSIX's view
    return sent < 0 ? say_errno("sendto") : 0;
}

// 1 when there is something to receive, 0 on time-out, -1 on failure.
int await_answer(int sd) {
    pollfd waited{sd, POLLIN, 0};
    const int ready = poll(&waited, 1, exchange_timeout);
    if (ready == -1 && errno == EINTR) {
        say("snmp_request:Interupted\n");
        return -1;
    }
    if ((waited.revents & POLLNVAL) != 0) {
        errno = EBADF;
    }
    if (ready == -1 || (waited.revents & POLLNVAL) != 0) {
        return say_errno("send_request: select");
    }
    return ready;
}

int receive_packet(int sd, std::span<uint8_t> room) {
    sockaddr_in from{};
    socklen_t from_length = sizeof from;
    const ssize_t received =
        recvfrom(sd, room.data(), room.size(), 0, reinterpret_cast<sockaddr*>(&from),  // NOLINT
                 &from_length);
    if (received < 0) {
        return say_errno("recvfrom");
    }
    if (dump_packetEMS != 0) {
        std::array<char, INET_ADDRSTRLEN> address{};
        inet_ntop(AF_INET, &from.sin_addr, address.data(), address.size());
        LogLine line;
        line.append("received %zd bytes from %s:\n", received, address.data());
        write_log(stdout, line.text(), Flush::no);
        dump_packet(room.first(static_cast<std::size_t>(received)));
    }
    return static_cast<int>(received);
}

bool is_answer(const snmp_info& request, const snmp_info& response) {
    return response.reqid == request.reqid && response.clen == request.clen &&
           std::memcmp(response.community, request.community,
                       static_cast<std::size_t>(response.clen)) == 0 &&
           response.command == SNMP_GET_RSP;
}

}  // namespace
}  // namespace wq

int send_request(int sd, struct sockaddr_in* agent, snmp_info* request, snmp_info* response,
                 SnmpVarBindEMS* request_vars, SnmpVarBindEMS* response_vars) {
    if (agent == nullptr || request == nullptr || response == nullptr || request_vars == nullptr ||
        response_vars == nullptr) {
        return -1;
    }
    std::array<uint8_t, wq::exchange_octets> packet;
    int length = wq::exchange_octets;
    if (snmpBuild09(packet.data(), &length, request, request_vars) != 0 ||
        wq::send_packet(sd, *agent, std::span(packet).first(static_cast<std::size_t>(length))) !=
            0) {
        return -1;
    }
    const int ready = wq::await_answer(sd);
    if (ready != 1) {
        return ready;
    }
    length = wq::receive_packet(sd, packet);
    const bool answered = length >= 0 &&
                          snmp_parse(packet.data(), length, response, response_vars) == 0 &&
                          wq::is_answer(*request, *response);
    return answered ? 1 : -1;
}

int snmpBuild09(unsigned char* buf, int* out_length, snmp_info* request,
                SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT {
    constexpr int failure = -2;
    if (buf == nullptr || out_length == nullptr || request == nullptr || vars == nullptr) {
        return failure;
    }
    const std::span out(buf, static_cast<std::size_t>(std::max(*out_length, 0)));
    int length = 0;
    if (const char* text = wq::build_request(out, *request, vars, length); text != nullptr) {
        wq::say(text);
        return failure;
    }
    *out_length = length;
    return 0;
}

int snmp_parse(const unsigned char* buf, int length, snmp_info* response,
               SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT {
    if (buf == nullptr || response == nullptr || (vars == nullptr && response->maxvars > 0)) {
        return -1;
    }
    Reader reader(buf, length);
    const bool parsed = wq::parse_wrapper(reader, *response) &&
                        wq::parse_fields(reader, *response) &&
                        wq::parse_bindings(reader, *response, vars);
    return parsed ? 0 : -1;
}
