// The message wrapper: SEQUENCE, version, community (RFC 1157 4).
#pragma once

#include <cstdint>

#include "EMS/events/nl_asn1.h"

namespace wq {

[[gnu::cold]] void report_auth(const char* text);

// Reads the wrapper; `reader` then stands at the PDU and ends where the message does. `length` is
// the capacity of `community`, which has room for one byte more, and becomes its length.
inline bool parse_auth(ber::Reader& reader, uint8_t* community, uint32_t& length,
                       int32_t& version) {
    ber::Item message;
    if (!parse_header(reader, message)) {
        report_auth("bad header");
        return false;
    }
    if (message.type != ASN_SEQUENCE09) {
        report_auth("wrong auth header type");
        return false;
    }
    reader = ber::Reader(message);
    if (!parse_integer(reader, version)) {
        report_auth("bad parse of version");
        return false;
    }
    if (!parse_string(reader, community, length)) {
        report_auth("bad parse of community");
        return false;
    }
    community[length] = 0;
    return true;
}

}  // namespace wq
