/*
 * Packets and files of them, put together octet by octet.
 */
#ifndef WQEVENTS_TESTS_TOOL_CAPTURES_H
#define WQEVENTS_TESTS_TOOL_CAPTURES_H

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/hex.h"

namespace wq::test {

inline Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/* In network byte order. */
inline Bytes word(std::size_t value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

inline Bytes zeros(std::size_t count) {
    return Bytes(count, 0);
}

/* RFC 768. */
inline Bytes udp(const Bytes& payload, std::uint16_t port = 162) {
    return joined({word(40000), word(port), word(8 + payload.size()), word(0), payload});
}

/* RFC 791 3.1: from 192.0.2.7 to 192.0.2.1. `fragment` holds flags and offset. */
inline Bytes ipv4(const Bytes& content, std::uint16_t fragment = 0, std::uint8_t protocol = 17) {
    return joined({{0x45, 0},
                   word(20 + content.size()),
                   word(1),
                   word(fragment),
                   {64, protocol},
                   word(0),
                   {192, 0, 2, 7, 192, 0, 2, 1},
                   content});
}

/* RFC 8200 3. */
inline Bytes ipv6(const Bytes& content, std::uint8_t next = 17) {
    return joined({{0x60, 0, 0, 0}, word(content.size()), {next, 64}, zeros(32), content});
}

/* RFC 8200 4: an extension header of 8 octets, of which 6 may be given. */
inline Bytes extension(std::uint8_t next, const Bytes& content, Bytes octets = {}) {
    octets.resize(6);
    return joined({{next, 0}, octets, content});
}

inline Bytes ethernet(const Bytes& content, std::uint16_t type = 0x0800) {
    return joined({zeros(12), word(type), content});
}

/* What stands behind the type 0x8100 or 0x88A8. */
inline Bytes vlan(const Bytes& content, std::uint16_t type = 0x0800) {
    return joined({word(5), word(type), content});
}

inline Bytes cooked(const Bytes& content, std::uint16_t type = 0x0800) {
    return joined({zeros(14), word(type), content});
}

inline Bytes cooked_v2(const Bytes& content, std::uint16_t type = 0x0800) {
    return joined({word(type), zeros(18), content});
}

/* The numbers of links in capture files. */
constexpr std::uint32_t link_loopback = 0;
constexpr std::uint32_t link_ethernet = 1;
constexpr std::uint32_t link_raw = 101;
constexpr std::uint32_t link_cooked = 113;
constexpr std::uint32_t link_cooked_v2 = 276;

/* In the byte order of the host, as a capture is written. */
inline Bytes host_words(std::initializer_list<std::uint32_t> words) {
    Bytes bytes(words.size() * 4);
    std::memcpy(bytes.data(), std::data(words), bytes.size());
    return bytes;
}

struct CaptureFrame {
    std::uint32_t seconds;
    Bytes bytes;
};

/* A file of frames, of which at most `most` octets each were kept. */
inline std::string capture(std::uint32_t link, const std::vector<CaptureFrame>& frames,
                           std::size_t most = 65535) {
    Bytes file = host_words({0xA1B2C3D4, 0x00040002, 0, 0, 65535, link});
    for (const CaptureFrame& frame : frames) {
        const auto size = static_cast<std::uint32_t>(frame.bytes.size());
        const auto kept = static_cast<std::uint32_t>(std::min<std::size_t>(size, most));
        Bytes octets = frame.bytes;
        octets.resize(kept);
        file = joined({file, host_words({frame.seconds, 0, kept, size}), octets});
    }
    return {file.begin(), file.end()};
}

}  // namespace wq::test

#endif
