/*
 * wqevents get, next, set, walk: asks an SNMPv1 agent for variables, or sets them.
 */
#include <unistd.h>
#include <wqplatform.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>

#include "agent.h"
#include "binding_text.h"
#include "command.h"
#include "input_file.h"
#include "number_option.h"
#include "octets.h"
#include "oid_text.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

using Clock = std::chrono::steady_clock;
using Bindings = std::vector<SnmpVarBindEMS>;
using Words = std::vector<std::string>;

constexpr const char* agent_help =
    "\nHOST is an IPv4 address or a name. Without PORT it is that of WQSNMPPORT, else 161. OID is\n"
    "dotted numbers. Each variable is printed as NAME = TYPE: VALUE; the names are those of the\n"
    "MIB, where WQMIBFILE names one. The exit status is 1 when the agent does not answer or\n"
    "refuses; the message tells which binding it refuses.\n"
    "\n"
    "Examples:\n";

struct RequestOptions {
    AgentOptions agent;
    Words arguments;
};

/* What formatValue() makes of 1024 octets is shorter. */
constexpr std::size_t value_room = 8192;
constexpr std::size_t name_room = 2048; /* of sprint__objid() */

void load_names() {
    refuse_special_file(WQmib_get_mib_filename());
    if (WQmib_load_mib() != 0) {
        throw Failure("cannot read the MIB file " + quoted(WQmib_get_mib_filename()));
    }
}

std::string name_of(const SnmpVarBindEMS& binding) {
    std::array<char, name_room> name{};
    sprint__objid(name.data(), binding.oid, static_cast<int>(binding.oid_length));
    return shown(name.data());
}

std::string kind_of(SnmpVarBindEMS& binding) {
    std::array<char, 64> kind{};
    formatKind(kind.data(), static_cast<int>(kind.size()), &binding);
    return kind.data();
}

std::span<const std::uint8_t> octets_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/* Whatever an agent sends, a value stays on its line and does nothing to a terminal. */
std::string one_line(std::string_view text) {
    if (!is_printable(octets_of(text))) {
        return "0x" + to_hex(octets_of(text));
    }
    std::string line;
    for (const char c : text) {
        switch (c) {
            case '\n':
                line += "\\n";
                break;
            case '\r':
                line += "\\r";
                break;
            case '\t':
                line += "\\t";
                break;
            default:
                line += c;
        }
    }
    return line;
}

std::string value_of(SnmpVarBindEMS& binding) {
    std::array<char, value_room> value{};
    formatValue(value.data(), static_cast<int>(value.size()), &binding);
    return one_line(value.data());
}

void print(SnmpVarBindEMS& binding, Output& output) {
    output.text()
        .append(name_of(binding))
        .append(" = ")
        .append(kind_of(binding))
        .append(": ")
        .append(value_of(binding))
        .append("\n");
}

void set_name(SnmpVarBindEMS& binding, std::string_view text) {
    const auto oid = parse_oid("OID", text);
    std::copy(oid.begin(), oid.end(), binding.oid);
    binding.oid_length = static_cast<std::uint32_t>(oid.size());
}

Bindings named_bindings(const Words& arguments) {
    Bindings bindings(arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        set_name(bindings[i], arguments[i]);
    }
    return bindings;
}

Bindings valued_bindings(const Words& arguments) {
    if (arguments.size() % 3 != 0) {
        throw UsageError("variables are set as OID TYPE VALUE; there are " +
                         std::to_string(arguments.size()) + " arguments");
    }
    Bindings bindings(arguments.size() / 3);
    for (std::size_t i = 0; i < bindings.size(); ++i) {
        parse_binding(arguments[3 * i], arguments[3 * i + 1], arguments[3 * i + 2], bindings[i]);
    }
    return bindings;
}

/* What one request brought is printed before the next one may fail. */
void request_all(const AgentOptions& options, Agent::Call call, Bindings bindings) {
    load_names();
    Agent agent(options);
    Output output;
    for (std::size_t done = 0; done < bindings.size(); done += request_bindings) {
        const std::size_t count = std::min(request_bindings, bindings.size() - done);
        for (SnmpVarBindEMS& binding :
             agent.request(call, std::span(bindings).subspan(done, count), done)) {
            print(binding, output);
        }
        output.flush();
    }
}

/*
 * How far a walk is, on a line that is rewritten. It is shown on a terminal that the variables do
 * not go to themselves.
 */
class WalkProgress {
  public:
    WalkProgress() : shown_(isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) != 1) {}
    ~WalkProgress() {
        if (shown_) {
            report_progress("");
        }
    }
    WalkProgress(const WalkProgress&) = delete;
    WalkProgress& operator=(const WalkProgress&) = delete;

    void count(const SnmpVarBindEMS& binding) {
        ++count_;
        if (shown_ && Clock::now() >= next_) {
            report_progress(line(binding));
            next_ = Clock::now() + std::chrono::milliseconds(250);
        }
    }

  private:
    std::string line(const SnmpVarBindEMS& binding) const {
        const std::chrono::duration<double> elapsed = Clock::now() - start_;
        char text[64];
        std::snprintf(text, sizeof text, "%llu variables in %.1f s, at ", count_, elapsed.count());
        return text + oid_to_text({binding.oid, binding.oid_length});
    }

    bool shown_;
    unsigned long long count_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

