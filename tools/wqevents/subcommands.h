// The subcommands that a command line names, and those that it may have meant.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace wq::command {

// asked_for: the subcommand that was chosen last, "conf set" rather than "conf"; else `app`.
const CLI::App& asked_for(const CLI::App& app);

// full_name: "wqevents conf set".
std::string full_name(const CLI::App& asked);

// unknown_word: what to say if `asked` has subcommands, but what the command line has there is none
// and no option either.
std::optional<std::string> unknown_word(const CLI::App& asked);

}  // namespace wq::command
