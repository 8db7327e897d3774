#include "conf_show.h"

#include <wqevents/formatter.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

#include "command.h"
#include "conf_model.h"
#include "conf_trap.h"
#include "oid_text.h"
#include "output.h"
#include "shown_text.h"
#include "text_table.h"
#include "unified_diff.h"

namespace wq::command {
namespace {

constexpr const char* list_footer =
    "\nExamples:\n"
    "  wqevents conf list\n"
    "  wqevents conf list --enterprise netSnmp --category 'Error Events'";

constexpr const char* show_footer =
    "\nThe enterprise's line comes first, then the trap's block, as in the file.\n"
    "\n"
    "Example:\n"
    "  wqevents conf show --conf examples/vortd.conf agentLinkDown";

constexpr const char* diff_footer =
    "\nBoth files are read, and what the library would write for them is compared: comments and\n"
    "layout do not count. Nothing is printed where there is no difference. With --raw the octets\n"
    "are printed as they are, for patch.\n"
    "\n"
    "Example:\n"
    "  wqevents conf diff vortd.conf.old vortd.conf";

struct ListOptions {
    std::string conf, enterprise, category;
};

struct ShowOptions {
    std::string conf, name;
    bool raw = false;
};

struct DiffOptions {
    std::string before, after;
    bool raw = false;
};

std::span<const std::uint32_t> oid_of(const enterprise_info& enterprise) {
    return {enterprise.enterprise_oid, enterprise.oid_len};
}

/* --- list --- */

using Row = std::vector<std::string>;

/* "Major", or the number where that has no name. */
std::string severity_text(int number) {
    const std::string name = severityToString(number);
    return name == "Unknown" ? std::to_string(number) : name;
}

std::string category_text(int number) {
    const bool named =
        number >= 0 && number < EMS_CATEGORIES_MAX && EMScategories[number] != nullptr;
    return named ? EMScategories[number] : std::to_string(number);
}

/* Two slots may have the same name. */
bool is_in(const trap_record& record, const std::string& category) {
    return category.empty() || category_text(record.category_number) == category;
}

std::vector<Row> rows_of(const enterprise_info* only, const std::string& category) {
    std::vector<Row> rows{{"NAME", "ENTERPRISE", "GENERIC", "SPECIFIC", "SEVERITY", "CATEGORY"}};
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        if (only != nullptr && e != only) {
            continue;
        }
        for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            if (is_in(*r, category)) {
                rows.push_back({r->name, e->enterprise_name, std::to_string(r->generic_trap),
                                std::to_string(r->specific_trap), severity_text(r->severity),
                                category_text(r->category_number)});
            }
        }
    }
    return rows;
}

void run_list(const ListOptions& options) {
    load_configuration(options.conf);
    const enterprise_info* only =
        options.enterprise.empty() ? nullptr : find_enterprise_like(options.enterprise);
    if (!options.category.empty()) {
        find_category(options.category);
    }
    print_table(rows_of(only, options.category));
}

/* --- show --- */

/* What print_trap_rec() writes. */
std::string block_of(trap_record& record, const enterprise_info& enterprise) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* stream = open_memstream(&text, &size);
    if (stream == nullptr) {
        throw Failure("not enough memory");
    }
    print_trap_rec(stream, &record, enterprise.enterprise_oid, enterprise.oid_len);
    std::fclose(stream);
    std::string block(text, size);
    std::free(text);
    return block;
}

void run_show(const ShowOptions& options) {
    load_configuration(options.conf);
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
    if (nameToTrapAndEnterprise(options.name.c_str(), &record, &enterprise) != 0) {
        throw no_trap(options.name);
    }
    Output output;
    if (options.raw) {
        output.pass_raw();
    }
    output.text()
        .append(enterprise->enterprise_name)
        .append(" {")
        .append(oid_to_text(oid_of(*enterprise)))
        .append("}\n")
        .append(block_of(*record, *enterprise));
    output.flush();
}

/* --- diff --- */

std::string text_of(const std::string& file) {
    load_configuration(file);
    return without_time_stamp(written_text());
}

void run_diff(const DiffOptions& options) {
    const std::string before = text_of(options.before);
    const std::string after = text_of(options.after);
    Output output;
    if (options.raw) {
        output.pass_raw();
    }
    output.text() = unified_diff({shown(options.before), before}, {shown(options.after), after});
    output.flush();
}

void add_raw(CLI::App& command, bool& raw) {
    command.add_flag("--raw", raw, "Print it without escapes, as for a program");
}

void add_list(CLI::App& conf) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App* list = conf.add_subcommand("list", "List the traps, a line each");
    list->add_option("--conf", options->conf, "The file")->type_name("FILE");
    list->add_option("--enterprise", options->enterprise, "Only its traps")->type_name("NAME|OID");
    list->add_option("--category", options->category, "Only traps of it")->type_name("NAME");
    list->footer(list_footer);
    list->callback([options] { run_list(*options); });
}

void add_show(CLI::App& conf) {
    const auto options = std::make_shared<ShowOptions>();
    CLI::App* show = conf.add_subcommand("show", "Show one trap as the file has it");
    show->add_option("--conf", options->conf, "The file")->type_name("FILE");
    show->add_option("NAME", options->name, "The trap's name")->required()->type_name("");
    add_raw(*show, options->raw);
    show->footer(show_footer);
    show->callback([options] { run_show(*options); });
}

void add_diff(CLI::App& conf) {
    const auto options = std::make_shared<DiffOptions>();
    CLI::App* diff = conf.add_subcommand("diff", "Compare what two files configure");
    diff->add_option("FILE1", options->before, "The old file")->required()->type_name("");
    diff->add_option("FILE2", options->after, "The new file")->required()->type_name("");
    add_raw(*diff, options->raw);
    diff->footer(diff_footer);
    diff->callback([options] { run_diff(*options); });
}

}  // namespace

enterprise_info* find_enterprise_like(const std::string& text) {
    enterprise_info* enterprise = nullptr;
    if (name_to_enterprise(text.c_str(), &enterprise) == 0) {
        return enterprise;
    }
    if (text.find_first_not_of(".0123456789") == std::string::npos) {
        const std::vector<std::uint32_t> oid = parse_oid("enterprise", text);
        find_enterprise(oid.data(), static_cast<std::uint32_t>(oid.size()), &enterprise);
        if (enterprise != nullptr && enterprise->oid_len == oid.size()) {
            return enterprise;
        }
    }
    throw Failure("no enterprise " + command::quoted(text) +
                  " is configured; 'wqevents conf enterprise add' makes one");
}

Failure no_category(const std::string& name) {
    return Failure("no category " + command::quoted(name) +
                   " is configured; 'wqevents conf category add' makes one");
}

int find_category(const std::string& name) {
    const auto* found = std::ranges::find_if(
        EMScategories, [&name](const char* other) { return other != nullptr && name == other; });
    if (found == std::end(EMScategories)) {
        throw no_category(name);
    }
    return static_cast<int>(found - std::begin(EMScategories));
}

void add_conf_show(CLI::App& conf) {
    add_list(conf);
    add_show(conf);
    add_diff(conf);
}

}  // namespace wq::command
