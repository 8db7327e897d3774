/*
 * Captured frames of every link: a payload that is found lies in the frame, and the octets behind
 * it change nothing. The first octet of the input chooses the link.
 */
#include "../tools/wqevents/packet.h"

#include <array>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::command::Link;
using wq::command::Packet;
using wq::command::parse_packet;
using wq::fuzz::require;

constexpr std::array links = {Link::ethernet, Link::cooked, Link::cooked_v2, Link::loopback,
                              Link::raw_ip};

void require_inside(const std::vector<uint8_t>& frame, const Packet& packet) {
    require(packet.payload.data() >= frame.data());
    require(packet.payload.data() + packet.payload.size() <= frame.data() + frame.size());
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Link link = links[data[0] % links.size()];
    std::vector<uint8_t> frame(data + 1, data + size);
    frame.shrink_to_fit();
    const Packet packet = parse_packet(link, frame);
    if (packet.kind != Packet::Kind::datagram) {
        require(packet.payload.empty());
        return 0;
    }
    require_inside(frame, packet);
    std::vector<uint8_t> longer = frame;
    longer.insert(longer.end(), {0xFF, 0xFF, 0xFF, 0xFF});
    const Packet again = parse_packet(link, longer);
    require(again.kind == Packet::Kind::datagram && again.port == packet.port);
    require(again.payload.size() == packet.payload.size());
    return 0;
}
