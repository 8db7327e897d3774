#include "EMS/events/nl_trp_format.h"

#include <wqevents/codec.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "EMS/events/internal/guarded.h"
#include "EMS/events/nl_trp_values.h"

int have_read_mibtxt = 0;
int have_read_mappings = 0;

namespace wq {
namespace {

constexpr int messages = 1;  // the set of the message catalogue
enum Message { cannot_read_mib = 3, mib_updated = 4, format_file_updated = 5 };

constexpr std::size_t host_size = 80;
constexpr std::size_t description_size = 7500;
constexpr int expansion_size = 5000;

// What trp_format() returns beside categories.
constexpr int not_shown = -1;
constexpr int ran_short = -2;
constexpr int load_failed = 2;

// Categories by their numbers.
constexpr int log_only = 7;
constexpr int ignored = 9;

constexpr uint32_t mib_changed = 0x3070027;
constexpr uint32_t configuration_changed = 0x3070026;

struct FormatState {
    std::array<char, host_size> hostmem;  // the name of the last source, for the caller
};

constinit FormatState process_state{};

// Loading what formatting needs.

bool load_mib(TextSink& error) {
    if (have_read_mibtxt != 0) {
        return true;
    }
    have_read_mibtxt = 1;
    if (WQmib_load_mib() == 0) {
        return true;
    }
    const char* const name = WQmib_get_mib_filename();
    const MessageArgument file = message_text(name != nullptr ? name : "");
    append_message(
        error, _eventsMsg(messages, cannot_read_mib, "Cannot read MIB intermediate file '%s'\n"),
        &file, 1);
    return false;
}

bool load_configuration(TextSink& error) {
    if (have_read_vortdconf != 0) {
        return true;
    }
    have_read_vortdconf = 1;
    char* message = nullptr;
    if (read_trapspec_file(&message) == 0) {
        return true;
    }
    error.append(message != nullptr ? message : "");
    return false;
}

struct Free {
    void operator()(char* p) const { std::free(p); }
};

// A file that is missing is looked for again with the next trap.
void load_names() {
    if (have_read_mappings == 0) {
        const std::unique_ptr<char, Free> path(_WQConcatPath(_WQconfDirName("C"), "oid_to_label"));
        have_read_mappings = parseOidFile(path.get()) != nullptr ? 1 : 0;
    }
}

bool load(TextSink& error) {
    if (!load_mib(error) || !load_configuration(error)) {
        return false;
    }
    load_names();
    return true;
}

// Choosing the record.

// In an enterprise whose first record holds for all traps, the first record for the host does.
trap_record* find_catch_all(const enterprise_info& enterprise, const char* hostname) {
    trap_record* record = enterprise.trap_rec_list_head.next;
    if (record == nullptr || record->generic_trap != -1) {
        return nullptr;
    }
    while (record != nullptr && trapRecNodesMatch(record, hostname) == 0) {
        record = record->next;
    }
    return record;
}

trap_record* find_record(enterprise_info& enterprise, int generic, int specific,
                         const char* hostname) {
    trap_record* const exact = findExactTrapRecord(&enterprise, generic, specific, hostname);
    return exact != nullptr ? exact : find_catch_all(enterprise, hostname);
}

struct Choice {
    trap_record* record;
    enterprise_info* enterprise;
};

// The enterprises that cover an identifier follow one another from the most specific one on.
Choice choose(const uint32_t* oid, uint32_t length, int generic, int specific,
              const char* hostname) {
    enterprise_info* enterprise = nullptr;
    find_enterprise(oid, length, &enterprise);
    while (enterprise != nullptr) {
        if (trap_record* const record = find_record(*enterprise, generic, specific, hostname)) {
            return {record, enterprise};
        }
        enterprise = enterprise->next;
        find_enterprise_relative(oid, length, &enterprise);
    }
    return {&default_trap_record, nullptr};
}

// Laying out one trap.

struct Formatting {
    int user;
    snmp_trap_infoEMS& trap;
    SnmpVarBindEMS* vars;
    TextSink description;
    char* host = nullptr;
    std::string_view agent_host = {};  // where the resolver was asked, and its answer fitted
    Choice choice = {};
    int category = -1;

