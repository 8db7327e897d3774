/*
 * Edits of the trap configuration: what all of them have in common, and wqevents conf add, set,
 * delete and rename.
 */
#ifndef WQEVENTS_TOOL_CONF_EDIT_H
#define WQEVENTS_TOOL_CONF_EDIT_H

#include <functional>
#include <string>
#include <vector>

#include "conf_file.h"
#include "conf_trap.h"

namespace CLI {
class App;
}

namespace wq::command {

struct EditOptions {
    std::string conf;
    bool dry_run = false;
    bool raw = false;
    bool backup = false;
    bool no_notify = false;
    double wait = 0;
};

/* What an edit did to the model. */
struct Done {
    std::string title;                     /* "added x" */
    std::vector<std::string> details = {}; /* lines below it */
    std::string name = {};                 /* of the trap that must be there now; may be empty */
    std::vector<ShownValue> wanted = {};   /* its values */
    bool leaves_alert = false;             /* an alert is configured for a name that is gone */
    bool changed = true;                   /* something is another than before */
};

/* add_edit_options: --conf, --wait, --dry-run, --raw, --backup and --no-notify. */
void add_edit_options(CLI::App& command, EditOptions& options);

/*
 * run_edit: locks the file, reads it, has `change` change the model, makes sure that the reader
 * understands what would be written, writes it, prints what was done and tells the daemon.
 */
void run_edit(const EditOptions& options, const std::function<Done()>& change);

/* The last steps of an edit, for those that take others before. */
void print_difference(const EditOptions& options, const std::string& before,
                      const std::string& after);
void store(const EditOptions& options, LockedFile file, const std::string& before,
           const std::string& after);
void tell_daemon(const EditOptions& options);

/* backup_name: what the old text is kept as. */
std::string backup_name();

/* add_conf_edit: registers the four subcommands below "conf". */
void add_conf_edit(CLI::App& conf);

}  // namespace wq::command

#endif
