#include "EMS/events/nl_trp_values.h"

#include <wqevents/codec.h>
#include <wqevents/formatter.h>
#include <wqevents/names.h>
#include <wqplatform.h>

#include <sys/socket.h>

#include <array>

#include "EMS/events/internal/labels.h"

namespace wq {
namespace {

constexpr std::array<std::string_view, 6> severity_names = {"Cleared", "Indeterminate", "Warning",
                                                            "Minor",   "Critical",      "Major"};

// Characters: where fewer fit, a type's name is left out altogether.
constexpr std::size_t kind_room = 29;

std::string_view kind_name(uint8_t type) {
    switch (type) {
        case ASN_INTEGER09:
            return "Integer";
        case ASN_OCTETSTR09:
            return "OctetString";
        case ASN_NULL09:
            return "Empty";
        case ASN_OBJID09:
            return "ObjectIdentifier";
        case ASN_IPADDR09:
            return "IpAddress";
        case ASN_COUNTER09:
            return "Counter";
        case ASN_GAUGE09:
            return "Gauge";
        case ASN_TIMETICKS09:
            return "Ticks";
        case ASN_OPAQUE09:
            return "Opaque";
        default:
            return {};
    }
}

// A name is shown whole or not at all.
void append_whole(TextSink& sink, const char* name) {
    const std::string_view text = name;
    if (sink.fits(text.size())) {
        sink.append(text);
    }
}

void append_integer(TextSink& sink, const SnmpVarBindEMS& var) {
    const char* name = tree_name_of_child(name_of(var), static_cast<uint32_t>(var.val.integer));
    if (name != nullptr) {
        append_whole(sink, name);
    } else {
        sink.append_decimal(var.val.integer);
    }
}

void append_objid_value(TextSink& sink, const SnmpVarBindEMS& var) {
    const std::span<const uint32_t> value = objid_value_of(var);
    if (const char* name = tree_name_of_parent(value)) {
        append_whole(sink, name);
    } else {
        append_objid(sink, value, true);
    }
}

}  // namespace

const char* tree_name(std::span<const uint32_t> oid) {
    return find_label(oidTree, oid);
}

const char* tree_name_of_parent(std::span<const uint32_t> oid) {
    return oid.empty() ? nullptr : find_label(oidTree, oid.first(oid.size() - 1));
}

const char* tree_name_of_child(std::span<const uint32_t> oid, uint32_t last) {
    return find_label_below(oidTree, oid, last);
}

void append_address(TextSink& sink, uint32_t address) {
    std::array<uint8_t, sizeof address> octets;
    std::memcpy(octets.data(), &address, sizeof address);
    for (std::size_t i = 0; i < octets.size(); ++i) {
        if (i != 0) {
            sink.append('.');
        }
        sink.append_decimal(octets[i]);
    }
}

void append_host(TextSink& sink, uint32_t address) {
    const hostent* host = gethostbyaddr_new(&address, sizeof address, AF_INET);
    if (host != nullptr && host->h_name != nullptr) {
        sink.append(host->h_name);
    } else {
        append_address(sink, address);
    }
}

void append_value(TextSink& sink, const SnmpVarBindEMS& var) {
    switch (var.type) {
        case ASN_INTEGER09:
            append_integer(sink, var);
            break;
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09:
            append_octets(sink, string_value_of(var));
            break;
        case ASN_NULL09:
            break;
        case ASN_OBJID09:
            append_objid_value(sink, var);
            break;
        case ASN_IPADDR09:
            append_host(sink, static_cast<uint32_t>(var.val.integer));
            break;
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
            sink.append_decimal(static_cast<uint32_t>(var.val.integer));
            break;
        default:
            sink.append("Unknown ASN.1 type: ");
            sink.append_decimal(var.type);
    }
}

void append_kind(TextSink& sink, uint8_t type) {
    if (!sink.fits(kind_room)) {
        return;
    }
    const std::string_view name = kind_name(type);
    if (!name.empty()) {
        sink.append(name);
        return;
    }
    sink.append("Unknown type: ");
    sink.append_decimal(type);
    sink.append(' ');
}

void append_enterprise(TextSink& sink, const snmp_trap_infoEMS& trap, bool by_name) {
    const std::span<const uint32_t> oid = enterprise_of(trap);
    if (by_name) {
        const char* name = tree_name(oid);
        if (name != nullptr && sink.fits(std::strlen(name))) {
            sink.append(name);
            return;
        }
        const std::string_view configured = configured_name(oid);
        if (configured.data() != nullptr && sink.fits(configured.size() + 1)) {
            sink.append(configured);
            return;
        }
    }
    append_objid(sink, oid, by_name);
}

}  // namespace wq

void formatValue(char* buf, int buflen, SnmpVarBindEMS* var) {
    if (buf != nullptr && buflen > 0 && var != nullptr) {
        wq::TextSink sink(buf, static_cast<std::size_t>(buflen));
        wq::append_value(sink, *var);
    }
}

void formatKind(char* buf, int buflen, SnmpVarBindEMS* var) {
    if (buf != nullptr && buflen > 0 && var != nullptr) {
        wq::TextSink sink(buf, static_cast<std::size_t>(buflen));
        wq::append_kind(sink, var->type);
    }
}

void formatEnterprise(char* buf, int buflen, snmp_trap_infoEMS* sti, int as_string) {
    if (buf != nullptr && buflen > 0 && sti != nullptr) {
        wq::TextSink sink(buf, static_cast<std::size_t>(buflen));
        wq::append_enterprise(sink, *sti, as_string != 0);
    }
}

void formatCommunity(char* buf, int buflen, snmp_trap_infoEMS* sti) {
    if (buf != nullptr && buflen > 0 && sti != nullptr) {
        wq::TextSink sink(buf, static_cast<std::size_t>(buflen));
        wq::append_octets(sink, wq::community_of(*sti));
    }
}

int stringToSeverity(const char* name) {
    if (name == nullptr) {
        return 0;
    }
    const auto& names = wq::severity_names;
    const auto* found = std::find(names.begin(), names.end(), std::string_view(name));
    return found == names.end() ? 0 : static_cast<int>(found - names.begin());
}

const char* severityToString(int number) {
    const auto& names = wq::severity_names;
    if (number < 0 || number >= static_cast<int>(names.size())) {
        return "Unknown";
    }
    return names[static_cast<std::size_t>(number)].data();
}
