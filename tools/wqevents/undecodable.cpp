#include "undecodable.h"

#include <wqevents.h>

#include <array>
#include <climits>

namespace wq::command {
namespace {

/* A place in the message and the bytes left from there. */
struct Cursor {
    const unsigned char* at;
    int left;
};

using Step = bool (*)(Cursor&);

/* Follows a decoder's result: null is a failure, else the place behind the item. */
bool advance(Cursor& cursor, const unsigned char* next) {
    cursor.at = next;
    return next != nullptr;
}

bool skip_message_header(Cursor& cursor) {
    unsigned char community[EMS_COMMUNITY_MAX];
    int length = EMS_COMMUNITY_MAX - 1;
    std::int32_t version = 0;
    return advance(cursor, auth_parse(cursor.at, &cursor.left, community, &length, &version));
}

bool enter_trap(Cursor& cursor) {
    unsigned char type = 0;
    return advance(cursor, asnParseHeader09(cursor.at, &cursor.left, &type)) && type == SNMP_TRAP;
}

bool skip_enterprise(Cursor& cursor) {
    std::uint32_t oid[EMS_OID_MAX];
    int count = EMS_OID_MAX;
    return advance(cursor, asnParseObjid09(cursor.at, &cursor.left, oid, &count));
}

bool skip_agent(Cursor& cursor) {
    std::int32_t agent = 0;
    return advance(cursor, asnParseIntOrIpaddr09(cursor.at, &cursor.left, &agent, sizeof agent));
}

bool skip_integer(Cursor& cursor) {
    std::int32_t value = 0;
    return advance(cursor, asnParseInt09(cursor.at, &cursor.left, &value, sizeof value));
}

struct Item {
    const char* reason;
    Step step;
};

constexpr std::array items = {
    Item{"message header", skip_message_header},
    Item{"not a trap", enter_trap},
    Item{"enterprise", skip_enterprise},
    Item{"agent address", skip_agent},
    Item{"generic trap", skip_integer},
    Item{"specific trap", skip_integer},
    Item{"time stamp", skip_integer},
};

/* The name of a message of a newer version (RFC 1901 3, RFC 3412 6); null for others. */
const char* newer_version(Cursor cursor) {
    unsigned char type = 0;
    std::int32_t version = 0;
    if (!advance(cursor, asnParseHeader09(cursor.at, &cursor.left, &type)) ||
        type != ASN_SEQUENCE09 ||
        !advance(cursor, asnParseInt09(cursor.at, &cursor.left, &version, sizeof version))) {
        return nullptr;
    }
    return version == 1 ? "SNMPv2c message" : version == 3 ? "SNMPv3 message" : nullptr;
}

}  // namespace

const char* undecodable_reason(std::span<const std::uint8_t> message) {
    Cursor cursor{message.data(), static_cast<int>(message.size())};
    if (const char* newer = newer_version(cursor)) {
        return newer;
    }
    for (const Item& item : items) {
        if (!item.step(cursor)) {
            return item.reason;
        }
    }
    return "bindings";
}

bool is_trap_message(std::span<const std::uint8_t> message) {
    Cursor cursor{message.data(), static_cast<int>(message.size())};
    return message.size() <= INT_MAX && skip_message_header(cursor) && enter_trap(cursor);
}

}  // namespace wq::command
