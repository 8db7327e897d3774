#include <wqevents/alerts.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <new>

#include "EMS/events/nl_icftime.h"
#include "EMS/events/nl_trp_format.h"
#include "EMS/events/nl_trp_values.h"

namespace wq {
namespace {

constexpr int messages = 1;  // the set of the message catalogue
constexpr int no_such_element = 2;

// Bytes that the rendered arguments of one format may take up, their terminators included.
constexpr std::size_t arguments_size = 40000;

constexpr std::size_t kinds = ARG_NUM_ZYN + 1;

// "%d" of an unsigned 32-bit field.
void append_signed(TextSink& sink, uint32_t number) {
    sink.append_decimal(static_cast<int32_t>(number));
}

// One binding of a trap, as an argument asks for it.
struct Binding {
    const snmp_trap_infoEMS& trap;
    int number;  // from 1
    int count;
    SnmpVarBindEMS& var;
};

// A variable that the tree names is told by that name alone, and only by the whole of it.
bool append_variable_name(TextSink& sink, const SnmpVarBindEMS& var) {
    const char* const name = tree_name_of_parent(name_of(var));
    if (name == nullptr) {
        return false;
    }
    const std::string_view text(name);
    if (sink.fits(text.size())) {
        sink.append(text);
    }
    return true;
}

// The last sub-identifier, by the name that the tree has for it below the trap's enterprise, else
// in decimal; nothing of an identifier without any.
void append_last_part(TextSink& sink, const snmp_trap_infoEMS& trap,
                      std::span<const uint32_t> oid) {
    if (oid.empty()) {
        return;
    }
    if (const char* const name = tree_name_of_child(enterprise_of(trap), oid.back())) {
        sink.append(name);
    } else {
        append_signed(sink, oid.back());
    }
}

void append_only_value(TextSink& sink, const Binding& binding) {
    append_value(sink, binding.var);
}

void append_name_and_value(TextSink& sink, const Binding& binding) {
    if (!append_variable_name(sink, binding.var)) {
        append_objid(sink, name_of(binding.var), true);
        sink.append(' ');
        append_value(sink, binding.var);
    }
}

void append_only_name(TextSink& sink, const Binding& binding) {
    if (!append_variable_name(sink, binding.var)) {
        append_objid(sink, name_of(binding.var), true);
    }
}

void append_described(TextSink& sink, const Binding& binding) {
    constexpr std::size_t least_room = 10;
    sink.append('[');
    sink.append_decimal(binding.number);
    sink.append("] ");
    if (append_variable_name(sink, binding.var)) {
        return;
    }
    append_objid(sink, name_of(binding.var), true);
    if (sink.fits(least_room)) {
        sink.append(" (");
        append_kind(sink, binding.var.type);
        sink.append("): ");
        append_value(sink, binding.var);
    }
}

void append_as_interval(TextSink& sink, const Binding& binding) {
    append_interval(sink, static_cast<uint32_t>(binding.var.val.integer));
}

void append_last_of_name(TextSink& sink, const Binding& binding) {
    append_last_part(sink, binding.trap, name_of(binding.var));
}

void append_last_of_value(TextSink& sink, const Binding& binding) {
    if (binding.var.type != ASN_OBJID09) {
        sink.append('$');
        sink.append_decimal(binding.number - 1);  // counted from 0 here, as users know the text
        sink.append(" not OBJECT IDENTIFIER");
        return;
    }
    append_last_part(sink, binding.trap, objid_value_of(binding.var));
}

void append_date(TextSink& sink, const Binding& binding) {
    constexpr uint32_t seconds_before_1970 = 2209032000;  // its zero is noon of 31 December 1899
    constexpr std::size_t least_room = 29;                // terminator not included
    if (binding.var.type != ASN_INTEGER09) {
        sink.append(" Type not INTEGER, cannot do LANtern time format ");
        append_described(sink, binding);
        return;
    }
    if (sink.fits(least_room)) {
        const uint32_t seconds =
            static_cast<uint32_t>(binding.var.val.integer) - seconds_before_1970;
        append_local_time(sink, std::time_t{seconds}, "%x %X");
    }
}

void append_alert(TextSink& sink, const Binding& binding) {
    char* const at = sink.position();
    call_formatZYNcp(at, static_cast<int>(sink.room() + 1), &binding.var, binding.count,
                     binding.number - 1);
    const std::size_t length = std::strlen(at);
    sink.advance(length);
    if (sink.room() == 0) {
        sink.refuse();  // it may have been cut
    }
}

using AppendBinding = void (*)(TextSink& sink, const Binding& binding);

// By substitute_arg. A kind without a number describes the binding.
constexpr std::array<AppendBinding, kinds> binding_kinds = {
    append_described,       // $A
    append_described,       // $a
    append_described,       // $C
    append_described,       // $E
    append_described,       // $e
    append_described,       // $G
    append_described,       // $S
    append_described,       // $s
    append_described,       // $c
    append_described,       // $l
    append_described,       // $d
    append_described,       // $T
    append_described,       // $*
    append_only_value,      // $N
    append_described,       // $-N
    append_name_and_value,  // $+N
    append_only_name,       // $=N
    append_last_of_value,   // $IN
    append_last_of_name,    // $iN
    append_as_interval,     // $tN
    append_described,       // $#
    append_date,            // $LN
    append_alert,           // $%N
};

[[gnu::cold, gnu::noinline]] void append_missing(TextSink& sink, int number, int count) {
    sink.append("Format Error: dont have arg #");
    sink.append_decimal(int64_t{number} - 1);
    sink.append(", only ");
    sink.append_decimal(count);
    sink.append(" args\n");
}

void append_binding(TextSink& sink, int number, int kind, const snmp_trap_infoEMS& trap,
                    SnmpVarBindEMS* vars) {
    const int count = binding_count(trap);
    if (number < 1 || number > count) {
        append_missing(sink, number, count);
        return;
    }
    const auto index = static_cast<unsigned>(kind);
    const AppendBinding append = index < kinds ? binding_kinds[index] : append_described;
    append(sink, {trap, number, count, vars[number - 1]});
}

// Arguments of a format.

void append_agent_host(TextSink& sink, const Expansion& of, const trap_arg&) {
    if (!of.agent_host.empty()) {
        sink.append(of.agent_host);
    } else {
        append_host(sink, of.trap->agent);
    }
}

void append_agent_address(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_address(sink, of.trap->agent);
}

void append_community(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_octets(sink, community_of(*of.trap));
}

void append_named_enterprise(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_enterprise(sink, *of.trap, true);
}

void append_numeric_enterprise(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_enterprise(sink, *of.trap, false);
}

void append_generic(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_signed(sink, of.trap->gen);
}

void append_specific(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_signed(sink, of.trap->specific);
}

void append_specific_in_hex(TextSink& sink, const Expansion& of, const trap_arg&) {
    sink.append_hex(of.trap->specific);
}

void append_optional(TextSink& sink, const char* text) {
    if (text != nullptr) {
        sink.append(text);
    }
}

void append_contact(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_optional(sink, of.contact);
}

void append_location(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_optional(sink, of.location);
}

void append_description(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_optional(sink, of.description);
}

void append_time_stamp(TextSink& sink, const Expansion& of, const trap_arg&) {
    append_signed(sink, of.trap->time);
}

void append_all(TextSink& sink, const Expansion& of, const trap_arg&) {
    const int count = binding_count(*of.trap);
    for (int number = 1; number <= count && sink.fits(1); ++number) {
        sink.append(' ');
        append_described(sink, {*of.trap, number, count, of.vars[number - 1]});
        sink.append('\n');
    }
}

void append_count(TextSink& sink, const Expansion& of, const trap_arg&) {
    sink.append_decimal(binding_count(*of.trap));
}

[[gnu::cold, gnu::noinline]] void append_unavailable(TextSink& sink, int number, int count) {
    const std::array<MessageArgument, 2> numbers = {message_number(number), message_number(count)};
    append_message(sink,
                   _eventsMsg(messages, no_such_element,
                              "FMT ERROR: accessing element #%d, only %d available"),
                   numbers.data(), numbers.size());
}

// One for each way to tell a binding, so that its renderer needs no second look-up.
template <AppendBinding append>
void append_numbered(TextSink& sink, const Expansion& of, const trap_arg& argument) {
    const int count = binding_count(*of.trap);
    const int number = argument.arg_num;
    if (number > count) {
        append_unavailable(sink, number, count);
    } else if (number < 1) {
        append_missing(sink, number, count);
    } else {
        append(sink, {*of.trap, number, count, of.vars[number - 1]});
    }
}

using AppendArgument = void (*)(TextSink& sink, const Expansion& of, const trap_arg& argument);

// By substitute_arg.
constexpr std::array<AppendArgument, kinds> argument_kinds = {
    append_agent_host,                       // $A
    append_agent_address,                    // $a
    append_community,                        // $C
    append_named_enterprise,                 // $E
    append_numeric_enterprise,               // $e
    append_generic,                          // $G
    append_specific,                         // $S
    append_specific_in_hex,                  // $s
    append_contact,                          // $c
    append_location,                         // $l
    append_description,                      // $d
    append_time_stamp,                       // $T
    append_all,                              // $*
    append_numbered<append_only_value>,      // $N
    append_numbered<append_described>,       // $-N
    append_numbered<append_name_and_value>,  // $+N
    append_numbered<append_only_name>,       // $=N
    append_numbered<append_last_of_value>,   // $IN
    append_numbered<append_last_of_name>,    // $iN
    append_numbered<append_as_interval>,     // $tN
    append_count,                            // $#
    append_numbered<append_date>,            // $LN
    append_numbered<append_alert>,           // $%N
};

std::span<const trap_arg> arguments_of(const trap_element& element) {
    return {element.arg_list,
            static_cast<std::size_t>(std::clamp(element.num_args, 0, EMS_ARGS_MAX))};
}

// The first argument of a kind that there is no renderer for, or null.
const trap_arg* find_bad_kind(std::span<const trap_arg> arguments) {
    const auto bad = std::find_if(arguments.begin(), arguments.end(), [](const trap_arg& argument) {
        return static_cast<uint32_t>(argument.arg_type) >= kinds;
    });
    return bad != arguments.end() ? &*bad : nullptr;
}

// What takes the parts of a format in their order.
template <class Output>
void print_format(Output& output, const Expansion& of) {
    const std::span<const trap_arg> arguments = arguments_of(*of.element);
    const char* const format = of.element->format != nullptr ? of.element->format : "";
    std::string_view rest(format);
    for (std::size_t next = 0; output.append_run(rest) && !rest.empty();) {
        if (rest.starts_with("%s")) {
            // Behind the last argument it is empty.
            if (next < arguments.size()) {
                output.append_argument(of, arguments[next++]);
            }
            rest.remove_prefix(2);
        } else {
            output.append_percent();
            rest.remove_prefix(rest.starts_with("%%") ? 2 : 1);
        }
    }
}

// How many of eight characters stand before the first percent sign.
std::size_t before_percent(const char* characters) {
    constexpr uint64_t ones = 0x0101010101010101;
    uint64_t word = 0;
    std::memcpy(&word, characters, sizeof word);
    word ^= ones * '%';
    // The lowest byte that is zero has the lowest bit set; those above it may be wrong.
    const uint64_t zeros = (word - ones) & ~word & (ones << 7);
    return static_cast<std::size_t>(std::countr_zero(zeros)) / 8;
}

void append_argument(TextSink& sink, const Expansion& of, const trap_arg& argument) {
    argument_kinds[static_cast<uint32_t>(argument.arg_type)](sink, of, argument);
}

// The text made where it is to stand. That it is the right one is certain only while nothing was
// refused for want of room.
class Placed {
  public:
    explicit Placed(TextSink& sink) : sink_(sink) {}

