/*
 * wqevents conf: looks at the trap configuration, and edits it.
 */
#include <wqevents/configuration.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "conf_edit.h"
#include "conf_init.h"
#include "conf_lint.h"
#include "conf_model.h"
#include "conf_repair.h"
#include "conf_show.h"
#include "conf_tables.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr const char* conf_footer =
    "\nExamples:\n"
    "  wqevents conf check\n"
    "  wqevents conf check examples/vortd.conf\n"
    "  wqevents conf list --category 'Error Events'\n"
    "  wqevents conf set agentLinkDown --severity Critical --dry-run";

constexpr const char* check_footer =
    "\nFILE is read as a daemon would read it, and the first error in it is shown with its line.\n"
    "Without FILE that is $WQVORTDCONF, else C/vortd.conf in the folder of the configuration\n"
    "files. Node lists that it names are not looked at unless --expand is given.\n"
    "The alert configuration is read after it, if there is one.\n"
    "\n"
    "Warned of, with the line and the trap, is what can be read and is probably wrong: severities\n"
    "outside 0 to 5, a $ with a letter that stands for nothing, bindings above 80 and more than "
    "79\n"
    "arguments in a text (how many bindings a trap has the file does not say), lists of nodes "
    "that\n"
    "cannot be read, commands that are not there, and a category twice. With --strict the status "
    "is\n"
    "1 where there is a warning.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf check\n"
    "  wqevents conf check examples/vortd.conf\n"
    "  wqevents conf check --strict vortd.conf";

struct CheckOptions {
    std::string file;
    bool expand = false;
    bool strict = false;
};

struct Counts {
    int enterprises = 0;
    int traps = 0;
    int categories = 0;
    int actions = 0;
};

Counts count_model() {
    Counts counts;
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        ++counts.enterprises;
        for (const trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            ++counts.traps;
        }
    }
    for (std::size_t slot = 0; slot < EMS_CATEGORIES_MAX; ++slot) {
        counts.categories += EMScategories[slot] != nullptr && !is_implied_category(slot) ? 1 : 0;
    }
    counts.actions = numActionCommands;
    return counts;
}

/* Shows what is probably wrong; returns how much that is. */
std::size_t warn(const std::string& text, const std::string& name) {
    const std::vector<Finding> findings = find_faults(text);
    for (const Finding& finding : findings) {
        report(shown(name)
                   .append(":")
                   .append(std::to_string(finding.line))
                   .append(": warning: ")
                   .append(finding.text)
                   .append("\n"));
    }
    return findings.size();
}

void run_check(const CheckOptions& options) {
    trpFormatExpandSourceFiles = options.expand ? 1 : 0;
    const std::string text = load_configuration(options.file);
    const std::string alerts = load_alerts();
    if (!alerts.empty()) {
        throw Failure(alerts);
    }
    const std::size_t warnings = warn(text, getVortdConfFile());
    if (options.strict && warnings != 0) {
        throw Failure(std::to_string(warnings) + (warnings == 1 ? " warning" : " warnings"));
    }
    const Counts counts = count_model();
    Output output;
    output.text() = "ok: " + std::to_string(counts.enterprises) + " enterprises, " +
                    std::to_string(counts.traps) + " traps, " + std::to_string(counts.categories) +
                    " categories, " + std::to_string(counts.actions) + " actions\n";
    output.flush();
}

}  // namespace

void add_conf(CLI::App& app) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* conf = app.add_subcommand("conf", "Look at the trap configuration, or edit it");
    conf->require_subcommand(1);
    conf->footer(conf_footer);
    CLI::App* check = conf->add_subcommand("check", "Read a file and count what is in it");
    check->add_option("FILE", options->file, "The file, see below")->type_name("");
    check->add_flag("--expand", options->expand, "Read the node lists that it names, too");
    check->add_flag("--strict", options->strict, "Fail where there is a warning");
    check->footer(check_footer);
    check->callback([options] { run_check(*options); });
    add_conf_show(*conf);
    add_conf_edit(*conf);
    add_conf_tables(*conf);
    add_conf_init(*conf);
    add_conf_repair(*conf);
}

}  // namespace wq::command
