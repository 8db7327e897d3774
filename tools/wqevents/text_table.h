// Rows of texts, printed in columns.
#pragma once

#include <string>
#include <vector>

namespace wq::command {

// Prints the rows, which have the same number of texts, with two blanks between the columns.
void print_table(const std::vector<std::vector<std::string>>& rows);

}  // namespace wq::command
