#include "conf_edit.h"

#include <wqevents/configuration.h>
#include <wqevents/formatter.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "conf_lines.h"
#include "conf_model.h"
#include "conf_show.h"
#include "conf_trap.h"
#include "number_option.h"
#include "oid_text.h"
#include "output.h"
#include "shown_text.h"
#include "unified_diff.h"

namespace wq::command {
namespace {

constexpr const char* edit_help =
    "\nThe file is locked, read, changed and written; the daemon is told. The file's comments are\n"
    "lost. A change that the file's reader would not understand is refused before anything is\n"
    "written. --dry-run shows every line that would change, the one with the time among them.\n";

constexpr const char* values_help =
    "\nSEVERITY is a number or Cleared, Indeterminate, Warning, Minor, Critical, Major. An empty\n"
    "text takes the line away: --exec '', --node ''. --node and --slot may come several times.\n"
    "With --new-enterprise an OID that is not configured is, under that name.\n";

constexpr const char* add_example =
    "\nExample:\n"
    "  wqevents conf add doorOpen --enterprise machineRoom --specific 700 --severity Major \\\n"
    "      --category 'Error Events' --format 'Door $1 of $A is open'";

constexpr const char* set_example =
    "\nExamples:\n"
    "  wqevents conf set agentLinkDown --severity Critical --backup\n"
    "  wqevents conf set agentStart --node core1 --node core2\n"
    "  wqevents conf set agentLinkDown --exec '' --dry-run";

constexpr const char* delete_example =
    "\nExample:\n"
    "  wqevents conf delete agentLinkDown --no-notify";

constexpr const char* rename_example =
    "\nExample:\n"
    "  wqevents conf rename agentLinkDown linkDown --wait 5";

/* An application of another vendor. */
constexpr std::uint16_t source = 15;

using Text = std::optional<std::string>;
using Texts = std::optional<std::vector<std::string>>;

/* What is to be changed; each may be left out. */
struct ValueOptions {
    Text enterprise, new_enterprise;
    std::optional<int> generic, specific, status;
    Text severity, category, source;
    Text format, exec, display, event_class, description;
    bool forward = false;
    bool no_forward = false;
    Texts nodes, slots;
};

struct NamedEdit {
    EditOptions edit;
    ValueOptions values;
    std::string name;
    std::string new_name;
};

void notify() {
    char* message = nullptr;
    if (sendFMTCHGevent("wqevents", source, &message) != 0 && message != nullptr) {
        report(indented(message).append("\n"));
    }
}

/* --- an edit, whatever it does --- */

/* What a read of the file loses already, an edit of something else would lose for good. */
void refuse_losses(const std::string& text) {
    constexpr std::size_t longest_format = 4094;
    constexpr std::uint32_t longest_oid = 100;
    for (const ConfLine& line : conf_lines(text)) {
        const bool compiled = line.kind == ConfLineKind::format ||
                              line.kind == ConfLineKind::exec || line.kind == ConfLineKind::display;
        if (compiled && line.argument.size() > longest_format) {
            throw Failure("the text in line " + std::to_string(line.number) +
                          " is longer than 4094 bytes and would be lost");
        }
    }
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        if (e->oid_len > longest_oid) {
            throw Failure("the object identifier of the enterprise " +
                          command::quoted(e->enterprise_name) +
                          " is longer than 100 numbers and would be cut");
        }
    }
}

void require_values(const Done& done) {
    if (done.wanted.empty()) {
        return;
    }
    const std::vector<ShownValue>& wanted = done.wanted;
    const std::vector<ShownValue> got = shown_values(find_trap(done.name));
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (got[i] != wanted[i]) {
            throw Failure(std::string("the ")
                              .append(wanted[i].name)
                              .append(" would not be read back as it is given: ")
                              .append(command::quoted(in_one_line(wanted[i].text)))
                              .append(" as ")
                              .append(command::quoted(in_one_line(got[i].text))));
        }
    }
}

/* The model's text, once it is sure that the reader makes the same model of it. */
std::string verified_text(const Done& done) {
    std::string text = written_text();
    read_back(text);
    require_values(done);
    require_same_text(text);
    return text;
}

