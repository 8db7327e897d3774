// The BER items with their diagnostics, for the layers above: what the exported asn* functions
// report, without their position-and-length convention.
#pragma once

#include <cstdint>
#include <cstring>

#include "EMS/events/internal/ber_cursor.h"

namespace wq {

// Bits of snmptracemaskEMS.
inline constexpr int trace_asn1 = 1;
inline constexpr int trace_auth = 2;
inline constexpr int trace_snmp = 4;
inline constexpr int trace_request = 32;
inline constexpr int trace_call = 64;

// Writes "module: text" to the standard error stream if `bit` of snmptracemaskEMS is set.
[[gnu::cold]] void report(int bit, const char* module, const char* text);

// What a decoder says of an item that it refuses.
[[gnu::cold]] void report_header(ber::Error error);
[[gnu::cold]] void report_integer(ber::Error error, const ber::Item& item);
[[gnu::cold]] void report_string(ber::Error error, const ber::Item& item, int capacity);
[[gnu::cold]] void report_objid(ber::Error error);

inline bool parse_header(ber::Reader& reader, ber::Item& item) {
    const ber::Error error = ber::read_item(reader, ber::is_low_tag, item);
    if (error != ber::Error::none) {
        report_header(error);
    }
    return error == ber::Error::none;
}

// The value of an item already read.
inline bool parse_integer_value(const ber::Item& item, int32_t& value) {
    const ber::Error error = ber::integer_value(item, value);
    if (error != ber::Error::none) {
        report_integer(error, item);
    }
    return error == ber::Error::none;
}

inline bool parse_integer(ber::Reader& reader, int32_t& value) {
    ber::Item item;
    const ber::Error error = ber::read_item(reader, ber::is_integer_type, item);
    if (error != ber::Error::none) {
        report_integer(error, item);
        return false;
    }
    return parse_integer_value(item, value);
}

// Whether the value of an item already read fits `capacity` bytes.
inline bool string_fits(const ber::Item& item, uint32_t capacity) {
    if (item.length > capacity) {
        report_string(ber::Error::too_long, item, static_cast<int>(capacity));
    }
    return item.length <= capacity;
}

// Reads a string of at most `capacity` bytes without copying it.
inline bool parse_string_item(ber::Reader& reader, ber::Item& item, uint32_t capacity) {
    const ber::Error error = ber::read_item(reader, ber::is_string_type, item);
    if (error != ber::Error::none) {
        report_string(error, item, static_cast<int>(capacity));
        return false;
    }
    return string_fits(item, capacity);
}

// `length` is the capacity of `string` and becomes the number of bytes stored.
inline bool parse_string_value(const ber::Item& item, uint8_t* string, uint32_t& length) {
    if (!string_fits(item, length)) {
        return false;
    }
    ber::copy_octets(string, item.contents, item.length);
    length = item.length;
    return true;
}

inline bool parse_string(ber::Reader& reader, uint8_t* string, uint32_t& length) {
    ber::Item item;
    return parse_string_item(reader, item, length) && parse_string_value(item, string, length);
}

// An address also comes as an OCTET STRING of up to four bytes, which stay in their order.
inline bool parse_integer_or_address(ber::Reader& reader, int32_t& value) {
    if (reader.empty() || *reader.position() != ASN_OCTETSTR09) {
        return parse_integer(reader, value);
    }
    ber::Item item;
    if (!parse_string_item(reader, item, sizeof value)) {
        return false;
    }
    value = 0;
    std::memcpy(&value, item.contents, item.length);
    return true;
}

// `count` is the capacity of `objid` and becomes the number of sub-identifiers.
inline bool parse_objid_value(const ber::Item& item, uint32_t* objid, uint32_t& count) {
    const ber::Error error = ber::objid_value(item, objid, count);
    if (error != ber::Error::none) {
        report_objid(error);
    }
    return error == ber::Error::none;
}

inline bool parse_objid(ber::Reader& reader, uint32_t* objid, uint32_t& count) {
    ber::Item item;
    const ber::Error error = ber::read_item(reader, ber::is_objid_type, item);
    if (error != ber::Error::none) {
        report_objid(error);
        return false;
    }
    return parse_objid_value(item, objid, count);
}

}  // namespace wq
