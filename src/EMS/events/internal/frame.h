// How traps are framed by the transports: what is pure arithmetic over bytes already there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <wqevents/channel.h>

namespace wq {

// The values of event_infoEMS.trans.
enum Transport : int {
    transport_datagram = 1,
    transport_local = 2,
    transport_tcp = 3,
    transport_hook = 4,
    transport_automatic = 5,
    transport_raw_tcp = 6,
};

// The SNMP trap port (RFC 1157 3.2.4).
constexpr uint16_t trap_port = 162;

// No SNMPv1 Trap message is shorter.
constexpr int shortest_trap = 20;

constexpr bool has_transmission_header(int trans) {
    return trans == transport_local || trans == transport_tcp;
}

// Whether `len` bytes fit the packet area. A negative length does: it asks for nothing.
constexpr bool fits_packet(int len) {
    return len <= EMS_TRAP_MAX;
}

constexpr bool is_usable_trap(int len) {
    return len >= shortest_trap && fits_packet(len);
}

// Bytes of the body that follows a transmission header which announces `len`.
constexpr size_t body_need(int32_t len) {
    return len > 0 ? static_cast<size_t>(len) : 0;
}

// The raw stream: the identifier octet and the first length octet lead every message (X.690 8.1).
constexpr size_t raw_lead = 2;
// A message of at most EMS_TRAP_MAX bytes never has more length octets behind the first.
constexpr int raw_length_octets_max = 2;

// Bytes of a whole raw message: lead, `octets` further length octets, `content` bytes.
constexpr int raw_message_len(int octets, int content) {
    return static_cast<int>(raw_lead) + octets + content;
}

// Big-endian, unsigned, at most four octets.
constexpr uint32_t big_endian(std::span<const unsigned char> octets) {
    uint32_t value = 0;
    for (const unsigned char octet : octets) {
        value = value << 8 | octet;
    }
    return value;
}

}  // namespace wq
