/*
 * wqevents conf list, show and diff: what a trap configuration holds.
 */
#ifndef WQEVENTS_TOOL_CONF_SHOW_H
#define WQEVENTS_TOOL_CONF_SHOW_H

#include <wqevents/configuration.h>

#include <string>

#include "command.h"

namespace CLI {
class App;
}

namespace wq::command {

/* find_enterprise_like: the enterprise of that name, or object identifier; else a Failure. */
enterprise_info* find_enterprise_like(const std::string& text);

/* no_category: the Failure that tells so. */
Failure no_category(const std::string& name);

/* find_category: the number of the category of that name; else a Failure. */
int find_category(const std::string& name);

/* add_conf_show: registers the three below "conf". */
void add_conf_show(CLI::App& conf);

}  // namespace wq::command

#endif