void print_done(const Done& done) {
    Output output;
    output.text().append(done.title).append(" in ").append(shown(getVortdConfFile())).append("\n");
    for (const std::string& line : done.details) {
        output.text().append("  ").append(line).append("\n");
    }
    output.flush();
}

void print_nothing() {
    Output output;
    output.text().append("nothing to change in ").append(shown(getVortdConfFile())).append("\n");
    output.flush();
}

void warn_of_alert(const Done& done) {
    if (done.leaves_alert) {
        report(
            "Warning: an alert is still configured for the old name in the alert configuration.\n");
    }
}

}  // namespace

void print_difference(const EditOptions& options, const std::string& before,
                      const std::string& after) {
    const std::string name = shown(getVortdConfFile());
    Output output;
    if (options.raw) {
        output.pass_raw();
    }
    output.text() = unified_diff({name, before}, {name, after});
    output.flush();
}

void store(const EditOptions& options, LockedFile file, const std::string& before,
           const std::string& after) {
    if (options.backup) {
        put_beside(backup_name(), fileno(file.get()), before);
    }
    replace_bytes(file, after);
}

void tell_daemon(const EditOptions& options) {
    if (!options.no_notify) {
        notify();
    }
}

std::string backup_name() {
    return std::string(getVortdConfFile()) + "~";
}

void run_edit(const EditOptions& options, const std::function<Done()>& change) {
    setVortdConfFile(options.conf.c_str());
    LockedFile file = options.dry_run ? nullptr : lock_configuration(options.wait);
    const std::string before =
        options.dry_run ? read_configuration_bytes(getVortdConfFile()) : bytes_of(file);
    load_text(before, getVortdConfFile());
    refuse_losses(before);
    const Done done = change();
    const std::string after = done.changed ? verified_text(done) : before;
    if (options.dry_run) {
        print_difference(options, before, after);
        return;
    }
    if (!done.changed) {
        print_nothing();
        return;
    }
    store(options, std::move(file), before, after);
    print_done(done);
    warn_of_alert(done);
    tell_daemon(options);
}

namespace {

/* --- values --- */

int parse_severity(const std::string& text) {
    constexpr int names = 6;
    for (int number = 0; number < names; ++number) {
        if (CLI::detail::to_lower(severityToString(number)) == CLI::detail::to_lower(text)) {
            return number;
        }
    }
    return static_cast<int>(parse_number("severity", text, 0, names - 1));
}

char parse_source(const std::string& text) {
    if (text.size() != 1 || text[0] <= ' ' || text[0] > '~') {
        throw UsageError("source " + command::quoted(text) + " is not one printable character");
    }
    return text[0];
}

enterprise_info* enterprise_for(const ValueOptions& options) {
    const std::string& text = *options.enterprise;
    if (options.new_enterprise) {
        const std::vector<std::uint32_t> oid = parse_oid("enterprise", text);
        const auto length = static_cast<std::uint32_t>(oid.size());
        enterprise_info* enterprise = nullptr;
        find_enterprise(oid.data(), length, &enterprise);
        const bool is_there = enterprise != nullptr && enterprise->oid_len == length;
        if (is_there && *options.new_enterprise != enterprise->enterprise_name) {
            throw Failure("the enterprise " + command::quoted(text) +
                          " is configured already, as " +
                          command::quoted(enterprise->enterprise_name));
        }
        if (!is_there) {
            insert_enterprise(oid.data(), length, options.new_enterprise->c_str());
        }
    }
    return find_enterprise_like(text);
}

/* An empty text takes the line away. */
void set_text(Text& value, const Text& option) {
    if (option) {
        value = option->empty() ? std::nullopt : option;
    }
}

std::vector<std::string> nodes_of(const std::vector<std::string>& words) {
    return words == std::vector<std::string>{""} ? std::vector<std::string>() : words;
}

std::vector<std::pair<std::string, std::string>> slots_of(const std::vector<std::string>& words) {
    std::vector<std::pair<std::string, std::string>> slots;
    for (const std::string& word : nodes_of(words)) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            throw UsageError("slot " + command::quoted(word) + " is not NAME=VALUE");
        }
        slots.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    return slots;
}

