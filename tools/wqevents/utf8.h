// UTF-8, character by character.
#pragma once

#include <cstddef>
#include <string_view>

namespace wq::command {

struct Character {
    std::size_t size = 0;  // in bytes; 0: none
    char32_t code = 0;
};

// first_character: the well-formed character (RFC 3629) that `text` begins with, if there is one.
Character first_character(std::string_view text);

// is_control: whether it is a control character: C0, DEL or C1 (ISO 6429).
constexpr bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F);
}

// is_order: whether it starts a line or turns the direction of letters round: what stands beside it
// may then look like something else. Single marks of direction are a part of ordinary text.
constexpr bool is_order(char32_t code) {
    return (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

}  // namespace wq::command
