/*
 * Traps as records, built by hand, from a table's columns or at random, and told as text, so that
 * two of them compare as strings.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_TRAPS_H
#define WQEVENTS_TESTS_SUPPORT_TRAPS_H

#include <arpa/inet.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/exact_block.h"
#include "support/hex.h"
#include "support/random.h"
#include "support/vectors.h"

namespace wq::test {

/* A trap and its bindings. Fresh ones have the capacities that a decoder is to be given. */
struct Trap {
    explicit Trap(size_t bindings = 0) : info{}, vars(bindings) {
        info.clen = EMS_COMMUNITY_MAX;
        info.elen = EMS_OID_MAX;
        info.maxvars = static_cast<int32_t>(bindings);
    }

    snmp_trap_infoEMS info;
    std::vector<SnmpVarBindEMS> vars;
};

inline void set_community(Trap& trap, std::string_view community) {
    std::copy(community.begin(), community.end(), trap.info.community);
    trap.info.clen = static_cast<int32_t>(community.size());
}

inline void set_enterprise(Trap& trap, const Oid& enterprise) {
    std::copy(enterprise.begin(), enterprise.end(), trap.info.enterprise);
    trap.info.elen = static_cast<int32_t>(enterprise.size());
}

inline SnmpVarBindEMS binding(const Oid& name, uint8_t type) {
    SnmpVarBindEMS var{};
    std::copy(name.begin(), name.end(), var.oid);
    var.oid_length = static_cast<uint32_t>(name.size());
    var.type = type;
    return var;
}

inline SnmpVarBindEMS number_binding(const Oid& name, uint8_t type, uint32_t value) {
    SnmpVarBindEMS var = binding(name, type);
    var.val.integer = static_cast<int32_t>(value);
    var.val_len = 4;
    return var;
}

inline SnmpVarBindEMS string_binding(const Oid& name, const Bytes& value) {
    SnmpVarBindEMS var = binding(name, ASN_OCTETSTR09);
    std::copy(value.begin(), value.end(), var.val.string);
    var.val_len = static_cast<uint32_t>(value.size());
    return var;
}

inline SnmpVarBindEMS objid_binding(const Oid& name, const Oid& value) {
    SnmpVarBindEMS var = binding(name, ASN_OBJID09);
    std::copy(value.begin(), value.end(), var.val.objid);
    var.val_len = static_cast<uint32_t>(value.size());
    return var;
}

inline void add(Trap& trap, const SnmpVarBindEMS& var) {
    trap.vars.push_back(var);
    trap.info.vars = static_cast<int32_t>(trap.vars.size());
}

/* A small, ordinary trap without bindings. */
inline Trap plain_trap() {
    Trap trap;
    set_community(trap, "public");
    set_enterprise(trap, {1, 3, 6, 1, 4, 1, 2, 6, 3, 1});
    trap.info.agent = 0x0a010203;
    trap.info.gen = ENTERPRISE_SPECIFIC;
    trap.info.specific = 17;
    trap.info.time = 12345;
    return trap;
}

/* "NAME TYPE VALUE": the type in hexadecimal, the value as ber() or number() or oid() reads it. */
inline SnmpVarBindEMS binding_from_text(const std::string& text) {
    const size_t first = text.find(' ');
    const Oid name = oid(text.substr(0, first));
    const uint8_t type = from_hex(text.substr(first + 1, 2)).at(0);
    const std::string value = trimmed(std::string_view(text).substr(first + 3));
    switch (type) {
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09: {
            SnmpVarBindEMS var = string_binding(name, ber(value));
            var.type = type;
            return var;
        }
        case ASN_OBJID09:
            return objid_binding(name, oid(value));
        case ASN_NULL09:
            return binding(name, type);
        default:
            return number_binding(name, type, static_cast<uint32_t>(number(value)));
    }
}

inline uint32_t address_from_text(const std::string& text) {
    const Oid octets = oid(text);
    return octets.at(0) << 24 | octets.at(1) << 16 | octets.at(2) << 8 | octets.at(3);
}

/* Columns: community, enterprise, agent, generic, specific, time, bindings separated by ';'. */
inline Trap trap_from_columns(const Vector& row, size_t first) {
    Trap trap;
    set_community(trap, row[first]);
    set_enterprise(trap, oid(row[first + 1]));
    trap.info.agent = address_from_text(row[first + 2]);
    trap.info.gen = static_cast<uint32_t>(number(row[first + 3]));
    trap.info.specific = static_cast<uint32_t>(number(row[first + 4]));
    trap.info.time = static_cast<uint32_t>(number(row[first + 5]));
    if (!row[first + 6].empty()) {
        for (const std::string& text : split(row[first + 6], ';')) {
            add(trap, binding_from_text(trimmed(text)));
        }
    }
    return trap;
}

inline std::string told_value(const SnmpVarBindEMS& var) {
    switch (var.type) {
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09:
            return to_hex({var.val.string, std::min<size_t>(var.val_len, EMS_STRING_MAX)});
        case ASN_OBJID09:
            return dotted(var.val.objid, std::min<size_t>(var.val_len, EMS_OID_MAX));
        case ASN_NULL09:
            return "";
        case ASN_INTEGER09:
            return std::to_string(var.val.integer);
        default:
            return std::to_string(static_cast<uint32_t>(var.val.integer));
    }
}

