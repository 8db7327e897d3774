// wqevents conf init: the first file.
#include "conf_init.h"

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <string>

#include <wqevents/configuration.h>

#include "command.h"
#include "conf_edit.h"
#include "conf_file.h"
#include "conf_model.h"
#include "output.h"
#include "shown_text.h"
#include "unified_diff.h"

namespace wq::command {
namespace {

constexpr const char* init_footer =
    "\nMakes a trap configuration without traps, with the eight standard categories. A file that "
    "is\n"
    "there stays as it is. Without FILE it is the one that 'wqevents conf check' reads.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf init\n"
    "  wqevents conf init new.conf --dry-run";

struct InitOptions {
    std::string file;
    bool dry_run = false;
};

struct StandardCategory {
    std::size_t slot;
    const char* name;
};

std::string first_text() {
    const std::array<StandardCategory, 8> categories = {{
        {0, threshCatString},
        {1, nettopCatString},
        {2, errorCatString},
        {3, statusCatString},
        {4, nodeconfCatString},
        {5, applalertCatString},
        {7, logOnlyCatString},
        {9, ignoreCatString},
    }};
    free_all_info();
    for (const StandardCategory& category : categories) {
        EMScategories[category.slot] = doStrdup(category.name);
    }
    std::string text = written_text();
    read_back(text);
    require_same_text(text);
    return text;
}

void run_init(const InitOptions& options) {
    setVortdConfFile(options.file.c_str());
    const std::string name = getVortdConfFile();
    const std::string text = first_text();
    Output output;
    if (options.dry_run) {
        output.text() = unified_diff({"/dev/null", ""}, {shown(name), text});
    } else {
        create_file(name, text);
        output.text() = "made " + shown(name) + "\n";
    }
    output.flush();
}

}  // namespace

void add_conf_init(CLI::App& conf) {
    const auto options = std::make_shared<InitOptions>();
    CLI::App* init = conf.add_subcommand("init", "Make the first file");
    CLI::Option* file = init->add_option("FILE", options->file, "The file, see below");
    file->type_name("");
    init->add_option("--conf", options->file, "Likewise")->type_name("FILE")->excludes(file);
    init->add_flag("--dry-run", options->dry_run, "Print what would be written; write nothing");
    init->footer(init_footer);
    init->callback([options] { run_init(*options); });
}

}  // namespace wq::command
