#include "packet.h"

#include <algorithm>
#include <cstddef>

namespace wq::command {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Kind = Packet::Kind;

constexpr std::uint16_t type_ipv4 = 0x0800;
constexpr std::uint16_t type_ipv6 = 0x86DD;

/* Numbers of protocols and of IPv6 extension headers (IANA, RFC 8200 4). */
constexpr std::uint8_t hop_by_hop = 0;
constexpr std::uint8_t udp = 17;
constexpr std::uint8_t routing = 43;
constexpr std::uint8_t fragmentation = 44;
constexpr std::uint8_t authentication = 51;
constexpr std::uint8_t destination_options = 60;

constexpr std::size_t udp_header = 8;
constexpr std::size_t ipv4_header = 20;
constexpr std::size_t ipv6_header = 40;
constexpr std::size_t vlan_tag = 4;
constexpr std::size_t extension_min = 8;

/* The two octets at a place that is known to be there. */
std::uint16_t word_at(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8U | bytes[at + 1]);
}

/* RFC 768. */
Packet parse_udp(Bytes segment) {
    if (segment.size() < udp_header) {
        return {Kind::cut};
    }
    const std::size_t length = word_at(segment, 4);
    if (length < udp_header) {
        return {Kind::other};
    }
    if (length > segment.size()) {
        return {Kind::cut};
    }
    return {Kind::datagram, word_at(segment, 2), segment.first(length).subspan(udp_header)};
}

/* The packet without what the link put behind it; a length of 0 is left to the card to fill in. */
Bytes trimmed(Bytes packet, std::size_t length) {
    return length == 0 ? packet : packet.first(std::min(length, packet.size()));
}

/* RFC 791 3.1. */
Packet parse_ipv4(Bytes packet) {
    if (packet.size() < ipv4_header) {
        return {Kind::cut};
    }
    const std::size_t header = std::size_t{4} * (packet[0] & 0x0FU);
    if (header < ipv4_header || packet[9] != udp) {
        return {Kind::other};
    }
    if ((word_at(packet, 6) & 0x3FFFU) != 0) {
        return {Kind::fragment};
    }
    const Bytes whole = trimmed(packet, word_at(packet, 2));
    return header > whole.size() ? Packet{Kind::cut} : parse_udp(whole.subspan(header));
}

bool is_extension(std::uint8_t number) {
    switch (number) {
        case hop_by_hop:
        case routing:
        case fragmentation:
        case authentication:
        case destination_options:
            return true;
        default:
            return false;
    }
}

std::size_t extension_length(std::uint8_t number, std::uint8_t length) {
    switch (number) {
        case fragmentation:
            return extension_min;
        case authentication:  // RFC 4302 2.2
            return std::size_t{4} * (length + 2U);
        default:
            return std::size_t{8} * (length + 1U);
    }
}

/* RFC 8200 3 and 4. A fragment header may also say that the packet is whole (RFC 6946). */
Packet parse_ipv6(Bytes packet) {
    if (packet.size() < ipv6_header) {
        return {Kind::cut};
    }
    std::uint8_t next = packet[6];
    Bytes rest = trimmed(packet.subspan(ipv6_header), word_at(packet, 4));
    while (is_extension(next)) {
        if (rest.size() < extension_min) {
            return {Kind::cut};
        }
        if (next == fragmentation && (word_at(rest, 2) & 0xFFF9U) != 0) {
            return {rest[0] == udp ? Kind::fragment : Kind::other};
        }
        const std::size_t length = extension_length(next, rest[1]);
        if (length > rest.size()) {
            return {Kind::cut};
        }
        next = rest[0];
        rest = rest.subspan(length);
    }
    return next == udp ? parse_udp(rest) : Packet{Kind::other};
}

Packet parse_ip(Bytes packet) {
    if (packet.empty()) {
        return {Kind::cut};
    }
    switch (packet[0] >> 4U) {
        case 4:
            return parse_ipv4(packet);
        case 6:
            return parse_ipv6(packet);
        default:
            return {Kind::other};
    }
}

/* IEEE 802.1Q and 802.1ad, and what came before the latter. */
bool is_vlan(std::uint16_t type) {
    return type == 0x8100 || type == 0x88A8 || type == 0x9100;
}

/* What follows a type of Ethernet. */
Packet parse_typed(std::uint16_t type, Bytes rest) {
    while (is_vlan(type)) {
        if (rest.size() < vlan_tag) {
            return {Kind::cut};
        }
        type = word_at(rest, 2);
        rest = rest.subspan(vlan_tag);
    }
    return type == type_ipv4 || type == type_ipv6 ? parse_ip(rest) : Packet{Kind::other};
}

/* A link header of `size` octets that holds a type of Ethernet at `type_at`. */
Packet parse_link(Bytes frame, std::size_t size, std::size_t type_at) {
    if (frame.size() < size) {
        return {Kind::cut};
    }
    return parse_typed(word_at(frame, type_at), frame.subspan(size));
}

}  // namespace

Packet parse_packet(Link link, std::span<const std::uint8_t> frame) {
    switch (link) {
        case Link::ethernet:
            return parse_link(frame, 14, 12);
        case Link::cooked:
            return parse_link(frame, 16, 14);
        case Link::cooked_v2:
            return parse_link(frame, 20, 0);
        case Link::loopback:  // the numbers of families differ; the packet tells its version itself
            return parse_ip(frame.subspan(std::min<std::size_t>(4, frame.size())));
        case Link::raw_ip:
            return parse_ip(frame);
    }
    return {};
}

}  // namespace wq::command
