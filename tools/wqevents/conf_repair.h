// wqevents conf repair: a file whose writer did not finish.
#pragma once

namespace CLI {
class App;
}

namespace wq::command {

// Registers "repair" below "conf".
void add_conf_repair(CLI::App& conf);

}  // namespace wq::command
