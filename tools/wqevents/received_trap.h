/*
 * One trap that was received, as the renderers take it, and what they share.
 */
#ifndef WQEVENTS_TOOL_RECEIVED_TRAP_H
#define WQEVENTS_TOOL_RECEIVED_TRAP_H

#include <wqevents.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace wq::command {

struct ReceivedTrap {
    std::string_view transport;  // "udp", "socket", "tcp" or "raw-tcp"
    std::string_view peer;       // who sent it
    std::size_t bytes;           // of the encoded trap
    std::optional<trap_headerEMS> header;
    const snmp_trap_infoEMS& info;
    std::span<const SnmpVarBindEMS> bindings;
};

/* The records of one trap, decoded again and again into the same memory. */
class TrapRecords {
  public:
    TrapRecords();

    /* decode: fills the records. Null, or why not: a constant text, good as a counter's name. */
    const char* decode(std::span<const std::uint8_t> message);

    snmp_trap_infoEMS& info() { return info_; }
    std::span<SnmpVarBindEMS> bindings();

  private:
    snmp_trap_infoEMS info_;
    std::unique_ptr<SnmpVarBindEMS[]> bindings_;
};

/* type_name: the name of a type tag. */
std::string_view type_name(std::uint8_t type);

/* generic_name: "coldStart" ... "enterpriseSpecific" (RFC 1157 4.1.6), "unknown" for others. */
std::string_view generic_name(std::uint32_t generic);

/* address_text: the address of a received record, its octets in wire order in memory. */
std::string address_text(std::uint32_t address);

std::span<const std::uint8_t> community_of(const snmp_trap_infoEMS& info);
std::span<const std::uint32_t> enterprise_of(const snmp_trap_infoEMS& info);
std::span<const std::uint32_t> name_of(const SnmpVarBindEMS& binding);
std::span<const std::uint8_t> string_of(const SnmpVarBindEMS& binding);
std::span<const std::uint32_t> objid_of(const SnmpVarBindEMS& binding);

}  // namespace wq::command

#endif
