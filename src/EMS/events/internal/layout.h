/*
 * The records of the channel and the request client lie in memory as programs were built to find
 * them: every field 32 bits wide but for the texts, the type tags and the transport mode.
 */
#ifndef WQEVENTS_INTERNAL_LAYOUT_H
#define WQEVENTS_INTERNAL_LAYOUT_H

#include <wqevents/channel.h>
#include <wqevents/client.h>

#include <cstddef>

namespace wq {

static_assert(sizeof(SnmpVarBindEMS) == 1548);
static_assert(offsetof(SnmpVarBindEMS, val) == 520);
static_assert(offsetof(SnmpVarBindEMS, val_len) == 1544);

static_assert(sizeof(snmp_trap_infoEMS) == 680);
static_assert(offsetof(snmp_trap_infoEMS, enterprise) == 132);
static_assert(offsetof(snmp_trap_infoEMS, agent) == 648);

static_assert(sizeof(event_infoEMS) == 32);
static_assert(offsetof(event_infoEMS, source) == 8);

/* What goes over the wire. */
static_assert(sizeof(trap_headerEMS) == EMS_HEADER_LEN);
static_assert(offsetof(trap_headerEMS, len) == 0);
static_assert(offsetof(trap_headerEMS, src) == 4);
static_assert(offsetof(trap_headerEMS, pid) == 8);
static_assert(offsetof(trap_headerEMS, time) == 12);
static_assert(offsetof(trap_headerEMS, status) == 16);
static_assert(offsetof(trap_headerEMS, target) == 20);

static_assert(sizeof(snmp_info) == 156);
static_assert(offsetof(snmp_info, reqid) == 136);
static_assert(sizeof(snmp_call_info) == 336);
static_assert(offsetof(snmp_call_info, response) == 164);

}  // namespace wq

#endif
