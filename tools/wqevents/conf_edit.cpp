#include "conf_edit.h"

#include <unistd.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command.h"
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
    "written.\n";

constexpr const char* values_help =
    "\nSEVERITY is a number or Cleared, Indeterminate, Warning, Minor, Critical, Major. An empty\n"
    "text takes the line away: --exec '', --node ''. --node and --slot may come several times.\n"
    "With --new-enterprise an OID that is not configured is, under that name.\n";

constexpr const char* add_example =
    "\nExample:\n"
    "  wqevents conf add fanFailed --enterprise machineRoom --specific 7 --severity Major \\\n"
    "      --category 'Error Events' --format 'Fan $1 of $A failed'";

constexpr const char* set_example =
    "\nExamples:\n"
    "  wqevents conf set agentLinkDown --severity Critical --node core1 --node core2\n"
    "  wqevents conf set agentLinkDown --exec '' --dry-run";

constexpr const char* delete_example =
    "\nExample:\n"
    "  wqevents conf delete agentLinkDown --no-notify";

constexpr const char* rename_example =
    "\nExample:\n"
    "  wqevents conf rename agentLinkDown linkDown --wait 5";

/* An application of another vendor. */
constexpr std::uint16_t source = 15;

struct EditOptions {
    std::string conf;
    bool dry_run = false;
    bool raw = false;
    bool no_notify = false;
    double wait = 0;
};

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

/* What an edit did to the model. */
struct Done {
    std::string title;                 // "added x"
    std::vector<std::string> details;  // lines below it
    std::string name;                  // of the trap that must be there now; may be empty
    std::vector<ShownValue> wanted;    // its values
    bool leaves_alert = false;         // an alert is configured for a name that is gone
};

/* --- the file --- */

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using LockedFile = std::unique_ptr<std::FILE, CloseStream>;

std::string taken_text(char* text) {
    std::string message = text == nullptr ? "" : text;
    std::free(text);
    if (message.ends_with('\n')) {
        message.pop_back();
    }
    return message;
}

/* Whether it is another's lock that was in the way, which may go. */
bool is_worth_waiting() {
    return access(getVortdConfFile(), R_OK | W_OK) == 0;
}

LockedFile lock(double patience) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause(20);
    const auto end = Clock::now() + std::chrono::duration<double>(patience);
    while (true) {
        char* message = nullptr;
        LockedFile file(lockVortdConfFile(&message));
        const std::string reason = taken_text(message);
        if (file != nullptr) {
            return file;
        }
        if (!is_worth_waiting() || Clock::now() >= end) {
            throw Failure(reason);
        }
        std::this_thread::sleep_for(pause);
    }
}

void write(LockedFile file) {
    if (write_trapspec_file(file.get()) != 0) {
        throw Failure(std::string(getVortdConfFile()).append(" could not be written"));
    }
    // Closed by what wrote it.
    static_cast<void>(file.release());  // NOLINT(bugprone-unused-return-value)
}

void notify() {
    char* message = nullptr;
    if (sendFMTCHGevent("wqevents", source, &message) != 0 && message != nullptr) {
        report(indented(message).append("\n"));
    }
}

/* --- an edit, whatever it does --- */

/*
 * The model becomes what the file will be read as. Reading turns the order of some traps round: it
 * is done twice each time, so that they stand in the file as before.
 */
void verify(const Done& done) {
    const std::vector<ShownValue>& wanted = done.wanted;
    const std::string text = written_form();
    read_back();
    const std::vector<ShownValue> got =
        wanted.empty() ? wanted : shown_values(find_trap(done.name));
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (got[i] != wanted[i]) {
            throw Failure(std::string("the ")
                              .append(wanted[i].name)
                              .append(" would not be read back as it is given: ")
                              .append(command::quoted(wanted[i].text))
                              .append(" as ")
                              .append(command::quoted(got[i].text)));
        }
    }
    require_same_lines(text);
    read_back();
}

void print_done(const Done& done) {
    Output output;
    output.text().append(done.title).append(" in ").append(shown(getVortdConfFile())).append("\n");
    for (const std::string& line : done.details) {
        output.text().append("  ").append(line).append("\n");
    }
    output.flush();
}

void print_difference(const std::string& before, bool raw) {
    const std::string name = shown(getVortdConfFile());
    Output output;
    if (raw) {
        output.pass_raw();
    }
    output.text() = unified_diff({name, before}, {name, written_form()});
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

template <class Change>
void edit(const EditOptions& options, const Change& change) {
    setVortdConfFile(options.conf.c_str());
    LockedFile file = options.dry_run ? nullptr : lock(options.wait);
    load_configuration();
    read_back();
    load_alerts();
    const std::string before = written_form();
    const Done done = change();
    verify(done);
    if (options.dry_run) {
        print_difference(before, options.raw);
        return;
    }
    if (written_form() == before) {
        print_nothing();
        return;
    }
    write(std::move(file));
    print_done(done);
    warn_of_alert(done);
    if (!options.no_notify) {
        notify();
    }
}

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
        if (enterprise != nullptr && enterprise->oid_len == length) {
            throw Failure("the enterprise " + command::quoted(text) +
                          " is configured already, as " +
                          command::quoted(enterprise->enterprise_name));
        }
        insert_enterprise(oid.data(), length, options.new_enterprise->c_str());
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

/* The text in one line. */
std::string in_one_line(const std::string& text) {
    std::string line;
    for (const char c : text) {
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return line;
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
    return {"added " + command::quoted(trap.name), {}, trap.name, shown_values(trap)};
}

Done run_set(const NamedEdit& options) {
    const TrapValues before = find_trap(options.name);
    TrapValues after = before;
    apply(after, options.values);
    check_values(after);
    const std::vector<std::string> lines = differences(before, after);
    replace_trap(options.name, after);
    return {"changed " + command::quoted(options.name), lines, options.name, shown_values(after)};
}

Done run_delete(const NamedEdit& options) {
    find_trap(options.name);
    const bool leaves_alert = has_alert(options.name);
    deleteTrapRecord(options.name.c_str());
    return {"deleted " + command::quoted(options.name), {}, "", {}, leaves_alert};
}

Done run_rename(const NamedEdit& options) {
    TrapValues trap = find_trap(options.name);
    const bool leaves_alert = has_alert(options.name) && options.new_name != options.name;
    trap.name = options.new_name;
    check_values(trap);
    replace_trap(options.name, trap);
    return {"renamed " + command::quoted(options.name) + " to " + command::quoted(trap.name),
            {},
            trap.name,
            shown_values(trap),
            leaves_alert};
}

/* --- the command line --- */

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
    command.add_flag("--no-notify", options.no_notify, "Do not tell the daemon");
}

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
        [options, run] { edit(options->edit, [&options, run] { return run(*options); }); });
    return command;
}

}  // namespace

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
