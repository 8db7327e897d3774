/*
 * Whole requests and answers. What decodes and can be encoded again decodes to the same records,
 * but for what is lost on purpose:
 *   - a decoder leaves the octets of addresses in wire order, an encoder takes host numbers;
 *   - a value that does not decode leaves its binding without one;
 *   - bindings beyond the array are counted once and not stored;
 *   - Opaque values and identifiers that start above 2 cannot be encoded.
 */
#include <arpa/inet.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

constexpr int bindings_max = 24;

struct Decoded {
    snmp_info info{};
    std::vector<SnmpVarBindEMS> vars = std::vector<SnmpVarBindEMS>(bindings_max);

    bool decode(const uint8_t* data, int size, int clen, int maxvars) {
        info.clen = clen;
        info.maxvars = maxvars;
        vars.resize(static_cast<size_t>(maxvars));
        vars.shrink_to_fit();
        const int result = snmp_parse(data, size, &info, vars.data());
        require(result == 0 || result == -1);
        return result == 0;
    }
};

void require_in_bounds(const Decoded& message, int clen, int maxvars) {
    require(message.info.clen >= 0 && message.info.clen <= clen);
    require(message.info.community[message.info.clen] == 0);
    require(message.info.vars >= 0 && message.info.vars <= maxvars + 1);
    for (int i = 0; i < std::min(message.info.vars, maxvars); ++i) {
        const SnmpVarBindEMS& var = message.vars[static_cast<size_t>(i)];
        require(var.oid_length <= EMS_OID_MAX);
        require(var.val_len <= (var.type == ASN_OBJID09 ? EMS_OID_MAX : EMS_STRING_MAX));
    }
}

bool lacks_value(const SnmpVarBindEMS& var) {
    return var.type != ASN_NULL09 && var.type != ASN_OCTETSTR09 && var.val_len == 0;
}

void turn_addresses(Decoded& message) {
    for (SnmpVarBindEMS& var : message.vars) {
        if (var.type == ASN_IPADDR09) {
            var.val.integer = static_cast<int32_t>(ntohl(static_cast<uint32_t>(var.val.integer)));
        }
    }
}

bool same_value(const SnmpVarBindEMS& a, const SnmpVarBindEMS& b) {
    if (a.type != b.type || a.val_len != b.val_len) {
        return false;
    }
    switch (a.type) {
        case ASN_NULL09:
            return true;
        case ASN_OCTETSTR09:
            return std::memcmp(a.val.string, b.val.string, a.val_len) == 0;
        case ASN_OBJID09:
            return std::equal(a.val.objid, a.val.objid + a.val_len, b.val.objid);
        default:
            return a.val.integer == b.val.integer;
    }
}

void require_same(const Decoded& sent, const Decoded& received) {
    const snmp_info& a = sent.info;
    const snmp_info& b = received.info;
    require(a.clen == b.clen && std::equal(a.community, a.community + a.clen, b.community));
    require(a.command == b.command && a.reqid == b.reqid);
    require(a.errstat == b.errstat && a.errindex == b.errindex && a.vars == b.vars);
    for (size_t i = 0; i < static_cast<size_t>(a.vars); ++i) {
        const SnmpVarBindEMS& x = sent.vars[i];
        const SnmpVarBindEMS& y = received.vars[i];
        require(x.oid_length == y.oid_length && std::equal(x.oid, x.oid + x.oid_length, y.oid));
        require(same_value(x, y));
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int length = static_cast<int>(size);
    Decoded narrow;
    if (narrow.decode(data, length, 6, 2)) {
        require_in_bounds(narrow, 6, 2);
    }
    Decoded first;
    if (!first.decode(data, length, EMS_COMMUNITY_MAX, bindings_max)) {
        return 0;
    }
    require_in_bounds(first, EMS_COMMUNITY_MAX - 1, bindings_max);
    const auto stored = std::min(first.info.vars, bindings_max);
    if (std::any_of(first.vars.begin(), first.vars.begin() + stored, lacks_value)) {
        return 0;
    }
    first.info.vars = stored;
    turn_addresses(first);
    std::vector<uint8_t> message(2 * EMS_TRAP_MAX);
    int message_length = static_cast<int>(message.size());
    if (snmpBuild09(message.data(), &message_length, &first.info, first.vars.data()) != 0) {
        return 0;
    }
    require(message_length > 0 && message_length <= static_cast<int>(message.size()));
    message.resize(static_cast<size_t>(message_length));
    message.shrink_to_fit();
    Decoded second;
    require(second.decode(message.data(), message_length, EMS_COMMUNITY_MAX, bindings_max));
    turn_addresses(second);
    require_same(first, second);
    return 0;
}
