#include <algorithm>
#include <array>
#include <cstring>

#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include "EMS/events/nl_asn1.h"
#include "EMS/events/nl_snmp.h"
#include "EMS/events/nl_snmp_auth.h"

using wq::ber::Error;
using wq::ber::Item;
using wq::ber::Reader;

namespace wq {
namespace {

// With this binding a forwarding proxy hands on the address of the agent that first sent a trap.
constexpr std::array<uint32_t, 12> notification_address = {1, 3, 6, 1, 4, 1, 99, 12, 45, 2, 1, 0};

// A value takes up at most a string of EMS_STRING_MAX with its header.
constexpr std::ptrdiff_t value_room = EMS_STRING_MAX + 4;

constexpr uint8_t lowest_value_type = ASN_INTEGER09;
constexpr uint8_t highest_value_type = ASN_OPAQUE09;
constexpr int32_t snmp_version_1 = 0;

[[gnu::cold]] void log_failure(const char* text) {
    constexpr const char* function = "snmp_parse_trap";
    logger(1, function, "%s", text);
    if (tracelogfp != nullptr) {
        log_trace(function, "%s", text);
    }
}

// Ends decoding: logs the reason where there is one to tell.
[[gnu::cold]] bool fail(const char* text) {
    log_failure(text);
    return false;
}

uint32_t capacity(int32_t given, int32_t most) {
    return static_cast<uint32_t>(std::clamp(given, 0, most));
}

bool parse_wrapper(Reader& reader, snmp_trap_infoEMS& trap) {
    int32_t version = 0;
    // The terminator must fall inside the array.
    uint32_t community_length = capacity(trap.clen, EMS_COMMUNITY_MAX - 1);
    if (!parse_auth(reader, trap.community, community_length, version)) {
        return fail("version/comm name parse error");
    }
    trap.clen = static_cast<int32_t>(community_length);
    if (version != snmp_version_1) {
        log_failure("invalid version");
    }
    Item pdu;
    if (!parse_header(reader, pdu)) {
        return fail("type parse error");
    }
    if (pdu.type != SNMP_TRAP) {
        return fail("packet is not a snmp trap");
    }
    reader = Reader(pdu);
    return true;
}

bool parse_number(Reader& reader, uint32_t& value, const char* failure) {
    int32_t number = 0;
    if (!parse_integer(reader, number)) {
        return fail(failure);
    }
    value = static_cast<uint32_t>(number);
    return true;
}

bool parse_agent(Reader& reader, uint32_t& agent) {
    int32_t address = 0;
    if (!parse_integer_or_address(reader, address)) {
        return fail("agent-addr parse error");
    }
    agent = static_cast<uint32_t>(address);
    return true;
}

// Reads the fields in front of the bindings; `reader` then holds the list of bindings.
bool parse_fields(Reader& reader, snmp_trap_infoEMS& trap) {
    uint32_t enterprise_length = capacity(trap.elen, EMS_OID_MAX);
    if (!parse_objid(reader, trap.enterprise, enterprise_length)) {
        return fail("enterprise parse error");
    }
    trap.elen = static_cast<int32_t>(enterprise_length);
    if (!parse_agent(reader, trap.agent) ||
        !parse_number(reader, trap.gen, "generic-trap parse error") ||
        !parse_number(reader, trap.specific, "specific-trap parse error") ||
        !parse_number(reader, trap.time, "time-stamp parse error")) {
        return false;
    }
    Item list;
    if (!parse_header(reader, list)) {
        return fail("varbind sequence parse error");
    }
    if (list.type != ASN_SEQUENCE09) {
        return fail("seq type parse error");
    }
    reader = Reader(list);
    return true;
}

bool parse_value(const Item& value, SnmpVarBindEMS& binding) {
    const bool fits = value.contents + value.length - value.start <= value_room;
    switch (value.type) {
        case ASN_INTEGER09:
        case ASN_IPADDR09:
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
            binding.val_len = sizeof binding.val.integer;
            if (!fits) {
                report_integer(Error::short_item, value);
            }
            return (fits && parse_integer_value(value, binding.val.integer)) ||
                   fail("varbind int parse error");
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09:
            binding.val_len = EMS_STRING_MAX;
            if (!fits) {
                report_string(Error::short_item, value, EMS_STRING_MAX);
            }
            return (fits && parse_string_value(value, binding.val.string, binding.val_len)) ||
                   fail("varbind string parse error");
        case ASN_NULL09:
            binding.val_len = 0;
            return true;
        case ASN_OBJID09:
            binding.val_len = EMS_OID_MAX;
            if (!fits) {
                report_objid(Error::short_item);
            }
            return (fits && parse_objid_value(value, binding.val.objid, binding.val_len)) ||
                   fail("varbind objid parse error");
        default:
            return fail("invalid type");
    }
}

bool parse_next_binding(Reader& list, SnmpVarBindEMS& binding) {
    Item value;
    if (!parse_binding(list, binding.oid, binding.oid_length, value)) {
        return fail("varbind parse error");
    }
    if (value.type < lowest_value_type || value.type > highest_value_type) {
        return fail("invalid type");
    }
    binding.type = value.type;
    return parse_value(value, binding);
}

// `oid` has at least as many sub-identifiers as the notification address. The one that tells whose
// it is goes first: a comparison of the whole waits until the first two, just stored, can be loaded
// again.
bool names_notification_address(const uint32_t* oid) {
    constexpr std::size_t enterprise = 6;
    return oid[enterprise] == notification_address[enterprise] &&
           std::equal(notification_address.begin(), notification_address.end(), oid);
}

bool is_notification_address(const SnmpVarBindEMS& binding) {
    return ber::is_string_type(binding.type) && binding.oid_length >= notification_address.size() &&
           names_notification_address(binding.oid);
}

// Octets 1 to 4 of the value are the agent's address; a value that ends before them has zeros.
uint32_t notified_agent(const SnmpVarBindEMS& binding) {
    constexpr uint32_t offset = 1;
    std::array<uint8_t, sizeof(uint32_t)> octets{};
    const uint32_t present = std::max(binding.val_len, offset) - offset;
    std::memcpy(octets.data(), binding.val.string + offset,
                std::min<std::size_t>(present, octets.size()));
    uint32_t agent = 0;
    std::memcpy(&agent, octets.data(), sizeof agent);
    return agent;
}

bool parse_bindings(Reader& list, snmp_trap_infoEMS& trap, SnmpVarBindEMS* vars) {
    SnmpVarBindEMS* next = vars;
    int32_t counted = 0;
    bool agent_replaced = false;
    for (; !list.empty() && counted < trap.maxvars; ++counted) {
        if (!parse_next_binding(list, *next)) {
            return false;
        }
        if (is_notification_address(*next)) {
            trap.agent = notified_agent(*next);
            agent_replaced = true;
        } else {
            ++next;
        }
    }
    // One less, however many notification addresses came: a proxy sends one.
    trap.vars = counted - (agent_replaced ? 1 : 0);
    return true;
}

}  // namespace
}  // namespace wq

int snmp_parse_trap(const unsigned char* buf, int length, snmp_trap_infoEMS* sti,
                    event_infoEMS* /*ei*/, SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT {
    if (buf == nullptr || sti == nullptr || (vars == nullptr && sti->maxvars > 0)) {
        return -1;
    }
    Reader reader(buf, length);
    const bool parsed = wq::parse_wrapper(reader, *sti) && wq::parse_fields(reader, *sti) &&
                        wq::parse_bindings(reader, *sti, vars);
    return parsed ? 0 : -1;
}

int isVellumNotificationAddress(const uint32_t* oid) WQEVENTS_NOEXCEPT {
    return oid != nullptr && wq::names_notification_address(oid) ? 1 : 0;
}