    // False: it is of no use to go on.
    bool append_run(std::string_view& rest) {
        const char* const end = rest.data() + rest.size();
        const char* from = append_blocks(rest.data(), end);
        if (from != end && *from != '%') {
            from = append_rest(from, end);
        }
        rest = {from, static_cast<std::size_t>(end - from)};
        return !sink_.has_refused();
    }
    void append_percent() { sink_.append('%'); }
    void append_argument(const Expansion& of, const trap_arg& argument) {
        const std::size_t start = sink_.length();
        if (arguments_left_ <= sink_.room()) {
            is_exact_ = false;  // the arguments have less room than there is
            return;
        }
        wq::append_argument(sink_, of, argument);
        arguments_left_ -= sink_.length() - start + 1;
    }
    bool is_exact() const { return is_exact_ && !sink_.has_refused(); }

  private:
    // Eight characters at a time, up to a percent sign or to where there are no more eight.
    const char* append_blocks(const char* from, const char* end) {
        if constexpr (std::endian::native == std::endian::little) {
            char* to = sink_.position();
            char* const last = to + sink_.room();
            for (std::size_t run = 8; run == 8 && end - from >= 8 && last - to >= 8; from += run) {
                std::memcpy(to, from, 8);
                run = before_percent(from);
                to += run;
            }
            sink_.advance(static_cast<std::size_t>(to - sink_.position()));
        }
        return from;
    }
    const char* append_rest(const char* from, const char* end) {
        const char* const percent = std::find(from, end, '%');
        sink_.append({from, static_cast<std::size_t>(percent - from)});
        return percent;
    }

