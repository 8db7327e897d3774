/*
 * wqevents event: sends one of the platform's events.
 */
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

#include "command.h"
#include "destination.h"
#include "number_option.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "\nThe channel announces the application with a wake-up event before the event and a "
    "disconnect\n"
    "event behind it, except for application 4.\n"
    "\n"
    "Examples:\n"
    "  wqevents event --to local:/tmp/traps.socket 0x03870100 'disk is full'\n"
    "  wqevents event --to raw:localhost:1162 --source 12 58982400 'node down' --host alpha\n"
    "  wqevents event --to auto 42 'threshold' --data 17 --db topo --selname alpha.beta";

using Text = std::optional<std::string>;

struct EventOptions {
    std::string to;
    int source = 15;  // an application of another vendor
    std::string number;
    std::string description;
    Text host, data, db;
    Text selname, ipaddress, trapspecific;
    Text network_addr, network_mask;
};

const char* or_null(const Text& text) {
    return text ? text->c_str() : nullptr;
}

/* The shortest of the three events that holds what was given. */
int send(event_infoEMS* info, int number, const EventOptions& event) {
    const char* host = or_null(event.host);
    const char* description = event.description.c_str();
    const char* data = or_null(event.data);
    const char* db = or_null(event.db);
    if (event.network_addr || event.network_mask) {
        return send_event_ex_ex(info, number, host, description, data, db, or_null(event.selname),
                                or_null(event.ipaddress), or_null(event.trapspecific),
                                or_null(event.network_addr), or_null(event.network_mask));
    }
    if (event.selname || event.ipaddress || event.trapspecific) {
        return send_event_ex(info, number, host, description, data, db, or_null(event.selname),
                             or_null(event.ipaddress), or_null(event.trapspecific));
    }
    return send_event(info, number, host, description, data, db);
}

void run_event(const EventOptions& event) {
    const int number = parse_event_number(event.number);
    Channel channel(parse_destination(event.to), event.source);
    channel.check_sent(send(channel.info(), number, event));
}

void add_binding_options(CLI::App& command, EventOptions& event) {
    struct Option {
        const char* name;
        Text& value;
        const char* help;
    };
    const Option options[] = {
        {"--host", event.host, "The host that it is about; only the first word is sent"},
        {"--data", event.data, "Further data"},
        {"--db", event.db, "The database that the event belongs to"},
        {"--selname", event.selname, "The selection name (sends 8 bindings)"},
        {"--ipaddress", event.ipaddress, "The address, as text (sends 8 bindings)"},
        {"--trapspecific", event.trapspecific, "The specific trap, as text (sends 8 bindings)"},
        {"--network-addr", event.network_addr, "The network's address (sends 10 bindings)"},
        {"--network-mask", event.network_mask, "The network's mask (sends 10 bindings)"},
    };
    for (const Option& option : options) {
        command.add_option(option.name, option.value, option.help)->type_name("TEXT");
    }
}

}  // namespace

void add_event(CLI::App& app) {
    const auto event = std::make_shared<EventOptions>();
    CLI::App* command = app.add_subcommand("event", "Send one of the platform's events");
    command->add_option("--to", event->to, "Where it goes, see below")
        ->type_name("DEST")
        ->required();
    command->add_option("--source", event->source, "Number of the sending application")
        ->type_name("N")
        ->transform(whole_number(1, 27))
        ->capture_default_str();
    add_binding_options(*command, *event);
    command->add_option("NUMBER", event->number, "The event's number, decimal or as 0x03870100")
        ->required()
        ->type_name("");
    command->add_option("DESCRIPTION", event->description, "What happened")
        ->required()
        ->type_name("");
    command->footer(destination_help + std::string("\n") + footer_text);
    command->callback([event] { run_event(*event); });
}

}  // namespace wq::command
