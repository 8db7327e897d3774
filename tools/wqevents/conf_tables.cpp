// wqevents conf category, action and enterprise.
#include "conf_tables.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <wqevents/configuration.h>

#include "command.h"
#include "conf_edit.h"
#include "conf_model.h"
#include "conf_show.h"
#include "oid_text.h"
#include "text_table.h"

namespace wq::command {
namespace {

constexpr const char* category_footer =
    "\nA category that a trap uses cannot be deleted. The number is the place in the event "
    "display's\n"
    "list; without --number the first one free from 10 on is taken.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf category list\n"
    "  wqevents conf category add 'Cooling'\n"
    "  wqevents conf category set 'Cooling' --name 'Air' --number 30\n"
    "  wqevents conf category delete 'Air' --backup";

constexpr const char* action_footer =
    "\nAn operator starts an action from the event display. --wait-time is how many seconds it "
    "may\n"
    "take.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf action list\n"
    "  wqevents conf action add 'Trace the route' --command '/usr/bin/traceroute $2' --wait-time "
    "60\n"
    "  wqevents conf action set 'Trace the route' --description 'Shows the way to the node.'\n"
    "  wqevents conf action delete 'Trace the route'";

constexpr const char* enterprise_footer =
    "\nAn enterprise that has traps cannot be deleted. A new OID goes for all of its traps.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf enterprise list\n"
    "  wqevents conf enterprise add cooling 1.3.6.1.4.1.32473.9\n"
    "  wqevents conf enterprise set cooling --name airFlow --oid 1.3.6.1.4.1.32473.10\n"
    "  wqevents conf enterprise delete airFlow";

using Text = std::optional<std::string>;
using Rows = std::vector<std::vector<std::string>>;

// What the options of all three say; each subcommand has those that it needs.
struct TableEdit {
    EditOptions edit;
    std::string name;
    std::string oid;
    Text new_name, new_oid, new_command, description;
    std::optional<int> number, wait_time;
};

using Options = std::shared_ptr<TableEdit>;

void refuse_if(bool wrong, const std::string& why) {
    if (wrong) {
        throw Failure(why);
    }
}

void check_line(const std::string& what, const std::string& text) {
    refuse_if(text.find('\n') != std::string::npos, "the " + what + " contains a line break");
}

// A name in double quotes.
void check_quoted_name(const std::string& name) {
    check_line("name", name);
    refuse_if(name.empty(), "the name is empty");
    refuse_if(name.find('"') != std::string::npos, "the name contains a double quote");
}

// Adds what a value is changed to, if it is changed.
void note_change(std::vector<std::string>& lines, const std::string& what,
                 const std::string& before, const std::string& after) {
    if (before != after) {
        lines.push_back(what + ": " + command::quoted(in_one_line(before)) + " -> " +
                        command::quoted(in_one_line(after)));
    }
}

Done changed(const std::string& name, const std::vector<std::string>& lines) {
    return {
        .title = "changed " + command::quoted(name), .details = lines, .changed = !lines.empty()};
}

void set_text(char*& text, const std::string& value) {
    doFree(text);
    text = doStrdup(value.c_str());
}

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

// Calls `visit` with each enterprise and each of its traps.
template <class Visit>
void for_each_trap(Visit visit) {
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            visit(*e, *r);
        }
    }
}

// The names of the traps for which `uses` holds.
template <class Uses>
std::vector<std::string> users(Uses uses) {
    std::vector<std::string> names;
    for_each_trap([&](const enterprise_info& enterprise, const trap_record& record) {
        if (uses(enterprise, record)) {
            names.emplace_back(record.name);
        }
    });
    return names;
}

void refuse_if_used(const std::string& what, const std::vector<std::string>& names) {
    constexpr std::size_t shown = 5;
    if (names.empty()) {
        return;
    }
    std::string text = what + " is used by " + std::to_string(names.size()) +
                       (names.size() == 1 ? " trap: " : " traps: ");
    for (std::size_t i = 0; i < std::min(names.size(), shown); ++i) {
        text.append(i == 0 ? "" : ", ").append(names[i]);
    }
    throw Failure(text + (names.size() > shown ? ", ..." : ""));
}

// --- categories ---

bool is_category(std::size_t slot) {
    return EMScategories[slot] != nullptr && !is_implied_category(slot);
}

