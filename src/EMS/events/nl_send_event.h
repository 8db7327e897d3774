// What sends on a channel, apart from the process-wide state it normally works on.
#pragma once

#include <netinet/in.h>
#include <sys/time.h>

#include <array>
#include <cstdint>

#include <wqevents/channel.h>
#include <wqplatform.h>

// A progress line of the channel, as the platform logs them. A macro, so that the compiler checks
// each format against its arguments.
#define WQ_PROGRESS(...) WQuLogS(84, 2, "events.cat", 1, 0, __VA_ARGS__)

namespace wq {

constexpr snmp_trap_infoEMS first_event_trap() {
    snmp_trap_infoEMS trap{};
    constexpr std::array<uint8_t, 6> community{'p', 'u', 'b', 'l', 'i', 'c'};
    constexpr std::array<uint32_t, 10> enterprise{1, 3, 6, 1, 4, 1, 2, 6, 3, 1};
    for (const uint8_t byte : community) {
        trap.community[trap.clen++] = byte;
    }
    for (const uint32_t number : enterprise) {
        trap.enterprise[trap.elen++] = number;
    }
    trap.time = 1;
    trap.gen = ENTERPRISE_SPECIFIC;
    trap.vars = 5;
    trap.maxvars = 5;
    return trap;
}

struct SendState {
    trap_headerEMS header{0, 0, 0, 0, -1, 0};
    snmp_trap_infoEMS trap = first_event_trap();
    in_addr_t host_address = 0;  // network byte order; 0 until found
    timeval first_event{};       // zero until the first event
};

// The texts of an event, in the order of their bindings; the first `count` bindings are sent, the
// source number included.
struct EventTexts {
    int count;
    const char* host;
    std::array<const char*, 8> texts;  // descr, data, db, selname, ipaddress, ...
};

constexpr int event_bindings = 5;
constexpr int event_ex_bindings = 8;
constexpr int event_ex_ex_bindings = 10;

int send_event(SendState& state, event_infoEMS* ei, int event, const EventTexts& texts);
int send_trap(SendState& state, event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars);
int send_hex_buffer(SendState& state, const event_infoEMS* ei, const unsigned char* bufp,
                    int buflen);

// TimeTicks from `first` to `now`.
uint32_t hundredths_between(const timeval& first, const timeval& now);

// The first IPv4 address of a host, in network byte order. False for a null or unknown name.
bool find_host_address(const char* name, in_addr_t& address);

// `address` and `port` in network byte order.
sockaddr_in inet_address(in_addr_t address, in_port_t port);

}  // namespace wq
