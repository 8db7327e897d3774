#include "trap_json.h"

#include <nlohmann/json.hpp>

#include "json_line.h"
#include "octets.h"
#include "oid_text.h"

namespace wq::command {
namespace {

/* Members keep the order in which they are written. */
using Json = nlohmann::ordered_json;

/* JSON holds text only: other octets are null here and told by their digits. */
Json text_or_null(std::span<const std::uint8_t> octets) {
    return is_printable(octets) ? Json(to_text(octets)) : Json(nullptr);
}

void add_value(Json& object, const SnmpVarBindEMS& binding) {
    const auto number = static_cast<std::uint32_t>(binding.val.integer);
    Json& value = object["value"];
    switch (binding.type) {
        case ASN_INTEGER09:
            value = binding.val.integer;
            break;
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
            value = number;
            break;
        case ASN_IPADDR09:
            value = address_text(number);
            break;
        case ASN_OBJID09:
            value = oid_to_text(objid_of(binding));
            break;
        case ASN_OCTETSTR09:
        case ASN_OPAQUE09:
            value = text_or_null(string_of(binding));
            object["hex"] = to_hex(string_of(binding));
            break;
        default:
            break;
    }
}

Json binding_json(const SnmpVarBindEMS& binding) {
    Json object;
    object["oid"] = oid_to_text(name_of(binding));
    object["type"] = type_name(binding.type);
    add_value(object, binding);
    return object;
}

Json header_json(const std::optional<trap_headerEMS>& header) {
    if (!header) {
        return nullptr;
    }
    return {{"len", header->len},   {"src", header->src},       {"pid", header->pid},
            {"time", header->time}, {"status", header->status}, {"target", header->target}};
}

}  // namespace

void append_json(std::string& out, const ReceivedTrap& trap) {
    Json object;
    object["transport"] = trap.transport;
    object["peer"] = trap.peer;
    object["bytes"] = trap.bytes;
    object["header"] = header_json(trap.header);
    object["community"] = text_or_null(community_of(trap.info));
    if (object["community"].is_null()) {
        object["community_hex"] = to_hex(community_of(trap.info));
    }
    object["enterprise"] = oid_to_text(enterprise_of(trap.info));
    object["generic"] = static_cast<std::int32_t>(trap.info.gen);
    object["specific"] = static_cast<std::int32_t>(trap.info.specific);
    object["agent"] = address_text(trap.info.agent);
    object["time"] = trap.info.time;
    Json& bindings = object["bindings"] = Json::array();
    for (const SnmpVarBindEMS& binding : trap.bindings) {
        bindings.push_back(binding_json(binding));
    }
    out += json_line(object);
}

}  // namespace wq::command
