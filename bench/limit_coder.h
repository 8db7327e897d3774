// The limit: a straight-line coder for the benchmarks' own messages that checks nothing. It writes
// from back to front, so that every length is known when it is written.
#pragma once

#include <wqevents/channel.h>
#include <wqevents/codec.h>

#include <bit>
#include <cstdint>
#include <cstring>

namespace wq::bench {

// ---- encoding, backwards: each function returns the start of what it wrote

inline uint8_t* limit_header(uint8_t* start, uint8_t tag, std::size_t length) {
    if (length < 0x80) {
        *--start = static_cast<uint8_t>(length);
    } else if (length < 0x100) {
        *--start = static_cast<uint8_t>(length);
        *--start = 0x81;
    } else {
        *--start = static_cast<uint8_t>(length);
        *--start = static_cast<uint8_t>(length >> 8);
        *--start = 0x82;
    }
    *--start = tag;
    return start;
}

inline uint8_t* limit_integer(uint8_t* end, uint8_t tag, uint32_t value) {
    const auto number = static_cast<int32_t>(value);
    const auto magnitude = static_cast<uint32_t>(number ^ (number >> 31));
    const auto octets = static_cast<std::ptrdiff_t>(std::bit_width(magnitude)) / 8 + 1;
    const uint32_t word = __builtin_bswap32(value);
    std::memcpy(end - 4, &word, 4);
    end -= octets;
    *--end = static_cast<uint8_t>(octets);
    *--end = tag;
    return end;
}

inline uint8_t* limit_objid(uint8_t* end, const uint32_t* objid, uint32_t count) {
    uint8_t* start = end;
    const uint32_t* next = objid + count;
    while (next != objid + 2) {
        if (next - objid >= 10) {
            uint32_t all = 0;
            for (int i = 1; i <= 8; ++i) {
                all |= next[-i];
                start[-i] = static_cast<uint8_t>(next[-i]);
            }
            if (all < 0x80) {
                next -= 8;
                start -= 8;
                continue;
            }
        }
        uint32_t value = *--next;
        *--start = static_cast<uint8_t>(value & 0x7F);
        while ((value >>= 7) != 0) {
            *--start = static_cast<uint8_t>(value | 0x80);
        }
    }
    *--start = static_cast<uint8_t>(objid[0] * 40 + objid[1]);
    return limit_header(start, ASN_OBJID09, static_cast<std::size_t>(end - start));
}

inline uint8_t* limit_string(uint8_t* end, const uint8_t* string, uint32_t length) {
    end -= length;
    std::memcpy(end, string, length);
    return limit_header(end, ASN_OCTETSTR09, length);
}

inline uint8_t* limit_value(uint8_t* end, const SnmpVarBindEMS& binding) {
    switch (binding.type) {
        case ASN_OCTETSTR09:
            return limit_string(end, binding.val.string, binding.val_len);
        case ASN_OBJID09:
            return limit_objid(end, binding.val.objid, binding.val_len);
        case ASN_IPADDR09: {
            const uint32_t word = __builtin_bswap32(static_cast<uint32_t>(binding.val.integer));
            std::memcpy(end - 4, &word, 4);
            return limit_header(end - 4, ASN_IPADDR09, 4);
        }
        default:
            return limit_integer(end, binding.type, static_cast<uint32_t>(binding.val.integer));
    }
}

// Encodes so that the message ends at `end`; returns its start.
inline uint8_t* limit_encode(uint8_t* end, const snmp_trap_infoEMS& trap,
                             const SnmpVarBindEMS* vars) {
    uint8_t* start = end;
    for (int32_t i = trap.vars; i-- > 0;) {
        uint8_t* binding_end = start;
        start = limit_value(start, vars[i]);
        start = limit_objid(start, vars[i].oid, vars[i].oid_length);
        start = limit_header(start, ASN_SEQUENCE09, static_cast<std::size_t>(binding_end - start));
    }
    start = limit_header(start, ASN_SEQUENCE09, static_cast<std::size_t>(end - start));
    start = limit_integer(start, ASN_TIMETICKS09, trap.time);
    start = limit_integer(start, ASN_INTEGER09, trap.specific);
    start = limit_integer(start, ASN_INTEGER09, trap.gen);
    start = limit_integer(start, ASN_IPADDR09, trap.agent);
    start = limit_objid(start, trap.enterprise, static_cast<uint32_t>(trap.elen));
    start = limit_header(start, SNMP_TRAP, static_cast<std::size_t>(end - start));
    start = limit_string(start, trap.community, static_cast<uint32_t>(trap.clen));
    start = limit_integer(start, ASN_INTEGER09, 0);
    return limit_header(start, ASN_SEQUENCE09, static_cast<std::size_t>(end - start));
}

// ---- decoding: each function moves `at` behind what it read

inline uint32_t limit_length(const uint8_t*& at) {
    const uint8_t first = *at++;
    if (first < 0x80) {
        return first;
    }
    if (first == 0x81) {
        return *at++;
    }
    at += 2;
    return static_cast<uint32_t>(at[-2] << 8 | at[-1]);
}

inline uint32_t limit_skip_header(const uint8_t*& at) {
    ++at;
    return limit_length(at);
}

inline int32_t limit_read_integer(const uint8_t*& at) {
    const uint8_t type = *at;
    const uint32_t length = limit_skip_header(at);
    uint32_t word = 0;
    std::memcpy(&word, at, 4);  // the last item of a message is followed by the buffer's rest
    word = __builtin_bswap32(word);
    at += length;
    const uint32_t surplus = 32 - 8 * length;
    if (type == ASN_INTEGER09) {
        return static_cast<int32_t>(word) >> surplus;
    }
    word >>= surplus;
    return static_cast<int32_t>(type == ASN_IPADDR09 ? __builtin_bswap32(word) : word);
}

inline uint32_t limit_read_objid(const uint8_t*& at, uint32_t* objid) {
    const uint32_t length = limit_skip_header(at);
    const uint8_t* end = at + length;
    uint32_t* next = objid + 1;
    while (at != end) {
        if (end - at >= 8) {
            uint64_t octets = 0;
            std::memcpy(&octets, at, 8);
            for (int i = 0; i < 8; ++i) {
                next[i] = at[i];
            }
            if ((octets & 0x8080808080808080) == 0) {
                at += 8;
                next += 8;
                continue;
            }
        }
        uint32_t value = 0;
        do {
            value = value << 7 | (*at & 0x7F);
        } while ((*at++ & 0x80) != 0);
        *next++ = value;
    }
    objid[0] = objid[1] / 40;
    objid[1] = objid[1] % 40;
    return static_cast<uint32_t>(next - objid);
}

inline uint32_t limit_read_string(const uint8_t*& at, uint8_t* string) {
    const uint32_t length = limit_skip_header(at);
    std::memcpy(string, at, length);
    at += length;
    return length;
}

inline void limit_read_binding(const uint8_t*& at, SnmpVarBindEMS& binding) {
    limit_skip_header(at);
    binding.oid_length = limit_read_objid(at, binding.oid);
    binding.type = *at;
    switch (binding.type) {
        case ASN_OCTETSTR09:
            binding.val_len = limit_read_string(at, binding.val.string);
            break;
        case ASN_OBJID09:
            binding.val_len = limit_read_objid(at, binding.val.objid);
            break;
        default:
            binding.val.integer = limit_read_integer(at);
            binding.val_len = 4;
    }
}

inline void limit_decode(const uint8_t* at, snmp_trap_infoEMS& trap, SnmpVarBindEMS* vars) {
    limit_skip_header(at);
    limit_read_integer(at);
    trap.clen = static_cast<int32_t>(limit_read_string(at, trap.community));
    limit_skip_header(at);
    trap.elen = static_cast<int32_t>(limit_read_objid(at, trap.enterprise));
    trap.agent = static_cast<uint32_t>(limit_read_integer(at));
    trap.gen = static_cast<uint32_t>(limit_read_integer(at));
    trap.specific = static_cast<uint32_t>(limit_read_integer(at));
    trap.time = static_cast<uint32_t>(limit_read_integer(at));
    const uint32_t length = limit_skip_header(at);
    const uint8_t* end = at + length;
    SnmpVarBindEMS* next = vars;
    while (at != end) {
        limit_read_binding(at, *next++);
    }
    trap.vars = static_cast<int32_t>(next - vars);
}

}  // namespace wq::bench
