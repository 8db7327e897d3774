// JSON for a terminal.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace wq::command {

// json_line: the object on a line of its own, with its newline. What shown_text.h escapes is
// escaped here as \uHHHH; octets that are not UTF-8 become U+FFFD.
std::string json_line(const nlohmann::ordered_json& object);

}  // namespace wq::command