void apply_numbers(TrapValues& trap, const ValueOptions& options) {
    trap.generic = options.generic.value_or(trap.generic);
    trap.specific = options.specific.value_or(trap.specific);
    trap.status = options.status.value_or(trap.status);
    if (options.severity) {
        trap.severity = parse_severity(*options.severity);
    }
    if (options.source) {
        trap.source = parse_source(*options.source);
    }
    if (options.enterprise) {
        trap.enterprise = enterprise_for(options);
    }
    if (options.category) {
        trap.category = find_category(*options.category);
    }
}

void apply(TrapValues& trap, const ValueOptions& options) {
    apply_numbers(trap, options);
    trap.format = options.format.value_or(trap.format);
    trap.description = options.description.value_or(trap.description);
    set_text(trap.exec, options.exec);
    set_text(trap.display, options.display);
    set_text(trap.event_class, options.event_class);
    trap.forward = options.forward || (trap.forward && !options.no_forward);
    if (options.nodes) {
        trap.nodes = nodes_of(*options.nodes);
    }
    if (options.slots) {
        trap.slots = slots_of(*options.slots);
    }
}

std::vector<std::string> differences(const TrapValues& before, const TrapValues& after) {
    const std::vector<ShownValue> old_values = shown_values(before);
    const std::vector<ShownValue> new_values = shown_values(after);
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < old_values.size(); ++i) {
        if (old_values[i] != new_values[i]) {
            lines.push_back(std::string(old_values[i].name)
                                .append(": ")
                                .append(command::quoted(in_one_line(old_values[i].text)))
                                .append(" -> ")
                                .append(command::quoted(in_one_line(new_values[i].text))));
        }
    }
    return lines;
}

/* --- the four --- */

Done run_add(const NamedEdit& options) {
    TrapValues trap;
    trap.name = options.name;
    apply(trap, options.values);
    check_values(trap);
    add_trap(trap);
    return {.title = "added " + command::quoted(trap.name),
            .name = trap.name,
            .wanted = shown_values(trap)};
}

Done run_set(const NamedEdit& options) {
    const TrapValues before = find_trap(options.name);
    TrapValues after = before;
    apply(after, options.values);
    check_values(after);
    const std::vector<std::string> lines = differences(before, after);
    replace_trap(options.name, after);
    return {.title = "changed " + command::quoted(options.name),
            .details = lines,
            .name = options.name,
            .wanted = shown_values(after),
            .changed = !lines.empty()};
}

Done run_delete(const NamedEdit& options) {
    find_trap(options.name);
    const bool leaves_alert = has_alert(options.name);
    deleteTrapRecord(options.name.c_str());
    return {.title = "deleted " + command::quoted(options.name), .leaves_alert = leaves_alert};
}

Done run_rename(const NamedEdit& options) {
    TrapValues trap = find_trap(options.name);
    const bool leaves_alert = has_alert(options.name) && options.new_name != options.name;
    trap.name = options.new_name;
    check_values(trap);
    replace_trap(options.name, trap);
    return {
        .title = "renamed " + command::quoted(options.name) + " to " + command::quoted(trap.name),
        .name = trap.name,
        .wanted = shown_values(trap),
        .leaves_alert = leaves_alert,
        .changed = options.new_name != options.name};
}

/* --- the command line --- */

void add_text_options(CLI::App& command, ValueOptions& values) {
    struct Option {
        const char* name;
        const char* type;
        Text& value;
        const char* help;
    };
    const Option options[] = {
        {"--enterprise", "NAME|OID", values.enterprise, "The trap's enterprise"},
        {"--new-enterprise", "NAME", values.new_enterprise, "The name of one that is new"},
        {"--severity", "SEVERITY", values.severity, "See below"},
        {"--category", "NAME", values.category, "The category"},
        {"--source", "C", values.source, "A character"},
        {"--format", "TEXT", values.format, "The event log format"},
        {"--exec", "TEXT", values.exec, "A command to execute"},
        {"--display", "TEXT", values.display, "A command for the display"},
        {"--class", "C", values.event_class, "The event class"},
        {"--description", "TEXT", values.description, "The description, of one line or more"},
    };
    for (const Option& option : options) {
        command.add_option(option.name, option.value, option.help)->type_name(option.type);
    }
    command.get_option("--new-enterprise")->needs(command.get_option("--enterprise"));
}