/* The trap as text, addresses as numbers of the host. */
inline std::string told(const Trap& trap) {
    const snmp_trap_infoEMS& info = trap.info;
    const auto community = static_cast<size_t>(std::clamp(info.clen, 0, EMS_COMMUNITY_MAX));
    const auto enterprise = static_cast<size_t>(std::clamp(info.elen, 0, EMS_OID_MAX));
    std::string text =
        "community " + to_hex({info.community, community}) + "\nenterprise " +
        dotted(info.enterprise, enterprise) + "\nagent " +
        to_hex(Bytes{static_cast<uint8_t>(info.agent >> 24), static_cast<uint8_t>(info.agent >> 16),
                     static_cast<uint8_t>(info.agent >> 8), static_cast<uint8_t>(info.agent)}) +
        "\ngeneric " + std::to_string(info.gen) + " specific " + std::to_string(info.specific) +
        " time " + std::to_string(info.time) + "\nvars " + std::to_string(info.vars) + "\n";
    const auto count = std::min(trap.vars.size(), static_cast<size_t>(std::max(info.vars, 0)));
    for (size_t i = 0; i < count; ++i) {
        const SnmpVarBindEMS& var = trap.vars[i];
        text += dotted(var.oid, std::min<size_t>(var.oid_length, EMS_OID_MAX)) + " type " +
                std::to_string(var.type) + " = " + told_value(var) + "\n";
    }
    return text;
}

/*
 * A received trap as it would have to be sent: a decoder leaves the octets of addresses in wire
 * order, an encoder takes numbers of the host.
 */
inline Trap to_send(Trap trap) {
    trap.info.agent = ntohl(trap.info.agent);
    for (SnmpVarBindEMS& var : trap.vars) {
        if (var.type == ASN_IPADDR09) {
            var.val.integer = static_cast<int32_t>(ntohl(static_cast<uint32_t>(var.val.integer)));
        }
    }
    return trap;
}

/* What is left of a value that the signed rule encodes and that is read as unsigned. */
inline uint32_t through_signed_rule(uint32_t value) {
    const auto number = static_cast<int32_t>(value);
    if (number >= 0 || number < -0x800000) {
        return value;
    }
    return number >= -0x80 ? value & 0xff : number >= -0x8000 ? value & 0xffff : value & 0xffffff;
}

/* What a receiver gets of a trap that was sent, told as to_send() tells it. */
inline Trap as_received(Trap trap) {
    trap.info.agent = through_signed_rule(trap.info.agent);
    trap.info.time = through_signed_rule(trap.info.time);
    for (SnmpVarBindEMS& var : trap.vars) {
        var.type = var.type == ASN_UINT09 ? uint8_t{ASN_INTEGER09} : var.type;
    }
    return trap;
}

struct Decoded {
    int result = 0;
    Trap trap;
};

/* Decodes `message` with room for `bindings` bindings; what is left untouched is 0. */
inline Decoded decode(std::span<const uint8_t> message, size_t bindings = 64) {
    const ExactBlock exact(message);
    Decoded decoded{0, Trap(bindings)};
    decoded.trap.vars.reserve(1); /* an array, also where it has no records */
    decoded.result = snmp_parse_trap(exact.data(), exact.length(), &decoded.trap.info, nullptr,
                                     decoded.trap.vars.data());
    return decoded;
}

/* Encodes `trap` into room for `capacity` bytes; empty where that fails. */
inline Bytes encode(Trap trap, size_t capacity = 4 * EMS_TRAP_MAX) {
    ExactBlock out(capacity);
    int length = out.length();
    if (snmpBuildTrapEMS(out.data(), &length, &trap.info, nullptr, trap.vars.data()) != 0) {
        return {};
    }
    return out.first(static_cast<size_t>(length));
}

/* An identifier that is encoded and read back as it is, in at most 127 octets. */
inline Oid random_oid(Random& random) {
    Oid name{random.between(0, 2), random.between(0, 39)};
    const uint32_t more = random.one_in(20) ? random.between(0, 25) : random.between(0, 12);
    for (uint32_t i = 0; i < more; ++i) {
        name.push_back(random.any_size() & 0x7fffffff);
    }
    return name;
}

inline Bytes random_bytes(Random& random, uint32_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        byte = random.byte();
    }
    return bytes;
}

inline SnmpVarBindEMS random_binding(Random& random) {
    constexpr uint8_t types[] = {ASN_INTEGER09, ASN_UINT09,      ASN_IPADDR09,   ASN_COUNTER09,
                                 ASN_GAUGE09,   ASN_TIMETICKS09, ASN_OCTETSTR09, ASN_OCTETSTR09,
                                 ASN_OBJID09,   ASN_NULL09};
    const uint8_t type = types[random.between(0, std::size(types) - 1)];
    const Oid name = random_oid(random);
    switch (type) {
        case ASN_OCTETSTR09: {
            const uint32_t most = random.one_in(8) ? EMS_STRING_MAX : random.one_in(3) ? 260 : 30;
            return string_binding(name, random_bytes(random, random.between(0, most)));
        }
        case ASN_OBJID09:
            return objid_binding(name, random_oid(random));
        case ASN_NULL09:
            return binding(name, type);
        default: {
            const uint32_t value = random.any_size();
            return number_binding(name, type, random.one_in(2) ? value : ~value);
        }
    }
}

inline Trap random_trap(Random& random) {
    Trap trap;
    const uint32_t community = random.one_in(8) ? random.between(0, 127) : random.between(0, 20);
    const Bytes name = random_bytes(random, community);
    set_community(trap, std::string(name.begin(), name.end()));
    set_enterprise(trap, random_oid(random));
    for (uint32_t* field :
         {&trap.info.agent, &trap.info.gen, &trap.info.specific, &trap.info.time}) {
        *field = random.one_in(2) ? random.any_size() : ~random.any_size();
    }
    const uint32_t bindings = random.one_in(10) ? random.between(0, 60) : random.between(0, 6);
    for (uint32_t i = 0; i < bindings; ++i) {
        add(trap, random_binding(random));
    }
    return trap;
}

}  // namespace wq::test

#endif
