/*
 * Why a trap does not decode, and whether it is one.
 */
#ifndef WQEVENTS_TOOL_UNDECODABLE_H
#define WQEVENTS_TOOL_UNDECODABLE_H

#include <cstdint>
#include <span>

namespace wq::command {

/*
 * undecodable_reason: the first item of a message that snmp_parse_trap() refused at which the
 * public decoders fail too: a constant text, good as the name of a counter.
 */
const char* undecodable_reason(std::span<const std::uint8_t> message);

/* is_trap_message: whether the message is an SNMPv1 Trap up to the PDU's type, whatever follows. */
bool is_trap_message(std::span<const std::uint8_t> message);

}  // namespace wq::command

#endif
