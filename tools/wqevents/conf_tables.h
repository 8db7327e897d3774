// wqevents conf category, action and enterprise: the tables of a trap configuration besides its
// traps.
#pragma once

namespace CLI {
class App;
}

namespace wq::command {

// Registers the three, each with list, add, set and delete, below "conf".
void add_conf_tables(CLI::App& conf);

}  // namespace wq::command
