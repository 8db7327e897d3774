/*
 * Whole trap messages. What decodes and can be encoded again decodes to the same records, but for
 * what is lost on purpose:
 *   - a decoder leaves the octets of addresses in wire order, an encoder takes host numbers;
 *   - the agent's address and the time stamp travel by the signed rule and are read as unsigned, so
 *     that from 0xff800000 up they lose their leading octets;
 *   - the notification address replaces the agent and is not stored;
 *   - Opaque values and identifiers that start above 2 cannot be encoded; a NULL has no contents.
 */
#include <arpa/inet.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

constexpr int bindings_max = 24;

struct Trap {
    snmp_trap_infoEMS info{};
    std::vector<SnmpVarBindEMS> vars = std::vector<SnmpVarBindEMS>(bindings_max);

    bool decode(const uint8_t* data, int size, int clen, int elen, int maxvars) {
        info.clen = clen;
        info.elen = elen;
        info.maxvars = maxvars;
        const int result = snmp_parse_trap(data, size, &info, nullptr, vars.data());
        require(result == 0 || result == -1);
        return result == 0;
    }
};

void require_in_bounds(const Trap& trap, int clen, int elen, int maxvars) {
    require(trap.info.clen >= 0 && trap.info.clen <= clen);
    require(trap.info.community[trap.info.clen] == 0);
    require(trap.info.elen >= 2 && trap.info.elen <= elen);
    require(trap.info.vars >= 0 && trap.info.vars <= maxvars);
}

bool names_notification_address(const SnmpVarBindEMS& var) {
    return isVellumNotificationAddress(var.oid) == 1;
}

/* Addresses as numbers of the host, for the encoder. */
void turn_addresses(Trap& trap) {
    trap.info.agent = ntohl(trap.info.agent);
    for (SnmpVarBindEMS& var : trap.vars) {
        if (var.type == ASN_IPADDR09) {
            var.val.integer = static_cast<int32_t>(ntohl(static_cast<uint32_t>(var.val.integer)));
        }
    }
}

uint32_t through_signed_rule(uint32_t value) {
    return value < 0xff800000U    ? value
           : value >= 0xffffff80U ? value & 0xffU
           : value >= 0xffff8000U ? value & 0xffffU
                                  : value & 0xffffffU;
}

bool same_value(const SnmpVarBindEMS& a, const SnmpVarBindEMS& b) {
    switch (a.type) {
        case ASN_NULL09:
            return true;
        case ASN_OCTETSTR09:
            return a.val_len == b.val_len &&
                   std::memcmp(a.val.string, b.val.string, a.val_len) == 0;
        case ASN_OBJID09:
            return a.val_len == b.val_len &&
                   std::equal(a.val.objid, a.val.objid + a.val_len, b.val.objid);
        default:
            return a.val_len == b.val_len && a.val.integer == b.val.integer;
    }
}

void require_same(const Trap& sent, const Trap& received) {
    const snmp_trap_infoEMS& a = sent.info;
    const snmp_trap_infoEMS& b = received.info;
    require(a.clen == b.clen && std::equal(a.community, a.community + a.clen, b.community));
    require(a.elen == b.elen && std::equal(a.enterprise, a.enterprise + a.elen, b.enterprise));
    require(through_signed_rule(a.agent) == b.agent && through_signed_rule(a.time) == b.time);
    require(a.gen == b.gen && a.specific == b.specific && a.vars == b.vars);
    for (size_t i = 0; i < static_cast<size_t>(a.vars); ++i) {
        const SnmpVarBindEMS& x = sent.vars[i];
        const SnmpVarBindEMS& y = received.vars[i];
        require(x.oid_length == y.oid_length && std::equal(x.oid, x.oid + x.oid_length, y.oid));
        require(x.type == y.type && same_value(x, y));
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int length = static_cast<int>(size);
    Trap narrow;
    if (narrow.decode(data, length, 6, 12, 2)) {
        require_in_bounds(narrow, 6, 12, 2);
    }
    Trap first;
    if (!first.decode(data, length, EMS_COMMUNITY_MAX, EMS_OID_MAX, bindings_max)) {
        return 0;
    }
    require_in_bounds(first, EMS_COMMUNITY_MAX - 1, EMS_OID_MAX, bindings_max);
    if (std::any_of(first.vars.begin(), first.vars.end(), names_notification_address)) {
        return 0;
    }
    turn_addresses(first);
    std::vector<uint8_t> message(2 * EMS_TRAP_MAX);
    int message_length = static_cast<int>(message.size());
    if (snmpBuildTrapEMS(message.data(), &message_length, &first.info, nullptr,
                         first.vars.data()) != 0) {
        return 0;
    }
    require(message_length > 0 && message_length <= static_cast<int>(message.size()));
    message.resize(static_cast<size_t>(message_length));
    message.shrink_to_fit();
    Trap second;
    require(second.decode(message.data(), message_length, EMS_COMMUNITY_MAX, EMS_OID_MAX,
                          bindings_max));
    turn_addresses(second);
    require_same(first, second);
    return 0;
}
