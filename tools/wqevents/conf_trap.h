/*
 * One configured trap as values of its own: to be changed, put into the model and compared.
 */
#ifndef WQEVENTS_TOOL_CONF_TRAP_H
#define WQEVENTS_TOOL_CONF_TRAP_H

#include <wqevents/configuration.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "command.h"

namespace wq::command {

struct TrapValues {
    std::string name;
    enterprise_info* enterprise = nullptr;
    int generic = 6;
    int specific = 0;
    char source = 'A';
    int severity = 1;
    int status = 1;
    int category = 0;
    std::string format;
    std::optional<std::string> exec;
    std::optional<std::string> display;
    bool forward = false;
    std::vector<std::string> nodes;
    std::optional<std::string> event_class;
    std::vector<std::pair<std::string, std::string>> slots;
    std::string description;
};

/* What a value is called on the command line, and the value as text. */
struct ShownValue {
    const char* name;
    std::string text;

    bool operator==(const ShownValue&) const = default;
};

/* find_trap: the values of the trap of that name; a Failure where there is none. */
TrapValues find_trap(const std::string& name);

/* no_trap: the Failure that tells so. */
Failure no_trap(const std::string& name);

/* has_alert: whether an alert is configured for the trap of that name. */
bool has_alert(const std::string& name);

/* in_one_line: the text with "\\n" for each newline. */
std::string in_one_line(const std::string& text);

/* shown_values: all of them, always in the same order. */
std::vector<ShownValue> shown_values(const TrapValues& trap);

/* check_values: a Failure that tells which text cannot be kept in a file, and why. */
void check_values(const TrapValues& trap);

/* add_trap: a Failure where the model has the name, or a trap that it would be mistaken for. */
void add_trap(const TrapValues& trap);

/*
 * replace_trap: puts `trap` where the one called `name` was; a Failure as above. It keeps its place
 * among traps of the same numbers, since the first that holds for a node counts.
 */
void replace_trap(const std::string& name, const TrapValues& trap);

}  // namespace wq::command

#endif
