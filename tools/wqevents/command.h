/*
 * What the subcommands share: how they end, how they read numbers, and how they are registered.
 */
#ifndef WQEVENTS_TOOL_COMMAND_H
#define WQEVENTS_TOOL_COMMAND_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace wq::command {

inline constexpr int exit_failure = 1;
inline constexpr int exit_usage = 2;

/* The command line asks for something that cannot be: status 2. */
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* What was asked for did not work: status 1. Without a text, messages have told of it already. */
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* Nor will anything else that was asked for work: status 1. */
struct Fatal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* Nobody reads the standard output any more: the command ends quietly, by SIGPIPE. */
struct ReaderGone {};

/* system_failure: the Failure "what: text of the error number". `what` is
 * escaped as a part of a line. */
Failure system_failure(const std::string& what, int error);

/* report: writes whole lines to the standard error stream, at once, as show_lines() makes them; see
 * error_stream.h for one that must not wait. */
void report(std::string lines);

/* report_message: writes "name: text", whose further lines are indented. */
void report_message(const std::string& name, const std::string& text);

/* report_progress: puts `text` in the place of the terminal's present line, which goes on. */
void report_progress(const std::string& text);

/*
 * parse_number: the decimal number `text`, which must lie from `low` to `high`. `what` names it in
 * the UsageError.
 */
std::int64_t parse_number(std::string_view what, std::string_view text, std::int64_t low,
                          std::int64_t high);

/* parse_event_number: a number of an event, decimal or, behind 0x, hexadecimal. */
int parse_event_number(std::string_view text);

/* quoted: shown(text) in single quotes, for messages. */
std::string quoted(std::string_view text);

/* Each registers a subcommand of `app`, which runs while the command line is parsed. */
void add_listen(CLI::App& app);
void add_event(CLI::App& app);
void add_send(CLI::App& app);
void add_names(CLI::App& app);
void add_mib(CLI::App& app);
void add_status(CLI::App& app);
void add_format(CLI::App& app);
void add_conf(CLI::App& app);
void add_codepoints(CLI::App& app);
void add_requests(CLI::App& app);

/*
 * shield_values: the words behind "send" with the values of bindings marked, so that the parser
 * takes none for an option or a list, whatever it looks like; the subcommand takes the marks off.
 * `before` is the number of arguments in front of the bindings.
 */
std::vector<std::string> shield_values(std::vector<std::string> words, std::size_t before = 4);

/* unshielded: the arguments as they were given. */
std::vector<std::string> unshielded(std::vector<std::string> arguments);

/* run: the whole command; returns the process's exit status. */
int run(int argc, const char* const* argv);

}  // namespace wq::command

#endif