bool has_name(std::size_t slot, const std::string& name) {
    return EMScategories[slot] != nullptr && name == EMScategories[slot];
}

std::vector<std::string> traps_in(const std::string& category) {
    return users([&](const enterprise_info&, const trap_record& record) {
        const int number = record.category_number;
        return number >= 0 && number < EMS_CATEGORIES_MAX &&
               has_name(static_cast<std::size_t>(number), category);
    });
}

// The reader's own category of that slot makes room unless a trap is in it.
void require_room(std::size_t slot, const std::string& name) {
    if (EMScategories[slot] != nullptr && !has_name(slot, name)) {
        const std::string other = EMScategories[slot];
        refuse_if_used("the category " + command::quoted(other) + ", which is not in the file,",
                       users([&](const enterprise_info&, const trap_record& record) {
                           return record.category_number == static_cast<int>(slot);
                       }));
    }
}

std::optional<std::size_t> own_category(const std::string& name) {
    for (std::size_t slot = 0; slot < EMS_CATEGORIES_MAX; ++slot) {
        if (is_category(slot) && has_name(slot, name)) {
            return slot;
        }
    }
    return std::nullopt;
}

std::size_t category_to_edit(const std::string& name) {
    const auto slot = own_category(name);
    if (!slot) {
        throw no_category(name);
    }
    return *slot;
}

std::size_t free_slot() {
    constexpr std::size_t first_own = 10;
    for (std::size_t i = 0; i < EMS_CATEGORIES_MAX; ++i) {
        const std::size_t slot = (first_own + i) % EMS_CATEGORIES_MAX;
        if (!is_category(slot)) {
            return slot;
        }
    }
    throw Failure("all 64 categories are configured");
}

std::size_t wanted_slot(int number) {
    const auto slot =
        static_cast<std::size_t>(parse_number("number", std::to_string(number), 0, 63));
    refuse_if(is_category(slot), "the number " + std::to_string(number) + " has the category " +
                                     command::quoted(text_or_empty(EMScategories[slot])));
    return slot;
}

void refuse_second_category(const std::string& name) {
    refuse_if(own_category(name).has_value(),
              "there is a category " + command::quoted(name) + " already");
}

// Traps that were in a category of this name, which the file does not have, are in it now.
void put_category(std::size_t slot, const std::string& name) {
    require_room(slot, name);
    set_text(EMScategories[slot], name);
    make_category_explicit(slot);
    for_each_trap([&](const enterprise_info&, trap_record& record) {
        const int number = record.category_number;
        if (number >= 0 && number < EMS_CATEGORIES_MAX &&
            has_name(static_cast<std::size_t>(number), name)) {
            record.category_number = static_cast<int>(slot);
        }
    });
}

Done add_category(const TableEdit& options) {
    check_quoted_name(options.name);
    refuse_second_category(options.name);
    const std::size_t slot = options.number ? wanted_slot(*options.number) : free_slot();
    put_category(slot, options.name);
    return {.title =
                "added category " + std::to_string(slot) + " " + command::quoted(options.name)};
}

void move_category(std::size_t from, std::size_t to) {
    require_room(to, EMScategories[from]);
    doFree(EMScategories[to]);
    EMScategories[to] = EMScategories[from];
    EMScategories[from] = nullptr;
    make_category_explicit(to);
    for_each_trap([&](const enterprise_info&, trap_record& record) {
        if (record.category_number == static_cast<int>(from)) {
            record.category_number = static_cast<int>(to);
        }
    });
}

Done set_category(const TableEdit& options) {
    std::size_t slot = category_to_edit(options.name);
    std::vector<std::string> lines;
    if (options.new_name && *options.new_name != options.name) {
        check_quoted_name(*options.new_name);
        refuse_second_category(*options.new_name);
        set_text(EMScategories[slot], *options.new_name);
        note_change(lines, "name", options.name, *options.new_name);
    }
    if (options.number && *options.number != static_cast<int>(slot)) {
        const std::size_t to = wanted_slot(*options.number);
        note_change(lines, "number", std::to_string(slot), std::to_string(to));
        move_category(slot, to);
    }
    return changed(options.name, lines);
}

