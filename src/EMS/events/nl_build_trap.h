// The two ways in which a trap is encoded. They agree wherever the one-pass way succeeds.
#pragma once

#include <cstdint>
#include <span>

#include <wqevents/channel.h>

namespace wq {

// Item by item on the exported encoders, inside out; logs the reason of a failure. Returns the
// message's length or -1.
int build_trap_stepwise(std::span<uint8_t> out, const snmp_trap_infoEMS& trap,
                        const SnmpVarBindEMS* vars);

// From front to back in one pass. Returns the message's length, or -1 where the message cannot be
// encoded, might not fit, or needs the care of the stepwise way.
int build_trap_one_pass(std::span<uint8_t> out, const snmp_trap_infoEMS& trap,
                        const SnmpVarBindEMS* vars);

}  // namespace wq
