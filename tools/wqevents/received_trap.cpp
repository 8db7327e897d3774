#include "received_trap.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "framing.h"
#include "undecodable.h"

namespace wq::command {
namespace {

/* No trap of 8192 bytes has more bindings: the shortest takes 6 bytes, 30 04 06 00 05 00. */
constexpr std::size_t bindings_max = EMS_TRAP_MAX / 6;

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

TrapRecords::TrapRecords()
    : info_{}, bindings_(std::make_unique_for_overwrite<SnmpVarBindEMS[]>(bindings_max)) {}

const char* TrapRecords::decode(std::span<const std::uint8_t> message) {
    if (message.size() < trap_min) {
        return "shorter than 20 bytes";
    }
    if (message.size() > EMS_TRAP_MAX) {
        return "longer than 8192 bytes";
    }
    // Behind a short enterprise nothing of an earlier trap may be taken for a part of it.
    info_ = {};
    info_.clen = EMS_COMMUNITY_MAX;
    info_.elen = EMS_OID_MAX;
    info_.maxvars = bindings_max;
    const bool decoded = snmp_parse_trap(message.data(), static_cast<int>(message.size()), &info_,
                                         nullptr, bindings_.get()) == 0;
    return decoded ? nullptr : undecodable_reason(message);
}

std::span<SnmpVarBindEMS> TrapRecords::bindings() {
    return {bindings_.get(), static_cast<std::size_t>(std::max(0, info_.vars))};
}

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