Done delete_category(const TableEdit& options) {
    const std::size_t slot = category_to_edit(options.name);
    refuse_if_used("the category " + command::quoted(options.name), traps_in(options.name));
    doFree(EMScategories[slot]);
    EMScategories[slot] = nullptr;
    return {.title = "deleted category " + command::quoted(options.name)};
}

Rows category_rows() {
    Rows rows{{"NUMBER", "TRAPS", "NAME"}};
    for (std::size_t slot = 0; slot < EMS_CATEGORIES_MAX; ++slot) {
        if (is_category(slot)) {
            rows.push_back({std::to_string(slot),
                            std::to_string(traps_in(EMScategories[slot]).size()),
                            EMScategories[slot]});
        }
    }
    return rows;
}

// --- actions ---

std::span<actionCmd> actions() {
    return {actionCommands, static_cast<std::size_t>(numActionCommands)};
}

actionCmd* find_action(const std::string& name) {
    const auto all = actions();
    const auto found = std::ranges::find_if(
        all, [&](const actionCmd& action) { return text_or_empty(action.name) == name; });
    return found == all.end() ? nullptr : &*found;
}

actionCmd& action_to_edit(const std::string& name) {
    actionCmd* const action = find_action(name);
    if (action == nullptr) {
        throw Failure("no action " + command::quoted(name) +
                      " is configured; 'wqevents conf action add' makes one");
    }
    return *action;
}

void refuse_second_action(const std::string& name) {
    refuse_if(find_action(name) != nullptr,
              "there is an action " + command::quoted(name) + " already");
}

int checked_wait_time(int seconds) {
    return static_cast<int>(parse_number("wait time", std::to_string(seconds), 0,
                                         std::numeric_limits<std::int32_t>::max()));
}

Done add_action(const TableEdit& options) {
    check_quoted_name(options.name);
    refuse_second_action(options.name);
    check_line("command", options.new_command.value_or(""));
    const auto count = static_cast<std::size_t>(numActionCommands);
    actionCommands =
        static_cast<actionCmd*>(doRealloc(actionCommands, (count + 1) * sizeof(actionCmd)));
    actionCommands[count] = {.name = doStrdup(options.name.c_str()),
                             .description = doStrdup(options.description.value_or("").c_str()),
                             .waitTime = checked_wait_time(options.wait_time.value_or(0)),
                             .cmd = doStrdup(options.new_command.value_or("").c_str())};
    ++numActionCommands;
    return {.title = "added action " + command::quoted(options.name)};
}

Done set_action(const TableEdit& options) {
    actionCmd& action = action_to_edit(options.name);
    std::vector<std::string> lines;
    if (options.new_name && *options.new_name != options.name) {
        check_quoted_name(*options.new_name);
        refuse_second_action(*options.new_name);
        note_change(lines, "name", options.name, *options.new_name);
        set_text(action.name, *options.new_name);
    }
    if (options.wait_time) {
        note_change(lines, "wait time", std::to_string(action.waitTime),
                    std::to_string(*options.wait_time));
        action.waitTime = checked_wait_time(*options.wait_time);
    }
    if (options.new_command) {
        check_line("command", *options.new_command);
        note_change(lines, "command", text_or_empty(action.cmd), *options.new_command);
        set_text(action.cmd, *options.new_command);
    }
    if (options.description) {
        note_change(lines, "description", text_or_empty(action.description), *options.description);
        set_text(action.description, *options.description);
    }
    return changed(options.name, lines);
}

Done delete_action(const TableEdit& options) {
    action_to_edit(options.name);
    deleteTrapAction(options.name.c_str());
    return {.title = "deleted action " + command::quoted(options.name)};
}

Rows action_rows() {
    Rows rows{{"SECONDS", "NAME", "COMMAND"}};
    for (const actionCmd& action : actions()) {
        rows.push_back({std::to_string(action.waitTime), text_or_empty(action.name),
                        text_or_empty(action.cmd)});
    }
    return rows;
}

// --- enterprises ---

using Oid = std::vector<std::uint32_t>;

Oid oid_of(const enterprise_info& enterprise) {
    return {enterprise.enterprise_oid, enterprise.enterprise_oid + enterprise.oid_len};
}

void check_enterprise_name(const std::string& name) {
    refuse_if(name.empty(), "the name is empty");
    refuse_if(name.find_first_of(" \t\n\v\f\r") != std::string::npos,
              "the name contains white space");
    refuse_if(name.front() == '#', "the name begins with '#': its line would be a comment");
}