    int bindings() const { return binding_count(trap); }
};

Choice choose(const Formatting& of) {
    const std::span<const uint32_t> enterprise = enterprise_of(of.trap);
    return choose(enterprise.data(), static_cast<uint32_t>(enterprise.size()),
                  static_cast<int>(of.trap.gen), static_cast<int>(of.trap.specific), of.host);
}

// The text of a value, terminated in place.
char* terminated_text(SnmpVarBindEMS& var) {
    var.val.string[std::min<uint32_t>(var.val_len, EMS_STRING_MAX - 1)] = '\0';
    return reinterpret_cast<char*>(var.val.string);
}

// The platform's own events.

bool is_platform_event(const Formatting& of) {
    constexpr int event_bindings = 5;
    return isTrapJW(static_cast<int>(of.trap.gen), static_cast<int>(of.trap.specific),
                    of.trap.enterprise) == 1 &&
           of.bindings() >= event_bindings;
}

// The letter of the application that sent an event.
char application_letter(const SnmpVarBindEMS& application) {
    constexpr std::string_view letters = "ANMTdDSOELtCIaVnsrPGoxmRFc";
    const auto index = static_cast<uint32_t>(application.val.integer) - 1;
    return application.type == ASN_INTEGER09 && index < letters.size() ? letters[index] : 'd';
}

bool is_reload(uint32_t specific) {
    return specific == mib_changed || specific == configuration_changed;
}

// The next trap loads anew; only the daemon tells of it.
bool take_reload(Formatting& of) {
    const bool of_mib = of.trap.specific == mib_changed;
    (of_mib ? have_read_mibtxt : have_read_vortdconf) = 0;
    if (of.user != VORTD_USER) {
        return false;
    }
    of.description.append(
        of_mib ? _eventsMsg(messages, mib_updated, ": MIB file updated.")
               : _eventsMsg(messages, format_file_updated, ": format file updated next format"));
    return true;
}

bool is_display(int user) {
    return user == ZLEEVENT_USER || user == KMEVENTS_USER || user == PRX_USER;
}

int event_category(uint32_t specific) {
    return static_cast<int>(specific >> 16 & 15);
}

// Events that displays leave out where nothing is configured for them.
bool is_hidden(const Formatting& of) {
    constexpr uint32_t display_bit = 1U << 23;
    constexpr int topology = 1;
    constexpr int hidden_application = 3;
    return (of.trap.specific & display_bit) == 0 || (event_category(of.trap.specific) == topology &&
                                                     of.vars[0].val.integer == hidden_application);
}

// An event brings its own text, unless its enterprise is configured by more than the registry's
// arc. False: it is not shown.
bool take_event(Formatting& of) {
    constexpr uint32_t arc_length = 6;  // 1.3.6.1.4.1
    of.host = terminated_text(of.vars[1]);
    of.description.append(terminated_text(of.vars[2]));
    if (is_reload(of.trap.specific) && !take_reload(of)) {
        return false;
    }
    of.choice = choose(of);
    if (of.choice.enterprise != nullptr && of.choice.enterprise->oid_len > arc_length) {
        of.description.cut(0);
        return true;
    }
    if (is_display(of.user) && is_hidden(of)) {
        return false;
    }
    of.category = event_category(of.trap.specific);
    return true;
}

// Other traps.

// The binding of a threshold trap that names the host it was measured at; null for other traps.
SnmpVarBindEMS* threshold_host(const Formatting& of) {
    constexpr int host_binding = 9;
    const bool is_threshold = of.bindings() >= host_binding && of.trap.gen == ENTERPRISE_SPECIFIC &&
                              enterprise_of(of.trap).size() >= threshold_enterprise_length &&
                              is_threshold_enterprise(of.trap.enterprise);
    SnmpVarBindEMS* const host = is_threshold ? &of.vars[host_binding - 1] : nullptr;
    return host != nullptr && host->type == ASN_OCTETSTR09 ? host : nullptr;
}

void take_trap(Formatting& of, FormatState& state) {
    if (SnmpVarBindEMS* const host = threshold_host(of)) {
        of.host = terminated_text(*host);
    } else {
        TextSink name(state.hostmem.data(), state.hostmem.size());
        append_host(name, of.trap.agent);
        of.host = state.hostmem.data();
        of.agent_host = name.room() != 0 ? name.text() : std::string_view();
    }
    of.choice = choose(of);
}

bool is_left_out(const Formatting& of) {
    const int configured = of.choice.record->category_number;
    return configured == ignored ||
           (of.user == ZLEEVENT_USER && (configured == log_only || of.category == log_only));
}

void expand_configured(Formatting& of) {
    of.category = of.choice.record->category_number;
    const std::string_view text = expand({&of.choice.record->description, &of.trap, of.vars,
                                          nullptr, nullptr, nullptr, of.agent_host},
                                         of.description.position(), expansion_size);
    of.description.advance(text.size());
}

int format_trap(Formatting& of, FormatState& state, std::span<char> buffer, time_t logTime) {
    const bool is_event = is_platform_event(of);
    if (!is_event) {
        take_trap(of, state);
    } else if (!take_event(of)) {
        return not_shown;
    }
    const trap_record& record = *of.choice.record;
    of.trap.status = record.status;
    of.trap.target = static_cast<uint32_t>(record.forward);
    if (is_left_out(of)) {
        return not_shown;
    }
    if (of.description.length() == 0) {
        expand_configured(of);
    }
    // An event's letter is its sender's, whatever the record says.
    const char source = is_event ? application_letter(of.vars[0]) : record.source;
    const LineTexts texts = {of.host, logTime != 0 ? logTime : std::time(nullptr), of.category,
                             source};
    return lay_out(of.user, texts, of.description.text(), buffer) ? of.category : ran_short;
}

int load_and_format(int user_module, snmp_trap_infoEMS& sti, std::span<char> area,
                    SnmpVarBindEMS* vars, char*& host_name, time_t log_time) {
    TextSink error(area.data(), area.size());
    if (!load(error)) {
        return load_failed;
    }
    std::array<char, description_size> description;
    Formatting formatting{user_module, sti, vars, {description.data(), description.size()}};
    const int result = format_trap(formatting, process_state, area, log_time);
    if (result != not_shown && result != ran_short) {
        host_name = formatting.host;
    }
    return result;
}

}  // namespace
}  // namespace wq

int trp_format(int user_module, snmp_trap_infoEMS* sti, char* buffer, int max_buffer_len,
               SnmpVarBindEMS* vars, char** host_name, time_t logTime) {
    if (sti == nullptr || buffer == nullptr || host_name == nullptr ||
        (vars == nullptr && wq::binding_count(*sti) != 0)) {
        return wq::not_shown;
    }
    const std::span<char> area(buffer, static_cast<std::size_t>(std::max(max_buffer_len, 0)));
    return wq::guarded(static_cast<int>(wq::load_failed), [&] {
        return wq::load_and_format(user_module, *sti, area, vars, *host_name, logTime);
    });
}

void find_trap_format(const uint32_t* oid, uint32_t len, int generic, int specific,
                      trap_record** rec, enterprise_info** enterprise, const char* hostname) {
    const wq::Choice found = wq::choose(oid, len, generic, specific, hostname);
    if (rec != nullptr) {
        *rec = found.record;
    }
    if (enterprise != nullptr) {
        *enterprise = found.enterprise;
    }
}
