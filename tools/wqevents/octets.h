/*
 * Octet strings as text and as hexadecimal digits.
 */
#ifndef WQEVENTS_TOOL_OCTETS_H
#define WQEVENTS_TOOL_OCTETS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wq::command {

using Octets = std::vector<std::uint8_t>;

/*
 * is_printable: whether the octets are well-formed UTF-8 without control characters other than tab,
 * newline and carriage return. Only such text goes to a terminal as it is.
 */
bool is_printable(std::span<const std::uint8_t> octets);

/* to_text: the octets as they are. */
std::string to_text(std::span<const std::uint8_t> octets);

/* to_hex: "0a ff 00". */
std::string to_hex(std::span<const std::uint8_t> octets);

/*
 * parse_hex: the octets of hexadecimal digits, two an octet. Between octets any of `separators` may
 * stand. A UsageError says what is wrong; `what` names the text in it.
 */
Octets parse_hex(std::string_view what, std::string_view text, std::string_view separators);

}  // namespace wq::command

#endif