void refuse_second_enterprise(const std::string& name) {
    enterprise_info* other = nullptr;
    if (name_to_enterprise(name.c_str(), &other) == 0) {
        throw Failure("there is an enterprise " + command::quoted(name) + " already, " +
                      oid_to_text(oid_of(*other)));
    }
}

void refuse_second_oid(const Oid& oid) {
    enterprise_info* other = nullptr;
    find_enterprise(oid.data(), static_cast<std::uint32_t>(oid.size()), &other);
    if (other != nullptr && other->oid_len == oid.size()) {
        throw Failure("the enterprise " + command::quoted(oid_to_text(oid)) +
                      " is configured already, as " +
                      command::quoted(text_or_empty(other->enterprise_name)));
    }
}

Done add_enterprise(const TableEdit& options) {
    check_enterprise_name(options.name);
    const Oid oid = parse_oid("enterprise", options.oid);
    refuse_second_enterprise(options.name);
    refuse_second_oid(oid);
    insert_enterprise(oid.data(), static_cast<std::uint32_t>(oid.size()), options.name.c_str());
    return {.title = "added enterprise " + command::quoted(options.name)};
}

void unlink(const enterprise_info& enterprise) {
    enterprise_info* at = &enterprise_list_head;
    while (at->next != &enterprise) {
        at = at->next;
    }
    at->next = enterprise.next;
}

void link_in_order(enterprise_info& enterprise) {
    enterprise_info* at = &enterprise_list_head;
    while (at->next != nullptr && oidcmp(at->next->enterprise_oid, enterprise.enterprise_oid,
                                         at->next->oid_len, enterprise.oid_len) < 0) {
        at = at->next;
    }
    enterprise.next = at->next;
    at->next = &enterprise;
}

// Unlinked meanwhile: in the list its place depends on the identifier.
void give_oid(enterprise_info& enterprise, const Oid& oid) {
    unlink(enterprise);
    doFree(enterprise.enterprise_oid);
    enterprise.enterprise_oid =
        static_cast<std::uint32_t*>(doMalloc(oid.size() * sizeof(std::uint32_t)));
    std::ranges::copy(oid, enterprise.enterprise_oid);
    enterprise.oid_len = static_cast<std::uint32_t>(oid.size());
    link_in_order(enterprise);
    trapspec_relinked();
}

bool has_alerts(const enterprise_info& enterprise) {
    load_alerts();
    for (const trap_record* r = enterprise.trap_rec_list_head.next; r != nullptr; r = r->next) {
        if (r->alert_element != nullptr) {
            return true;
        }
    }
    return false;
}

Done set_enterprise(const TableEdit& options) {
    enterprise_info& enterprise = *find_enterprise_like(options.name);
    const std::string name = enterprise.enterprise_name;
    std::vector<std::string> lines;
    bool leaves_alert = false;
    if (options.new_name && *options.new_name != name) {
        check_enterprise_name(*options.new_name);
        refuse_second_enterprise(*options.new_name);
        note_change(lines, "name", name, *options.new_name);
        set_text(enterprise.enterprise_name, *options.new_name);
    }
    if (options.new_oid) {
        const Oid oid = parse_oid("enterprise", *options.new_oid);
        if (oid != oid_of(enterprise)) {
            refuse_second_oid(oid);
            leaves_alert = has_alerts(enterprise);
            note_change(lines, "oid", oid_to_text(oid_of(enterprise)), oid_to_text(oid));
            give_oid(enterprise, oid);
        }
    }
    Done done = changed(name, lines);
    done.leaves_alert = leaves_alert;
    return done;
}

Done delete_enterprise(const TableEdit& options) {
    enterprise_info& enterprise = *find_enterprise_like(options.name);
    const std::string name = enterprise.enterprise_name;
    refuse_if_used("the enterprise " + command::quoted(name),
                   users([&](const enterprise_info& other, const trap_record&) {
                       return &other == &enterprise;
                   }));
    delete_enterprise_record(&enterprise);
    return {.title = "deleted enterprise " + command::quoted(name)};
}

Rows enterprise_rows() {
    Rows rows{{"NAME", "OID", "TRAPS"}};
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        std::size_t traps = 0;
        for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            ++traps;
        }
        rows.push_back(
            {text_or_empty(e->enterprise_name), oid_to_text(oid_of(*e)), std::to_string(traps)});
    }
    return rows;
}

