// BER items as SNMPv1 uses them (X.690, RFC 1155), without a socket, a stream or a global in sight.
//
// Reading: every octet passes one bounds check, in read_length() or read_item(); the decoders of
// contents work on an Item that lies within its Reader and read nothing outside it. Writing: the
// put_ functions write into room that their caller has made sure of and may touch up to
// `write_slop` octets behind what they write.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <wqevents/codec.h>

#include "EMS/events/internal/octet_block.h"

namespace wq::ber {

enum class Error : uint8_t {
    none,
    short_item,         // the item needs an octet that is not there
    indefinite_length,  // X.690 8.1.3.6, ruled out by RFC 1157 3.2.2
    long_length,        // more than four length octets
    wrong_type,
    too_long,        // the contents exceed the room
    sub_identifier,  // above 2^31 - 1
};

struct Item {
    const uint8_t* start = nullptr;  // its identifier octet
    const uint8_t* contents = nullptr;
    uint32_t length = 0;  // of the contents
    uint8_t type = 0;
};

class Reader {
  public:
    Reader(const uint8_t* data, std::ptrdiff_t length)
        : position_(data), end_(data + std::max<std::ptrdiff_t>(length, 0)) {}
    explicit Reader(const Item& item) : Reader(item.contents, item.length) {}

    [[nodiscard]] const uint8_t* position() const { return position_; }
    [[nodiscard]] const uint8_t* end() const { return end_; }
    [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(end_ - position_); }
    [[nodiscard]] bool empty() const { return position_ == end_; }
    void advance_to(const uint8_t* position) { position_ = position; }

