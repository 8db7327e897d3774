#include <gtest/gtest.h>

#include "captures.h"
#include "packet.h"
#include "sample_traps.h"
#include "support/exact_block.h"
#include "undecodable.h"

namespace wq::command {
namespace {

using namespace test;
using Kind = Packet::Kind;

const Bytes payload = {'p', 'a', 'y', 'l', 'o', 'a', 'd'};
const Bytes message = udp(payload, 1162);

struct Case {
    const char* name;
    Link link;
    Bytes frame;
    Kind kind;
};

/* An atomic fragment, the middle of one, and the first one, of IPv6. */
const Bytes whole_one = {0, 0, 0, 0, 0, 1};
const Bytes middle_one = {0, 8, 0, 0, 0, 1};
const Bytes first_one = {0, 1, 0, 0, 0, 1};

const std::vector<Case>& whole_datagrams() {
    static const std::vector<Case> rows = {
        {"ethernet", Link::ethernet, ethernet(ipv4(message)), Kind::datagram},
        {"ethernet v6", Link::ethernet, ethernet(ipv6(message), 0x86DD), Kind::datagram},
        {"vlan", Link::ethernet, ethernet(vlan(ipv4(message)), 0x8100), Kind::datagram},
        {"vlan in vlan", Link::ethernet,
         ethernet(vlan(vlan(ipv6(message), 0x86DD), 0x8100), 0x88A8), Kind::datagram},
        {"old vlan in vlan", Link::ethernet, ethernet(vlan(vlan(ipv4(message)), 0x8100), 0x9100),
         Kind::datagram},
        {"cooked", Link::cooked, cooked(ipv4(message)), Kind::datagram},
        {"cooked vlan", Link::cooked, cooked(vlan(ipv4(message)), 0x8100), Kind::datagram},
        {"cooked v2", Link::cooked_v2, cooked_v2(ipv6(message), 0x86DD), Kind::datagram},
        {"loopback", Link::loopback, joined({{2, 0, 0, 0}, ipv4(message)}), Kind::datagram},
        {"loopback, another order", Link::loopback, joined({{0, 0, 0, 30}, ipv6(message)}),
         Kind::datagram},
        {"raw", Link::raw_ip, ipv4(message), Kind::datagram},
        {"raw v6", Link::raw_ip, ipv6(message), Kind::datagram},
        {"never fragmented", Link::raw_ip, ipv4(message, 0x4000), Kind::datagram},
        {"hop by hop", Link::raw_ip, ipv6(extension(17, message), 0), Kind::datagram},
        {"routing", Link::raw_ip, ipv6(extension(17, message), 43), Kind::datagram},
        {"destination", Link::raw_ip, ipv6(extension(17, message), 60), Kind::datagram},
        {"long destination", Link::raw_ip, ipv6(joined({{17, 1}, zeros(14), message}), 60),
         Kind::datagram},
        {"authentication", Link::raw_ip, ipv6(joined({{17, 2}, zeros(14), message}), 51),
         Kind::datagram},
        {"several", Link::raw_ip, ipv6(extension(60, extension(17, message)), 0), Kind::datagram},
        {"atomic fragment", Link::raw_ip, ipv6(extension(17, message, whole_one), 44),
         Kind::datagram},
    };
    return rows;
}

TEST(Packet, DatagramsAreFound) {
    for (const Case& row : whole_datagrams()) {
        const Packet packet = parse_packet(row.link, row.frame);
        ASSERT_EQ(packet.kind, Kind::datagram) << row.name;
        EXPECT_EQ(packet.port, 1162) << row.name;
        EXPECT_EQ(Bytes(packet.payload.begin(), packet.payload.end()), payload) << row.name;
    }
}

/* Ethernet fills short frames up, and a packet may be told to have no length yet. */
TEST(Packet, WhatTheLinkAddsIsNoPayload) {
    Bytes without_length = ipv4(message);
    without_length[2] = without_length[3] = 0;
    Bytes v6_without_length = ipv6(message);
    v6_without_length[4] = v6_without_length[5] = 0;
    for (const Bytes& frame : {ethernet(joined({ipv4(message), zeros(9)})),
                               ethernet(joined({ipv6(message), zeros(9)}), 0x86DD),
                               ethernet(without_length), ethernet(v6_without_length, 0x86DD)}) {
        const Packet packet = parse_packet(Link::ethernet, frame);
        ASSERT_EQ(packet.kind, Kind::datagram);
        EXPECT_EQ(packet.payload.size(), payload.size());
    }
}

TEST(Packet, EveryCutIsSeen) {
    for (const Case& row : whole_datagrams()) {
        for (std::size_t size = 0; size < row.frame.size(); ++size) {
            const ExactBlock exact(std::span(row.frame).first(size));
            const Packet packet = parse_packet(row.link, {exact.data(), size});
            EXPECT_EQ(packet.kind, Kind::cut) << row.name << ", " << size;
        }
    }
}

TEST(Packet, FragmentsAndOthersAreToldApart) {
    Bytes short_header = ipv4(message);
    short_header[0] = 0x44;
    Bytes options_beyond = ipv4(message);
    options_beyond[0] = 0x4F;
    Bytes version_5 = ipv4(message);
    version_5[0] = 0x55;
    Bytes short_udp = message;
    short_udp[5] = 7;
    const Case rows[] = {
        {"first fragment", Link::raw_ip, ipv4(message, 0x2000), Kind::fragment},
        {"later fragment", Link::raw_ip, ipv4(message, 0x0001), Kind::fragment},
        {"first v6 fragment", Link::raw_ip, ipv6(extension(17, message, first_one), 44),
         Kind::fragment},
        {"later v6 fragment", Link::raw_ip, ipv6(extension(17, message, middle_one), 44),
         Kind::fragment},
        {"fragment of TCP", Link::raw_ip, ipv4(message, 0x2000, 6), Kind::other},
        {"v6 fragment of TCP", Link::raw_ip, ipv6(extension(6, message, first_one), 44),
         Kind::other},
        {"TCP", Link::raw_ip, ipv4(message, 0, 6), Kind::other},
        {"v6 TCP", Link::raw_ip, ipv6(message, 6), Kind::other},
        {"ARP", Link::ethernet, ethernet(message, 0x0806), Kind::other},
        {"IEEE 802.3", Link::ethernet, ethernet(ipv4(message), 0x0040), Kind::other},
        {"ARP, cooked", Link::cooked, cooked(message, 0x0806), Kind::other},
        {"no version of IP", Link::raw_ip, version_5, Kind::other},
        {"short IP header", Link::raw_ip, short_header, Kind::other},
        {"IP options beyond the packet", Link::raw_ip, options_beyond, Kind::cut},
        {"short UDP length", Link::raw_ip, ipv4(short_udp), Kind::other},
    };
    for (const Case& row : rows) {
        EXPECT_EQ(parse_packet(row.link, row.frame).kind, row.kind) << row.name;
    }
}

TEST(Packet, OnlyVersionOneTrapsAreTaken) {
    Bytes get_request = small_trap();
    get_request[13] = 0xA0;
    const Bytes version_2 = from_hex(
        "30 1b 02 01 01 04 06 70 75 62 6c 69 63 a7 0e 02 01 01 02 01 00 02 01 00 30 03 30 01 05");
    EXPECT_TRUE(is_trap_message(small_trap()));
    EXPECT_TRUE(is_trap_message(string_trap({1, 2, 3})));
    EXPECT_FALSE(is_trap_message(get_request));
    EXPECT_FALSE(is_trap_message(version_2));
    EXPECT_FALSE(is_trap_message({}));
    EXPECT_FALSE(is_trap_message(payload));
    EXPECT_FALSE(is_trap_message(start_of(small_trap(), 13)));
}

}  // namespace
}  // namespace wq::command
