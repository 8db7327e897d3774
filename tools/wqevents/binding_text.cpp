#include "binding_text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>

#include "command.h"
#include "octets.h"
#include "oid_text.h"

namespace wq::command {
namespace {

using std::string_view;

void set_integer(SnmpVarBindEMS& binding, std::int32_t value) {
    binding.val.integer = value;
    binding.val_len = sizeof binding.val.integer;
}

void parse_signed(string_view value, SnmpVarBindEMS& binding) {
    using Limits = std::numeric_limits<std::int32_t>;
    set_integer(binding, static_cast<std::int32_t>(
                             parse_number("value", value, Limits::min(), Limits::max())));
}

void parse_unsigned(string_view value, SnmpVarBindEMS& binding) {
    const auto number = static_cast<std::uint32_t>(
        parse_number("value", value, 0, std::numeric_limits<std::uint32_t>::max()));
    set_integer(binding, static_cast<std::int32_t>(number));
}

void parse_ip_address(string_view value, SnmpVarBindEMS& binding) {
    set_integer(binding, static_cast<std::int32_t>(parse_address("value", value)));
}

void set_octets(SnmpVarBindEMS& binding, std::span<const std::uint8_t> octets) {
    if (octets.size() > EMS_STRING_MAX) {
        throw UsageError("a value has " + std::to_string(octets.size()) + " octets; at most " +
                         std::to_string(EMS_STRING_MAX) + " can be sent");
    }
    std::copy(octets.begin(), octets.end(), binding.val.string);
    binding.val_len = static_cast<std::uint32_t>(octets.size());
}

void parse_string(string_view value, SnmpVarBindEMS& binding) {
    set_octets(binding, {reinterpret_cast<const std::uint8_t*>(value.data()), value.size()});
}

void parse_hex_string(string_view value, SnmpVarBindEMS& binding) {
    const bool prefixed = value.starts_with("0x") || value.starts_with("0X");
    set_octets(binding,
               parse_hex("value " + quoted(value), value.substr(prefixed ? 2 : 0), " \t\n:-"));
}

void parse_decimal_string(string_view value, SnmpVarBindEMS& binding) {
    constexpr string_view separators = " \t\n.";
    Octets octets;
    for (string_view rest = value;;) {
        rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
        if (rest.empty()) {
            break;
        }
        const string_view word = rest.substr(0, rest.find_first_of(separators));
        octets.push_back(static_cast<std::uint8_t>(parse_number("octet", word, 0, 255)));
        rest.remove_prefix(word.size());
    }
    set_octets(binding, octets);
}

void parse_objid(string_view value, SnmpVarBindEMS& binding) {
    const auto oid = parse_oid("value", value);
    std::copy(oid.begin(), oid.end(), binding.val.objid);
    binding.val_len = static_cast<std::uint32_t>(oid.size());
}

void parse_null(string_view /*value*/, SnmpVarBindEMS& binding) {
    binding.val_len = 0;
}

struct TypeLetter {
    string_view letter;
    std::uint8_t type;
    void (*parse)(string_view value, SnmpVarBindEMS& binding);
};

/* SNMPv1 has no unsigned type of its own: u is sent as a Gauge, as the usual tools do. */
constexpr std::array type_letters = {
    TypeLetter{"i", ASN_INTEGER09, parse_signed},
    TypeLetter{"u", ASN_GAUGE09, parse_unsigned},
    TypeLetter{"c", ASN_COUNTER09, parse_unsigned},
    TypeLetter{"g", ASN_GAUGE09, parse_unsigned},
    TypeLetter{"t", ASN_TIMETICKS09, parse_unsigned},
    TypeLetter{"a", ASN_IPADDR09, parse_ip_address},
    TypeLetter{"o", ASN_OBJID09, parse_objid},
    TypeLetter{"s", ASN_OCTETSTR09, parse_string},
    TypeLetter{"x", ASN_OCTETSTR09, parse_hex_string},
    TypeLetter{"d", ASN_OCTETSTR09, parse_decimal_string},
    TypeLetter{"n", ASN_NULL09, parse_null},
};

const TypeLetter& find_letter(string_view letter) {
    for (const TypeLetter& known : type_letters) {
        if (known.letter == letter) {
            return known;
        }
    }
    throw UsageError("type " + quoted(letter) + " is not one of:\n" + type_letters_help);
}

}  // namespace

const char* const type_letters_help =
    "  i INTEGER        u unsigned (Gauge)   c Counter      g Gauge\n"
    "  t TimeTicks      a IpAddress          o OBJECT IDENTIFIER\n"
    "  s string         x hexadecimal string d decimal string, as 10.255.0\n"
    "  n NULL (the value is ignored)";

std::uint32_t parse_address(string_view what, string_view text) {
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        throw UsageError(std::string(what) + " " + quoted(text) +
                         " is not an IPv4 address: write four numbers, as 10.1.2.3");
    }
    return ntohl(address.s_addr);
}

void parse_binding(string_view oid, string_view letter, string_view value,
                   SnmpVarBindEMS& binding) {
    const auto name = parse_oid("binding", oid);
    std::copy(name.begin(), name.end(), binding.oid);
    binding.oid_length = static_cast<std::uint32_t>(name.size());
    const TypeLetter& type = find_letter(letter);
    binding.type = type.type;
    try {
        type.parse(value, binding);
    } catch (const UsageError& error) {
        throw UsageError("binding " + std::string(oid) + ": " + error.what());
    }
}

}  // namespace wq::command
