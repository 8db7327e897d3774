// What is probably wrong in a trap configuration that can be read.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace wq::command {

struct Finding {
    std::size_t line;
    std::string text;
};

// The findings in a text that the reader has accepted, in the order of its lines:
//   - a category that is there twice, or whose number is taken;
//   - a severity outside 0 to 5;
//   - in formats and commands: `$` with a letter that stands for nothing, numbers of bindings above
//     EMS_ARGS_MAX, more arguments than are expanded, and texts that are too long to be compiled;
//   - lists of nodes that cannot be read;
//   - commands that are not there.
std::vector<Finding> find_faults(std::string_view text);

}  // namespace wq::command
