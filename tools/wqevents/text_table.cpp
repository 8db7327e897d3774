// Rows of texts, printed in columns.
#include "text_table.h"

#include <algorithm>
#include <cstddef>

#include "output.h"

namespace wq::command {

void print_table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const std::vector<std::string>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    Output output;
    for (const std::vector<std::string>& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            output.text().append(row[i]).append(widths[i] + 2 - row[i].size(), ' ');
        }
        output.text().append(row.back()).append("\n");
        output.written();
    }
    output.flush();
}

}  // namespace wq::command
