// What the modules of the formatter share.
#pragma once

#include <wqevents/formatter.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <span>
#include <string_view>

#include "EMS/events/internal/text_sink.h"

namespace wq {

// Bindings that go with a trap. The capacity counts where it is set: a trap that was not received
// may have none.
inline int binding_count(const snmp_trap_infoEMS& trap) {
    const int32_t count = std::max(trap.vars, 0);
    return trap.maxvars > 0 ? std::min(count, trap.maxvars) : count;
}

// The enterprise under which threshold traps come, with the number of sub-identifiers that it
// takes to be one.
inline constexpr uint32_t threshold_enterprise_length = 11;
bool is_threshold_enterprise(const uint32_t* enterprise);

// Appends a text of the message catalogue, "%s" and "%d" replaced by the arguments in their order,
// "%1$s" and "%2$d" by those of their numbers. An argument of the wrong kind, or one that there is
// not, leaves the conversion as it stands: a catalogue never makes the library read what is not
// there.
struct MessageArgument {
    std::string_view text;
    int64_t number;
    bool is_number;
};
inline MessageArgument message_text(std::string_view text) {
    return {text, 0, false};
}
inline MessageArgument message_number(int64_t number) {
    return {{}, number, true};
}
void append_message(TextSink& sink, std::string_view message, const MessageArgument* arguments,
                    std::size_t count);

// trap_sprintf(): the text that it leaves in `buf`.
struct Expansion {
    trap_element* element;
    snmp_trap_infoEMS* trap;
    SnmpVarBindEMS* vars;
    const char* contact;
    const char* location;
    const char* description;
    std::string_view agent_host;  // what the resolver just said; empty: it has not been asked
};
std::string_view expand(const Expansion& expansion, char* buf, int size);

// What goes into a line beside the text of the trap.
struct LineTexts {
    std::string_view host;
    std::time_t when;
    int category;
    char source;
};

// Lays a description out in lines for a kind of caller. False: the buffer ran short.
bool lay_out(int user, const LineTexts& texts, std::string_view description,
             std::span<char> buffer);

}  // namespace wq
