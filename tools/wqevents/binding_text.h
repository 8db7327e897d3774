/*
 * Variable bindings as the command line gives them: an object identifier, a type letter and a
 * value.
 */
#ifndef WQEVENTS_TOOL_BINDING_TEXT_H
#define WQEVENTS_TOOL_BINDING_TEXT_H

#include <wqevents.h>

#include <string_view>

namespace wq::command {

/* The type letters with what they mean, one a line, for help and manual. */
extern const char* const type_letters_help;

/*
 * parse_binding: fills `binding` to be sent. The letters are those of the usual SNMP tools. What
 * cannot be is a UsageError.
 */
void parse_binding(std::string_view oid, std::string_view letter, std::string_view value,
                   SnmpVarBindEMS& binding);

/* parse_address: the IPv4 address of `text`, four numbers, as a number of the host. */
std::uint32_t parse_address(std::string_view what, std::string_view text);

}  // namespace wq::command

#endif
