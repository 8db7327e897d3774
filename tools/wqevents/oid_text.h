/*
 * Object identifiers as dotted numbers.
 */
#ifndef WQEVENTS_TOOL_OID_TEXT_H
#define WQEVENTS_TOOL_OID_TEXT_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wq::command {

/*
 * parse_oid: the sub-identifiers of "1.3.6.1" or ".1.3.6.1". Anything that cannot be encoded (X.690
 * 8.19, at most 128 sub-identifiers and 128 octets) is a UsageError in which `what` names it.
 */
std::vector<std::uint32_t> parse_oid(std::string_view what, std::string_view text);

/* oid_to_text: "1.3.6.1". */
std::string oid_to_text(std::span<const std::uint32_t> oid);

}  // namespace wq::command

#endif
