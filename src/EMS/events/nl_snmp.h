// Variable bindings (RFC 1157 4.1.1).
#pragma once

#include <cstdint>

#include "EMS/events/nl_asn1.h"

namespace wq {

// Opaque can be received, but nobody on the platform sends it.
inline bool is_buildable(unsigned char type) {
    return type == ASN_UINT09 || type == ASN_OCTETSTR09 || type == ASN_NULL09 ||
           type == ASN_OBJID09 || ber::is_integer_type(type);
}

[[gnu::cold]] void report_snmp(const char* text);

// Reads one binding off `list`: its name into `name` (room for EMS_OID_MAX) and `name_length`, and
// its value, undecoded. `list` moves behind the value, also when the binding claims to be longer:
// the binding's own length is not compared with its parts.
inline bool parse_binding(ber::Reader& list, uint32_t* name, uint32_t& name_length,
                          ber::Item& value) {
    ber::Item binding;
    if (!parse_header(list, binding)) {
        report_snmp("Cannot parse header");
        return false;
    }
    if (binding.type != ASN_SEQUENCE09) {
        return false;
    }
    ber::Reader contents(binding);
    name_length = EMS_OID_MAX;
    if (!parse_objid(contents, name, name_length)) {
        report_snmp("Cannot parse objid");
        return false;
    }
    if (!parse_header(contents, value)) {
        report_snmp("Cannot parse header 2");
        return false;
    }
    list.advance_to(contents.position());
    return true;
}

}  // namespace wq