  private:
    const uint8_t* position_;
    const uint8_t* end_;
};

inline constexpr uint32_t max_length_octets = 4;
inline constexpr uint8_t long_form = 0x80;
inline constexpr uint8_t more_octets = 0x80;  // on all octets of a sub-identifier but the last
inline constexpr uint32_t max_sub_identifier = 0x7FFFFFFF;

// Reads a length field and moves `position` behind it (X.690 8.1.3).
inline Error read_length(const uint8_t*& position, const uint8_t* end, uint32_t& length) {
    if (position == end) {
        return Error::short_item;
    }
    const uint8_t first = *position++;
    if (first < long_form) [[likely]] {
        length = first;
        return Error::none;
    }
    const uint32_t octets = first & ~uint32_t{long_form};
    if (octets == 0) {
        return Error::indefinite_length;
    }
    if (octets > max_length_octets) {
        return Error::long_length;
    }
    if (static_cast<std::size_t>(end - position) < octets) {
        return Error::short_item;
    }
    length = 0;
    for (uint32_t i = 0; i < octets; ++i) {
        length = length << 8 | *position++;
    }
    return Error::none;
}

// Reads one whole item whose type `is_wanted` accepts and moves the reader behind it.
template <typename TypeTest>
inline Error read_item(Reader& reader, TypeTest is_wanted, Item& item) {
    if (reader.empty()) {
        return Error::short_item;
    }
    const uint8_t* position = reader.position();
    item.start = position;
    item.type = *position++;
    if (!is_wanted(item.type)) {
        return Error::wrong_type;
    }
    if (const Error error = read_length(position, reader.end(), item.length);
        error != Error::none) {
        return error;
    }
    if (static_cast<std::size_t>(reader.end() - position) < item.length) {
        return Error::short_item;
    }
    item.contents = position;
    reader.advance_to(position + item.length);
    return Error::none;
}

constexpr bool is_integer_type(uint8_t type) {
    return type == ASN_INTEGER09 || (type >= ASN_IPADDR09 && type <= ASN_TIMETICKS09);
}
constexpr bool is_string_type(uint8_t type) {
    return type == ASN_OCTETSTR09 || type == ASN_OPAQUE09;
}
constexpr bool is_objid_type(uint8_t type) {
    return type == ASN_OBJID09;
}
constexpr bool is_null_type(uint8_t type) {
    return type == ASN_NULL09;
}
// The high-tag-number form (X.690 8.1.2.4) does not occur in SNMP.
constexpr bool is_low_tag(uint8_t type) {
    return (type & 0x1F) != 0x1F;
}

constexpr uint32_t network_order(uint32_t value) {
    return std::endian::native == std::endian::little ? __builtin_bswap32(value) : value;
}

inline uint32_t load_be32(const uint8_t* from) {
    uint32_t word = 0;
    std::memcpy(&word, from, sizeof word);
    return network_order(word);
}

// Takes the `count` (1 to 4) octets at `from`, the contents of an item, as the low ones of a word;
// the others are any. The item's header is the reason why two octets before the contents may be
// read.
inline uint32_t load_contents(const uint8_t* from, uint32_t count) {
    return count == 1 ? *from : load_be32(from + count - sizeof(uint32_t));
}

// The value of an integer item.
inline Error integer_value(const Item& item, int32_t& value) {
    const uint8_t* contents = item.contents;
    uint32_t length = item.length;
    if (length == 5 && *contents == 0) {
        ++contents;
        --length;
    }
    if (length > sizeof value) {
        return Error::too_long;
    }
    if (length == 0) {
        value = 0;
        return Error::none;
    }
    const uint32_t surplus = 32 - 8 * length;
    const uint32_t word = load_contents(contents, length) << surplus;
    if (item.type == ASN_INTEGER09) {
        value = static_cast<int32_t>(word) >> surplus;
        return Error::none;
    }
    const uint32_t number = word >> surplus;
    // An address keeps its octets in wire order in memory.
    value = static_cast<int32_t>(item.type == ASN_IPADDR09 ? network_order(number) : number);
    return Error::none;
}

// Copies a run of one to two words as its first and its last word.
template <typename Word>
inline void copy_ends(uint8_t* to, const uint8_t* from, std::size_t length) {
    Word head = 0;
    Word tail = 0;
    std::memcpy(&head, from, sizeof head);
    std::memcpy(&tail, from + length - sizeof tail, sizeof tail);
    std::memcpy(to, &head, sizeof head);
    std::memcpy(to + length - sizeof tail, &tail, sizeof tail);
}

// Copies short runs without a call. The call is to memmove(): where the compiler sees a bound of
// the length it turns memcpy() into a string instruction that costs several times as much.
inline void copy_octets(uint8_t* to, const uint8_t* from, std::size_t length) {
    if (length > 16) {
        std::memmove(to, from, length);
    } else if (length >= 8) {
        copy_ends<uint64_t>(to, from, length);
    } else if (length >= 4) {
        copy_ends<uint32_t>(to, from, length);
    } else {
        for (std::size_t i = 0; i < length; ++i) {
            to[i] = from[i];
        }
    }
}

// Reads the sub-identifier, base 128, of which at least one octet is there, and moves `position`
// behind it (X.690 8.19.2).
inline Error read_sub_identifier(const uint8_t*& position, const uint8_t* end, uint32_t& value) {
    if (*position < more_octets) {
        value = *position++;
        return Error::none;
    }
    uint64_t sum = 0;
    while (position != end) {
        const uint8_t octet = *position++;
        sum = sum << 7 | (octet & ~uint32_t{more_octets});
        if (sum > max_sub_identifier) {
            return Error::sub_identifier;
        }
        if (octet < more_octets) {
            value = static_cast<uint32_t>(sum);
            return Error::none;
        }
    }
    return Error::short_item;
}

// Reads the sub-identifiers of `item`; `next` has room for one an octet and moves behind the last.
// Nearly all take one octet, so they go in blocks, of which the last may overlap the one before.
inline Error read_sub_identifiers(const Item& item, uint32_t*& next) {
    const uint8_t* position = item.contents;
    const uint8_t* end = position + item.length;
    bool one_octet_each = item.length >= octet_block;
    while (static_cast<std::size_t>(end - position) >= octet_block) {
        const std::size_t clean = widen_block(next, position);
        position += clean;
        next += clean;
        if (clean == octet_block) {
            continue;
        }
        one_octet_each = false;
        if (const Error error = read_sub_identifier(position, end, *next); error != Error::none) {
            return error;
        }
        ++next;
    }
    if (one_octet_each) {
        uint32_t* last = next + (end - position);
        if (widen_block(last - octet_block, end - octet_block) == octet_block) {
            next = last;
            return Error::none;
        }
    }
    while (position != end) {
        if (const Error error = read_sub_identifier(position, end, *next); error != Error::none) {
            return error;
        }
        ++next;
    }
    return Error::none;
}

// The identifier that an item holds. `count` is the capacity of `objid` and becomes the number of
// sub-identifiers.
inline Error objid_value(const Item& item, uint32_t* objid, uint32_t& count) {
    if (uint64_t{item.length} + 1 > count || count < 2) {
        return Error::too_long;
    }
    uint32_t* next = objid + 1;
    if (item.length == 0) {
        *next++ = 0;  // empty contents read as 0.0
    } else if (const Error error = read_sub_identifiers(item, next); error != Error::none) {
        return error;
    }
    // X.690 8.19.4 packs the first two; arcs of 80 and above are split like all others.
    const uint32_t first = objid[1];
    objid[1] = first % 40;
    objid[0] = first / 40;
    count = static_cast<uint32_t>(next - objid);
    return Error::none;
}

inline constexpr std::size_t write_slop = 8;
inline constexpr uint32_t max_objid_octets = 128;
// Room for an identifier's contents until put_objid_contents() notices that they are too many.
inline constexpr std::size_t objid_room = max_objid_octets + 8 + write_slop;

// Octets of a length field; there is no form above the 16-bit one.
constexpr std::size_t length_octets(uint32_t length) {
    return length < 0x80 ? 1 : length < 0x100 ? 2 : 3;
}

inline uint8_t* put_length(uint8_t* to, uint32_t length) {
    if (length < 0x80) [[likely]] {
        *to++ = static_cast<uint8_t>(length);
    } else if (length < 0x100) {
        *to++ = 0x81;
        *to++ = static_cast<uint8_t>(length);
    } else {
        // Only the low 16 bits are ever written: no message on the channel is longer.
        *to++ = 0x82;
        *to++ = static_cast<uint8_t>(length >> 8);
        *to++ = static_cast<uint8_t>(length);
    }
    return to;
}

// Octets of the shortest two's complement form (X.690 8.3.2).
constexpr uint32_t signed_octets(int32_t value) {
    const uint32_t magnitude = static_cast<uint32_t>(value ^ (value >> 31));
    return static_cast<uint32_t>(std::bit_width(magnitude)) / 8 + 1;
}

// Octets of an unsigned value. Only values whose top nine bits are all ones get a zero octet in
// front; the others from 0x80000000 up go out in four, as the daemon has always read them.
constexpr uint32_t unsigned_octets(uint32_t value) {
    if (value >= 0xFF800000) {
        return 5;
    }
    return std::min(static_cast<uint32_t>(std::bit_width(value)) / 8 + 1, 4U);
}

// Octets of `value` under `type`, 0 where no integer has that type.
constexpr uint32_t integer_octets(int32_t value, uint8_t type) {
    switch (type) {
        case ASN_INTEGER09:
            return signed_octets(value);
        case ASN_IPADDR09:
            return 4;
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
        case ASN_UINT09:
            return unsigned_octets(static_cast<uint32_t>(value));
        default:
            return 0;
    }
}

// ASN_UINT09 tells how to encode; on the wire it is an INTEGER.
constexpr uint8_t integer_tag(uint8_t type) {
    return type == ASN_UINT09 ? ASN_INTEGER09 : type;
}

// Writes the low `octets` (1 to 5) of a number, the most significant first.
inline uint8_t* put_octets(uint8_t* to, uint32_t value, uint32_t octets) {
    const uint64_t left_aligned = uint64_t{value} << (64 - 8 * octets);
    const uint64_t word =
        std::endian::native == std::endian::little ? __builtin_bswap64(left_aligned) : left_aligned;
    std::memcpy(to, &word, sizeof word);
    return to + octets;
}

// Writes a sub-identifier in the fewest octets, base 128 (X.690 8.19.2).
inline uint8_t* put_sub_identifier(uint8_t* to, uint32_t value) {
    if (value < more_octets) {
        *to++ = static_cast<uint8_t>(value);
        return to;
    }
    if (value < uint32_t{more_octets} << 7) [[likely]] {
        *to++ = static_cast<uint8_t>(value >> 7 | more_octets);
        *to++ = static_cast<uint8_t>(value & ~uint32_t{more_octets});
        return to;
    }
    const int groups = (static_cast<int>(std::bit_width(value)) + 6) / 7;
    for (int shift = 7 * (groups - 1); shift > 0; shift -= 7) {
        *to++ = static_cast<uint8_t>(value >> shift | more_octets);
    }
    *to++ = static_cast<uint8_t>(value & ~uint32_t{more_octets});
    return to;
}

constexpr bool first_arc_fits(uint32_t first) {
    return first < 3;
}
// Two arcs share the first octet, which takes no more than seven bits here.
constexpr bool first_arcs_fit(uint32_t first, uint32_t second) {
    return uint64_t{first} * 40 + second < 0x80;
}

// Writes an identifier's contents: `count` (at least 2) sub-identifiers whose first two fit.
// Returns null when there are more than `max_objid_octets`; `to` has room for `objid_room`.
// Nearly all take one octet, so they go in blocks, of which the last may be a shorter one.
inline uint8_t* put_objid_contents(uint8_t* to, const uint32_t* objid, uint32_t count) {
    const uint8_t* limit = to + max_objid_octets;
    const uint32_t* next = objid + 2;
    const uint32_t* end = objid + count;
    *to++ = static_cast<uint8_t>(objid[0] * 40 + objid[1]);
    while (static_cast<std::size_t>(end - next) >= octet_block && to <= limit) {
        const std::size_t clean = narrow_block(to, next);
        to += clean;
        next += clean;
        if (clean != octet_block) {
            to = put_sub_identifier(to, *next++);
        }
    }
    while (next != end && to <= limit) {
        const auto left = static_cast<std::size_t>(end - next);
        const std::size_t clean = count >= octet_block ? narrow_tail(to, end, left) : 0;
        to += clean;
        next += clean;
        if (clean != left) {
            to = put_sub_identifier(to, *next++);
        }
    }
    return to > limit ? nullptr : to;
}

}  // namespace wq::ber
