/*
 * Encoded traps for the tests of the command, written by hand.
 */
#ifndef WQEVENTS_TESTS_TOOL_SAMPLE_TRAPS_H
#define WQEVENTS_TESTS_TOOL_SAMPLE_TRAPS_H

#include <algorithm>
#include <cstring>
#include <string>

#include "support/hex.h"

namespace wq::test {

/* Community "public", enterprise 1.3.6.1.4.1.2, agent 10.1.2.3, 6, `specific`, time 5: 40 bytes. */
inline Bytes small_trap(std::uint8_t specific = 1) {
    Bytes trap = from_hex(
        "30 26 02 01 00 04 06 70 75 62 6c 69 63 a4 19 06 06 2b 06 01 04 01 02"
        "40 04 0a 01 02 03 02 01 06 02 01 01 43 01 05 30 00");
    trap[34] = specific;
    return trap;
}

/* The same with one binding, 1.3.6.1 OCTET STRING of the octets. */
inline Bytes string_trap(const Bytes& octets) {
    const auto n = static_cast<std::uint8_t>(octets.size());
    Bytes trap = small_trap();
    trap[1] = static_cast<std::uint8_t>(trap[1] + 9 + n);
    trap[14] = static_cast<std::uint8_t>(trap[14] + 9 + n);
    trap[39] = static_cast<std::uint8_t>(9 + n);
    const Bytes head = {0x30, static_cast<std::uint8_t>(7 + n), 0x06, 0x03, 0x2b, 0x06, 0x01, 0x04,
                        n};
    trap.insert(trap.end(), head.begin(), head.end());
    trap.insert(trap.end(), octets.begin(), octets.end());
    return trap;
}

/* The trap behind a transmission header, whose length may be another than the trap's. */
inline Bytes with_header(const Bytes& trap, std::int32_t len) {
    const std::int32_t words[6] = {len, 15, 4711, 0, -1, 9};
    Bytes bytes(sizeof words + trap.size());
    std::memcpy(bytes.data(), words, sizeof words);
    std::copy(trap.begin(), trap.end(), bytes.begin() + sizeof words);
    return bytes;
}

inline Bytes with_header(const Bytes& trap) {
    return with_header(trap, static_cast<std::int32_t>(trap.size()));
}

/* The first `count` bytes. */
inline Bytes start_of(const Bytes& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

inline Bytes repeated(const Bytes& bytes, std::size_t times) {
    Bytes all;
    for (std::size_t i = 0; i < times; ++i) {
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
}

}  // namespace wq::test

#endif
