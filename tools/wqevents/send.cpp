/*
 * wqevents send: sends an SNMPv1 trap given on the command line or in a file.
 */
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

#include "binding_text.h"
#include "command.h"
#include "destination.h"
#include "input_file.h"
#include "number_option.h"
#include "octets.h"
#include "oid_text.h"

namespace wq::command {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* footer_text =
    "\nENTERPRISE and OID are dotted numbers; an empty ENTERPRISE is the platform's own,\n"
    "1.3.6.1.4.1.2.6.3.1. An empty TIME is how long this host has been up. Only the trap is sent:\n"
    "no event announces or ends the channel.\n"
    "\n"
    "Examples:\n"
    "  wqevents send --to udp:localhost '' 6 1 ''\n"
    "  wqevents send --to raw:localhost:1162 --agent 10.1.2.3 .1.3.6.1.4.1.8072 6 17 '' \\\n"
    "      1.3.6.1.2.1.1.5.0 s alpha 1.3.6.1.2.1.2.2.1.1.3 i 3\n"
    "  wqevents send --to local:/tmp/traps.socket --repeat 10000 --rate 500 '' 0 0 ''\n"
    "  xxd -p trap.bin | wqevents send --to raw:localhost:1162 --hex -";

/* Application 4 sends neither a wake-up nor a disconnect event. */
constexpr int silent_source = 4;

constexpr char shield = '\x01';

/* Stands for this host's address until the channel is open and knows it. */
constexpr const char* any_agent = "127.0.0.1";

constexpr std::size_t fixed_arguments = 4;

struct SendOptions {
    std::string to;
    std::string community = "public";
    std::string agent;
    std::string hex_file;
    std::int64_t repeat = 1;
    double rate = 0;
    std::vector<std::string> arguments;
};

/* One trap, ready to be sent again and again. */
struct Trap {
    Octets encoded;  // not empty: sent as it is, and nothing else counts
    snmp_trap_infoEMS info{};
    std::vector<SnmpVarBindEMS> bindings;
    bool uptime = false;  // the time is that of each sending
};

/* Hundredths of a second since the system started. */
std::uint32_t system_uptime() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 100 + now.tv_nsec / 10'000'000);
}

Trap trap_of_file(const std::string& name) {
    Input input(name);
    Trap trap;
    HexStream hex(input);
    while (trap.encoded.size() <= EMS_TRAP_MAX && hex.append_to(trap.encoded)) {
    }
    const std::size_t size = trap.encoded.size();
    if (size == 0 || size > EMS_TRAP_MAX) {
        throw Failure(input.name() + " holds " +
                      (size == 0 ? "0" : "more than " + std::to_string(EMS_TRAP_MAX)) +
                      " octets; a trap has 1 to " + std::to_string(EMS_TRAP_MAX));
    }
    return trap;
}

void set_community(snmp_trap_infoEMS& info, const std::string& community) {
    if (community.size() >= EMS_COMMUNITY_MAX) {
        throw UsageError("the community has " + std::to_string(community.size()) +
                         " bytes; at most " + std::to_string(EMS_COMMUNITY_MAX - 1) +
                         " can be sent");
    }
    std::copy(community.begin(), community.end(), info.community);
    info.clen = static_cast<std::int32_t>(community.size());
}

void set_enterprise(snmp_trap_infoEMS& info, std::string_view text) {
    const auto oid = parse_oid("enterprise", text.empty() ? "1.3.6.1.4.1.2.6.3.1" : text);
    std::copy(oid.begin(), oid.end(), info.enterprise);
    info.elen = static_cast<std::int32_t>(oid.size());
}

/* The records of ENTERPRISE GENERIC SPECIFIC TIME [OID TYPE VALUE]... */
Trap trap_of_arguments(const SendOptions& options, const std::vector<std::string>& arguments) {
    if (arguments.size() < fixed_arguments || (arguments.size() - fixed_arguments) % 3 != 0) {
        throw UsageError(
            "a trap is given as ENTERPRISE GENERIC SPECIFIC TIME and any number of OID TYPE VALUE; "
            "there are " +
            std::to_string(arguments.size()) + " arguments");
    }
    Trap trap;
    set_community(trap.info, options.community);
    set_enterprise(trap.info, arguments[0]);
    trap.info.gen = static_cast<std::uint32_t>(parse_number("generic trap", arguments[1], 0, 6));
    trap.info.specific = static_cast<std::uint32_t>(
        parse_number("specific trap", arguments[2], INT32_MIN, INT32_MAX));
    trap.uptime = arguments[3].empty();
    trap.info.time =
        trap.uptime ? system_uptime()
                    : static_cast<std::uint32_t>(parse_number("time", arguments[3], 0, UINT32_MAX));
    for (std::size_t i = fixed_arguments; i < arguments.size(); i += 3) {
        SnmpVarBindEMS& binding = trap.bindings.emplace_back();
        parse_binding(arguments[i], arguments[i + 1], arguments[i + 2], binding);
    }
    trap.info.vars = static_cast<std::int32_t>(trap.bindings.size());
    trap.info.maxvars = trap.info.vars;
    return trap;
}

/* Whether the trap can be sent at all shows before a peer is troubled. */
void check_encodable(Trap& trap) {
    Octets room(EMS_TRAP_MAX);
    int length = EMS_TRAP_MAX;
    if (snmpBuildTrapEMS(room.data(), &length, &trap.info, nullptr, trap.bindings.data()) != 0) {
        throw Failure("the trap cannot be encoded: it takes more than " +
                      std::to_string(EMS_TRAP_MAX) + " bytes; send fewer or shorter bindings");
    }
}

