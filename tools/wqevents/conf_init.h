// wqevents conf init: the first file.
#pragma once

namespace CLI {
class App;
}

namespace wq::command {

// Registers "init" below "conf".
void add_conf_init(CLI::App& conf);

}  // namespace wq::command
