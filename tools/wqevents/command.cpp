#include "command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>

#include "error_stream.h"
#include "output.h"
#include "shown_text.h"
#include "subcommands.h"

namespace wq::command {
namespace {

constexpr const char* overview_footer =
    "Examples:\n"
    "  wqevents listen --udp 127.0.0.1:16200 --socket /tmp/traps.socket\n"
    "  wqevents event --to local:/tmp/traps.socket 0x03870100 'disk is full' --host alpha\n"
    "  wqevents send --to raw:localhost:1162 1.3.6.1.4.1.8072 6 17 '' 1.3.6.1.2.1.1.5.0 s alpha\n"
    "  wqevents format --conf vortd.conf traps.pcap\n"
    "\n"
    "'wqevents SUBCOMMAND --help' tells more. The exit status is 0 for success, 1 for a failure,\n"
    "2 for a command line that cannot be. Control characters in what others wrote are printed as\n"
    "\\xHH, unless --raw is given.";

/* The whole of `text` as a number of the base, or false. */
bool read_number(std::string_view text, int base, std::int64_t& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc{} && stop == end;
}

int report_usage(const CLI::App& app, const std::string& text) {
    const std::string name = full_name(asked_for(app));
    report_message(name, text);
    report("See '" + name + " --help'.\n");
    return exit_usage;
}

int report_parse_error(const CLI::App& app, const CLI::ParseError& error) {
    if (const auto unknown = unknown_word(asked_for(app))) {
        return report_usage(app, *unknown);
    }
    std::string text = shown(error.what());
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        text += "\nWrite -- before arguments that begin with a dash.";
    }
    return report_usage(app, text);
}

int report_failure(const CLI::App& app, const std::exception& error) {
    if (*error.what() != '\0') {
        report_message(full_name(asked_for(app)), error.what());
    }
    return exit_failure;
}

/* Help, or the version. */
int print_wish(const CLI::App& app, const CLI::Success& wish) {
    if (const auto unknown = unknown_word(asked_for(app))) {
        return report_usage(app, *unknown);
    }
    std::ostringstream text;
    app.exit(wish, text, text);
    Output output;
    output.text() = text.str();
    output.flush();
    return 0;
}

/* Shells and callers then see what they see of any other program in a pipeline. */
int end_without_reader() {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    return exit_failure;
}

/* The command line without the program's name, the last word first, as the parser wants it. */
std::vector<std::string> reversed_words(int argc, const char* const* argv) {
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const std::string first = words.empty() ? "" : words[0];
    if (first == "send" || first == "set") {
        const std::size_t before_bindings = first == "send" ? 4 : 1;
        words = shield_values({words.begin() + 1, words.end()}, before_bindings);
        words.insert(words.begin(), first);
    }
    std::reverse(words.begin(), words.end());
    return words;
}

int parse_and_run(CLI::App& app, int argc, const char* const* argv) {
    try {
        app.parse(reversed_words(argc, argv));
        return 0;
    } catch (const CLI::Success& wish) {
        return print_wish(app, wish);
    } catch (const CLI::ParseError& error) {
        return report_parse_error(app, error);
    } catch (const UsageError& error) {
        return report_usage(app, error.what());
    } catch (const std::exception& error) {
        return report_failure(app, error);
    }
}

int run_to_the_end(CLI::App& app, int argc, const char* const* argv) {
    try {
        return parse_and_run(app, argc, argv);
    } catch (const ReaderGone&) {
        return end_without_reader();
    } catch (const Fatal& error) {
        return report_failure(app, error);
    }
}

}  // namespace

Failure system_failure(const std::string& what, int error) {
    return Failure(shown(what) + ": " + std::strerror(error));
}

void report(std::string lines) {
    show_lines(lines);
    if (errors_never_wait()) {
        write_error(lines);
    } else {
        std::fputs(lines.c_str(), stderr);
    }
}

void report_message(const std::string& name, const std::string& text) {
    report(name + ": " + indented(text) + "\n");
}

void report_progress(const std::string& text) {
    std::fputs(("\r" + shown(text) + "\033[K").c_str(), stderr);
}

std::string quoted(std::string_view text) {
    return "'" + shown(text) + "'";
}

std::int64_t parse_number(std::string_view what, std::string_view text, std::int64_t low,
                          std::int64_t high) {
    std::int64_t number = 0;
    if (!read_number(text, 10, number) || number < low || number > high) {
        throw UsageError(std::string(what) + " " + quoted(text) + " is not a number from " +
                         std::to_string(low) + " to " + std::to_string(high));
    }
    return number;
}

int parse_event_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    std::int64_t number = 0;
    if (!read_number(digits, hexadecimal ? 16 : 10, number) || number < 0 ||
        number > std::numeric_limits<int>::max()) {
        throw UsageError("event number " + quoted(text) +
                         " is not a number from 0 to 2147483647, decimal or as 0x03870100");
    }
    return static_cast<int>(number);
}

int run(int argc, const char* const* argv) {
    // A peer or a reader that is gone is an error of the call that finds out, not the end.
    std::signal(SIGPIPE, SIG_IGN);
    // Traps and formats are text of the user's locale, numbers on the command line are not.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_TIME, "");
    CLI::App app("Sends, receives and formats the platform's events and SNMPv1 traps.", "wqevents");
    app.set_version_flag("--version", "wqevents " WQEVENTS_VERSION, "Print the version and end");
    app.require_subcommand(1);
    app.footer(overview_footer);
    app.get_formatter()->column_width(34);
    add_listen(app);
    add_event(app);
    add_send(app);
    add_names(app);
    add_mib(app);
    add_status(app);
    add_format(app);
    add_conf(app);
    add_codepoints(app);
    add_requests(app);
    return run_to_the_end(app, argc, argv);
}

}  // namespace wq::command