Trap make_trap(const SendOptions& options, const std::vector<std::string>& arguments) {
    if (options.hex_file.empty()) {
        Trap trap = trap_of_arguments(options, arguments);
        trap.info.agent = parse_address("agent", options.agent.empty() ? any_agent : options.agent);
        check_encodable(trap);
        return trap;
    }
    if (!arguments.empty()) {
        throw UsageError("--hex sends a whole trap: no ENTERPRISE or further arguments go with it");
    }
    return trap_of_file(options.hex_file);
}

int send_once(event_infoEMS* channel, Trap& trap) {
    if (!trap.encoded.empty()) {
        return send_hex_buffer(channel, trap.encoded.data(), static_cast<int>(trap.encoded.size()));
    }
    if (trap.uptime) {
        trap.info.time = system_uptime();
    }
    return send_trap(channel, &trap.info, trap.bindings.data());
}

/* What is shown of a repeated sending: a line that is rewritten on a terminal, and the end. */
class Progress {
  public:
    explicit Progress(std::int64_t total) : total_(total), terminal_(isatty(STDERR_FILENO) == 1) {}

    void show(std::int64_t sent) {
        if (terminal_ && Clock::now() >= next_) {
            report_progress(line(sent));
            next_ = Clock::now() + std::chrono::milliseconds(250);
        }
    }
    void finish(std::int64_t sent) const {
        if (terminal_) {
            report_progress("");
        }
        report(line(sent) + "\n");
    }

  private:
    std::string line(std::int64_t sent) const {
        const std::chrono::duration<double> elapsed = Clock::now() - start_;
        const double rate = elapsed.count() > 0 ? static_cast<double>(sent) / elapsed.count() : 0;
        char text[128];
        std::snprintf(text, sizeof text, "sent %lld of %lld traps in %.2f s, %.0f a second",
                      static_cast<long long>(sent), static_cast<long long>(total_), elapsed.count(),
                      rate);
        return text;
    }

    std::int64_t total_;
    bool terminal_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

void send_repeatedly(Channel& channel, Trap& trap, const SendOptions& options) {
    Progress progress(options.repeat);
    const Clock::time_point start = Clock::now();
    for (std::int64_t sent = 0; sent < options.repeat; ++sent) {
        if (options.rate > 0) {
            const std::chrono::duration<double> due(static_cast<double>(sent) / options.rate);
            std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(due));
        }
        errno = 0;
        const int result = send_once(channel.info(), trap);
        if (result != 0) {
            const int error = errno;
            progress.finish(sent);
            errno = error;
            channel.check_sent(result);
        }
        progress.show(sent + 1);
    }
    progress.finish(options.repeat);
}

void run_send(const SendOptions& options, bool repeated) {
    const Destination destination = parse_destination(options.to);
    Trap trap = make_trap(options, unshielded(options.arguments));
    Channel channel(destination, silent_source);
    if (options.agent.empty()) {
        trap.info.agent = channel.own_address();
    }
    if (repeated) {
        send_repeatedly(channel, trap, options);
    } else {
        channel.check_sent(send_once(channel.info(), trap));
    }
}

}  // namespace

void add_send(CLI::App& app) {
    const auto options = std::make_shared<SendOptions>();
    CLI::App* command = app.add_subcommand("send", "Send an SNMPv1 trap");
    command->add_option("--to", options->to, "Where it goes, see below")
        ->type_name("DEST")
        ->required();
    command->add_option("--community", options->community, "The community")
        ->type_name("C")
        ->capture_default_str();
    command->add_option("--agent", options->agent, "The agent's address (default: this host's)")
        ->type_name("A");
    command
        ->add_option("--hex", options->hex_file,
                     "Send the encoded trap whose hexadecimal digits the file holds (-: standard "
                     "input) as it is")
        ->type_name("FILE");
    CLI::Option* repeat =
        command->add_option("--repeat", options->repeat, "Send the trap N times and tell the rate")
            ->type_name("N")
            ->transform(whole_number(1, INT64_MAX));
    command->add_option("--rate", options->rate, "Send at most R traps a second")
        ->type_name("R")
        ->transform(real_number(0.001, 1e9))
        ->needs(repeat);
    command
        ->add_option("ARGUMENTS", options->arguments,
                     "ENTERPRISE GENERIC SPECIFIC TIME [OID TYPE VALUE]...")
        ->type_name("");
    command->footer(destination_help + std::string("\n\nTypes:\n") + type_letters_help + "\n" +
                    footer_text);
    command->callback([options, repeat] { run_send(*options, repeat->count() > 0); });
}

std::vector<std::string> unshielded(std::vector<std::string> arguments) {
    for (std::string& argument : arguments) {
        if (argument.starts_with(shield)) {
            argument.erase(0, 1);
        }
    }
    return arguments;
}

std::vector<std::string> shield_values(std::vector<std::string> words, std::size_t before) {
    std::size_t position = 0;
    bool options_end = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool value = position > before && (position - before) % 3 == 2;
        if (value) {
            words[i].insert(0, 1, shield);
        } else if (!options_end && words[i] == "--") {
            options_end = true;
            continue;
        } else if (!options_end && words[i].starts_with("--")) {
            i += words[i].find('=') == std::string::npos ? 1 : 0;
            continue;
        }
        ++position;
    }
    return words;
}

}  // namespace wq::command
