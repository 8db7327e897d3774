// The packaged peer, net-snmp, loaded at run time with its own names to itself.
#pragma once

#include <dlfcn.h>
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "messages.h"

namespace wq::bench {

struct NetSnmp {
    void* library = dlopen("libnetsnmp.so", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    decltype(&::snmp_build) build = symbol<decltype(&::snmp_build)>("snmp_build");
    decltype(&::snmp_parse) parse = symbol<decltype(&::snmp_parse)>("snmp_parse");
    decltype(&::snmp_pdu_create) pdu_create =
        symbol<decltype(&::snmp_pdu_create)>("snmp_pdu_create");
    decltype(&::snmp_free_pdu) free_pdu = symbol<decltype(&::snmp_free_pdu)>("snmp_free_pdu");
    decltype(&::snmp_sess_init) sess_init = symbol<decltype(&::snmp_sess_init)>("snmp_sess_init");
    decltype(&::snmp_pdu_add_variable) add_variable =
        symbol<decltype(&::snmp_pdu_add_variable)>("snmp_pdu_add_variable");

    template <typename Function>
    Function symbol(const char* name) const {
        void* address = library == nullptr ? nullptr : dlsym(library, name);
        if (address == nullptr) {
            std::fprintf(stderr, "net-snmp: %s is missing; install libsnmp-dev\n", name);
            std::exit(1);
        }
        return reinterpret_cast<Function>(address);
    }
};

inline const NetSnmp& net_snmp() {
    static const NetSnmp peer;
    return peer;
}

inline void add_binding(netsnmp_pdu* pdu, const SnmpVarBindEMS& binding) {
    const std::vector<oid> name(binding.oid, binding.oid + binding.oid_length);
    const auto number = [&](auto value) {
        net_snmp().add_variable(pdu, name.data(), name.size(), binding.type, &value, sizeof value);
    };
    switch (binding.type) {
        case ASN_OCTETSTR09:
            net_snmp().add_variable(pdu, name.data(), name.size(), binding.type, binding.val.string,
                                    binding.val_len);
            break;
        case ASN_OBJID09: {
            const std::vector<oid> value(binding.val.objid, binding.val.objid + binding.val_len);
            net_snmp().add_variable(pdu, name.data(), name.size(), binding.type, value.data(),
                                    value.size() * sizeof(oid));
            break;
        }
        case ASN_INTEGER09:
            number(static_cast<long>(binding.val.integer));
            break;
        case ASN_IPADDR09:
            number(__builtin_bswap32(static_cast<uint32_t>(binding.val.integer)));
            break;
        default:
            number(static_cast<unsigned long>(static_cast<uint32_t>(binding.val.integer)));
    }
}

// A PDU ready to be built over and over; it lives as long as the process.
inline netsnmp_pdu* make_pdu(const Message& message) {
    netsnmp_pdu* pdu = net_snmp().pdu_create(SNMP_MSG_TRAP);
    pdu->version = SNMP_VERSION_1;
    const auto count = static_cast<std::size_t>(message.trap.elen);
    pdu->enterprise = static_cast<oid*>(std::calloc(count, sizeof(oid)));
    std::copy_n(message.trap.enterprise, count, pdu->enterprise);
    pdu->enterprise_length = count;
    const uint32_t agent = __builtin_bswap32(message.trap.agent);
    std::memcpy(pdu->agent_addr, &agent, sizeof agent);
    pdu->trap_type = static_cast<long>(message.trap.gen);
    pdu->specific_type = static_cast<long>(message.trap.specific);
    pdu->time = message.trap.time;
    for (const SnmpVarBindEMS& binding : message.vars) {
        add_binding(pdu, binding);
    }
    return pdu;
}

inline netsnmp_session& session() {
    static netsnmp_session session = [] {
        static unsigned char community[] = "public";
        netsnmp_session fresh;
        net_snmp().sess_init(&fresh);
        fresh.version = SNMP_VERSION_1;
        fresh.community = community;
        fresh.community_len = sizeof community - 1;
        return fresh;
    }();
    return session;
}

}  // namespace wq::bench
