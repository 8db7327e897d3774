/*
 * wqevents conf: looks at the trap configuration, and edits it.
 */
#include <wqevents/configuration.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "command.h"
#include "conf_edit.h"
#include "conf_model.h"
#include "conf_show.h"
#include "output.h"

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
    "The alert configuration is read behind it, where there is one.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf check\n"
    "  wqevents conf check --expand examples/vortd.conf";

struct CheckOptions {
    std::string file;
    bool expand = false;
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
    counts.categories = static_cast<int>(std::count_if(
        std::begin(EMScategories), std::end(EMScategories), [](char* c) { return c != nullptr; }));
    counts.actions = numActionCommands;
    return counts;
}

void run_check(const CheckOptions& options) {
    setVortdConfFile(options.file.c_str());
    trpFormatExpandSourceFiles = options.expand ? 1 : 0;
    load_configuration();
    const std::string alerts = load_alerts();
    if (!alerts.empty()) {
        throw Failure(alerts);
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
    check->footer(check_footer);
    check->callback([options] { run_check(*options); });
    add_conf_show(*conf);
    add_conf_edit(*conf);
}

}  // namespace wq::command
