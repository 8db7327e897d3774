#include <wqevents/alerts.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <array>
#include <cstring>

#include "EMS/events/nl_icftime.h"
#include "EMS/events/nl_trp_format.h"
#include "EMS/events/nl_trp_values.h"

namespace wq {
namespace {

constexpr int messages = 1;  // the set of the message catalogue
constexpr int no_such_element = 2;

// Bytes that the rendered arguments of one format may take up, their terminators included.
constexpr std::size_t arguments_size = 40000;
// Beside them, the text of the longest format that the compiler makes, and a terminator.
constexpr std::size_t longest_format = 8188;
constexpr std::size_t expansion_area = arguments_size + longest_format + 1;

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

// A text ends at its first NUL, which agents like to send along.
void end_at_nul(TextSink& sink, std::size_t start) {
    if (const std::size_t nul = sink.text().find('\0', start); nul != std::string_view::npos) {
        sink.cut(nul);
    }
}

void append_value_text(TextSink& sink, const SnmpVarBindEMS& var) {
    const std::size_t start = sink.length();
    append_value(sink, var);
    if (var.type == ASN_OCTETSTR09 || var.type == ASN_OPAQUE09) {
        end_at_nul(sink, start);
    }
}

// A variable that the tree names is told by that name alone, and only by the whole of it.
bool append_variable_name(TextSink& sink, const SnmpVarBindEMS& var) {
    const char* const name = tree_name_of_parent(name_of(var));
    if (name == nullptr) {
        return false;
    }
    const std::string_view text(name);
    if (text.size() <= sink.room()) {
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
    append_value_text(sink, binding.var);
}

void append_name_and_value(TextSink& sink, const Binding& binding) {
    if (!append_variable_name(sink, binding.var)) {
        append_objid(sink, name_of(binding.var), true);
        sink.append(' ');
        append_value_text(sink, binding.var);
    }
}

void append_only_name(TextSink& sink, const Binding& binding) {
    if (!append_variable_name(sink, binding.var)) {
        append_objid(sink, name_of(binding.var), true);
    }
}

void append_described(TextSink& sink, const Binding& binding) {
    constexpr std::size_t least_room = 10;  // terminator included
    sink.append('[');
    sink.append_decimal(binding.number);
    sink.append("] ");
    if (append_variable_name(sink, binding.var)) {
        return;
    }
    append_objid(sink, name_of(binding.var), true);
    if (sink.room() + 1 > least_room) {
        sink.append(" (");
        append_kind(sink, binding.var.type);
        sink.append("): ");
        append_value_text(sink, binding.var);
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
    constexpr std::size_t least_room = 30;                // terminator included
    if (binding.var.type != ASN_INTEGER09) {
        sink.append(" Type not INTEGER, cannot do LANtern time format ");
        append_described(sink, binding);
        return;
    }
    if (sink.room() + 1 >= least_room) {
        const uint32_t seconds =
            static_cast<uint32_t>(binding.var.val.integer) - seconds_before_1970;
        append_local_time(sink, std::time_t{seconds}, "%x %X");
    }
}

void append_alert(TextSink& sink, const Binding& binding) {
    char* const at = sink.position();
    call_formatZYNcp(at, static_cast<int>(sink.room() + 1), &binding.var, binding.count,
                     binding.number - 1);
    sink.advance(std::strlen(at));
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
    const std::size_t start = sink.length();
    append_octets(sink, community_of(*of.trap));
    end_at_nul(sink, start);
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
    for (int number = 1; number <= count && sink.room() != 0; ++number) {
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

// A text in the making. Of what does not fit only the length is known.
class Output {
  public:
    Output(char* area, std::size_t size) : sink_(area, size) {}

    [[nodiscard]] std::size_t length() const { return length_; }
    [[nodiscard]] std::string_view text() const { return sink_.text(); }

    // Appends what stands before the next percent sign, or the rest; gives where that ends. The
    // runs between the tokens of a format are short, so each byte is looked at only once.
    const char* append_run(const char* format) {
        char* const to = sink_.position();
        const std::size_t room = sink_.room();
        std::size_t run = 0;
        for (; format[run] != '\0' && format[run] != '%'; ++run) {
            if (run < room) {
                to[run] = format[run];
            }
        }
        add(run);
        return format + run;
    }
    void append_percent() {
        sink_.append('%');
        ++length_;
    }
    // The arguments share the room that is left for them, their terminators included.
    void append_argument(const Expansion& of, const trap_arg& argument) {
        if (sink_.room() + 1 >= arguments_left_) {
            add(render(sink_.position(), of, argument).size());
        } else {
            append_made_apart(of, argument);
        }
    }

  private:
    std::string_view render(char* to, const Expansion& of, const trap_arg& argument) {
        if (arguments_left_ == 0) {
            return {};
        }
        TextSink text(to, arguments_left_);
        argument_kinds[static_cast<uint32_t>(argument.arg_type)](text, of, argument);
        arguments_left_ -= text.length() + 1;
        return text.text();
    }
    // Behind a format longer than any compiled one there may be less room than an argument has a
    // right to. It is made as if there were, so that its length counts.
    [[gnu::cold, gnu::noinline]] void append_made_apart(const Expansion& of,
                                                        const trap_arg& argument) {
        std::array<char, arguments_size> apart;
        const std::string_view text = render(apart.data(), of, argument);
        sink_.append(text);
        length_ += text.size();
    }
    void add(std::size_t count) {
        sink_.advance(count);
        length_ += count;
    }

    TextSink sink_;
    std::size_t length_ = 0;
    std::size_t arguments_left_ = arguments_size;
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

// A "%s" behind the last argument is empty.
void print_format(Output& output, const Expansion& of) {
    const std::span<const trap_arg> arguments = arguments_of(*of.element);
    const char* at = of.element->format != nullptr ? of.element->format : "";
    for (std::size_t next = 0; *(at = output.append_run(at)) != '\0';) {
        if (at[1] == 's') {
            if (next < arguments.size()) {
                output.append_argument(of, arguments[next++]);
            }
            at += 2;
        } else {
            output.append_percent();
            at += at[1] == '%' ? 2 : 1;
        }
    }
}

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

// The text is made in an area of its own, so that its whole length is known before it goes to where
// it may not fit. A buffer that is as large serves by itself.
std::string_view expand(const Expansion& expansion, char* buf, int size) {
    const auto room = static_cast<std::size_t>(size);
    TextSink sink(buf, room);
    if (const trap_arg* const bad = find_bad_kind(arguments_of(*expansion.element))) {
        return say_bad_kind(sink, bad->arg_type);
    }
    std::array<char, expansion_area> area;
    const bool is_in_place = room > area.size();
    Output output(is_in_place ? buf : area.data(), is_in_place ? room : area.size());
    print_format(output, expansion);
    if (output.length() >= room) {
        return say_too_long(sink, room, output.length());
    }
    if (is_in_place) {
        sink.advance(output.length());
    } else {
        sink.append(output.text());
    }
    return sink.text();
}

}  // namespace wq

void trap_sprintf(char* buf, int size, trap_element* element, snmp_trap_infoEMS* sti,
                  SnmpVarBindEMS* vars, const char* contact, const char* location,
                  const char* description) WQEVENTS_NOEXCEPT {
    if (buf == nullptr || size <= 0 || element == nullptr || sti == nullptr ||
        (vars == nullptr && wq::binding_count(*sti) != 0)) {
        return;
    }
    wq::expand({element, sti, vars, contact, location, description, {}}, buf, size);
}

void format_arg(int arg_num, int arg_type, snmp_trap_infoEMS* sti, char* buffer, int buflen,
                SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT {
    if (buffer == nullptr || buflen <= 0 || sti == nullptr ||
        (vars == nullptr && wq::binding_count(*sti) != 0)) {
        return;
    }
    wq::TextSink sink(buffer, static_cast<std::size_t>(buflen));
    wq::append_binding(sink, arg_num, arg_type, *sti, vars);
}
