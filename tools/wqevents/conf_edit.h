/*
 * wqevents conf add, set, delete and rename: edit the trap configuration.
 */
#ifndef WQEVENTS_TOOL_CONF_EDIT_H
#define WQEVENTS_TOOL_CONF_EDIT_H

namespace CLI {
class App;
}

namespace wq::command {

/* add_conf_edit: registers the four below "conf". */
void add_conf_edit(CLI::App& conf);

}  // namespace wq::command

#endif
