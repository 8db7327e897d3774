#include "EMS/events/nl_build_trap.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <wqevents/codec.h>

#include "EMS/events/internal/ber_cursor.h"
#include "EMS/events/internal/build_area.h"
#include "EMS/events/internal/layout.h"

namespace wq {
namespace {

constexpr int32_t snmp_version_1 = 0;

std::span<const SnmpVarBindEMS> bindings_of(const snmp_trap_infoEMS& trap,
                                            const SnmpVarBindEMS* vars) {
    return {vars, static_cast<std::size_t>(std::max(trap.vars, 0))};
}

// ---- stepwise

int fail(const char* text) {
    logger(1, "snmpBuildTrapEMS", "%s", text);
    return -1;
}

// The text of the first field that cannot be written, or null.
const char* build_fields(Area& area, const snmp_trap_infoEMS& trap) {
    const auto number = [](const uint32_t& field) {
        return reinterpret_cast<const int32_t*>(&field);  // NOLINT: the encoders' view of it
    };
    if (!area.put(asnBuildObjid09(area.position, &area.room, trap.enterprise,
                                  checked_length(trap.elen, EMS_OID_MAX)))) {
        return "asnBuildObjid09 failed";
    }
    if (!area.put(asnBuildIpaddressEMS(area.position, &area.room, number(trap.agent), 4))) {
        return "asnBuildInt09 for agent failed";
    }
    if (!area.put(asnBuildInt09(area.position, &area.room, number(trap.gen), 4))) {
        return "asnBuildInt09 for generic failed";
    }
    if (!area.put(asnBuildInt09(area.position, &area.room, number(trap.specific), 4))) {
        return "asnBuildInt09 for specific failed";
    }
    if (!area.put(asnBuildTimeticksEMS(area.position, &area.room, number(trap.time), 4))) {
        return "asnBuildInt09 for time failed";
    }
    return nullptr;
}

bool build_message(Area& message, const snmp_trap_infoEMS& trap, const Area& pdu) {
    const int community_length = checked_length(trap.clen, EMS_COMMUNITY_MAX);
    return message.put(auth_build(message.position, &message.room, trap.community,
                                  &community_length, &snmp_version_1, pdu.length())) &&
           message.append(pdu);
}

// ---- one pass

using ber::write_slop;

// Octets of an identifier item while it is written.
constexpr std::size_t objid_item_room = 2 + ber::objid_room;

constexpr std::size_t max_header = 4;
constexpr std::size_t integer_item_room = 2 + 5 + write_slop;
constexpr std::size_t prefix_room =
    3 * max_header + 3 + max_header + EMS_COMMUNITY_MAX + objid_item_room + 4 * integer_item_room;

// Octets that a binding takes at most while it is written.
std::size_t binding_room(const SnmpVarBindEMS& binding) {
    const std::size_t value = binding.type == ASN_OCTETSTR09
                                  ? max_header + static_cast<std::size_t>(value_length(binding))
                                  : objid_item_room;
    return max_header + objid_item_room + value + write_slop;
}

std::size_t header_octets(std::size_t contents) {
    return 1 + ber::length_octets(static_cast<uint32_t>(contents));
}

// Sizes of contents as they mostly are, with every sub-identifier in one octet. They only decide
// how many octets are left for a header before its contents: close_item() mends what they miss.
std::size_t likely_contents(const SnmpVarBindEMS& binding) {
    constexpr std::size_t item_header = 2;
    const bool has_length = binding.type == ASN_OCTETSTR09 || binding.type == ASN_OBJID09;
    const std::size_t value = has_length ? binding.val_len : 1;
    return item_header + binding.oid_length + item_header + value;
}

struct LikelySizes {
    std::size_t list = 0;
    std::size_t pdu = 0;
    std::size_t message = 0;
};

LikelySizes likely_sizes(const snmp_trap_infoEMS& trap, std::span<const SnmpVarBindEMS> bindings) {
    constexpr std::size_t fields = 6 + 3 + 3 + 4;
    constexpr std::size_t version_and_community = 5;
    constexpr std::size_t longest_header_from = 0x100;  // what is larger has no longer header
    LikelySizes likely;
    for (const SnmpVarBindEMS& binding : bindings) {
        const std::size_t contents = likely_contents(binding);
        likely.list += header_octets(contents) + contents;
        if (likely.list >= longest_header_from) {
            break;
        }
    }
    likely.pdu =
        header_octets(likely.list) + likely.list + static_cast<std::size_t>(trap.elen) + fields;
    likely.message = header_octets(likely.pdu) + likely.pdu + static_cast<std::size_t>(trap.clen) +
                     version_and_community;
    return likely;
}

// Writes the header of a constructed item for whose header `left` octets were left at `header`, and
// returns the item's end, which has moved if the header is longer or shorter.
uint8_t* close_item(uint8_t* header, std::size_t left, uint8_t* end, uint8_t tag) {
    const auto length = static_cast<std::size_t>(end - header) - left;
    const std::size_t needed = header_octets(length);
    if (needed != left) [[unlikely]] {
        std::memmove(header + needed, header + left, length);
    }
    *header = tag;
    ber::put_length(header + 1, static_cast<uint32_t>(length));
    return header + needed + length;
}

uint8_t* put_integer(uint8_t* to, uint8_t tag, uint32_t value, uint32_t octets) {
    *to++ = tag;
    *to++ = static_cast<uint8_t>(octets);
    return ber::put_octets(to, value, octets);
}

uint8_t* put_signed(uint8_t* to, uint8_t tag, uint32_t value) {
    return put_integer(to, tag, value, ber::signed_octets(static_cast<int32_t>(value)));
}

uint8_t* put_string(uint8_t* to, const uint8_t* string, uint32_t length) {
    *to++ = ASN_OCTETSTR09;
    to = ber::put_length(to, length);
    ber::copy_octets(to, string, length);
    return to + length;
}

// Null where the identifier cannot be written, or not with a one-octet length.
uint8_t* put_objid(uint8_t* to, const uint32_t* objid, uint32_t count) {
    constexpr std::ptrdiff_t longest_short_form = 0x7F;
    if (count < 2 || count > EMS_OID_MAX || !ber::first_arc_fits(objid[0]) ||
        !ber::first_arcs_fit(objid[0], objid[1])) {
        return nullptr;
    }
    uint8_t* contents = to + 2;
    uint8_t* end = ber::put_objid_contents(contents, objid, count);
    if (end == nullptr || end - contents > longest_short_form) {
        return nullptr;
    }
    to[0] = ASN_OBJID09;
    to[1] = static_cast<uint8_t>(end - contents);
    return end;
}

uint8_t* put_value(uint8_t* to, const SnmpVarBindEMS& binding) {
    switch (binding.type) {
        case ASN_OCTETSTR09:
            return put_string(to, binding.val.string, static_cast<uint32_t>(value_length(binding)));
        case ASN_OBJID09:
            return put_objid(to, binding.val.objid, binding.val_len);
        case ASN_NULL09:
            *to++ = ASN_NULL09;
            *to++ = 0;
            return to;
        default: {
            const uint32_t octets = ber::integer_octets(binding.val.integer, binding.type);
            if (octets == 0 || binding.val_len != sizeof binding.val.integer) {
                return nullptr;
            }
            return put_integer(to, ber::integer_tag(binding.type),
                               static_cast<uint32_t>(binding.val.integer), octets);
        }
    }
}

uint8_t* put_binding(uint8_t* to, const SnmpVarBindEMS& binding) {
    const std::size_t left = header_octets(likely_contents(binding));
    uint8_t* position = put_objid(to + left, binding.oid, binding.oid_length);
    if (position != nullptr) {
        position = put_value(position, binding);
    }
    return position == nullptr ? nullptr : close_item(to, left, position, ASN_SEQUENCE09);
}

// Appends all bindings; null where one cannot be written or might not fit.
uint8_t* put_bindings(uint8_t* to, const uint8_t* end, std::span<const SnmpVarBindEMS> bindings) {
    for (const SnmpVarBindEMS& binding : bindings) {
        if (static_cast<std::size_t>(end - to) < binding_room(binding)) {
            return nullptr;
        }
        to = put_binding(to, binding);
        if (to == nullptr) {
            return nullptr;
        }
    }
    return to;
}

uint8_t* put_wrapper(uint8_t* to, const snmp_trap_infoEMS& trap) {
    to = put_signed(to, ASN_INTEGER09, static_cast<uint32_t>(snmp_version_1));
    return put_string(to, trap.community, static_cast<uint32_t>(trap.clen));
}

uint8_t* put_fields(uint8_t* to, const snmp_trap_infoEMS& trap) {
    to = put_objid(to, trap.enterprise, static_cast<uint32_t>(trap.elen));
    if (to == nullptr) {
        return nullptr;
    }
    to = put_signed(to, ASN_IPADDR09, trap.agent);
    to = put_signed(to, ASN_INTEGER09, trap.gen);
    to = put_signed(to, ASN_INTEGER09, trap.specific);
    return put_signed(to, ASN_TIMETICKS09, trap.time);
}

}  // namespace

int build_trap_stepwise(std::span<uint8_t> out, const snmp_trap_infoEMS& trap,
                        const SnmpVarBindEMS* vars) {
    std::array<uint8_t, EMS_TRAP_MAX> scratch;
    Area bindings(out);
    for (const SnmpVarBindEMS& binding : bindings_of(trap, vars)) {
        if (!build_binding(bindings, binding)) {
            return fail("build_var_op failed");
        }
    }
    Area list(scratch);
    if (!build_item_around(list, ASN_SEQUENCE09, bindings)) {
        return fail("build_header failed");
    }
    Area contents(out);
    if (const char* text = build_fields(contents, trap); text != nullptr) {
        return fail(text);
    }
    if (!contents.append(list)) {
        return fail("length error");
    }
    Area pdu(scratch);
    if (!build_item_around(pdu, SNMP_TRAP, contents)) {
        return -1;
    }
    Area message(out);
    return build_message(message, trap, pdu) ? message.length() : -1;
}

int build_trap_one_pass(std::span<uint8_t> out, const snmp_trap_infoEMS& trap,
                        const SnmpVarBindEMS* vars) {
    constexpr auto longest_pdu = static_cast<std::ptrdiff_t>(EMS_TRAP_MAX);
    // Longer communities need the outer length that auth_build() gives them.
    const bool plain = trap.clen >= 0 && trap.clen < EMS_COMMUNITY_MAX && trap.elen >= 0 &&
                       out.size() >= prefix_room;
    if (!plain) {
        return -1;
    }
    const std::span<const SnmpVarBindEMS> bindings = bindings_of(trap, vars);
    const LikelySizes likely = likely_sizes(trap, bindings);
    const std::size_t message_left = header_octets(likely.message);
    const std::size_t pdu_left = header_octets(likely.pdu);
    const std::size_t list_left = header_octets(likely.list);

    uint8_t* message = out.data();
    uint8_t* pdu = put_wrapper(message + message_left, trap);
    uint8_t* list = put_fields(pdu + pdu_left, trap);
    if (list == nullptr) {
        return -1;
    }
    uint8_t* end =
        put_bindings(list + list_left, out.data() + out.size() - 3 * max_header, bindings);
    if (end == nullptr) {
        return -1;
    }
    end = close_item(list, list_left, end, ASN_SEQUENCE09);
    end = close_item(pdu, pdu_left, end, SNMP_TRAP);
    if (end - pdu > longest_pdu) {
        return -1;
    }
    end = close_item(message, message_left, end, ASN_SEQUENCE09);
    return static_cast<int>(end - message);
}

}  // namespace wq

int snmpBuildTrapEMS(unsigned char* buf, int* out_length, snmp_trap_infoEMS* sti,
                     event_infoEMS* /*ei*/, SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT {
    constexpr int failure = -2;
    if (buf == nullptr || out_length == nullptr || sti == nullptr ||
        (vars == nullptr && sti->vars > 0)) {
        return failure;
    }
    const std::span out(buf, static_cast<std::size_t>(std::max(*out_length, 0)));
    int length = wq::build_trap_one_pass(out, *sti, vars);
    if (length < 0) {
        length = wq::build_trap_stepwise(out, *sti, vars);
    }
    if (length < 0) {
        return failure;
    }
    *out_length = length;
    return 0;
}
