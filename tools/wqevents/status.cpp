/*
 * wqevents status: tells which of the platform's daemons are enabled, running and healthy.
 */
#include <wqevents/status.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "command.h"
#include "json_line.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "A daemon is enabled when the file /usr/WQ/conf/wqsuf lists it, running when a process holds "
    "a\n"
    "lock on its pid file, and happy unless it is wanted but does not run. snmpGlean is wanted "
    "only\n"
    "where its program is installed.\n"
    "\n"
    "Examples:\n"
    "  wqevents status\n"
    "  wqevents status --check || echo 'a daemon is down'\n"
    "  wqevents status --json";

struct StatusOptions {
    bool as_json = false;
    bool check = false;
};

struct DaemonStatus {
    const char* name;
    const char* pid_file;
    bool is_enabled;
    bool is_running;
    bool is_happy;
};

struct Status {
    std::array<DaemonStatus, 3> daemons;
    bool has_configurator;
};

DaemonStatus ask(const char* name, const char* pid_file) {
    return {name, pid_file, isDaemonEnabled_(name) != 0, isDaemonRunning_(pid_file) != 0,
            isDaemonHappy_(name, pid_file) != 0};
}

/* Its program and any lock of its own count, too. */
DaemonStatus ask_gleaner() {
    return {"snmpGlean", getSnmpGleanPidFile(), isSnmpGleanEnabled() != 0,
            isSnmpGleanRunning() != 0, isSnmpGleanHappy() != 0};
}

Status ask_all() {
    return {{ask("kmcollectord", "/usr/WQ/pids/kmcollectord.pid"),
             ask("kmpollerd", "/usr/WQ/pids/kmpollerd.pid"), ask_gleaner()},
            eventConfiguratorExists() != 0};
}

/* A row of the table; the widths are those of the longest words that there are. */
void append_row(std::string& out, const std::array<std::string, 5>& cells) {
    constexpr std::array<std::size_t, 4> widths{14, 9, 9, 7};
    for (std::size_t i = 0; i < widths.size(); ++i) {
        out += cells[i];
        out.append(widths[i] - std::min(widths[i], cells[i].size()), ' ');
    }
    out += cells.back();
    out += '\n';
}

std::string answer(bool yes) {
    return yes ? "yes" : "no";
}

std::string table(const Status& status) {
    std::string out;
    append_row(out, {"DAEMON", "ENABLED", "RUNNING", "HAPPY", "PID FILE"});
    for (const DaemonStatus& daemon : status.daemons) {
        append_row(out, {daemon.name, answer(daemon.is_enabled), answer(daemon.is_running),
                         answer(daemon.is_happy), shown(daemon.pid_file)});
    }
    out += "event configurator: ";
    out += status.has_configurator ? "installed\n" : "not installed\n";
    return out;
}

/* Members keep the order in which they are written. */
std::string json(const Status& status) {
    nlohmann::ordered_json object;
    auto& daemons = object["daemons"] = nlohmann::ordered_json::array();
    for (const DaemonStatus& daemon : status.daemons) {
        daemons.push_back({{"name", daemon.name},
                           {"enabled", daemon.is_enabled},
                           {"running", daemon.is_running},
                           {"happy", daemon.is_happy},
                           {"pid_file", daemon.pid_file}});
    }
    object["event_configurator"] = status.has_configurator;
    return json_line(object);
}

void check_happy(const Status& status) {
    std::string names;
    for (const DaemonStatus& daemon : status.daemons) {
        if (!daemon.is_happy) {
            names += names.empty() ? "" : ", ";
            names += daemon.name;
        }
    }
    if (!names.empty()) {
        throw Failure("enabled but not running: " + names);
    }
}

void run_status(const StatusOptions& options) {
    const Status status = ask_all();
    Output output;
    output.text() = options.as_json ? json(status) : table(status);
    output.flush();
    if (options.check) {
        check_happy(status);
    }
}

}  // namespace

void add_status(CLI::App& app) {
    const auto options = std::make_shared<StatusOptions>();
    CLI::App* command = app.add_subcommand("status", "Tell which of the platform's daemons are up");
    command->add_flag("--json", options->as_json, "Print an object instead of a table");
    command->add_flag("--check", options->check, "End with status 1 unless every daemon is happy");
    command->footer(footer_text);
    command->callback([options] { run_status(*options); });
}

}  // namespace wq::command