    TextSink& sink_;
    std::size_t arguments_left_ = arguments_size;
    bool is_exact_ = true;
};

// The text whose arguments are made in an area of their own, with the room that they have a right
// to. Of what does not fit only the length is known.
class Measured {
  public:
    Measured(TextSink& sink, char* area) : sink_(sink), area_(area) {}

    [[nodiscard]] std::size_t length() const { return length_; }

    bool append_run(std::string_view& rest) {
        const std::string_view run = rest.substr(0, rest.find('%'));
        add(run);
        rest.remove_prefix(run.size());
        return true;
    }
    void append_percent() { add("%"); }
    // The arguments share the room, their terminators included.
    void append_argument(const Expansion& of, const trap_arg& argument) {
        if (arguments_left_ != 0) {
            TextSink text(area_, arguments_left_);
            wq::append_argument(text, of, argument);
            arguments_left_ -= text.length() + 1;
            add(text.text());
        }
    }

  private:
    void add(std::string_view text) {
        sink_.append(text);
        length_ += text.size();
    }

    TextSink& sink_;
    char* area_;
    std::size_t length_ = 0;
    std::size_t arguments_left_ = arguments_size;
};

std::string_view say_bad_kind(TextSink& sink, int32_t kind) {
    sink.append("bad arg_type:");
    sink.append_decimal(kind);
    sink.append('\n');
    return sink.text();
}

// The parenthesis without a partner is part of the text that users search their logs for.
std::string_view say_too_long(TextSink& sink, std::size_t size, std::size_t length) {
    sink.cut(0);
    sink.append("FMT ERROR: size (");
    sink.append_decimal(static_cast<int64_t>(size));
    sink.append(") exceeded ");
    sink.append_decimal(static_cast<int64_t>(length));
    sink.append(")\n");
    return sink.text();
}

// What a message has at a percent sign: "%d", "%2$s", "%%". Only numbers from 1 to 9 occur: no
// message has more arguments.
struct Conversion {
    std::string_view text;
    char letter = '\0';
    std::size_t argument = 0;  // from 0
    bool is_numbered = false;
};

// `message` begins with a percent sign, or is empty; `next` is the argument that a conversion
// without a number takes.
Conversion read_conversion(std::string_view message, std::size_t next) {
    constexpr std::size_t numbered_size = 4;
    if (message.size() >= numbered_size && message[1] >= '1' && message[1] <= '9' &&
        message[2] == '$') {
        return {message.substr(0, numbered_size), message[3],
                static_cast<std::size_t>(message[1] - '1'), true};
    }
    return {message.substr(0, 2), message.size() > 1 ? message[1] : '\0', next, false};
}

void append_message_argument(TextSink& sink, const MessageArgument& argument) {
    if (argument.is_number) {
        sink.append_decimal(argument.number);
    } else {
        sink.append(argument.text);
    }
}

// What expand() gives if the text may not fit. Without memory for the arguments the text stays as
// it is, up to what did not fit.
[[gnu::cold, gnu::noinline]] std::string_view expand_apart(const Expansion& expansion,
                                                           TextSink& sink, std::size_t room) {
    std::unique_ptr<char[]> area;
    try {
        area = std::make_unique_for_overwrite<char[]>(arguments_size);
    } catch (const std::bad_alloc&) {
        return sink.text();
    }
    sink.cut(0);
    Measured measured(sink, area.get());
    print_format(measured, expansion);
    return measured.length() < room ? sink.text() : say_too_long(sink, room, measured.length());
}

}  // namespace

void append_message(TextSink& sink, std::string_view message, const MessageArgument* arguments,
                    std::size_t count) {
    std::size_t next = 0;
    while (!message.empty()) {
        const std::size_t run = std::min(message.find('%'), message.size());
        sink.append(message.substr(0, run));
        message.remove_prefix(run);
        const Conversion conversion = read_conversion(message, next);
        if (conversion.argument < count &&
            conversion.letter == (arguments[conversion.argument].is_number ? 'd' : 's')) {
            append_message_argument(sink, arguments[conversion.argument]);
            next += conversion.is_numbered ? 0 : 1;
        } else {
            sink.append(conversion.text == "%%" ? "%" : conversion.text);
        }
        message.remove_prefix(conversion.text.size());
    }
}

std::string_view expand(const Expansion& expansion, char* buf, int size) {
    const auto room = static_cast<std::size_t>(size);
    TextSink sink(buf, room);
    if (const trap_arg* const bad = find_bad_kind(arguments_of(*expansion.element))) {
        return say_bad_kind(sink, bad->arg_type);
    }
    Placed placed(sink);
    print_format(placed, expansion);
    return placed.is_exact() ? sink.text() : expand_apart(expansion, sink, room);
}

}  // namespace wq

void trap_sprintf(char* buf, int size, trap_element* element, snmp_trap_infoEMS* sti,
                  SnmpVarBindEMS* vars, const char* contact, const char* location,
                  const char* description) {
    if (buf == nullptr || size <= 0 || element == nullptr || sti == nullptr ||
        (vars == nullptr && wq::binding_count(*sti) != 0)) {
        return;
    }
    wq::expand({element, sti, vars, contact, location, description, {}}, buf, size);
}

void format_arg(int arg_num, int arg_type, snmp_trap_infoEMS* sti, char* buffer, int buflen,
                SnmpVarBindEMS* vars) {
    if (buffer == nullptr || buflen <= 0 || sti == nullptr ||
        (vars == nullptr && wq::binding_count(*sti) != 0)) {
        return;
    }
    wq::TextSink sink(buffer, static_cast<std::size_t>(buflen));
    wq::append_binding(sink, arg_num, arg_type, *sti, vars);
}
