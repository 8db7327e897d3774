// The renderers behind the exported ones, appending to a text: what they may use is the sink's
// room, with the byte of the terminator counted, as the length that an exported one is given.
#pragma once

#include <cstdint>
#include <span>

#include <wqevents/channel.h>

#include "EMS/events/internal/text_sink.h"

namespace wq {

// The parts of a record that are in use, whatever its counts claim.
inline std::span<const uint32_t> name_of(const SnmpVarBindEMS& var) {
    return {var.oid, std::min<std::size_t>(var.oid_length, EMS_OID_MAX)};
}
inline std::span<const uint32_t> objid_value_of(const SnmpVarBindEMS& var) {
    return {var.val.objid, std::min<std::size_t>(var.val_len, EMS_OID_MAX)};
}
inline std::span<const uint8_t> string_value_of(const SnmpVarBindEMS& var) {
    return {var.val.string, std::min<std::size_t>(var.val_len, EMS_STRING_MAX)};
}
inline std::span<const uint32_t> enterprise_of(const snmp_trap_infoEMS& trap) {
    return {trap.enterprise, static_cast<std::size_t>(std::clamp(trap.elen, 0, EMS_OID_MAX))};
}
inline std::span<const uint8_t> community_of(const snmp_trap_infoEMS& trap) {
    return {trap.community, static_cast<std::size_t>(std::clamp(trap.clen, 0, EMS_COMMUNITY_MAX))};
}

// formatValue(), formatKind(), formatOctetString(), formatObjectID(), formatEnterprise(). What a
// string's text holds behind a zero byte is in the buffer, but not in the sink's text.
void append_value(TextSink& sink, const SnmpVarBindEMS& var);
void append_kind(TextSink& sink, uint8_t type);
void append_octets(TextSink& sink, std::span<const uint8_t> octets);
void append_objid(TextSink& sink, std::span<const uint32_t> oid, bool by_name);
void append_enterprise(TextSink& sink, const snmp_trap_infoEMS& trap, bool by_name);

// A name from the tree in `oidTree`, or null: of `oid`, of its parent, of its child `last`.
const char* tree_name(std::span<const uint32_t> oid);
const char* tree_name_of_parent(std::span<const uint32_t> oid);
const char* tree_name_of_child(std::span<const uint32_t> oid, uint32_t last);

// The name of the configured enterprise that covers `oid`; null data where there is none.
std::string_view configured_name(std::span<const uint32_t> oid);

// An IPv4 address whose octets lie in memory in wire order: dotted; by the host's official name, or
// dotted where the resolver knows none.
void append_address(TextSink& sink, uint32_t address);
void append_host(TextSink& sink, uint32_t address);

}  // namespace wq
