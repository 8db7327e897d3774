// The lines of a trap configuration's text, each with what it is. The text is one that the reader
// has accepted, or the beginning of one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace wq::command {

enum class ConfLineKind { category, action, trap, format, exec, display, nodes };

struct ConfLine {
    ConfLineKind kind;
    std::size_t number;     // from 1 on
    std::string_view text;  // without leading blanks
    std::string_view
        argument;  // what follows the keyword; of a format the line, of a trap its name
};

// The lines of these kinds, in their order; those of others are left out.
std::vector<ConfLine> conf_lines(std::string_view text);

// A CATEGORY line's fields.
struct ConfCategory {
    std::size_t line;
    std::size_t slot;
    std::string_view name;
};

std::vector<ConfCategory> category_lines(std::string_view text);

// An ACTION line's fields.
struct ConfAction {
    std::string_view name;
    std::string_view command;
};

ConfAction action_of(const ConfLine& line);

// The severity that a trap's line holds.
int severity_of(const ConfLine& line);

}  // namespace wq::command
