#include "trap_text.h"

#include <cstdio>

#include "octets.h"
#include "oid_text.h"

namespace wq::command {
namespace {

/* Text in double quotes where it can be shown as it is, else hexadecimal digits. */
std::string octets_text(std::span<const std::uint8_t> octets) {
    if (!is_printable(octets)) {
        return "hex " + to_hex(octets);
    }
    std::string text = "\"";
    for (const char c : to_text(octets)) {
        switch (c) {
            case '\n':
                text += "\\n";
                break;
            case '\r':
                text += "\\r";
                break;
            case '\t':
                text += "\\t";
                break;
            case '"':
            case '\\':
                text += '\\';
                [[fallthrough]];
            default:
                text += c;
        }
    }
    return text + '"';
}

/* "123456 (0 days 0:20:34.56)" */
std::string ticks_text(std::uint32_t ticks) {
    const std::uint32_t seconds = ticks / 100;
    char text[64];
    std::snprintf(text, sizeof text, "%u (%u days %u:%02u:%02u.%02u)", ticks, seconds / 86400,
                  seconds / 3600 % 24, seconds / 60 % 60, seconds % 60, ticks % 100);
    return text;
}

std::string value_text(const SnmpVarBindEMS& binding) {
    const auto number = static_cast<std::uint32_t>(binding.val.integer);
    switch (binding.type) {
        case ASN_INTEGER09:
            return std::to_string(binding.val.integer);
        case ASN_COUNTER09:
        case ASN_GAUGE09:
            return std::to_string(number);
        case ASN_TIMETICKS09:
            return ticks_text(number);
        case ASN_IPADDR09:
            return address_text(number);
        case ASN_OBJID09:
            return oid_to_text(objid_of(binding));
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09:
            return octets_text(string_of(binding));
        default:
            return "";
    }
}

std::string header_text(const std::optional<trap_headerEMS>& header) {
    if (!header) {
        return "none";
    }
    char text[128];
    std::snprintf(text, sizeof text, "len %d, src %u, pid %d, time %d, status %d, target %u",
                  header->len, header->src, header->pid, header->time, header->status,
                  header->target);
    return text;
}

std::string specific_text(std::uint32_t specific) {
    char text[64];
    std::snprintf(text, sizeof text, "%d (0x%08x)", static_cast<std::int32_t>(specific), specific);
    return text;
}

void append_binding(std::string& out, std::size_t number, const SnmpVarBindEMS& binding) {
    const std::string value = value_text(binding);
    out += "  binding " + std::to_string(number) + ": " + oid_to_text(name_of(binding)) + " " +
           std::string(type_name(binding.type)) + (value.empty() ? "" : ": ") + value + "\n";
}

}  // namespace

void append_text(std::string& out, const ReceivedTrap& trap) {
    const auto line = [&out](const char* name, const std::string& value) {
        out.append("  ").append(name).append(": ").append(value).append("\n");
    };
    out.append("trap of ").append(std::to_string(trap.bytes)).append(" bytes by ");
    out.append(trap.transport).append(" from ").append(trap.peer).append("\n");
    line("header", header_text(trap.header));
    line("community", octets_text(community_of(trap.info)));
    line("enterprise", oid_to_text(enterprise_of(trap.info)));
    line("generic", std::to_string(static_cast<std::int32_t>(trap.info.gen)) + " (" +
                        std::string(generic_name(trap.info.gen)) + ")");
    line("specific", specific_text(trap.info.specific));
    line("agent", address_text(trap.info.agent));
    line("time", ticks_text(trap.info.time));
    for (std::size_t i = 0; i < trap.bindings.size(); ++i) {
        append_binding(out, i + 1, trap.bindings[i]);
    }
    out += "\n";
}

}  // namespace wq::command
