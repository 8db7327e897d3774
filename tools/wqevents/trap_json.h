/*
 * A received trap as one JSON object.
 */
#ifndef WQEVENTS_TOOL_TRAP_JSON_H
#define WQEVENTS_TOOL_TRAP_JSON_H

#include <string>

#include "received_trap.h"

namespace wq::command {

/* append_json: the object on one line, behind what `out` holds. */
void append_json(std::string& out, const ReceivedTrap& trap);

}  // namespace wq::command

#endif
