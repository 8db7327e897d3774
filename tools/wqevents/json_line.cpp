// Writes JSON without what could steer a terminal.
#include "json_line.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "utf8.h"

namespace wq::command {
namespace {

bool is_ascii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c < '\x7F'; });
}

// All that is escaped stands in strings: JSON is ASCII outside.
std::string escaped(std::string_view json) {
    std::string out;
    while (!json.empty()) {
        const Character character = first_character(json);
        if (is_control(character.code) || is_order(character.code)) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x",
                          static_cast<unsigned>(character.code));
            out += escape.data();
        } else {
            out += json.substr(0, character.size);
        }
        json.remove_prefix(character.size);
    }
    return out;
}

}  // namespace

std::string json_line(const nlohmann::ordered_json& object) {
    using nlohmann::ordered_json;
    std::string json = object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    if (!is_ascii(json)) {
        json = escaped(json);
    }
    json += '\n';
    return json;
}

}  // namespace wq::command