/* May come several times, each with one text, which is no list even in brackets. */
void add_list_option(CLI::App& command, const char* name, const char* type, Texts& values,
                     const char* help) {
    const auto take = [&values](const std::vector<std::string>& texts) { values = texts; };
    command.add_option_function<std::vector<std::string>>(name, take, help)
        ->type_name(type)
        ->allow_extra_args(false);
}

void add_number(CLI::App& command, const char* name, std::optional<int>& value, const char* help) {
    command.add_option(name, value, help)
        ->type_name("N")
        ->transform(whole_number(INT_MIN, INT_MAX));
}

void add_value_options(CLI::App& command, ValueOptions& values) {
    add_text_options(command, values);
    add_number(command, "--generic", values.generic, "The generic number");
    add_number(command, "--specific", values.specific, "The specific number");
    add_number(command, "--status", values.status, "The status");
    CLI::Option* forward = command.add_flag("--forward", values.forward, "Forward the trap");
    command.add_flag("--no-forward", values.no_forward, "Do not")->excludes(forward);
    add_list_option(command, "--node", "NODE", values.nodes, "Holds for it only");
    add_list_option(command, "--slot", "NAME=VALUE", values.slots, "A value for the event class");
}

template <class Run>
CLI::App* add_command(CLI::App& conf, const char* name, const char* help, Run run,
                      const std::shared_ptr<NamedEdit>& options) {
    CLI::App* command = conf.add_subcommand(name, help);
    command->add_option("NAME", options->name, "The trap's name")->required()->type_name("");
    add_edit_options(*command, options->edit);
    command->callback(
        [options, run] { run_edit(options->edit, [&options, run] { return run(*options); }); });
    return command;
}

}  // namespace

void add_edit_options(CLI::App& command, EditOptions& options) {
    command.add_option("--conf", options.conf, "The file (default: see wqevents conf check)")
        ->type_name("FILE");
    command.add_option("--wait", options.wait, "Try that long where another has the lock")
        ->type_name("SECONDS")
        ->transform(real_number(0, 86400));
    CLI::Option* dry_run =
        command.add_flag("--dry-run", options.dry_run, "Print the difference; write nothing");
    command.add_flag("--raw", options.raw, "Print it without escapes, as for patch")
        ->needs(dry_run);
    command.add_flag("--backup", options.backup, "Keep the old text as FILE~");
    command.add_flag("--no-notify", options.no_notify, "Do not tell the daemon");
}

void add_conf_edit(CLI::App& conf) {
    const auto added = std::make_shared<NamedEdit>();
    CLI::App* add = add_command(conf, "add", "Configure a further trap", run_add, added);
    add_value_options(*add, added->values);
    for (const char* needed : {"--enterprise", "--specific", "--category", "--format"}) {
        add->get_option(needed)->required();
    }
    add->footer(std::string(edit_help).append(values_help).append(add_example));

    const auto set = std::make_shared<NamedEdit>();
    CLI::App* change = add_command(conf, "set", "Change a trap", run_set, set);
    add_value_options(*change, set->values);
    change->footer(std::string(edit_help).append(values_help).append(set_example));

    const auto deleted = std::make_shared<NamedEdit>();
    add_command(conf, "delete", "Remove a trap", run_delete, deleted)
        ->footer(std::string(edit_help).append(delete_example));

    const auto renamed = std::make_shared<NamedEdit>();
    CLI::App* rename = add_command(conf, "rename", "Give a trap another name", run_rename, renamed);
    rename->add_option("NEW", renamed->new_name, "Its new name")->required()->type_name("");
    rename->footer(std::string(edit_help).append(rename_example));
}

}  // namespace wq::command