using Oid = std::span<const std::uint32_t>;

Oid oid_of(const SnmpVarBindEMS& binding) {
    return {binding.oid, binding.oid_length};
}

bool is_below(Oid oid, Oid root) {
    return oid.size() > root.size() && std::equal(root.begin(), root.end(), oid.begin());
}

/* An agent that answers with what came before would be asked for ever. */
void check_increasing(const Agent& agent, Oid before, Oid found) {
    if (!std::lexicographical_compare(before.begin(), before.end(), found.begin(), found.end())) {
        throw Failure(agent.place() + ": the agent does not go on: behind " + oid_to_text(before) +
                      " it answers with " + oid_to_text(found));
    }
}

void walk(Agent& agent, const SnmpVarBindEMS& root, Output& output, WalkProgress& progress) {
    SnmpVarBindEMS at = root;
    bool found = false;
    for (;;) {
        SnmpVarBindEMS* const next = agent.next(at);
        if (next == nullptr) {
            break;
        }
        check_increasing(agent, oid_of(at), oid_of(*next));
        if (!is_below(oid_of(*next), oid_of(root))) {
            break;
        }
        found = true;
        print(*next, output);
        output.flush();
        progress.count(*next);
        std::copy_n(next->oid, next->oid_length, at.oid);
        at.oid_length = next->oid_length;
    }
    if (!found) {
        throw Failure(agent.place() + ": nothing is below " + oid_to_text(oid_of(root)));
    }
}

void walk_all(const AgentOptions& options, const Bindings& roots) {
    load_names();
    Agent agent(options);
    Output output;
    WalkProgress progress;
    for (const SnmpVarBindEMS& root : roots) {
        walk(agent, root, output, progress);
    }
}

CLI::App* add_request(CLI::App& app, const char* name, const char* description,
                      const std::shared_ptr<RequestOptions>& options) {
    CLI::App* command = app.add_subcommand(name, description);
    AgentOptions& agent = options->agent;
    command->add_option("--community", agent.community, "The community")
        ->type_name("C")
        ->capture_default_str();
    command->add_option("--timeout", agent.timeout, "Wait S seconds for each answer")
        ->type_name("S")
        ->transform(whole_number(1, 3600))
        ->capture_default_str();
    command->add_option("--retries", agent.attempts, "Send a request at most N times")
        ->type_name("N")
        ->transform(whole_number(1, 1000))
        ->capture_default_str();
    command->add_option("AGENT", agent.place, "HOST or HOST:PORT")->required()->type_name("");
    return command;
}

void add_arguments(CLI::App* command, RequestOptions& options, const char* description) {
    command->add_option("ARGUMENTS", options.arguments, description)->required()->type_name("");
}

void add_get(CLI::App& app) {
    const auto options = std::make_shared<RequestOptions>();
    CLI::App* command = add_request(app, "get", "Ask an SNMPv1 agent for variables", options);
    add_arguments(command, *options, "OID...");
    command->footer(std::string(agent_help) +
                    "  wqevents get localhost 1.3.6.1.2.1.1.5.0 1.3.6.1.2.1.1.3.0\n"
                    "  wqevents get --community secret --timeout 5 10.1.2.3:1161 "
                    "1.3.6.1.2.1.1.1.0");
    command->callback([options] {
        request_all(options->agent, getvar_array, named_bindings(options->arguments));
    });
}

void add_next(CLI::App& app) {
    const auto options = std::make_shared<RequestOptions>();
    CLI::App* command =
        add_request(app, "next", "Ask an SNMPv1 agent for the variables behind others", options);
    add_arguments(command, *options, "OID...");
    command->footer(std::string(agent_help) + "  wqevents next localhost 1.3.6.1.2.1.2.2.1.2");
    command->callback([options] {
        request_all(options->agent, getnextvar_array, named_bindings(options->arguments));
    });
}

void add_set(CLI::App& app) {
    const auto options = std::make_shared<RequestOptions>();
    CLI::App* command = add_request(app, "set", "Set variables of an SNMPv1 agent", options);
    add_arguments(command, *options, "OID TYPE VALUE [OID TYPE VALUE]...");
    command->footer(std::string("Types:\n") + type_letters_help + "\n" + agent_help +
                    "  wqevents set --community private 10.1.2.3 1.3.6.1.2.1.1.5.0 s alpha");
    command->callback([options] {
        request_all(options->agent, setvar_array, valued_bindings(unshielded(options->arguments)));
    });
}

void add_walk(CLI::App& app) {
    const auto options = std::make_shared<RequestOptions>();
    CLI::App* command =
        add_request(app, "walk", "Ask an SNMPv1 agent for all variables of a subtree", options);
    add_arguments(command, *options, "OID...");
    command->footer(std::string(agent_help) +
                    "  wqevents walk localhost 1.3.6.1.2.1.1\n"
                    "  wqevents walk 10.1.2.3:1161 1.3.6.1.2.1 > variables");
    command->callback([options] { walk_all(options->agent, named_bindings(options->arguments)); });
}

}  // namespace

void add_requests(CLI::App& app) {
    add_get(app);
    add_next(app);
    add_set(app);
    add_walk(app);
}

}  // namespace wq::command
