/*
 * Captured frames down to the UDP datagrams in them: pure functions over bytes.
 */
#ifndef WQEVENTS_TOOL_PACKET_H
#define WQEVENTS_TOOL_PACKET_H

#include <cstdint>
#include <span>

namespace wq::command {

/* What a frame begins with. */
enum class Link {
    ethernet,   // with any number of VLAN tags
    cooked,     // Linux cooked capture
    cooked_v2,  // Linux cooked capture, version 2
    loopback,   // an address family
    raw_ip,     // the IP packet itself
};

struct Packet {
    enum class Kind {
        datagram,  // UDP over IPv4 or IPv6, whole
        fragment,  // a part of an IP packet that carries UDP
        cut,       // not all of it is there
        other,     // anything else
    };
    Kind kind = Kind::other;
    std::uint16_t port = 0;  // datagram: where it goes
    std::span<const std::uint8_t> payload = {};
};

/* parse_packet: what the frame carries; `payload` lies in the frame. */
Packet parse_packet(Link link, std::span<const std::uint8_t> frame);

}  // namespace wq::command

#endif
