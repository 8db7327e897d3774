/*
 * wqevents listen: prints the traps that arrive.
 */
#include <CLI/CLI.hpp>
#include <memory>

#include "command.h"
#include "error_stream.h"
#include "listener.h"
#include "number_option.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "Each option that names a place may be repeated. Without HOST a port is open on every address\n"
    "of this host; port 0 is any that is free. \"listening on ...\" on the standard error stream\n"
    "tells that peers may come.\n"
    "\n"
    "Control characters in the lines of --format are printed as \\xHH, and a tab stands before\n"
    "further lines of a text that would look like a trap's first. With --raw the lines are as the\n"
    "library makes them.\n"
    "\n"
    "SIGUSR1 prints the totals to the standard error stream. SIGHUP opens the log again and reads\n"
    "a changed configuration. SIGINT and SIGTERM take what has arrived, print the totals and end\n"
    "with status 0.\n"
    "\n"
    "Examples:\n"
    "  wqevents listen --udp 127.0.0.1:16200\n"
    "  wqevents listen --socket /tmp/traps.socket --raw-tcp 1162 --json | jq .specific\n"
    "  wqevents listen --raw-tcp 127.0.0.1:1162 --count 1\n"
    "  wqevents listen --udp 1162 --format kmevents\n"
    "  wqevents listen --udp 1162 --format --conf vortd.conf --log traps.log";

void run_listen(const ListenOptions& options) {
    if (options.udp.empty() && options.sockets.empty() && options.tcp.empty() &&
        options.raw_tcp.empty()) {
        throw UsageError(
            "there is nothing to listen on; give --udp, --socket, --tcp or --raw-tcp, as "
            "--udp 127.0.0.1:16200");
    }
    never_wait_for_errors();
    Listener(options).run();
}

/* Its value may be left out, and is looked at while the command line is read. */
CLI::Option* add_format(CLI::App& command, std::optional<rtrap_user>& layout) {
    return command
        .add_option_function<std::string>(
            "--format", [&layout](const std::string& kind) { layout = parse_layout_kind(kind); },
            "Print the operator's lines, by the platform's configuration")
        ->type_name("[KIND]")
        ->expected(0, 1);
}

/* Repeatable, and each time with one value only, so that nothing else is taken for one. */
void add_places(CLI::App& command, const char* name, std::vector<std::string>& places,
                const char* type, const char* help) {
    command.add_option(name, places, help)->type_name(type)->allow_extra_args(false);
}

void add_limit(CLI::App& command, const char* name, std::size_t& limit, const char* help) {
    command.add_option(name, limit, help)
        ->type_name("N")
        ->transform(whole_number(1, 1'000'000))
        ->capture_default_str();
}

}  // namespace

void add_listen(CLI::App& app) {
    const auto options = std::make_shared<ListenOptions>();
    CLI::App* command = app.add_subcommand("listen", "Print the traps that arrive");
    add_places(*command, "--udp", options->udp, "[HOST:]PORT", "Take a trap a datagram");
    add_places(*command, "--socket", options->sockets, "PATH",
               "Take traps behind transmission headers at a local stream socket, which is made");
    add_places(*command, "--tcp", options->tcp, "[HOST:]PORT",
               "Take traps behind transmission headers by TCP");
    add_places(*command, "--raw-tcp", options->raw_tcp, "[HOST:]PORT",
               "Take encoded traps back to back by TCP");
    CLI::Option* json = command->add_flag("--json", options->json, "Print a JSON object a line");
    CLI::Option* format = add_format(*command, options->layout)->excludes(json);
    command->add_flag("--raw", options->raw, "Print these lines as the library makes them")
        ->needs(format);
    command
        ->add_option("--conf", options->configuration,
                     "The configuration of --format (default: the one that the platform names)")
        ->type_name("FILE")
        ->needs(format);
    add_names_option(*command, options->names)->needs(format);
    command
        ->add_option("--log", options->log,
                     "Append to this file instead of printing; SIGHUP opens it again")
        ->type_name("FILE");
    command->add_option("--count", options->count, "End after N traps")
        ->type_name("N")
        ->transform(whole_number(1, INT64_MAX));
    command
        ->add_option("--idle", options->idle,
                     "Close a peer whose trap is not whole so long after its first byte")
        ->type_name("SECONDS")
        ->transform(real_number(0.001, 1e6))
        ->capture_default_str();
    add_limit(*command, "--max-peers", options->max_peers, "Serve at most N connected peers");
    add_limit(*command, "--max-peers-per-host", options->max_peers_per_host,
              "Serve at most N peers of a host");
    command->footer(layout_kinds_help + std::string("\n\n") + footer_text);
    command->callback([options] { run_listen(*options); });
}

}  // namespace wq::command
