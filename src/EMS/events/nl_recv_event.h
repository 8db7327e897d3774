// What receives from a channel, apart from the process-wide state it normally works on.
#pragma once

#include <array>
#include <cstddef>

#include <wqevents/channel.h>

namespace wq {

// The header and, right behind it, the packet area.
struct RecvState {
    trap_headerEMS header{};
    std::array<unsigned char, EMS_TRAP_MAX> packet{};
};
static_assert(offsetof(RecvState, packet) == EMS_HEADER_LEN);
static_assert(sizeof(RecvState) == EMS_HEADER_LEN + EMS_TRAP_MAX);

int recv_trap(RecvState& state, int sd, unsigned char** buf, int trans, sockaddr_in* from,
              socklen_t* fromlen, trap_headerEMS** th);
int recv_event_hdr(RecvState& state, event_infoEMS* ei, snmp_trap_infoEMS* sti,
                   SnmpVarBindEMS* vars, trap_headerEMS** th);

}  // namespace wq
