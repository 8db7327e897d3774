/*
 * A received trap as lines of text.
 */
#ifndef WQEVENTS_TOOL_TRAP_TEXT_H
#define WQEVENTS_TOOL_TRAP_TEXT_H

#include <string>

#include "received_trap.h"

namespace wq::command {

/* append_text: the lines of the trap and an empty one, behind what `out` holds. */
void append_text(std::string& out, const ReceivedTrap& trap);

}  // namespace wq::command

#endif