// --- the command line ---

struct TableOption {
    const char* name;
    const char* type;
    const char* help;
    std::function<CLI::Option*(CLI::App&, const TableOption&, TableEdit&)> add;
};

template <class Value>
TableOption option(const char* name, const char* type, Value TableEdit::*value, const char* help) {
    return {name, type, help, [value](CLI::App& app, const TableOption& it, TableEdit& options) {
                return app.add_option(it.name, options.*value, it.help)->type_name(it.type);
            }};
}

// One of the three tables.
struct Table {
    const char* name;
    const char* help;
    const char* footer;
    const char* key;  // what set and delete are given
    Rows (*rows)();
    Done (*add)(const TableEdit&);
    Done (*set)(const TableEdit&);
    Done (*remove)(const TableEdit&);
    std::vector<TableOption> add_options;
    std::vector<TableOption> set_options;
};

void add_table_list(CLI::App& parent, const Table& table) {
    const Options options = std::make_shared<TableEdit>();
    CLI::App* list = parent.add_subcommand("list", "List them, a line each");
    list->add_option("--conf", options->edit.conf, "The file")->type_name("FILE");
    list->footer(table.footer);
    list->callback([options, rows = table.rows] {
        load_configuration(options->edit.conf);
        print_table(rows());
    });
}

void add_table_edit(CLI::App& parent, const Table& table, const char* name, const char* help,
                    Done (*change)(const TableEdit&), const std::vector<TableOption>& more) {
    const Options options = std::make_shared<TableEdit>();
    CLI::App* command = parent.add_subcommand(name, help);
    const char* key = change == table.add ? "NAME" : table.key;
    command->add_option(key, options->name, "Its name")->required()->type_name("");
    for (const TableOption& it : more) {
        it.add(*command, it, *options);
    }
    add_edit_options(*command, options->edit);
    command->footer(table.footer);
    command->callback([options, change] {
        run_edit(options->edit, [&options, change] { return change(*options); });
    });
}

void add_table(CLI::App& conf, const Table& table) {
    CLI::App* parent = conf.add_subcommand(table.name, table.help);
    parent->require_subcommand(1);
    parent->footer(table.footer);
    add_table_list(*parent, table);
    add_table_edit(*parent, table, "add", "Configure a further one", table.add, table.add_options);
    add_table_edit(*parent, table, "set", "Change one", table.set, table.set_options);
    add_table_edit(*parent, table, "delete", "Remove one", table.remove, {});
}

}  // namespace

void add_conf_tables(CLI::App& conf) {
    const TableOption new_name = option("--name", "NEW", &TableEdit::new_name, "Its new name");
    const TableOption number = option("--number", "N", &TableEdit::number, "Its number, 0 to 63");
    add_table(conf, {"category",
                     "The event display's categories",
                     category_footer,
                     "NAME",
                     category_rows,
                     add_category,
                     set_category,
                     delete_category,
                     {number},
                     {new_name, number}});
    const TableOption action_command =
        option("--command", "TEXT", &TableEdit::new_command, "The command line; may be empty");
    const TableOption wait_time =
        option("--wait-time", "SECONDS", &TableEdit::wait_time, "How long it may take");
    const TableOption description =
        option("--description", "TEXT", &TableEdit::description, "One line or more");
    add_table(conf, {"action",
                     "What an operator can start",
                     action_footer,
                     "NAME",
                     action_rows,
                     add_action,
                     set_action,
                     delete_action,
                     {action_command, wait_time, description},
                     {new_name, action_command, wait_time, description}});
    TableOption oid = option("OID", "", &TableEdit::oid, "Its object identifier");
    const auto plain_add = oid.add;
    oid.add = [plain_add](CLI::App& app, const TableOption& it, TableEdit& options) {
        return plain_add(app, it, options)->required();
    };
    add_table(conf, {"enterprise",
                     "The enterprises that traps come from",
                     enterprise_footer,
                     "NAME|OID",
                     enterprise_rows,
                     add_enterprise,
                     set_enterprise,
                     delete_enterprise,
                     {oid},
                     {new_name, option("--oid", "OID", &TableEdit::new_oid, "Its new OID")}});
}

}  // namespace wq::command
