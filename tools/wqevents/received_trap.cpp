#include "received_trap.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace wq::command {
namespace {

constexpr std::array<std::string_view, 7> generic_names = {
    "coldStart",       "warmStart",          "linkDown", "linkUp", "authenticationFailure",
    "egpNeighborLoss", "enterpriseSpecific",
};

/* The used part of an array; a count that cannot be is the nearest that can. */
template <typename Element, std::size_t size, typename Count>
std::span<const Element> used(const Element (&array)[size], Count count) {
    const auto wanted = std::max<std::int64_t>(0, count);
    return {array, std::min(static_cast<std::size_t>(wanted), size)};
}

}  // namespace

std::string_view type_name(std::uint8_t type) {
    switch (type) {
        case ASN_INTEGER09:
            return "INTEGER";
        case ASN_OCTETSTR09:
            return "OCTET STRING";
        case ASN_NULL09:
            return "NULL";
        case ASN_OBJID09:
            return "OBJECT IDENTIFIER";
        case ASN_IPADDR09:
            return "IpAddress";
        case ASN_COUNTER09:
            return "Counter";
        case ASN_GAUGE09:
            return "Gauge";
        case ASN_TIMETICKS09:
            return "TimeTicks";
        case ASN_OPAQUE09:
            return "Opaque";
        default:
            return "unknown";
    }
}

std::string_view generic_name(std::uint32_t generic) {
    return generic < generic_names.size() ? generic_names[generic] : "unknown";
}

std::string address_text(std::uint32_t address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

std::span<const std::uint8_t> community_of(const snmp_trap_infoEMS& info) {
    return used(info.community, info.clen);
}

std::span<const std::uint32_t> enterprise_of(const snmp_trap_infoEMS& info) {
    return used(info.enterprise, info.elen);
}

std::span<const std::uint32_t> name_of(const SnmpVarBindEMS& binding) {
    return used(binding.oid, binding.oid_length);
}

std::span<const std::uint8_t> string_of(const SnmpVarBindEMS& binding) {
    return used(binding.val.string, binding.val_len);
}

std::span<const std::uint32_t> objid_of(const SnmpVarBindEMS& binding) {
    return used(binding.val.objid, binding.val_len);
}

}  // namespace wq::command
